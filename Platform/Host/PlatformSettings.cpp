/** @file
  Platform settings the firmware reads: the run-time debug print level, the
  module's fixed-at-build values and the configuration values.
**/
#include <Library/DebugPrintErrorLevelLib.h>
#include <Library/PcdLib.h>

#include "HostInternal.h"

UINT8  _gPcd_FixedAtBuild_PcdDebugPropertyMask;
UINT32 _gPcd_FixedAtBuild_PcdFixedDebugPrintErrorLevel;

namespace Host::Internal {

//
// The module build the machine runs: its property mask, and a fixed level
// mask that lets every level through so that the run-time level decides.
//
void ApplyFixedPcds () {
  _gPcd_FixedAtBuild_PcdDebugPropertyMask         = Config ().DebugPropertyMask;
  _gPcd_FixedAtBuild_PcdFixedDebugPrintErrorLevel = 0xFFFFFFFF;
}

} // namespace Host::Internal

UINT32
GetDebugPrintErrorLevel (VOID) {
  return Host::Config ().DebugPrintErrorLevel;
}

UINT64
_PCD_GET_MODE_64_PcdPciExpressBaseAddress (VOID) {
  return Host::Config ().PciExpressBaseAddress;
}
