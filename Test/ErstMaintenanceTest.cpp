/** @file
  Store maintenance: clearing the whole store, start-up defragmentation
  (erase sizing, kept records, failures and cuts followed by a reboot),
  marking records obsolete and the whole-store dump.
**/
#include <algorithm>

#include <ErstFixture.h>

#include "Builder/FlashImage.h"
#include <Library/DebugLib.h>
#include <SpiFlash.h>
#include "TestFormat.h"

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

  //
  // Stores records of kLength bytes with the given identifiers.
  //
  static void Store (const std::vector<UINT64> &Ids) {
    for (UINT64 Id : Ids) {
      ASSERT_EQ (WriteRecord (Id, kLength), 0u);
    }
  }

  static UINT64 Header (UINT32 Index) {
    return Records () + Index * kSlot;
  }

  static void SetFlag (UINT32 Index, UINT8 Offset, UINT8 Value) {
    Host::Flash::Poke (Header (Index) + Offset, std::vector<UINT8>{Value});
  }

  static std::vector<UINT8> ErasedFrom (UINT64 Address) {
    return std::vector<UINT8> (Volume () + kVolumeLength - Address, 0xFF);
  }
};

TEST_F (ErstMaintenanceTest, ClearEntireStoreKeepsVolumeHeadersAndLaysDownEmptyStore) {
  Store ({1, 2});
  const auto Erases = Host::Flash::Count ().Erase;

  EXPECT_EQ (VornApeiLoggingClearEntirePStore (DEBUG_INFO), EFI_SUCCESS);

  const auto Image    = FlashImage::BuildDefault ();
  auto       Expected = std::vector<UINT8> (Image.begin () + FlashImage::kElogVolumeOffset,
                                      Image.begin () + FlashImage::kElogVolumeOffset + 0x5C);
  // Only the first 64 header bytes are kept: the block-map terminator behind them stays erased.
  std::fill (Expected.begin () + 0x40, Expected.begin () + 0x48, 0xFF);
  EXPECT_EQ (Flash (Volume (), 0x5C), Expected);
  EXPECT_EQ (Flash (StoreHeader (), 16), (std::vector<UINT8>{'E', 'R', 'S', 'T', ' ', 'L', 'O', 'G', 0x01, 0x00, 0x01,
                                                             0x00, 0xA4, 0xFF, 0x01, 0x00}));
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
// Used part of the volume (FV and store headers plus one record) against
// the blocks erased: an exact multiple, and one byte more.
//
class ErstEraseSizingTest : public ErstMaintenanceTest,
                            public ::testing::WithParamInterface<std::tuple<UINT64, UINT64>> {};

TEST_P (ErstEraseSizingTest, ErasesWholeBlocksCoveringUsedPart) {
  const auto [Used, Erased] = GetParam ();
  const auto Record         = CperRecord (0x42, static_cast<UINT32> (Used - 0x6C - 84));
  VornApeiLoggingErstPersistentStoreWrite (PlaceRecord (Record), &Region ()->Status);
  ASSERT_EQ (Region ()->Status, 0u);
  const auto Erases = Host::Flash::Count ().Erase;
  ClearLog ();

  EXPECT_EQ (VornApeiLoggingErstDefragment (DEBUG_INFO), EFI_SUCCESS);

  EXPECT_EQ (Host::Flash::Count ().Erase.Bytes - Erases.Bytes, Erased);
  EXPECT_EQ (StoredIds (), std::vector<UINT64>{0x42});
  EXPECT_EQ (Flash (Records () + 84, Record.size ()), Record);
  EXPECT_TRUE (Logged (Fmt (
      "VornApeiLoggingErstDefragment: LengthFvUsed 0x%016llX LengthTotalFv 0x0000000000020000 LengthErstBlockSize 0x0000000000001000 NumSectorsUsed 0x%016llX NumBytesToErase 0x%016llX",
      (unsigned long long)Used, (unsigned long long)(Erased / 0x1000), (unsigned long long)Erased)));
}

INSTANTIATE_TEST_SUITE_P (Sizes,
                          ErstEraseSizingTest,
                          ::testing::Values (std::make_tuple (0x2000, 0x2000), std::make_tuple (0x2001, 0x3000)),
                          [] (const auto &Info) {
                            return Format ("Used%llX_Erased%llX", (unsigned long long)std::get<0> (Info.param),
                                           (unsigned long long)std::get<1> (Info.param));
                          });

TEST_F (ErstMaintenanceTest, EraseLengthBeyondVolumeIsClamped) {
  Store ({0x42});
  Info ()->SpiAddressStartAvailableStorage = Volume () + kVolumeLength + 1;
  const auto Erases                        = Host::Flash::Count ().Erase;

  EXPECT_EQ (VornApeiLoggingErstDefragment (DEBUG_INFO), EFI_SUCCESS);

  EXPECT_EQ (Host::Flash::Count ().Erase.Bytes - Erases.Bytes, kVolumeLength);
  EXPECT_TRUE (Logged (
      "VornApeiLoggingErstDefragment: NumBytesToErase 0x0000000000021000 > LengthTotalFv 0x0000000000020000, assigning LengthTotalFv default"));
  EXPECT_EQ (StoredIds (), std::vector<UINT64>{0x42});
}

//
// Clear marks set before a reboot, and the records start-up keeps, in order.
//
struct ClearMarks {
  const char                            *Name;
  std::vector<std::tuple<UINT32, UINT8>> Marks; // record index, flag offset
  std::vector<UINT64>                    Kept;
  const char                            *Decision;
};

void PrintTo (const ClearMarks &Case, std::ostream *Out) {
  *Out << Case.Name;
}

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
  EXPECT_TRUE (Logged (std::string ("VornApeiLoggingUpdateErst: ") + GetParam ().Decision));
  for (size_t Slot = 0; Slot < Kept.size (); Slot++) {
    const auto OldRecord =
        std::vector<UINT8> (Original.begin () + (Kept[Slot] - 1) * kSlot + 84, Original.begin () + Kept[Slot] * kSlot);
    EXPECT_EQ (Flash (Header (Slot) + 84, kLength), OldRecord);
    EXPECT_EQ (HeaderAt (Header (Slot)).PrevRecordHeaderAddress, Slot == 0 ? MAX_UINT64 : Header (Slot - 1));
    EXPECT_EQ (Flash (Header (Slot) + 76, 2), (std::vector<UINT8>{0xFF, 0xFF}));
  }

  EXPECT_EQ (Flash (Header (Kept.size ()), kVolumeLength - 0x6C - Kept.size () * kSlot),
             ErasedFrom (Header (Kept.size ())));
  EXPECT_EQ (Region ()->RecordCount, Kept.size ());
  EXPECT_EQ (Region ()->CurRecordID, Kept.empty () ? MAX_UINT64 : Kept.front ());
  EXPECT_EQ (Info ()->SpiAddressStartAvailableStorage, Header (Kept.size ()));
  EXPECT_EQ (Info ()->TotalNumberOfErstRecordsWithClearFlagOspm + Info ()->TotalNumberOfErstRecordsWithClearFlagBios,
             0u);
}

INSTANTIATE_TEST_SUITE_P (
    Marks,
    ErstStartupDefragmentTest,
    ::testing::Values (ClearMarks{"None", {}, {1, 2, 3, 4}, "Skipping defragmentation (not required)"},
                       ClearMarks{"OneOfEach", {{1, kOspm}, {3, kBios}}, {1, 3}, "Defragmentation completed"},
                       ClearMarks{"All",
                                  {{0, kOspm}, {1, kBios}, {2, kOspm}, {2, kBios}, {3, kOspm}},
                                  {},
                                  "Defragmentation completed"}),
    [] (const auto &Info) { return std::string (Info.param.Name); });

TEST_F (ErstMaintenanceTest, WithoutBufferTheStoreIsEmptied) {
  Store ({5, 6});
  Host::SetFault (Host::Service::BsAllocatePages, {});

  EXPECT_EQ (VornApeiLoggingErstDefragment (DEBUG_INFO), EFI_SUCCESS);

  EXPECT_EQ (StoredIds (), std::vector<UINT64>{});
  EXPECT_EQ (Region ()->RecordCount, 0u);
  EXPECT_TRUE (Logged (
      "VornApeiLoggingErstDefragment: ERROR Device Error allocating EfiBootServicesData memory for temporary buffer length 0x0000000000000001 pages for 0x0000000000000314 bytes, aborting..."));
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
  const auto Erases = Host::Flash::Count ().Erase;
  // Reads: FV header, extended header, record 0 header, record 1 header, record 1 data.
  Host::Flash::InjectFailure ({Op::Read, 5, Cut::Fail, 0});

  EXPECT_EQ (VornApeiLoggingErstDefragment (DEBUG_INFO), EFI_SUCCESS);
  EXPECT_EQ (Flash (Volume (), kVolumeLength), Before);
  EXPECT_EQ (Host::Flash::Count ().Erase, Erases);
  EXPECT_TRUE (Logged (
      "VornApeiLoggingErstDefragment: Record 0 => Clear record from pstore, skip saving this OS record data to temporary buffer"));
  EXPECT_TRUE (Logged (
      "VornApeiLoggingErstDefragment: ERROR Device Error from VornApeiLoggingReadDataViaSpi reading Record 1 ERST OS error record data failed, exiting..."));

  Host::SetFault (Host::Service::BsFreePages, {});
  EXPECT_EQ (VornApeiLoggingErstDefragment (DEBUG_INFO), EFI_DEVICE_ERROR);
  EXPECT_EQ (StoredIds (), std::vector<UINT64>{6});
  EXPECT_EQ (
      LinesContaining ("VornApeiLoggingErstDefragment: ERROR Device Error from FreePages for pBuffer @ 0x").size (),
      1u);
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

void PrintTo (const DefragmentCut &Case, std::ostream *Out) {
  *Out << Case.Name;
}

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
                          [] (const auto &Info) { return std::string (Info.param.Name); });

TEST_F (ErstMaintenanceTest, MarkObsoleteSetsFirmwareFlagAndCountsOsClears) {
  Store ({1, 2, 3, 4});
  SetFlag (1, kOspm, 0x22);
  SetFlag (2, kBios, 0x00);
  SetFlag (3, kBios, 0x22);
  ClearLog ();

  EXPECT_EQ (VornApeiLoggingErstMarkObsoleteRecords (DEBUG_INFO), EFI_SUCCESS);

  std::vector<UINT8> BiosFlags;
  for (UINT32 Index = 0; Index < 4; Index++) {
    BiosFlags.push_back (Flash (Header (Index) + kBios, 1)[0]);
  }

  EXPECT_EQ (BiosFlags, (std::vector<UINT8>{0x22, 0x22, 0x00, 0x22}));
  EXPECT_EQ (Info ()->TotalNumberOfErstRecordsWithClearFlagOspm, 1u);
  EXPECT_EQ (Info ()->TotalNumberOfErstRecordsWithClearFlagBios, 2u);
  EXPECT_TRUE (Logged (
      "VornApeiLoggingErstMarkObsoleteRecords: Record 2 => Rd RecordClearPerBios == 0x00 (unexpected data/corrupt pstore)"));
  EXPECT_TRUE (Logged (
      "VornApeiLoggingErstMarkObsoleteRecords: Record 3 => Rd RecordClearPerBios == 0x22 (ERST_RECORD_CLEAR_FLAG_VALUE 0x22), flag already set -> skip record"));

  ExpectFixedFlashBuffers ();

  ASSERT_EQ (Reboot (), EFI_SUCCESS);
  EXPECT_EQ (StoredIds (), std::vector<UINT64>{3});
  ExpectFixedFlashBuffers ();
}

//
// Both start-up and SMI-time maintenance need the parameter region.
//
class ErstMaintenanceNoRegionTest : public ErstFixture, public ::testing::WithParamInterface<bool> {};

TEST_P (ErstMaintenanceNoRegionTest, RefusedWithoutRegion) {
  const bool Defragment = GetParam ();
  EXPECT_EQ (Defragment ? VornApeiLoggingErstDefragment (DEBUG_INFO)
                        : VornApeiLoggingErstMarkObsoleteRecords (DEBUG_INFO),
             EFI_INVALID_PARAMETER);
  EXPECT_EQ (
      SerialLines (),
      std::vector<std::string>{Line (
          0, Fmt ("VornApeiLoggingErst%s: ERROR mPrivateDataVornApeiLogging.pErstParameterBlock is NULL, aborting...",
                  Defragment ? "Defragment" : "MarkObsoleteRecords"))});
  EXPECT_EQ (Host::Flash::Count (), Host::Flash::Counters{});
}

INSTANTIATE_TEST_SUITE_P (Routines,
                          ErstMaintenanceNoRegionTest,
                          ::testing::Values (true, false),
                          [] (const auto &Info) {
                            return std::string (Info.param ? "Defragment" : "MarkObsoleteRecords");
                          });

TEST_F (ErstMaintenanceTest, MarkObsoleteOfEmptyStoreDoesNothing) {
  const auto Counted = Host::Flash::Count ();
  ClearLog ();
  EXPECT_EQ (VornApeiLoggingErstMarkObsoleteRecords (DEBUG_INFO), EFI_SUCCESS);
  EXPECT_EQ (Host::Flash::Count (), Counted);
  EXPECT_TRUE (Logged (
      "VornApeiLoggingErstMarkObsoleteRecords: No valid OS error records remaining after defragmentation, exiting..."));
}

//
// A header that cannot be read ends the marking at once: the records before
// it are marked, the rest keep their erased flag.
//
TEST_F (ErstMaintenanceTest, MarkObsoleteStopsAtUnreadableHeader) {
  Store ({1, 2});
  ClearLog ();
  // Reads: record 0 header, record 1 header.
  Host::Flash::InjectFailure ({Op::Read, 2, Cut::Fail, 0});

  EXPECT_EQ (VornApeiLoggingErstMarkObsoleteRecords (DEBUG_INFO), EFI_DEVICE_ERROR);
  EXPECT_EQ (Flash (Header (0) + kBios, 1)[0], 0x22);
  EXPECT_EQ (Flash (Header (1) + kBios, 1)[0], 0xFF);
  EXPECT_EQ (Info ()->TotalNumberOfErstRecordsWithClearFlagBios, 1u);
  EXPECT_EQ (SerialLines ().back (),
             Line (0, Fmt ("VornApeiLoggingErstMarkObsoleteRecords: ERROR Device Error from "
                           "VornApeiLoggingReadDataViaSpi reading Record 1 ErstErrorRecordHeaderAddress 0x%016llX "
                           "RegionLength 0x000000000001FF94, aborting...",
                           (unsigned long long)Header (1))));
  EXPECT_FALSE (Logged ("VornApeiLoggingErstMarkObsoleteRecords: Record processing completed"));
}

TEST_F (ErstMaintenanceTest, DumpWalksEveryRecordAndStopsOnPoolFailure) {
  Store ({1, 2});
  ClearLog ();
  VornApeiLoggingDumpErstMemoryFromFlash (DEBUG_INFO);
  EXPECT_EQ (LinesContaining ("VornApeiLoggingDumpErstMemoryFromFlash: Record ").size (), 6u);
  EXPECT_TRUE (
      Logged (Fmt ("VornApeiLoggingDumpErstMemoryFromFlash: Record 1 => OS record @ 0x%016llX Length 0x00000100",
                   (unsigned long long)(Header (1) + 84))));

  Host::SetFault (Host::Service::SmmAllocatePool, {});
  ClearLog ();
  VornApeiLoggingDumpErstMemoryFromFlash (DEBUG_INFO);
  EXPECT_EQ (LinesContaining ("VornApeiLoggingDumpErstMemoryFromFlash: Record ").size (), 3u);
  EXPECT_TRUE (Logged (
      "VornApeiLoggingDumpErstMemoryFromFlash: ERROR Device Error allocating EfiRuntimeServicesData length 0x00000100 for Record 0 OS record data, aborting..."));
}

} // namespace
