/** @file
  The SMM firmware volume block instance of the error-log volume, through
  which the APEI logging module finds the volume (by its FV name) and its
  block geometry.
**/
#include "QemuFlashSmm.h"

#include <Library/PcdLib.h>
#include <Pi/PiFirmwareVolume.h>

/**
  Start and length of the Lba-th block, NumBytes from Offset, when they lie in
  the volume.
**/
STATIC BOOLEAN QemuFvbAddress (IN EFI_LBA Lba, IN UINTN Offset, IN UINTN NumBytes, OUT UINT64 *Address) {
  UINT64 BlockSize;

  BlockSize = PcdGet32 (PcdOvmfFirmwareBlockSize);
  if ((Offset > BlockSize) || (NumBytes > BlockSize - Offset)) {
    return FALSE;
  }

  *Address = PcdGet32 (PcdVornQemuElogFvBase) + Lba * BlockSize + Offset;
  return QemuFlashRangeValid (*Address, NumBytes, TRUE);
}

/**
  The attributes the volume header carries.
**/
STATIC EFI_STATUS EFIAPI QemuFvbGetAttributes (IN CONST EFI_FIRMWARE_VOLUME_BLOCK2_PROTOCOL *This,
                                               OUT EFI_FVB_ATTRIBUTES_2                     *Attributes) {
  EFI_FIRMWARE_VOLUME_HEADER Header;

  (VOID) This;

  QemuFlashRead (PcdGet32 (PcdVornQemuElogFvBase), sizeof (Header), (UINT8 *)&Header);
  *Attributes = Header.Attributes;
  return EFI_SUCCESS;
}

/**
  The volume's attributes are fixed by its header.
**/
STATIC EFI_STATUS EFIAPI QemuFvbSetAttributes (IN CONST EFI_FIRMWARE_VOLUME_BLOCK2_PROTOCOL *This,
                                               IN OUT EFI_FVB_ATTRIBUTES_2                  *Attributes) {
  (VOID) This;
  (VOID) Attributes;
  return EFI_UNSUPPORTED;
}

STATIC EFI_STATUS EFIAPI QemuFvbGetPhysicalAddress (IN CONST EFI_FIRMWARE_VOLUME_BLOCK2_PROTOCOL *This,
                                                    OUT EFI_PHYSICAL_ADDRESS                     *Address) {
  (VOID) This;

  *Address = PcdGet32 (PcdVornQemuElogFvBase);
  return EFI_SUCCESS;
}

/**
  Every block has the flash's erase size; NumberOfBlocks counts those from
  Lba to the end of the volume.
**/
STATIC EFI_STATUS EFIAPI QemuFvbGetBlockSize (IN CONST EFI_FIRMWARE_VOLUME_BLOCK2_PROTOCOL *This,
                                              IN EFI_LBA                                    Lba,
                                              OUT UINTN                                    *BlockSize,
                                              OUT UINTN                                    *NumberOfBlocks) {
  UINTN Blocks;

  (VOID) This;

  Blocks = PcdGet32 (PcdVornQemuElogFvSize) / PcdGet32 (PcdOvmfFirmwareBlockSize);
  if (Lba >= Blocks) {
    return EFI_INVALID_PARAMETER;
  }

  *BlockSize      = PcdGet32 (PcdOvmfFirmwareBlockSize);
  *NumberOfBlocks = Blocks - (UINTN)Lba;
  return EFI_SUCCESS;
}

STATIC EFI_STATUS EFIAPI QemuFvbRead (IN CONST EFI_FIRMWARE_VOLUME_BLOCK2_PROTOCOL *This,
                                      IN EFI_LBA                                    Lba,
                                      IN UINTN                                      Offset,
                                      IN OUT UINTN                                 *NumBytes,
                                      IN OUT UINT8                                 *Buffer) {
  UINT64 Address;

  (VOID) This;

  if ((NumBytes == NULL) || (Buffer == NULL) || !QemuFvbAddress (Lba, Offset, *NumBytes, &Address)) {
    return EFI_INVALID_PARAMETER;
  }

  return QemuFlashRead (Address, *NumBytes, Buffer);
}

STATIC EFI_STATUS EFIAPI QemuFvbWrite (IN CONST EFI_FIRMWARE_VOLUME_BLOCK2_PROTOCOL *This,
                                       IN EFI_LBA                                    Lba,
                                       IN UINTN                                      Offset,
                                       IN OUT UINTN                                 *NumBytes,
                                       IN UINT8                                     *Buffer) {
  UINT64 Address;

  (VOID) This;

  if ((NumBytes == NULL) || (Buffer == NULL) || !QemuFvbAddress (Lba, Offset, *NumBytes, &Address)) {
    return EFI_INVALID_PARAMETER;
  }

  return QemuFlashProgram (Address, *NumBytes, Buffer);
}

/**
  Erases the (StartingLba, NumberOfLba) runs that follow This, up to
  EFI_LBA_LIST_TERMINATOR; nothing is erased unless every run is valid.
**/
STATIC EFI_STATUS EFIAPI QemuFvbEraseBlocks (IN CONST EFI_FIRMWARE_VOLUME_BLOCK2_PROTOCOL *This, ...) {
  VA_LIST    Runs;
  EFI_LBA    Lba;
  UINTN      Count;
  UINTN      Blocks;
  EFI_STATUS Status;

  Blocks = PcdGet32 (PcdVornQemuElogFvSize) / PcdGet32 (PcdOvmfFirmwareBlockSize);
  VA_START (Runs, This);
  for (Lba = VA_ARG (Runs, EFI_LBA); Lba != EFI_LBA_LIST_TERMINATOR; Lba = VA_ARG (Runs, EFI_LBA)) {
    Count = VA_ARG (Runs, UINTN);
    if ((Count == 0) || (Lba >= Blocks) || (Count > Blocks - Lba)) {
      VA_END (Runs);
      return EFI_INVALID_PARAMETER;
    }
  }

  VA_END (Runs);

  Status = EFI_SUCCESS;
  VA_START (Runs, This);
  for (Lba = VA_ARG (Runs, EFI_LBA); (Lba != EFI_LBA_LIST_TERMINATOR) && !EFI_ERROR (Status);
       Lba = VA_ARG (Runs, EFI_LBA)) {
    Count  = VA_ARG (Runs, UINTN);
    Status = QemuFlashErase (PcdGet32 (PcdVornQemuElogFvBase) + Lba * PcdGet32 (PcdOvmfFirmwareBlockSize),
                             Count * PcdGet32 (PcdOvmfFirmwareBlockSize));
  }

  VA_END (Runs);
  return Status;
}

EFI_SMM_FIRMWARE_VOLUME_BLOCK_PROTOCOL mQemuElogFvb = {
    QemuFvbGetAttributes, QemuFvbSetAttributes, QemuFvbGetPhysicalAddress, QemuFvbGetBlockSize,
    QemuFvbRead,          QemuFvbWrite,         QemuFvbEraseBlocks,        NULL};
