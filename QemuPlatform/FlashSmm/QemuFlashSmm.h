/** @file
  The error-log flash of QEMU's q35: the CFI parallel flash that holds OVMF's
  variable store, with the error-log volume and its spare area behind it.
**/
#pragma once

#include <PiSmm.h>

#include <Protocol/SmmFirmwareVolumeBlock.h>
#include <Protocol/VornSmmSpi.h>

//
// Checks that [Address, Address + NumBytes) lies in the flash device
// (ForWrite FALSE) or in the error-log volume or the spare area (ForWrite
// TRUE: nothing else of the part is this driver's to change).
//
BOOLEAN QemuFlashRangeValid (IN UINT64 Address, IN UINT64 NumBytes, IN BOOLEAN ForWrite);

EFI_STATUS QemuFlashRead (IN UINT64 Address, IN UINTN NumBytes, OUT UINT8 *Buffer);
EFI_STATUS QemuFlashProgram (IN UINT64 Address, IN UINTN NumBytes, IN CONST UINT8 *Buffer);
EFI_STATUS QemuFlashErase (IN UINT64 Address, IN UINTN NumBytes);

extern VORN_SMM_SPI_PROTOCOL                  mQemuSpi;
extern EFI_SMM_FIRMWARE_VOLUME_BLOCK_PROTOCOL mQemuElogFvb;
