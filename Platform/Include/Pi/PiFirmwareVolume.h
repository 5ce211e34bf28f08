/** @file
  PI firmware volume header and extended header.
**/
#pragma once

#include <Uefi.h>

#define EFI_FVH_SIGNATURE SIGNATURE_32 ('_', 'F', 'V', 'H')
#define EFI_FVH_REVISION  0x02

typedef struct {
  UINT32 NumBlocks;
  UINT32 Length;
} EFI_FV_BLOCK_MAP_ENTRY;

typedef struct {
  UINT8                  ZeroVector[16];
  EFI_GUID               FileSystemGuid;
  UINT64                 FvLength;
  UINT32                 Signature;
  UINT32                 Attributes;
  UINT16                 HeaderLength;
  UINT16                 Checksum;
  UINT16                 ExtHeaderOffset;
  UINT8                  Reserved[1];
  UINT8                  Revision;
  EFI_FV_BLOCK_MAP_ENTRY BlockMap[1];
} EFI_FIRMWARE_VOLUME_HEADER;

typedef struct {
  EFI_GUID FvName;
  UINT32   ExtHeaderSize;
} EFI_FIRMWARE_VOLUME_EXT_HEADER;

static_assert (sizeof (EFI_FIRMWARE_VOLUME_HEADER) == 64, "FV header size");
static_assert (offsetof (EFI_FIRMWARE_VOLUME_HEADER, FvLength) == 32, "FvLength offset");
static_assert (offsetof (EFI_FIRMWARE_VOLUME_HEADER, Signature) == 40, "Signature offset");
static_assert (offsetof (EFI_FIRMWARE_VOLUME_HEADER, HeaderLength) == 48, "HeaderLength offset");
static_assert (offsetof (EFI_FIRMWARE_VOLUME_HEADER, ExtHeaderOffset) == 0x34, "ExtHeaderOffset offset");
static_assert (offsetof (EFI_FIRMWARE_VOLUME_HEADER, Revision) == 55, "Revision offset");
static_assert (offsetof (EFI_FIRMWARE_VOLUME_HEADER, BlockMap) == 56, "BlockMap offset");
static_assert (sizeof (EFI_FIRMWARE_VOLUME_EXT_HEADER) == 20, "FV extended header size");
