/** @file
  Platform settings the firmware reads: the run-time debug print level and
  the configuration values.
**/
#include <Library/DebugPrintErrorLevelLib.h>
#include <Library/PcdLib.h>

#include "Host.h"

UINT32
GetDebugPrintErrorLevel (VOID) {
  return Host::Config ().DebugPrintErrorLevel;
}

UINT8
_PCD_GET_MODE_8_PcdDebugPropertyMask (VOID) {
  return Host::Config ().DebugPropertyMask;
}

//
// Every level passes the build-time filter; the run-time level decides.
//
UINT32
_PCD_GET_MODE_32_PcdFixedDebugPrintErrorLevel (VOID) {
  return 0xFFFFFFFF;
}

UINT64
_PCD_GET_MODE_64_PcdPciExpressBaseAddress (VOID) {
  return Host::Config ().PciExpressBaseAddress;
}
