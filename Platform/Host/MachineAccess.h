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

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VORN_ASAN 1
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define VORN_ASAN 1
#endif

#if defined(VORN_ASAN)
#include <sanitizer/asan_interface.h>
#endif

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
// The window the machine's memory lives in (Memory.cpp). Below its end lie
// only the executable's image (the module's code and constants), the
// machine's memory, the module's data, and pages that are not mapped or
// mapped inaccessible: an access there needs no check, as one that is not
// to memory faults by itself. The C library's heap starts above the window.
//
constexpr UINT64 kWindowBase = 0x10000000;
constexpr UINT64 kWindowEnd  = 0x50000000;

extern "C" char _end[]; // the linker's: where the executable's image ends

//
// Where the accesses that need no check end: the window's end, or the
// image's when the linker placed the image above the window (lld puts every
// section after the one that marks the window's end).
//
inline UINT64 UncheckedEnd () {
  const UINT64 ImageEnd = reinterpret_cast<UINT64> (_end);
  return (ImageEnd > kWindowEnd) ? ImageEnd : kWindowEnd;
}

//
// Whether module code may reach Length bytes at Buffer without a closer
// look: the machine's memory, the image, the calling thread's stack. Under
// the sanitizer only the window passes here: an image or stack address
// needs the closer look (redzones, locals out of scope). The hot services
// test this first and leave CheckMachineAccess to an out-of-line path.
//
inline bool IsPlainMachineAccess (const void *Buffer, UINT64 Length) {
  const UINT64 Address = reinterpret_cast<UINT64> (Buffer);
#if defined(VORN_ASAN)
  return Within (Address, Length, kWindowBase, kWindowEnd);
#else
  //
  // The end lies at or above the window's: for a length known when this is
  // compiled, one compare.
  //
  return ((Length <= kWindowEnd) && (Address <= UncheckedEnd () - Length)) ||
         Within (Address, Length, tStackLow, tStackHigh);
#endif
}

//
// Raises a MachineFault when module code, running as firmware, reaches
// Length bytes at Buffer that are not the machine's. The common cases, the
// machine's memory and the module's locals, cost a few compares.
//
inline void CheckMachineAccess (const void *Buffer, UINT64 Length, MachineFaultKind Kind) {
  const UINT64 Address = reinterpret_cast<UINT64> (Buffer);
  if (!Within (Address, Length, 0, UncheckedEnd ()) && !Within (Address, Length, tStackLow, tStackHigh)) {
    CheckOutsideMachine (Address, Kind);
    return;
  }

#if defined(VORN_ASAN)
  //
  // The sanitizer's redzones between the image's objects, and the host's
  // frames' locals out of scope, are no memory: an address a table names
  // there is a fault, not a sanitizer report.
  //
  const void *Poisoned = !Within (Address, Length, kWindowBase, kWindowEnd)
                             ? __asan_region_is_poisoned (const_cast<void *> (Buffer), Length)
                             : nullptr;
  if (Poisoned != nullptr) {
    CheckOutsideMachine (reinterpret_cast<UINT64> (Poisoned), Kind);
  }
#endif
}

} // namespace Host::Internal
