/** @file
  Builds the platform's SPI flash image: PI firmware volumes with valid
  headers, one of them the error-log volume that holds the ERST store.

  Default layout of the 16 MiB part (offsets from 0xFF000000, 4 KiB blocks):

    0x000000  0x100000  data volume, no extended header
    0x100000  0x040000  platform configuration volume (its own name)
    0x140000  0x020000  error-log volume, named gEfiWheaElogFvGuid (32 blocks)
    0x160000  0xD20000  main firmware volume
    0xE80000  0x080000  erased, no volume
    0xF00000  0x100000  boot volume

  Every header is 0x48 bytes (one block-map entry and the terminator); a
  named volume's extended header (20 bytes, no entries) follows at 0x48, so
  the error-log store header lands at volume + 0x5C. Volume bodies are
  erased (0xFF).
**/
#pragma once

#include <span>
#include <vector>

#include <Uefi.h>

namespace FlashImage {

constexpr UINT32 kBlockSize       = 0x1000;
constexpr UINT16 kHeaderLength    = 0x48;
constexpr UINT16 kExtHeaderOffset = kHeaderLength;
constexpr UINT32 kExtHeaderSize   = 20;
constexpr UINT32 kAttributes      = 0x0004FEFF;

constexpr UINT64 kElogVolumeOffset = 0x140000;
constexpr UINT32 kElogVolumeBlocks = 32;

//
// The erased range between the main and the boot volume; the platform
// offers it to the ERST store as the spare of its safe maintenance.
//
constexpr UINT64 kSpareAreaOffset = 0xE80000;
constexpr UINT32 kSpareAreaLength = 0x80000;

struct VolumeSpec {
  UINT64   Offset;          // from the start of the image, block aligned
  UINT32   NumberOfBlocks;  // of kBlockSize bytes
  UINT16   ExtHeaderOffset; // 0: no extended header
  EFI_GUID FvName;          // written when ExtHeaderOffset is not 0
};

std::vector<VolumeSpec> DefaultLayout ();

//
// An erased image of ImageSize bytes holding the given volumes.
//
std::vector<UINT8> Build (UINT64 ImageSize, std::span<const VolumeSpec> Volumes);

//
// The 16 MiB image of the default layout.
//
std::vector<UINT8> BuildDefault ();

//
// Physical address of the default error-log volume once the image is mapped
// at the top of 4 GiB.
//
UINT64 ElogVolumeAddress ();
UINT64 SpareAreaAddress ();

} // namespace FlashImage
