/** @file
  Store maintenance: clearing the whole store, start-up defragmentation
  (erase sizing, kept records, chains that lie about their lengths, failures
  and cuts followed by a reboot), marking records obsolete, the walk's bound
  at the top of flash, and the whole-store dump.
**/
#include <ErstFixture.h>
#include <ErstStoreBuilder.h>
#include <ParamName.h>

#include "Builder/FlashImage.h"
#include <Guid/WheaElogFv.h>
#include <Library/DebugLib.h>
#include <SpiFlash.h>

namespace {

using Host::Flash::Cut;
using Host::Flash::Op;

constexpr UINT32 kLength = 0x100;
constexpr UINT64 kSlot   = 84 + kLength;
constexpr UINT8  kOspm   = 76;
constexpr UINT8  kBios   = 77;

class ErstMaintenanceTest : public ErstFixture {
protected:
  void SetUp () override {
    ErstFixture::SetUp ();
    ASSERT_EQ (UpdateErst (), EFI_SUCCESS);
  }

  static void Store (const std::vector<UINT64> &Ids) {
    for (UINT64 Id : Ids) {
      ASSERT_EQ (WriteRecord (Id, kLength), ERST_STATUS_SUCCESS);
    }
  }

  static UINT64 Header (UINT64 Index) {
    return Records () + Index * kSlot;
  }

  static void SetFlag (UINT32 Index, UINT8 Offset, UINT8 Value) {
    Host::Flash::Poke (Header (Index) + Offset, std::vector<UINT8>{Value});
  }

  static std::vector<UINT8> ErasedFrom (UINT64 Address) {
    return std::vector<UINT8> (Volume () + kVolumeLength - Address, 0xFF);
  }
};

TEST_F (ErstMaintenanceTest, ClearEntireStoreKeepsVolumeHeadersAndLaysDownAnEmptyStore) {
  Store ({1, 2});
  const auto Erases = Host::Flash::Count ().Erase;

  EXPECT_EQ (VornApeiLoggingClearEntirePStore (DEBUG_INFO), EFI_SUCCESS);

  const auto Image    = FlashImage::BuildDefault ();
  auto       Expected = std::vector<UINT8> (Image.begin () + FlashImage::kElogVolumeOffset,
                                      Image.begin () + FlashImage::kElogVolumeOffset + 0x5C);
  // Only the first 64 header bytes are kept: the block-map terminator behind them stays erased.
  std::fill (Expected.begin () + 0x40, Expected.begin () + 0x48, 0xFF);
  EXPECT_EQ (Flash (Volume (), 0x5C), Expected);
  EXPECT_EQ (Flash (StoreHeader (), 16),
             (std::vector<UINT8>{'E', 'R', 'S', 'T', ' ', 'L', 'O', 'G', 1, 0, 1, 0, 0xA4, 0xFF, 0x01, 0x00}));
  EXPECT_EQ (Flash (Records (), kVolumeLength - 0x6C), ErasedFrom (Records ()));
  EXPECT_EQ (Host::Flash::Count ().Erase.Bytes - Erases.Bytes, kVolumeLength);
  EXPECT_EQ (Info ()->SpiAddressStartAvailableStorage, Records ());
  EXPECT_EQ (Info ()->SpiAddressLastValidRecord, MAX_UINT64);
  EXPECT_EQ (Info ()->LengthErstStoreRegionErrorRecordAreaAvailable, kVolumeLength - 0x6C);
  EXPECT_EQ (Info ()->TotalNumberOfErstRecords, 0u);
  EXPECT_EQ (Region ()->RecordCount, 0u);
  EXPECT_EQ (Region ()->CurRecordID, MAX_UINT64);
}

//
// After an emptying, free space is counted from the extended header's
// address (its 20 bytes, then the store header), not from the record region:
// with an extended header of 21 bytes the two differ by one.
//
TEST_F (ErstMaintenanceTest, EmptiedStoreStartsBehindATwentyByteExtendedHeader) {
  const UINT8 OddSize[] = {21, 0, 0, 0};
  Host::Flash::Poke (Volume () + 0x48 + 16, OddSize);
  ASSERT_EQ (Reboot (), EFI_SUCCESS);
  EXPECT_EQ (Flash (Volume () + 0x5D, 8), (std::vector<UINT8>{'E', 'R', 'S', 'T', ' ', 'L', 'O', 'G'}));
  EXPECT_EQ (Info ()->SpiAddressStartErstErrorRecordRegion, Volume () + 0x6D);
  EXPECT_EQ (Info ()->SpiAddressStartAvailableStorage, Volume () + 0x6C);
}

//
// The used part of the volume (headers plus one record) against the blocks
// erased: an exact multiple, and one byte more; and a used length past the
// volume is clamped to the volume.
//
TEST_F (ErstMaintenanceTest, ErasesWholeBlocksCoveringTheUsedPart) {
  const struct { UINT64 Used, Erased; } Cases[] = {{0x2000, 0x2000}, {0x2001, 0x3000}};
  for (const auto &Case : Cases) {
    ASSERT_EQ (VornApeiLoggingClearEntirePStore (DEBUG_INFO), EFI_SUCCESS);
    const auto Record = CperRecord (0x42, static_cast<UINT32> (Case.Used - 0x6C - 84));
    VornApeiLoggingErstPersistentStoreWrite (PlaceRecord (Record), &Region ()->Status);
    const auto Erases = Host::Flash::Count ().Erase;

    EXPECT_EQ (VornApeiLoggingErstDefragment (DEBUG_INFO), EFI_SUCCESS);
    EXPECT_EQ (Host::Flash::Count ().Erase.Bytes - Erases.Bytes, Case.Erased) << Case.Used;
    EXPECT_EQ (Flash (Records () + 84, Record.size ()), Record);
  }

  Info ()->SpiAddressStartAvailableStorage = Volume () + kVolumeLength + 1;
  const auto Erases                        = Host::Flash::Count ().Erase;
  EXPECT_EQ (VornApeiLoggingErstDefragment (DEBUG_INFO), EFI_SUCCESS);
  EXPECT_EQ (Host::Flash::Count ().Erase.Bytes - Erases.Bytes, kVolumeLength);
  EXPECT_EQ (StoredIds (), std::vector<UINT64>{0x42});
}

//
// Clear marks set before a reboot, and the records start-up keeps, in their
// old order, packed from the start of the record region.
//
struct ClearMarks {
  const char                            *Name;
  std::vector<std::tuple<UINT32, UINT8>> Marks; // record index, flag offset
  std::vector<UINT64>                    Kept;
};

class ErstStartupDefragmentTest : public ErstMaintenanceTest, public ::testing::WithParamInterface<ClearMarks> {};

TEST_P (ErstStartupDefragmentTest, DropsMarkedRecordsAndPacksTheRest) {
  Store ({1, 2, 3, 4});
  const auto Original = Flash (Records (), 4 * kSlot);
  for (const auto &[Index, Offset] : GetParam ().Marks) {
    SetFlag (Index, Offset, 0x22);
  }

  ASSERT_EQ (Reboot (), EFI_SUCCESS);

  const auto &Kept = GetParam ().Kept;
  EXPECT_EQ (StoredIds (), Kept);
  for (size_t Slot = 0; Slot < Kept.size (); Slot++) {
    const auto Old = Original.begin () + static_cast<long> ((Kept[Slot] - 1) * kSlot);
    EXPECT_EQ (Flash (Header (Slot) + 84, kLength), std::vector<UINT8> (Old + 84, Old + kSlot));
    EXPECT_EQ (Flash (Header (Slot) + 76, 2), (std::vector<UINT8>{0xFF, 0xFF}));
  }

  EXPECT_EQ (Flash (Header (Kept.size ()), kVolumeLength - 0x6C - Kept.size () * kSlot),
             ErasedFrom (Header (Kept.size ())));
  EXPECT_EQ (Region ()->RecordCount, Kept.size ());
  EXPECT_EQ (Region ()->CurRecordID, Kept.empty () ? MAX_UINT64 : Kept.front ());
  EXPECT_EQ (Info ()->SpiAddressStartAvailableStorage, Header (Kept.size ()));
}

INSTANTIATE_TEST_SUITE_P (
    Marks,
    ErstStartupDefragmentTest,
    ::testing::Values (ClearMarks{"None", {}, {1, 2, 3, 4}},
                       ClearMarks{"ClearedByTheOs", {{1, kOspm}}, {1, 3, 4}},
                       ClearMarks{"OneOfEach", {{1, kOspm}, {3, kBios}}, {1, 3}},
                       ClearMarks{"All", {{0, kOspm}, {1, kBios}, {2, kOspm}, {2, kBios}, {3, kOspm}}, {}}),
    CaseName ());

//
// Chains that lie about their lengths. The first record's length makes the
// 32-bit used count wrap, so the buffer is far smaller than the live record
// behind it: the copy is refused and the flash left alone. A live record
// whose own CPER length runs past what was saved is not restored.
//
TEST_F (ErstMaintenanceTest, DefragmentationKeepsWithinWhatItSaved) {
  ASSERT_EQ (VornApeiLoggingClearEntirePStore (DEBUG_INFO), EFI_SUCCESS);
  ErstStore::Builder Chain (StoreHeader (), FALSE);
  const auto         Cleared = Chain.Add (1, 0x20, 0x22);
  auto               Liar    = ErstStore::ReadHeader (Cleared.Header);
  Chain.Add (2, 0x10000);
  Liar.OsRecordLength = 0x100u - 0x10000u - 2 * 84; // used bytes wrap to 0x100
  ErstStore::WriteHeader (Cleared.Header, Liar);
  const auto Before = Flash (Volume (), kVolumeLength);

  ASSERT_EQ (Reboot (), EFI_SUCCESS);
  EXPECT_EQ (Info ()->SpiAddressStartAvailableStorage, Records () + 0x100);
  EXPECT_EQ (Flash (Volume (), kVolumeLength), Before);

  ASSERT_EQ (VornApeiLoggingClearEntirePStore (DEBUG_INFO), EFI_SUCCESS);
  Store ({5, 6});
  SetFlag (0, kOspm, 0x22);
  const UINT32 Longer = kLength + 0x40;
  Host::Flash::Poke (Header (1) + 84 + 20, std::span<const UINT8> (reinterpret_cast<const UINT8 *> (&Longer), 4));
  ASSERT_EQ (Reboot (), EFI_SUCCESS);
  EXPECT_EQ (StoredIds (), std::vector<UINT64>{});
}

TEST_F (ErstMaintenanceTest, WithoutABufferTheStoreIsEmptied) {
  Store ({5, 6});
  Host::SetFault (Host::Service::BsAllocatePages, {});
  EXPECT_EQ (VornApeiLoggingErstDefragment (DEBUG_INFO), EFI_SUCCESS);
  EXPECT_EQ (StoredIds (), std::vector<UINT64>{});
  EXPECT_EQ (Region ()->RecordCount, 0u);
}

//
// With a buffer the caller hears only how it was given back: a failed copy
// leaves the flash alone and still reports success, a failed free reports
// the failure although the store was rebuilt.
//
TEST_F (ErstMaintenanceTest, ResultIsTheFreeingStatus) {
  Store ({5, 6});
  SetFlag (0, kOspm, 0x22);
  const auto Before = Flash (Volume (), kVolumeLength);
  // Reads: FV header, extended header, record 0 header, record 1 header, record 1 data.
  Host::Flash::InjectFailure ({Op::Read, 5, Cut::Fail, 0});
  EXPECT_EQ (VornApeiLoggingErstDefragment (DEBUG_INFO), EFI_SUCCESS);
  EXPECT_EQ (Flash (Volume (), kVolumeLength), Before);

  Host::SetFault (Host::Service::BsFreePages, {});
  EXPECT_EQ (VornApeiLoggingErstDefragment (DEBUG_INFO), EFI_DEVICE_ERROR);
  EXPECT_EQ (StoredIds (), std::vector<UINT64>{6});
}

//
// A defragmentation cut at one flash operation, then one more reboot: the
// records the store ends with.
//
struct DefragmentCut {
  const char         *Name;
  Op                  Kind;
  UINT64              Nth;
  Cut                 How;
  UINT32              Landed;
  std::vector<UINT64> Final;
};

class ErstDefragmentCutTest : public ErstMaintenanceTest, public ::testing::WithParamInterface<DefragmentCut> {};

TEST_P (ErstDefragmentCutTest, NextStartUpRecovers) {
  Store ({1, 2, 3});
  SetFlag (1, kOspm, 0x22);
  PowerCycle ();
  Host::Flash::InjectFailure ({GetParam ().Kind, GetParam ().Nth, GetParam ().How, GetParam ().Landed});
  EXPECT_EQ (UpdateErst (), EFI_SUCCESS);

  ASSERT_EQ (Reboot (), EFI_SUCCESS);
  EXPECT_EQ (StoredIds (), GetParam ().Final);
  EXPECT_EQ (Region ()->RecordCount, GetParam ().Final.size ());
}

INSTANTIATE_TEST_SUITE_P (Cuts,
                          ErstDefragmentCutTest,
                          ::testing::Values (
                              // Nothing erased: the next start-up defragments again.
                              DefragmentCut{"EraseRefused", Op::Erase, 1, Cut::Fail, 0, {1, 3}},
                              // Volume headers back, store header lost: the next start-up clears all.
                              DefragmentCut{"StoreHeaderLost", Op::Program, 3, Cut::Fail, 0, {}},
                              // First restored header torn after its signature: record 3 lands on it.
                              DefragmentCut{"FirstRestoreHeaderTorn", Op::Program, 4, Cut::Partial, 8, {3}},
                              // First restored record's data torn: record 3 cannot follow it.
                              DefragmentCut{"FirstRestoreDataTorn", Op::Program, 6, Cut::Partial, 0x10, {1}}),
                          CaseName ());

TEST_F (ErstMaintenanceTest, MarkObsoleteSetsTheFirmwareFlagAndCountsOsClears) {
  EXPECT_EQ (VornApeiLoggingErstMarkObsoleteRecords (DEBUG_INFO), EFI_SUCCESS); // empty store
  EXPECT_EQ (Info ()->TotalNumberOfErstRecordsWithClearFlagBios, 0u);

  Store ({1, 2, 3, 4});
  SetFlag (1, kOspm, 0x22);
  SetFlag (2, kBios, 0x00);
  SetFlag (3, kBios, 0x22);
  EXPECT_EQ (VornApeiLoggingErstMarkObsoleteRecords (DEBUG_INFO), EFI_SUCCESS);

  std::vector<UINT8> BiosFlags;
  for (UINT32 Index = 0; Index < 4; Index++) {
    BiosFlags.push_back (Flash (Header (Index) + kBios, 1)[0]);
  }
  // A flag byte that is neither erased nor marked is corrupt and left alone.
  EXPECT_EQ (BiosFlags, (std::vector<UINT8>{0x22, 0x22, 0x00, 0x22}));
  EXPECT_EQ (Info ()->TotalNumberOfErstRecordsWithClearFlagOspm, 1u);
  EXPECT_EQ (Info ()->TotalNumberOfErstRecordsWithClearFlagBios, 2u);
  ExpectFixedFlashBuffers ();

  ASSERT_EQ (Reboot (), EFI_SUCCESS);
  EXPECT_EQ (StoredIds (), std::vector<UINT64>{3});
}

//
// A header that cannot be read ends the marking at once: the records before
// it are marked, the rest keep their erased flag.
//
TEST_F (ErstMaintenanceTest, MarkObsoleteStopsAtAnUnreadableHeader) {
  Store ({1, 2});
  Host::Flash::InjectFailure ({Op::Read, 2, Cut::Fail, 0});
  EXPECT_EQ (VornApeiLoggingErstMarkObsoleteRecords (DEBUG_INFO), EFI_DEVICE_ERROR);
  EXPECT_EQ (Flash (Header (0) + kBios, 1)[0], 0x22);
  EXPECT_EQ (Flash (Header (1) + kBios, 1)[0], 0xFF);
  EXPECT_EQ (Info ()->TotalNumberOfErstRecordsWithClearFlagBios, 1u);
}

//
// An error-log volume that ends at the top of flash, its store filled to one
// byte short of the end: the walks stop there rather than read past 4 GiB.
//
TEST_F (ErstMaintenanceTest, WalksStopShortOfTheTopOfFlash) {
  const FlashImage::VolumeSpec Only[] = {{0, FlashImage::kElogVolumeBlocks, 0x48, gEfiWheaElogFvGuid}};
  Host::Flash::AttachMemory (FlashImage::Build (kVolumeLength, Only));
  const UINT64 Top = Host::Flash::kTopOfFlash - kVolumeLength;
  ErstStore::Builder (Top + 0x5C).Add (0x77, static_cast<UINT32> (kVolumeLength - 0x6C - 1 - 84));

  ASSERT_EQ (Reboot (), EFI_SUCCESS);
  EXPECT_EQ (Info ()->SpiAddressStartAvailableStorage, Host::Flash::kTopOfFlash - 1);
  EXPECT_EQ (VornApeiLoggingErstMarkObsoleteRecords (DEBUG_INFO), EFI_SUCCESS);
  EXPECT_EQ (Flash (Top + 0x6C + kBios, 1)[0], 0x22);
}

//
// Both start-up and SMI-time maintenance need the parameter region.
//
TEST_F (ErstMaintenanceTest, MaintenanceNeedsTheParameterRegion) {
  PowerCycle ();
  const auto Before = Host::Flash::Count ();
  EXPECT_EQ (VornApeiLoggingErstDefragment (DEBUG_INFO), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingErstMarkObsoleteRecords (DEBUG_INFO), EFI_INVALID_PARAMETER);
  EXPECT_EQ (Host::Flash::Count (), Before);
}

TEST_F (ErstMaintenanceTest, DumpWalksEveryRecordAndStopsOnPoolFailure) {
  Store ({1, 2});
  ClearLog ();
  VornApeiLoggingDumpErstMemoryFromFlash (DEBUG_INFO);
  EXPECT_EQ (LinesContaining ("VornApeiLoggingDumpErstMemoryFromFlash: Record ").size (), 6u);

  Host::SetFault (Host::Service::SmmAllocatePool, {});
  ClearLog ();
  VornApeiLoggingDumpErstMemoryFromFlash (DEBUG_INFO);
  EXPECT_EQ (LinesContaining ("VornApeiLoggingDumpErstMemoryFromFlash: Record ").size (), 3u);
}

} // namespace
