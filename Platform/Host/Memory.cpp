/** @file
  Simulated physical memory: the fixed ranges of the memory map, mapped at
  their physical addresses, and the allocator behind each of them.
**/
#include <sys/mman.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <cstdlib>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "HostInternal.h"
#include "MachineAccess.h"

namespace Host::Internal {

RangeAllocator::RangeAllocator (UINT64 Base, UINT64 Size) : mBase (Base), mSize (Size) {
  Reset ();
}

void RangeAllocator::Reset () {
  mFree.clear ();
  mUsed.clear ();
  mFree[mBase] = mSize;
}

std::optional<UINT64> RangeAllocator::Allocate (UINT64 Size, UINT64 Align, Use For) {
  if ((Size == 0) || (Align == 0) || ((Align & (Align - 1)) != 0)) {
    return std::nullopt;
  }

  for (auto It = mFree.begin (); It != mFree.end (); ++It) {
    const UINT64 Start   = It->first;
    const UINT64 End     = Start + It->second;
    const UINT64 Aligned = (Start + Align - 1) & ~(Align - 1);
    if ((Aligned < Start) || (Aligned >= End) || (End - Aligned < Size)) {
      continue;
    }

    mFree.erase (It);
    if (Aligned > Start) {
      mFree[Start] = Aligned - Start;
    }

    if (Aligned + Size < End) {
      mFree[Aligned + Size] = End - (Aligned + Size);
    }

    mUsed[Aligned] = {Size, For};
    return Aligned;
  }

  return std::nullopt;
}

bool RangeAllocator::Free (UINT64 Address, UINT64 Size, Use For) {
  auto Used = mUsed.find (Address);
  if ((Used == mUsed.end ()) || (Used->second.Size != Size) || (Used->second.For != For)) {
    return false;
  }

  mUsed.erase (Used);
  UINT64 Start = Address;
  UINT64 End   = Address + Size;

  auto Next = mFree.lower_bound (Address);
  if ((Next != mFree.end ()) && (Next->first == End)) {
    End  = Next->first + Next->second;
    Next = mFree.erase (Next);
  }

  if (Next != mFree.begin ()) {
    auto Previous = std::prev (Next);
    if (Previous->first + Previous->second == Start) {
      Start = Previous->first;
      mFree.erase (Previous);
    }
  }

  mFree[Start] = End - Start;
  return true;
}

bool RangeAllocator::Contains (UINT64 Address) const {
  return (Address >= mBase) && (Address - mBase < mSize);
}

std::optional<UINT64> RangeAllocator::BlockSize (UINT64 Address, Use For) const {
  auto Used = mUsed.find (Address);
  if ((Used == mUsed.end ()) || (Used->second.For != For)) {
    return std::nullopt;
  }

  return Used->second.Size;
}

RangeAllocator &AcpiMemory () {
  static RangeAllocator Range (kAcpiBase, kAcpiSize);
  return Range;
}

RangeAllocator &ReservedMemory () {
  static RangeAllocator Range (kReservedBase, kReservedSize);
  return Range;
}

RangeAllocator &BootServicesMemory () {
  static RangeAllocator Range (kBootServicesBase, kBootServicesSize);
  return Range;
}

RangeAllocator &Smram () {
  static RangeAllocator Range (kSmramBase, kSmramSize);
  return Range;
}

//
// Without the fixed mapping no address would mean anything, so failure to
// map stops the process.
//
static void MapRange (const RangeAllocator &Range) {
  void *Address = reinterpret_cast<void *> (Range.Base ());
  void *Mapped  = mmap (Address, Range.Size (), PROT_READ | PROT_WRITE,
                        MAP_FIXED_NOREPLACE | MAP_NORESERVE | MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (Mapped != Address) {
    std::fprintf (stderr, "simulated memory: cannot map 0x%llx bytes at 0x%llx\n",
                  static_cast<unsigned long long> (Range.Size ()), static_cast<unsigned long long> (Range.Base ()));
    std::abort ();
  }
}

//
// The window the simulated memory lives in (kWindowBase - kWindowEnd); the
// rest of it is made inaccessible, so module code that strays from its
// memory faults instead of reaching host data. What is already mapped there
// stays: the module data of the executable.
//

//
// The executable's highest section, placed at the window's end by the link
// (CMakeLists.txt): the kernel starts the C library's heap at a random point
// above the highest section, which could otherwise be inside the window, on
// a range the machine maps at a fixed address.
//
__attribute__ ((section ("vorn_heap_floor"), used)) const UINT8 mHeapFloor = 0;

static void Reserve (UINT64 Start, UINT64 End) {
  void *Wanted = reinterpret_cast<void *> (Start);
  void *Got =
      mmap (Wanted, End - Start, PROT_NONE, MAP_FIXED_NOREPLACE | MAP_NORESERVE | MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if ((Got != MAP_FAILED) && (Got != Wanted)) {
    munmap (Got, End - Start); // a kernel or tool that took the address as a hint
  }
}

static void FenceWindow () {
  std::ifstream                          Maps ("/proc/self/maps");
  std::vector<std::pair<UINT64, UINT64>> Used;
  unsigned long long                     Start, End;
  for (std::string Line; std::getline (Maps, Line);) {
    if (std::sscanf (Line.c_str (), "%llx-%llx", &Start, &End) == 2) {
      Used.emplace_back (Start, End);
    }
  }

  std::sort (Used.begin (), Used.end ());
  UINT64 Cursor = kWindowBase;
  for (const auto &[From, To] : Used) {
    if ((From >= kWindowEnd) || (To <= Cursor)) {
      continue;
    }

    if (From > Cursor) {
      Reserve (Cursor, From);
    }

    Cursor = std::max<UINT64> (Cursor, To);
  }

  if (Cursor < kWindowEnd) {
    Reserve (Cursor, kWindowEnd);
  }
}

void ResetMemory () {
  static bool     Mapped   = false;
  RangeAllocator *Ranges[] = {&AcpiMemory (), &ReservedMemory (), &BootServicesMemory (), &Smram ()};
  for (RangeAllocator *Range : Ranges) {
    if (!Mapped) {
      MapRange (*Range);
    } else {
      //
      // Dropping the pages of a private anonymous mapping reads back zero,
      // at a cost proportional to the pages that were used.
      //
      madvise (reinterpret_cast<void *> (Range->Base ()), Range->Size (), MADV_DONTNEED);
    }

    Range->Reset ();
  }

  if (!Mapped) {
    FenceWindow ();
  }

  Mapped = true;
}

} // namespace Host::Internal

namespace Host {

static UINT64 AllocateFixed (Internal::RangeAllocator &Range, UINT64 Size, UINT64 Align, const char *Name) {
  auto Address = Range.Allocate (Size, Align, Internal::RangeAllocator::Use::Fixed);
  if (!Address) {
    throw std::runtime_error (std::string (Name) + " memory exhausted");
  }

  return *Address;
}

UINT64
AllocateAcpi (UINT64 Size, UINT64 Align) {
  return AllocateFixed (Internal::AcpiMemory (), Size, Align, "ACPI");
}

UINT64
AllocateReserved (UINT64 Size, UINT64 Align) {
  return AllocateFixed (Internal::ReservedMemory (), Size, Align, "reserved");
}

UINT64
AllocateSmram (UINT64 Size, UINT64 Align) {
  return AllocateFixed (Internal::Smram (), Size, Align, "SMRAM");
}

} // namespace Host
