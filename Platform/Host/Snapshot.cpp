/** @file
  Snapshots of the machine's memory, flash and FCH registers, for harnesses that run many
  handler calls on one booted machine and must start each from the same one.

  Only pages the host has mapped in are kept: an untouched page reads back
  zero. A restore drops the pages touched since (they read zero again) and
  copies the kept ones back, so its cost follows what the machine used.
**/
#include <sys/mman.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "HostInternal.h"

namespace Host {

namespace {

constexpr UINT64 kPage = 0x1000;

//
// Runs of pages of the range that the host has mapped in (mincore).
//
std::vector<std::pair<UINT64, UINT64>> ResidentRuns (const Internal::RangeAllocator &Range) {
  std::vector<unsigned char> Resident (Range.Size () / kPage);
  mincore (reinterpret_cast<void *> (Range.Base ()), Range.Size (), Resident.data ());
  std::vector<std::pair<UINT64, UINT64>> Runs;
  for (size_t Page = 0; Page < Resident.size (); Page++) {
    if ((Resident[Page] & 1) == 0) {
      continue;
    }

    const UINT64 Address = Range.Base () + Page * kPage;
    if (!Runs.empty () && (Runs.back ().first + Runs.back ().second == Address)) {
      Runs.back ().second += kPage;
    } else {
      Runs.emplace_back (Address, kPage);
    }
  }

  return Runs;
}

Internal::RangeAllocator *const *Ranges () {
  static Internal::RangeAllocator *const All[] = {&Internal::AcpiMemory (), &Internal::ReservedMemory (),
                                                  &Internal::BootServicesMemory (), &Internal::Smram (), nullptr};
  return All;
}

} // namespace

struct MachineState {
  struct Range {
    Internal::RangeAllocator               Allocator;
    std::vector<std::pair<UINT64, UINT64>> Runs;
    std::vector<UINT8>                     Bytes; // the runs' contents, in order
  };

  std::vector<Range>   Memory;
  Internal::FlashState Flash;
  Internal::FchState   Fch;
};

std::shared_ptr<const MachineState> SaveMachine () {
  auto State = std::make_shared<MachineState> ();
  for (auto *const *Range = Ranges (); *Range != nullptr; Range++) {
    MachineState::Range Saved{**Range, ResidentRuns (**Range), {}};
    for (const auto &[Address, Length] : Saved.Runs) {
      Saved.Bytes.insert (Saved.Bytes.end (), At<UINT8> (Address), At<UINT8> (Address) + Length);
    }

    State->Memory.push_back (std::move (Saved));
  }

  State->Flash = Internal::SaveFlash ();
  State->Fch   = Internal::SaveFch ();
  return State;
}

void RestoreMachine (const MachineState &State) {
  for (size_t Index = 0; Index < State.Memory.size (); Index++) {
    const MachineState::Range &Saved = State.Memory[Index];
    Internal::RangeAllocator  &Range = *Ranges ()[Index];
    for (const auto &[Address, Length] : ResidentRuns (Range)) {
      // Pages the snapshot keeps are overwritten below; only the others go.
      for (UINT64 Page = Address; Page < Address + Length; Page += kPage) {
        const auto Kept = std::upper_bound (Saved.Runs.begin (), Saved.Runs.end (), std::make_pair (Page, ~UINT64{0}));
        if ((Kept == Saved.Runs.begin ()) || (std::prev (Kept)->first + std::prev (Kept)->second <= Page)) {
          madvise (At<void> (Page), kPage, MADV_DONTNEED);
        }
      }
    }

    const UINT8 *Bytes = Saved.Bytes.data ();
    for (const auto &[Address, Length] : Saved.Runs) {
      std::copy_n (Bytes, Length, At<UINT8> (Address));
      Bytes += Length;
    }

    Range = Saved.Allocator;
  }

  Internal::RestoreFlash (State.Flash);
  Internal::RestoreFch (State.Fch);
}

} // namespace Host
