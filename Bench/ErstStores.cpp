/** @file
  The bench's ERST stores.
**/
#include "ErstStores.h"

#include <cstring>
#include <map>

#include <Host.h>
#include <SpiFlash.h>
#include <VornApeiLoggingSmm.h>

#include "Builder/Boot.h"
#include "Builder/FlashImage.h"
#include "Handlers/CperBuilder.h"
#include "FlashModel.h"
#include "Measure.h"

namespace Bench {

namespace {

//
// The main volume gives up its last 1 MiB to the error-log volume.
//
constexpr UINT64 kMainOffset = 0x160000;
constexpr UINT64 kElogOffset = 0xE00000;
constexpr UINT32 kElogBlocks = 256;

} // namespace

std::vector<UINT8> EmptyStoreImage () {
  std::vector<FlashImage::VolumeSpec> Layout = FlashImage::DefaultLayout ();
  for (FlashImage::VolumeSpec &Volume : Layout) {
    if (Volume.Offset == FlashImage::kElogVolumeOffset) {
      Volume.Offset         = kElogOffset;
      Volume.NumberOfBlocks = kElogBlocks;
    } else if (Volume.Offset == kMainOffset) {
      Volume.NumberOfBlocks = static_cast<UINT32> ((kElogOffset - kMainOffset) / Host::Flash::kSectorSize);
    }
  }
  return FlashImage::Build (Host::Flash::kDefaultSize, Layout);
}

std::vector<UINT8> Record (UINT64 RecordId) {
  Cper::RecordSpec Spec;
  Spec.RecordId = RecordId;
  return Cper::BuildRecord (Spec);
}

Sim::ErstDriver BootOn (std::span<const UINT8> Image, const BenchBuild &Build, bool Tapped) {
  Host::Flash::AttachMemory (Image);
  Sim::BootOptions Options;
  Options.Machine.DebugPrintErrorLevel = Build.PrintLevel;
  Options.Machine.DebugPropertyMask    = Build.PropertyMask;
  if (Build.RecordIndex) {
    Options.Machine.Fixes.insert (Host::Fix::RecordIndex);
  }
  const Sim::BootResult Booted = Sim::Boot (Options);
  Host::ClearSerialOutput ();
  if (Tapped) {
    TapFlash ();
  }
  return Sim::ErstDriver (Booted.Platform.Erst);
}

const std::vector<UINT8> &StoreImage (UINT64 Count) {
  static std::map<UINT64, std::vector<UINT8>> Images = {{0, EmptyStoreImage ()}};
  if (auto Found = Images.find (Count); Found != Images.end ()) {
    return Found->second;
  }

  auto         Last = std::prev (Images.lower_bound (Count));
  const UINT64 From = Last->first;
  //
  // The index changes no byte the writes leave; it only spares their
  // duplicate checks the walk of the whole chain.
  //
  Sim::ErstDriver Os = BootOn (Last->second, BenchBuild{.RecordIndex = true});
  for (UINT64 Id = From + 1; Id <= Count; Id++) {
    Require (Os.Write (Record (Id)) == Sim::ErstResult::Success, "the bench store does not take its records");
    Host::ClearSerialOutput ();
  }

  const auto Image = Host::Flash::Image ();
  return Images.emplace (Count, std::vector<UINT8> (Image.begin (), Image.end ())).first->second;
}

void MarkEveryOtherRecord () {
  const ERST_SPI_STORE_INFORMATION *Info   = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  UINT64                            Header = Info->SpiAddressStartErstErrorRecordRegion;
  for (UINT64 Index = 0; Header < Info->SpiAddressStartAvailableStorage; Index++) {
    ERST_ERROR_RECORD_HEADER Record;
    const auto               Bytes = Host::Flash::Peek (Header, sizeof (Record));
    std::memcpy (&Record, Bytes.data (), sizeof (Record));
    if (Index % 2 == 0) {
      VornApeiLoggingErstSetRecordClearPerBios (Record.OsRecordFlagsAddress);
    }
    Header = Record.NextRecordHeaderAddress;
  }
  VornApeiLoggingGetErstPersistentStoreData ();
  Host::ClearSerialOutput ();
}

FlashWork EnumerationHeaderReads () {
  const ERST_SPI_STORE_INFORMATION *Info   = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  UINT64                            Header = Info->SpiAddressStartErstErrorRecordRegion;
  FlashWork                         Work;
  for (;;) {
    Work.Log.push_back ({FlashOperation::Read, Header, ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH, {}});
    Work.Reads++;
    if (Header >= Info->SpiAddressStartAvailableStorage) {
      return Work;
    }
    ERST_ERROR_RECORD_HEADER Record;
    const auto               Bytes = Host::Flash::Peek (Header, sizeof (Record));
    std::memcpy (&Record, Bytes.data (), sizeof (Record));
    Header = Record.NextRecordHeaderAddress;
  }
}

} // namespace Bench
