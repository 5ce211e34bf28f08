/** @file
  UUID bytes to text.
**/
#include <Library/ElogBaseLib.h>

#include <Library/DebugLib.h>

#define UUID_BYTE_COUNT  16
#define UUID_STRING_SIZE 37

STATIC CONST CHAR8 mUuidHexDigits[] = "0123456789ABCDEF";

/**
  Writes the 16 bytes at pUuid as 8-4-4-4-12 upper-case hex text into the
  37-byte pBuffer. The bytes keep their storage order: the first three
  fields are not turned into little-endian numbers.
**/
VOID VornElogConvertUuidToAsciiString (IN UINT8 *pUuid, OUT CHAR8 *pBuffer) {
  UINTN Index;
  UINTN Length;

  if ((pUuid == NULL) || (pBuffer == NULL)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n", __func__));
    return;
  }

  Length = 0;
  for (Index = 0; Index < UUID_BYTE_COUNT; Index++) {
    pBuffer[Length++] = mUuidHexDigits[pUuid[Index] >> 4];
    pBuffer[Length++] = mUuidHexDigits[pUuid[Index] & 0xF];
    if ((Index == 3) || (Index == 5) || (Index == 7) || (Index == 9)) {
      pBuffer[Length++] = '-';
    }
  }

  pBuffer[Length] = 0;
  static_assert (UUID_BYTE_COUNT * 2 + 4 + 1 == UUID_STRING_SIZE, "the text fills the buffer exactly");
}
