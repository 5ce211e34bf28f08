/** @file
  VornSmmSpiProtocol over QEMU's CFI flash: reads anywhere in the flash
  device, programs and erases only the error-log volume and its spare area.
**/
#include "QemuFlashSmm.h"

/**
  Erases whole blocks.
**/
STATIC EFI_STATUS EFIAPI QemuSpiErase (IN CONST VORN_SMM_SPI_PROTOCOL *This, IN UINT64 Address, IN UINT32 NumBytes) {
  (VOID) This;

  if ((NumBytes == 0) || !QemuFlashRangeValid (Address, NumBytes, TRUE)) {
    return EFI_INVALID_PARAMETER;
  }

  return QemuFlashErase (Address, NumBytes);
}

/**
  Programs bytes; NOR rules apply (only 1 bits can become 0).
**/
STATIC EFI_STATUS EFIAPI QemuSpiWrite (IN CONST VORN_SMM_SPI_PROTOCOL *This,
                                       IN UINT64                       Address,
                                       IN UINT32                       NumBytes,
                                       IN UINT8                       *Buffer) {
  (VOID) This;

  if ((Buffer == NULL) || (NumBytes == 0) || !QemuFlashRangeValid (Address, NumBytes, TRUE)) {
    return EFI_INVALID_PARAMETER;
  }

  return QemuFlashProgram (Address, NumBytes, Buffer);
}

STATIC EFI_STATUS EFIAPI QemuSpiRead (IN CONST VORN_SMM_SPI_PROTOCOL *This,
                                      IN UINT64                       Address,
                                      IN UINT32                       NumBytes,
                                      OUT UINT8                      *Buffer) {
  (VOID) This;

  if ((Buffer == NULL) || (NumBytes == 0) || !QemuFlashRangeValid (Address, NumBytes, FALSE)) {
    return EFI_INVALID_PARAMETER;
  }

  return QemuFlashRead (Address, NumBytes, Buffer);
}

VORN_SMM_SPI_PROTOCOL mQemuSpi = {NULL, QemuSpiErase, QemuSpiWrite, QemuSpiRead};
