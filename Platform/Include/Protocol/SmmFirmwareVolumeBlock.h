/** @file
  The SMM firmware volume block protocol: geometry and placement of one
  firmware volume in flash.
**/
#pragma once

#include <Uefi.h>

extern EFI_GUID gEfiSmmFirmwareVolumeBlockProtocolGuid;

typedef UINT64 EFI_FVB_ATTRIBUTES_2;

typedef struct _EFI_FIRMWARE_VOLUME_BLOCK2_PROTOCOL EFI_FIRMWARE_VOLUME_BLOCK2_PROTOCOL;
typedef EFI_FIRMWARE_VOLUME_BLOCK2_PROTOCOL         EFI_FIRMWARE_VOLUME_BLOCK_PROTOCOL;
typedef EFI_FIRMWARE_VOLUME_BLOCK2_PROTOCOL         EFI_SMM_FIRMWARE_VOLUME_BLOCK_PROTOCOL;

typedef EFI_STATUS (EFIAPI *EFI_FVB_GET_ATTRIBUTES) (IN CONST EFI_FIRMWARE_VOLUME_BLOCK2_PROTOCOL *This,
                                                     OUT EFI_FVB_ATTRIBUTES_2                     *Attributes);
typedef EFI_STATUS (EFIAPI *EFI_FVB_GET_PHYSICAL_ADDRESS) (IN CONST EFI_FIRMWARE_VOLUME_BLOCK2_PROTOCOL *This,
                                                           OUT EFI_PHYSICAL_ADDRESS                     *Address);
typedef EFI_STATUS (EFIAPI *EFI_FVB_GET_BLOCK_SIZE) (IN CONST EFI_FIRMWARE_VOLUME_BLOCK2_PROTOCOL *This,
                                                     IN EFI_LBA                                    Lba,
                                                     OUT UINTN                                    *BlockSize,
                                                     OUT UINTN                                    *NumberOfBlocks);

struct _EFI_FIRMWARE_VOLUME_BLOCK2_PROTOCOL {
  EFI_FVB_GET_ATTRIBUTES       GetAttributes;
  VOID                        *SetAttributes;
  EFI_FVB_GET_PHYSICAL_ADDRESS GetPhysicalAddress;
  EFI_FVB_GET_BLOCK_SIZE       GetBlockSize;
  VOID                        *Read;
  VOID                        *Write;
  VOID                        *EraseBlocks;
  EFI_HANDLE                   ParentHandle;
};

static_assert (sizeof (EFI_FIRMWARE_VOLUME_BLOCK2_PROTOCOL) == 64, "FVB protocol size");
static_assert (offsetof (EFI_FIRMWARE_VOLUME_BLOCK2_PROTOCOL, GetBlockSize) == 24, "GetBlockSize slot");
