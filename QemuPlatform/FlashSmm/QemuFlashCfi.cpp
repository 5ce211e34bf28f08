/** @file
  Reads, programs and erases QEMU's CFI parallel flash (Intel command set),
  with every program and erase checked by reading the flash back.
**/
#include "QemuFlashSmm.h"

#include <Library/BaseMemoryLib.h>
#include <Library/IoLib.h>
#include <Library/PcdLib.h>

#define CFI_CMD_PROGRAM_BYTE  0x10
#define CFI_CMD_BLOCK_ERASE   0x20
#define CFI_CMD_ERASE_CONFIRM 0xD0
#define CFI_CMD_READ_ARRAY    0xFF

#define FLASH_ERASED_BYTE 0xFF

/**
  TRUE when [Address, Address + NumBytes) lies within [Base, Base + Size).
**/
STATIC BOOLEAN QemuFlashWithin (IN UINT64 Address, IN UINT64 NumBytes, IN UINT64 Base, IN UINT64 Size) {
  return (Address >= Base) && (NumBytes <= Size) && (Address - Base <= Size - NumBytes);
}

BOOLEAN
QemuFlashRangeValid (IN UINT64 Address, IN UINT64 NumBytes, IN BOOLEAN ForWrite) {
  if (!ForWrite) {
    return QemuFlashWithin (Address, NumBytes, PcdGet32 (PcdOvmfFdBaseAddress), PcdGet32 (PcdOvmfFirmwareFdSize));
  }

  return QemuFlashWithin (Address, NumBytes, PcdGet32 (PcdVornQemuElogFvBase), PcdGet32 (PcdVornQemuElogFvSize)) ||
         QemuFlashWithin (Address, NumBytes, PcdGet64 (PcdVornErstSpareBase), PcdGet32 (PcdVornErstSpareSize));
}

EFI_STATUS
QemuFlashRead (IN UINT64 Address, IN UINTN NumBytes, OUT UINT8 *Buffer) {
  //
  // The part answers reads with its array only in read-array mode.
  //
  MmioWrite8 ((UINTN)Address, CFI_CMD_READ_ARRAY);
  CopyMem (Buffer, (CONST VOID *)(UINTN)Address, NumBytes);
  return EFI_SUCCESS;
}

EFI_STATUS
QemuFlashProgram (IN UINT64 Address, IN UINTN NumBytes, IN CONST UINT8 *Buffer) {
  UINTN Index;

  for (Index = 0; Index < NumBytes; Index++) {
    MmioWrite8 ((UINTN)Address + Index, CFI_CMD_PROGRAM_BYTE);
    MmioWrite8 ((UINTN)Address + Index, Buffer[Index]);
  }

  MmioWrite8 ((UINTN)Address, CFI_CMD_READ_ARRAY);
  if (CompareMem ((CONST VOID *)(UINTN)Address, Buffer, NumBytes) != 0) {
    return EFI_DEVICE_ERROR;
  }

  return EFI_SUCCESS;
}

EFI_STATUS
QemuFlashErase (IN UINT64 Address, IN UINTN NumBytes) {
  UINTN BlockSize;
  UINTN Offset;
  UINTN Index;

  BlockSize = PcdGet32 (PcdOvmfFirmwareBlockSize);
  if (((Address % BlockSize) != 0) || ((NumBytes % BlockSize) != 0)) {
    return EFI_INVALID_PARAMETER;
  }

  for (Offset = 0; Offset < NumBytes; Offset += BlockSize) {
    MmioWrite8 ((UINTN)Address + Offset, CFI_CMD_BLOCK_ERASE);
    MmioWrite8 ((UINTN)Address + Offset, CFI_CMD_ERASE_CONFIRM);
  }

  MmioWrite8 ((UINTN)Address, CFI_CMD_READ_ARRAY);
  for (Index = 0; Index < NumBytes; Index++) {
    if (MmioRead8 ((UINTN)Address + Index) != FLASH_ERASED_BYTE) {
      return EFI_DEVICE_ERROR;
    }
  }

  return EFI_SUCCESS;
}
