/** @file
  The platform's run-time debug print level.
**/
#pragma once

#include <Uefi.h>

UINT32 GetDebugPrintErrorLevel (VOID);
