/** @file
  Platform configuration values the module reads.
**/
#pragma once

#include <Uefi.h>

#define PcdGet8(TokenName)  _PCD_GET_MODE_8_##TokenName ()
#define PcdGet32(TokenName) _PCD_GET_MODE_32_##TokenName ()
#define PcdGet64(TokenName) _PCD_GET_MODE_64_##TokenName ()

//
// Fixed-at-build settings are values of the module's build: library code
// reads them from the module's generated data, never through a call. The
// machine writes them when it loads the module build it was configured with.
//
extern UINT8  _gPcd_FixedAtBuild_PcdDebugPropertyMask;
extern UINT32 _gPcd_FixedAtBuild_PcdFixedDebugPrintErrorLevel;

#define _PCD_GET_MODE_8_PcdDebugPropertyMask()          _gPcd_FixedAtBuild_PcdDebugPropertyMask
#define _PCD_GET_MODE_32_PcdFixedDebugPrintErrorLevel() _gPcd_FixedAtBuild_PcdFixedDebugPrintErrorLevel

UINT64 _PCD_GET_MODE_64_PcdPciExpressBaseAddress (VOID);
