/** @file
  UUID bytes to text.
**/
#include <Library/ElogBaseLib.h>

#include <Library/BaseLib.h>
#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/PrintLib.h>

#define UUID_BYTE_COUNT  16
#define UUID_STRING_SIZE 37
#define UUID_PIECE_SIZE  4

/**
  Writes the 16 bytes at pUuid as 8-4-4-4-12 upper-case hex text into the
  37-byte pBuffer. The bytes keep their storage order: the first three
  fields are not turned into little-endian numbers.
**/
VOID VornElogConvertUuidToAsciiString (IN UINT8 *pUuid, OUT CHAR8 *pBuffer) {
  CHAR8 Piece[UUID_PIECE_SIZE];
  UINTN Index;

  if ((pUuid == NULL) || (pBuffer == NULL)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n", __func__));
    return;
  }

  ZeroMem (pBuffer, UUID_STRING_SIZE);
  for (Index = 0; Index < UUID_BYTE_COUNT; Index++) {
    if ((Index == 3) || (Index == 5) || (Index == 7) || (Index == 9)) {
      AsciiSPrint (Piece, sizeof (Piece), "%02X-", pUuid[Index]);
    } else {
      AsciiSPrint (Piece, sizeof (Piece), "%02X", pUuid[Index]);
    }

    AsciiStrnCatS (pBuffer, UUID_STRING_SIZE, Piece, sizeof (Piece));
  }
}
