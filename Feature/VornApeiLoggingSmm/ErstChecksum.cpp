/** @file
  8-bit checksum of the ERST store and the ERST table.
**/
#include <Library/DebugLib.h>

#include "VornApeiLoggingSmm.h"

/**
  Returns the byte that makes pBuffer's Size bytes sum to zero modulo 256;
  0xFF when there is nothing to sum.
**/
UINT8
VornApeiLoggingCalculateChecksum (IN UINT8 *pBuffer, IN UINTN Size) {
  UINT8 Sum;
  UINTN Index;

  if (pBuffer == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pBuffer is NULL, aborting...\n", __func__));
    return 0xFF;
  }

  if (Size == 0) {
    DEBUG ((DEBUG_ERROR, "%a: Size is zero on entry, aborting...\n", __func__));
    return 0xFF;
  }

  Sum = 0;
  for (Index = 0; Index < Size; Index++) {
    Sum = (UINT8)(Sum + pBuffer[Index]);
  }

  return (UINT8)(0x100 - Sum);
}
