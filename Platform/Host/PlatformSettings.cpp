/** @file
  Platform settings the firmware reads: the run-time debug print level, the
  module's fixed-at-build values (feature flags included) and the
  configuration values.
**/
#include <Library/DebugPrintErrorLevelLib.h>
#include <Library/PcdLib.h>

#include "HostInternal.h"

UINT8 _gPcd_FixedAtBuild_PcdDebugPropertyMask;

#define VORN_FIX_FLAG(Name) \
  { &_gPcd_FixedAtBuild_PcdVornFix##Name, Host::Fix::Name }
#define VORN_FIX_DEFINE(Name) BOOLEAN _gPcd_FixedAtBuild_PcdVornFix##Name;

VORN_FIX_DEFINE (ErstRead)
VORN_FIX_DEFINE (ErstClear)
VORN_FIX_DEFINE (FreeSpace)
VORN_FIX_DEFINE (FvHeader)
VORN_FIX_DEFINE (HestLength)
VORN_FIX_DEFINE (CxlGuid)
VORN_FIX_DEFINE (OsBuffer)
VORN_FIX_DEFINE (CperBounds)
VORN_FIX_DEFINE (KeepOnEnable)
VORN_FIX_DEFINE (DuplicateId)
VORN_FIX_DEFINE (NullStore)
VORN_FIX_DEFINE (TornTail)
VORN_FIX_DEFINE (SafeDefrag)
VORN_FIX_DEFINE (RecordIndex)

namespace Host::Internal {

namespace {

struct FeatureFlag {
  BOOLEAN *Value;
  Fix      Which;
};

const FeatureFlag kFeatureFlags[] = {
    VORN_FIX_FLAG (ErstRead),     VORN_FIX_FLAG (ErstClear),   VORN_FIX_FLAG (FreeSpace), VORN_FIX_FLAG (FvHeader),
    VORN_FIX_FLAG (HestLength),   VORN_FIX_FLAG (CxlGuid),     VORN_FIX_FLAG (OsBuffer),  VORN_FIX_FLAG (CperBounds),
    VORN_FIX_FLAG (KeepOnEnable), VORN_FIX_FLAG (DuplicateId), VORN_FIX_FLAG (NullStore), VORN_FIX_FLAG (TornTail),
    VORN_FIX_FLAG (SafeDefrag),   VORN_FIX_FLAG (RecordIndex),
};

} // namespace

//
// The module build the machine runs: its property mask and the switches it
// was built with.
//
void ApplyFixedPcds () {
  _gPcd_FixedAtBuild_PcdDebugPropertyMask = Config ().DebugPropertyMask;
  for (const FeatureFlag &Flag : kFeatureFlags) {
    *Flag.Value = Config ().Fixes.contains (Flag.Which);
  }
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

UINT64
_PCD_GET_MODE_64_PcdVornErstSpareBase (VOID) {
  return Host::Config ().ErstSpareBase;
}

UINT32
_PCD_GET_MODE_32_PcdVornErstSpareSize (VOID) {
  return Host::Config ().ErstSpareSize;
}
