/** @file
  Platform configuration values the module reads.
**/
#pragma once

#include <Uefi.h>

#define PcdGet8(TokenName)       _PCD_GET_MODE_8_##TokenName ()
#define PcdGet32(TokenName)      _PCD_GET_MODE_32_##TokenName ()
#define PcdGet64(TokenName)      _PCD_GET_MODE_64_##TokenName ()
#define FeaturePcdGet(TokenName) _PCD_GET_MODE_BOOL_##TokenName ()

//
// Fixed-at-build settings are values of the module's build: library code
// reads them from the module's generated data, never through a call. The
// machine writes them when it loads the module build it was configured with.
// Feature flags are fixed-at-build too.
//
extern UINT8 _gPcd_FixedAtBuild_PcdDebugPropertyMask;

#define _PCD_GET_MODE_8_PcdDebugPropertyMask() _gPcd_FixedAtBuild_PcdDebugPropertyMask

//
// Every build of the module lets every level through its fixed mask, so
// that the run-time level decides; as a constant, a level test folds it away.
//
#define _PCD_GET_MODE_32_PcdFixedDebugPrintErrorLevel() 0xFFFFFFFFU

//
// One feature flag per switch that replaces a specified rule known to hurt
// users; all are FALSE unless the platform turns them on.
//
#define VORN_FIX_FEATURE_PCD(Name)                            \
  extern BOOLEAN _gPcd_FixedAtBuild_PcdVornFix##Name;         \
  inline BOOLEAN _PCD_GET_MODE_BOOL_PcdVornFix##Name (VOID) { \
    return _gPcd_FixedAtBuild_PcdVornFix##Name;               \
  }

VORN_FIX_FEATURE_PCD (ErstRead)
VORN_FIX_FEATURE_PCD (ErstClear)
VORN_FIX_FEATURE_PCD (FreeSpace)
VORN_FIX_FEATURE_PCD (FvHeader)
VORN_FIX_FEATURE_PCD (HestLength)
VORN_FIX_FEATURE_PCD (CxlGuid)
VORN_FIX_FEATURE_PCD (OsBuffer)
VORN_FIX_FEATURE_PCD (CperBounds)
VORN_FIX_FEATURE_PCD (KeepOnEnable)
VORN_FIX_FEATURE_PCD (DuplicateId)
VORN_FIX_FEATURE_PCD (NullStore)
VORN_FIX_FEATURE_PCD (TornTail)
VORN_FIX_FEATURE_PCD (SafeDefrag)
VORN_FIX_FEATURE_PCD (RecordIndex)

UINT64 _PCD_GET_MODE_64_PcdPciExpressBaseAddress (VOID);
UINT64 _PCD_GET_MODE_64_PcdVornErstSpareBase (VOID);
UINT32 _PCD_GET_MODE_32_PcdVornErstSpareSize (VOID);
