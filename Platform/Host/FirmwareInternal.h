/** @file
  The firmware-entry state of one host thread, shared between the scope
  (FirmwareScope.cpp) and the fault handlers (FaultSignals.cpp).
**/
#pragma once

#include <string>

#include <Firmware.h>

namespace Host::Internal {

struct FirmwareThread {
  UINT32      Depth; // nested scopes; 0 outside firmware
  EntryKind   Kind;  // of the outermost scope
  const char *Name;
  UINT64      Value;
  UINTN       Cpu;
  UINT64      LinesAtEntry;
  UINT64      LineBudget;
};

FirmwareThread &CurrentFirmwareThread ();

//
// Installs the SIGSEGV and SIGBUS handlers (once per process) and makes the
// calling thread ready to be stopped by its processor-time budget.
//
void PrepareFaultHandling ();

//
// Starts and stops the processor-time budget of the calling thread's
// outermost entry.
//
void StartCpuBudget (UINT32 Seconds);
void StopCpuBudget ();

//
// Throws the watchdog's MachineFault for the calling thread's entry; the
// stack walk starts at the caller.
//
[[noreturn]] void StopRunawayEntry (const std::string &Reason);

//
// Throws the MachineFault of an access to Address that a platform service
// refused, when module code asked for it; returns when host code did.
//
void RaiseAccessFault (MachineFaultKind Kind, UINT64 Address);

//
// A point where host services may stop a runaway entry: no host lock is
// held. Throws when the entry is over a budget.
//
void FirmwareCheckpoint ();

//
// "software SMI 0x9C on processor 0", from the thread's outermost entry.
//
std::string EntryText (const FirmwareThread &Thread);

} // namespace Host::Internal
