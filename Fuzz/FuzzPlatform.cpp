/** @file
  The fuzz harnesses' platform and fault rule.
**/
#include "FuzzPlatform.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <Guid/WheaElogFv.h>
#include <SpiFlash.h>

#include "Builder/Boot.h"
#include "Builder/Fixes.h"
#include "Builder/FlashImage.h"
#include "Builder/ModuleImage.h"

namespace Fuzz {

namespace {

constexpr UINT64 kPage = 0x1000;

// The part: error-log volume, a volume an overrun would reach, the spare.
constexpr UINT64 kPartSize     = 0x100000;
constexpr UINT64 kNextVolume   = 0x20000;
constexpr UINT32 kNextBlocks   = 0x60;
constexpr UINT64 kSpareOffset  = 0x80000;
constexpr UINT64 kVolumeLength = UINT64{FlashImage::kElogVolumeBlocks} * FlashImage::kBlockSize;

bool EveryFixOn () {
  return Sim::SelectedFixes ().size () == Sim::FixSwitches ().size ();
}

//
// Faults taken as specified, by kind, reported when the run ends.
//
UINT64 mFaults[6];

void ReportFaults () {
  std::fprintf (stderr,
                "machine faults contained: %llu reads, %llu writes, %llu fetches, %llu runaways, %llu stack overflows, "
                "%llu general-protection faults\n",
                static_cast<unsigned long long> (mFaults[0]), static_cast<unsigned long long> (mFaults[1]),
                static_cast<unsigned long long> (mFaults[2]), static_cast<unsigned long long> (mFaults[3]),
                static_cast<unsigned long long> (mFaults[4]), static_cast<unsigned long long> (mFaults[5]));
}

} // namespace

Host::MachineConfig Machine () {
  Host::MachineConfig Config = Sim::DefaultMachine ();
  Config.ErstSpareBase       = Host::Flash::kTopOfFlash - kPartSize + kSpareOffset;
  Config.ErstSpareSize       = static_cast<UINT32> (kPartSize - kSpareOffset);
  Config.WatchdogLines       = 20000;
  Config.WatchdogEntryLines  = 400000;
  Config.WatchdogSeconds     = 2;
  return Config;
}

std::vector<UINT8> FlashPart () {
  const FlashImage::VolumeSpec Layout[] = {
      {0, FlashImage::kElogVolumeBlocks, FlashImage::kExtHeaderOffset, gEfiWheaElogFvGuid},
      {kNextVolume, kNextBlocks, 0, {}},
  };
  return FlashImage::Build (kPartSize, Layout);
}

Sim::BootResult Boot (std::span<const UINT8> Volume) {
  // The part attached at start-up, rewritten in place: no new mapping per input.
  static const std::vector<UINT8> Part  = FlashPart ();
  const std::span<UINT8>          Image = Host::Flash::Image ();
  std::copy (Part.begin (), Part.end (), Image.begin ());
  if (!Volume.empty ()) {
    std::fill_n (Image.begin (), kVolumeLength, 0xFF);
    std::copy_n (Volume.begin (), std::min<size_t> (Volume.size (), kVolumeLength), Image.begin ());
  }

  Sim::BootOptions Options;
  Options.Machine = Machine ();
  Host::ClearSerialOutput (); // the log outlasts power-on; a campaign would keep every boot's
  return Sim::Boot (Options);
}

bool Faulted (const std::optional<Host::MachineFault> &Fault, bool Named) {
  if (!Fault.has_value ()) {
    return false;
  }

  const auto Frames   = Fault->Where (4);
  const bool Reported = !Frames.empty () || (Fault->Kind == Host::MachineFaultKind::Watchdog);
  if ((EveryFixOn () && !Named) || !Reported) {
    std::fprintf (stderr, "%s machine fault: %s\n", Reported ? "unexpected" : "unreported", Fault->What ().c_str ());
    for (const Host::CodeLocation &Frame : Frames) {
      std::fprintf (stderr, "  in %s\n", Frame.Text ().c_str ());
    }

    std::abort ();
  }

  mFaults[static_cast<int> (Fault->Kind)]++;
  return true;
}

SavedMachine::SavedMachine () : mMachine (Host::SaveMachine ()) {
  mModule.assign (ModuleImageData ().begin (), ModuleImageData ().end ());
}

void SavedMachine::Restore () const {
  Host::RestoreMachine (*mMachine);
  std::copy (mModule.begin (), mModule.end (), ModuleImageData ().begin ());
}

GuardedWindow::GuardedWindow (UINT64 (*Allocate) (UINT64 Size, UINT64 Align), UINT64 Capacity)
    : mCapacity ((Capacity + kPage - 1) & ~(kPage - 1)) {
  mGuard = Allocate (mCapacity + kPage, kPage) + mCapacity;
  mprotect (Host::At<void> (mGuard), kPage, PROT_NONE);
}

GuardedWindow::~GuardedWindow () {
  mprotect (Host::At<void> (mGuard), kPage, PROT_READ | PROT_WRITE);
}

UINT64 GuardedWindow::Place (std::span<const UINT8> Bytes) {
  const size_t Size = std::min<size_t> (Bytes.size (), mCapacity);
  std::memcpy (Host::At<void> (mGuard - Size), Bytes.data (), Size);
  return mGuard - Size;
}

} // namespace Fuzz

//
// Before the first input: the switches, and the default flash part for
// harnesses that do not bring their own.
//
extern "C" int LLVMFuzzerInitialize (int *, char ***) {
  const std::string List = std::getenv ("VORN_FIX") != nullptr ? std::getenv ("VORN_FIX") : "";
  Sim::SelectFixes ((List.empty () || (List == "none")) ? std::set<Host::Fix> () : Sim::ParseFixes (List));
  std::fprintf (stderr, "switches: %s\n", Sim::FixNames (Sim::SelectedFixes ()).c_str ());
  std::atexit (Fuzz::ReportFaults);
  Host::Flash::AttachMemory (Fuzz::FlashPart ());
  return 0;
}
