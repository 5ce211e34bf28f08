/** @file
  Processor control: breakpoints resume as under a debugger, a dead loop
  stops the run.
**/
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include <Library/BaseLib.h>

#include "FirmwareInternal.h"
#include "HostInternal.h"

namespace Host::Internal {

namespace {

std::atomic<UINT64> mBreakpoints;

} // namespace

void ResetBreakpoints () {
  mBreakpoints = 0;
}

} // namespace Host::Internal

VOID CpuBreakpoint (VOID) {
  Host::Internal::mBreakpoints++;
}

//
// Firmware would hang here for a debugger to attach: inside an entry the
// watchdog stops it; anywhere else the run must end, and loudly.
//
VOID CpuDeadLoop (VOID) {
  if (Host::InFirmware ()) {
    Host::Internal::StopRunawayEntry ("stopped in CpuDeadLoop");
  }

  std::fprintf (stderr, "CpuDeadLoop: processor %llu stopped in a dead loop\n",
                static_cast<unsigned long long> (Host::CurrentCpu ()));
  std::abort ();
}

VOID CpuPause (VOID) {
  std::this_thread::yield ();
}

namespace Host {

UINT64
BreakpointCount () {
  return Internal::mBreakpoints;
}

} // namespace Host
