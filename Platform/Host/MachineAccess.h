/** @file
  The check every platform service that reaches memory for module code makes
  first (BaseMemoryLib, the SPI protocol's buffers, the services that fill a
  caller's buffer): module code running as firmware may reach the machine's
  memory, its own image and its stack, nothing else. An address anywhere
  else (the host's heap, a library, an address a table or the OS named) ends
  the entry with a MachineFault, as an access to memory the machine lacks.
**/
#pragma once

#include <Firmware.h>
#include <Host.h>

//
// The executable's first and last byte: its image holds the module's code
// and constant data (the module image, in SMRAM on hardware).
//
extern "C" const char __ehdr_start[];
extern "C" char       _end[];

namespace Host::Internal {

//
// The calling thread's stack (the module's locals), set when the thread
// first enters firmware; empty before.
//
extern constinit thread_local UINT64 tStackLow;
extern constinit thread_local UINT64 tStackHigh;

//
// Whether [Address, Address + Length) lies inside [Base, End).
//
inline bool Within (UINT64 Address, UINT64 Length, UINT64 Base, UINT64 End) {
  return (Address - Base < End - Base) && (Length <= End - Address);
}

//
// A host access made outside firmware passes; otherwise raises the fault
// when module code made it.
//
void CheckOutsideMachine (UINT64 Address, MachineFaultKind Kind);

//
// Raises a MachineFault when module code, running as firmware, reaches
// Length bytes at Buffer that are not the machine's. The common case, the
// machine's memory, costs a few compares.
//
inline void CheckMachineAccess (const void *Buffer, UINT64 Length, MachineFaultKind Kind) {
  const UINT64 Address = reinterpret_cast<UINT64> (Buffer);
  if (!Within (Address, Length, kAcpiBase, kBootServicesBase + kBootServicesSize) &&
      !Within (Address, Length, kSmramBase, kModuleDataBase + kModuleDataSize) &&
      !Within (Address, Length, tStackLow, tStackHigh) &&
      !Within (Address, Length, reinterpret_cast<UINT64> (__ehdr_start), reinterpret_cast<UINT64> (_end))) {
    CheckOutsideMachine (Address, Kind);
  }
}

} // namespace Host::Internal
