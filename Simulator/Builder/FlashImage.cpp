/** @file
  Flash image builder: PI firmware volume headers with their checksum and
  extended header, laid into an erased image.
**/
#include "Builder/FlashImage.h"

#include <cstring>
#include <stdexcept>

#include <Guid/WheaElogFv.h>
#include <Pi/PiFirmwareVolume.h>

#include <SpiFlash.h>

namespace FlashImage {

namespace {

//
// FFS2: the file system every volume of the part declares.
//
constexpr EFI_GUID kFirmwareFileSystem2Guid = {
    0x8C8CE578, 0x8A3D, 0x4F1C, {0x99, 0x35, 0x89, 0x61, 0x85, 0xC3, 0x2D, 0xD3}};
constexpr EFI_GUID kConfigurationVolumeName = {
    0x59BAC080, 0x4C56, 0x49BE, {0x99, 0xBA, 0xB0, 0x45, 0x66, 0x0A, 0x1D, 0x82}};
constexpr EFI_GUID kMainVolumeName = {0x04B5CDA3, 0xC99A, 0x4CF6, {0x83, 0x84, 0x60, 0xC3, 0x71, 0x1F, 0x72, 0x19}};
constexpr EFI_GUID kBootVolumeName = {0x0FE9229E, 0x8729, 0x4585, {0xAD, 0xC0, 0x28, 0xD0, 0x04, 0xE1, 0x14, 0xE4}};

//
// Header and block map as they lie on flash: the 64-byte header holds
// BlockMap[0]; the {0, 0} terminator follows it.
//
struct VolumeHeaderImage {
  EFI_FIRMWARE_VOLUME_HEADER Header;
  EFI_FV_BLOCK_MAP_ENTRY     Terminator;
};

static_assert (sizeof (VolumeHeaderImage) == kHeaderLength, "header with its block-map terminator");

//
// 16-bit checksum that makes the header's words sum to zero.
//
UINT16
HeaderChecksum (const VolumeHeaderImage &Image) {
  UINT16 Words[kHeaderLength / 2];
  UINT16 Sum = 0;

  std::memcpy (Words, &Image, sizeof (Words));
  for (UINT16 Word : Words) {
    Sum = static_cast<UINT16> (Sum + Word);
  }

  return static_cast<UINT16> (0x10000 - Sum);
}

void WriteVolume (std::span<UINT8> Image, const VolumeSpec &Volume) {
  const UINT64 Length = static_cast<UINT64> (Volume.NumberOfBlocks) * kBlockSize;
  if (((Volume.Offset % kBlockSize) != 0) || (Volume.Offset > Image.size ()) ||
      (Length > Image.size () - Volume.Offset) || (Length < kHeaderLength + kExtHeaderSize)) {
    throw std::invalid_argument ("flash image: volume does not fit the image");
  }

  VolumeHeaderImage H{};
  H.Header.FileSystemGuid  = kFirmwareFileSystem2Guid;
  H.Header.FvLength        = Length;
  H.Header.Signature       = EFI_FVH_SIGNATURE;
  H.Header.Attributes      = kAttributes;
  H.Header.HeaderLength    = kHeaderLength;
  H.Header.ExtHeaderOffset = Volume.ExtHeaderOffset;
  H.Header.Revision        = EFI_FVH_REVISION;
  H.Header.BlockMap[0]     = {Volume.NumberOfBlocks, kBlockSize};
  H.Header.Checksum        = HeaderChecksum (H);
  std::memcpy (Image.data () + Volume.Offset, &H, sizeof (H));

  if (Volume.ExtHeaderOffset != 0) {
    if (Volume.ExtHeaderOffset + kExtHeaderSize > Length) {
      throw std::invalid_argument ("flash image: extended header outside its volume");
    }

    const EFI_FIRMWARE_VOLUME_EXT_HEADER Ext = {Volume.FvName, kExtHeaderSize};
    std::memcpy (Image.data () + Volume.Offset + Volume.ExtHeaderOffset, &Ext, sizeof (Ext));
  }
}

} // namespace

std::vector<VolumeSpec> DefaultLayout () {
  return {
      {0x000000, 0x100, 0, {}},
      {0x100000, 0x040, kExtHeaderOffset, kConfigurationVolumeName},
      {kElogVolumeOffset, kElogVolumeBlocks, kExtHeaderOffset, gEfiWheaElogFvGuid},
      {0x160000, 0xD20, kExtHeaderOffset, kMainVolumeName},
      {0xF00000, 0x100, kExtHeaderOffset, kBootVolumeName},
  };
}

std::vector<UINT8> Build (UINT64 ImageSize, std::span<const VolumeSpec> Volumes) {
  std::vector<UINT8> Image (ImageSize, 0xFF);

  for (const VolumeSpec &Volume : Volumes) {
    WriteVolume (Image, Volume);
  }

  return Image;
}

std::vector<UINT8> BuildDefault () {
  return Build (Host::Flash::kDefaultSize, DefaultLayout ());
}

UINT64
ElogVolumeAddress () {
  return Host::Flash::kTopOfFlash - Host::Flash::kDefaultSize + kElogVolumeOffset;
}

UINT64
SpareAreaAddress () {
  return Host::Flash::kTopOfFlash - Host::Flash::kDefaultSize + kSpareAreaOffset;
}

} // namespace FlashImage
