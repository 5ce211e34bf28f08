/** @file
  Platform configuration values the module reads.
**/
#pragma once

#include <Uefi.h>

#define PcdGet8(TokenName)  _PCD_GET_MODE_8_##TokenName ()
#define PcdGet32(TokenName) _PCD_GET_MODE_32_##TokenName ()
#define PcdGet64(TokenName) _PCD_GET_MODE_64_##TokenName ()

UINT8  _PCD_GET_MODE_8_PcdDebugPropertyMask (VOID);
UINT32 _PCD_GET_MODE_32_PcdFixedDebugPrintErrorLevel (VOID);
UINT64 _PCD_GET_MODE_64_PcdPciExpressBaseAddress (VOID);
