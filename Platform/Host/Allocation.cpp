/** @file
  Pool and page allocation over the memory ranges, shared by the boot
  services, the SMM services and the platform's own structures.
**/
#include <cstring>
#include <stdexcept>

#include "HostInternal.h"

namespace Host::Internal {

namespace {

//
// The header a pool block keeps in front of the caller's buffer. Its size
// keeps the buffer 16-byte aligned.
//
struct PoolHeader {
  UINT32 Signature;
  UINT32 Type;
  UINT64 Size; // whole block, header included
};

static_assert (sizeof (PoolHeader) == 16, "pool header keeps 16-byte alignment");

constexpr UINT32 kPoolSignature = SIGNATURE_32 ('p', 'h', 'd', '0');
constexpr UINT64 kPoolAlign     = 16;

} // namespace

EFI_STATUS
PoolAllocate (RangeAllocator &Range, EFI_MEMORY_TYPE Type, UINTN Size, VOID **Buffer) {
  if (Buffer == nullptr) {
    return EFI_INVALID_PARAMETER;
  }

  *Buffer = nullptr;
  if (Size > MAX_UINT64 - sizeof (PoolHeader) - kPoolAlign) {
    return EFI_OUT_OF_RESOURCES;
  }

  const UINT64 BlockSize = (Size + sizeof (PoolHeader) + kPoolAlign - 1) & ~(kPoolAlign - 1);
  auto         Block     = Range.Allocate (BlockSize, kPoolAlign, RangeAllocator::Use::Pool);
  if (!Block) {
    return EFI_OUT_OF_RESOURCES;
  }

  auto *Header      = At<PoolHeader> (*Block);
  Header->Signature = kPoolSignature;
  Header->Type      = static_cast<UINT32> (Type);
  Header->Size      = BlockSize;
  *Buffer           = Header + 1;
  return EFI_SUCCESS;
}

EFI_STATUS
PoolFree (RangeAllocator &Range, VOID *Buffer) {
  const UINT64 Address = reinterpret_cast<UINT64> (Buffer);
  if ((Buffer == nullptr) || !Range.Contains (Address) || (Address - Range.Base () < sizeof (PoolHeader))) {
    return EFI_INVALID_PARAMETER;
  }

  const UINT64 Block     = Address - sizeof (PoolHeader);
  auto         BlockSize = Range.BlockSize (Block, RangeAllocator::Use::Pool);
  auto        *Header    = At<PoolHeader> (Block);
  if (!BlockSize || (Header->Signature != kPoolSignature) || (Header->Size != *BlockSize)) {
    return EFI_INVALID_PARAMETER;
  }

  Header->Signature = 0;
  Range.Free (Block, *BlockSize, RangeAllocator::Use::Pool);
  return EFI_SUCCESS;
}

EFI_STATUS
PagesAllocate (RangeAllocator &Range, EFI_ALLOCATE_TYPE Type, UINTN Pages, EFI_PHYSICAL_ADDRESS *Memory) {
  if ((Memory == nullptr) || (Pages == 0)) {
    return EFI_INVALID_PARAMETER;
  }

  if (Type != AllocateAnyPages) {
    return EFI_UNSUPPORTED;
  }

  if (Pages > (MAX_UINT64 >> 12)) {
    return EFI_OUT_OF_RESOURCES;
  }

  auto Block = Range.Allocate (EFI_PAGES_TO_SIZE (Pages), EFI_PAGE_SIZE, RangeAllocator::Use::Pages);
  if (!Block) {
    return EFI_OUT_OF_RESOURCES;
  }

  *Memory = *Block;
  return EFI_SUCCESS;
}

EFI_STATUS
PagesFree (RangeAllocator &Range, EFI_PHYSICAL_ADDRESS Memory, UINTN Pages) {
  if ((Pages == 0) || ((Memory & EFI_PAGE_MASK) != 0) || (Pages > (MAX_UINT64 >> 12))) {
    return EFI_INVALID_PARAMETER;
  }

  if (!Range.Free (Memory, EFI_PAGES_TO_SIZE (Pages), RangeAllocator::Use::Pages)) {
    return EFI_NOT_FOUND;
  }

  return EFI_SUCCESS;
}

VOID *PlatformAllocate (RangeAllocator &Range, EFI_MEMORY_TYPE Type, UINTN Size) {
  VOID *Buffer = nullptr;
  if (EFI_ERROR (PoolAllocate (Range, Type, Size, &Buffer))) {
    throw std::runtime_error ("simulated memory exhausted while building the platform");
  }

  std::memset (Buffer, 0, Size);
  return Buffer;
}

} // namespace Host::Internal
