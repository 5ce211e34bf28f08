/** @file
  The ERST store as start-up finds it and as the record operations walk it:
  discovery (volume, geometry, the validation rules, the bound of the record
  region, platform failures), search by identifier and enumeration of the
  identifiers the OS has not cleared.
**/
#include <cstring>

#include <ErstStoreFixture.h>
#include <ParamName.h>
#include <SpiFlash.h>

#include <Guid/WheaElogFv.h>

namespace {

using Host::Flash::Cut;
using Host::Flash::Op;

constexpr UINT64 kV    = 0xFF140000; // error-log volume
constexpr UINT64 kR    = 0xFF14006C; // record region
constexpr UINT64 kArea = 0x1FF94;    // record region length

//
// What a search reports through its four outputs.
//
struct Found {
  UINT64 Data = 0xAA, Flags = 0xAA, Next = 0xAA, Status = 0xAA;
  bool   operator== (const Found &) const = default;
};

class ErstStoreTest : public ErstStoreFixture {
protected:
  BOOLEAN DebugCode () const override {
    return FALSE;
  }

  static ERST_SPI_STORE_INFORMATION &I () {
    return *Info ();
  }

  static Found Search (UINT64 RecordId, BOOLEAN FindNext, BOOLEAN MarkCleared = FALSE) {
    Found F;
    VornApeiLoggingSearchErstPersistentStore (RecordId, FindNext, MarkCleared, &F.Data, &F.Flags, &F.Next, &F.Status);
    return F;
  }

  static Found At (const ErstStore::Placed &Record) {
    return {Record.Data, Record.Flags, Record.Next, ERST_STATUS_SUCCESS};
  }

  static UINT64 First () {
    UINT64 Id = 0xAA;
    VornApeiLoggingGetFirstOsRecordId (&Id);
    return Id;
  }

  static UINT64 Next (UINT64 HeaderAddress) {
    UINT64 Id = 0xAA;
    VornApeiLoggingGetNextOsRecordId (HeaderAddress, &Id);
    return Id;
  }

  static void Name (UINT64 Volume, const EFI_GUID &Guid) {
    Host::Flash::Poke (Volume + 0x48, std::span<const UINT8> (reinterpret_cast<const UINT8 *> (&Guid), sizeof (Guid)));
  }

  static void SetNext (const ErstStore::Placed &Record, UINT64 Next) {
    auto Header                    = ErstStore::ReadHeader (Record.Header);
    Header.NextRecordHeaderAddress = Next;
    ErstStore::WriteHeader (Record.Header, Header);
  }
};

TEST_F (ErstStoreTest, ChainedRecordsGiveGeometryCountsAndFirstIdentifier) {
  ErstStore::Builder Store = NewStore ();
  Store.Add (0x1001, 0x100);
  Store.Add (0x1002, 0x80);
  const auto Third = Store.Add (0x1003, 0x200);
  ASSERT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_SUCCESS);

  EXPECT_EQ (I ().ClearEntireStoreRegion, FALSE);
  EXPECT_EQ (I ().SpiAddressFvBlockHeader, kV);
  EXPECT_EQ (I ().SpiAddressFvBlockExtHeader, kV + 0x48);
  EXPECT_EQ (I ().LengthTotalFv, 0x20000u);
  EXPECT_EQ (I ().LengthErstBlockSize, 0x1000u);
  EXPECT_EQ (I ().SpiAddressStartErstStoreHeader, kV + 0x5C);
  EXPECT_EQ (I ().LengthErstStoreRegion, 0x20000u - 0x5C);
  EXPECT_EQ (I ().SpiAddressStartErstErrorRecordRegion, kR);
  EXPECT_EQ (I ().LengthErstStoreRegionErrorRecordArea, kArea);
  EXPECT_EQ (I ().LengthErstStoreRegionErrorRecordAreaAvailable, kArea); // left whole on purpose
  EXPECT_EQ (I ().SpiAddressStartAvailableStorage, kR + 0x47C);
  EXPECT_EQ (I ().SpiAddressLastValidRecord, Third.Header);
  EXPECT_EQ (I ().TotalNumberOfErstRecords, 3u);
  EXPECT_EQ (Region ()->RecordCount, 3u);
  EXPECT_EQ (Region ()->CurRecordID, 0x1001u);
}

TEST_F (ErstStoreTest, EmptyStoreAndChainEnds) {
  NewStore ();
  ASSERT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_SUCCESS);
  EXPECT_EQ (I ().SpiAddressStartAvailableStorage, kR);
  EXPECT_EQ (I ().SpiAddressLastValidRecord, MAX_UINT64);
  EXPECT_EQ (Region ()->RecordCount, 0u);
  EXPECT_EQ (Region ()->CurRecordID, MAX_UINT64);
  EXPECT_EQ (Search (1, FALSE), (Found{0, 0, MAX_UINT64, ERST_STATUS_RECORD_STORE_EMPTY}));
  EXPECT_EQ (First (), MAX_UINT64);

  // A record whose successor field reads erased is counted, but the one
  // before it stays the last valid record.
  ErstStore::Builder Store = NewStore ();
  const auto         A     = Store.Add (0x21, 0x40);
  SetNext (Store.Add (0x22, 0x40), MAX_UINT64);
  ASSERT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_SUCCESS);
  EXPECT_EQ (I ().TotalNumberOfErstRecords, 2u);
  EXPECT_EQ (I ().SpiAddressLastValidRecord, A.Header);
  EXPECT_EQ (I ().SpiAddressStartAvailableStorage, kR + 2 * (0x40 + 84));
}

TEST_F (ErstStoreTest, ClearedRecordsCountByFlagAndStayInTheTotal) {
  ErstStore::Builder Store = NewStore ();
  Store.Add (1, 0x30, 0x22, 0x22);
  Store.Add (2, 0x30, 0x22, 0xFF);
  Store.Add (3, 0x30, 0xFF, 0x22);
  ASSERT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_SUCCESS);
  EXPECT_EQ (I ().TotalNumberOfErstRecordsWithClearFlagOspm, 2u);
  EXPECT_EQ (I ().TotalNumberOfErstRecordsWithClearFlagBios, 2u);
  EXPECT_EQ (I ().TotalNumberOfErstRecords, 3u);
  EXPECT_EQ (Region ()->RecordCount, 3u);
  EXPECT_EQ (Region ()->CurRecordID, 1u);
}

TEST_F (ErstStoreTest, VolumeSearch) {
  // The store header follows an extended header of odd size unaligned.
  const UINT8 OddSize[] = {21, 0, 0, 0};
  Host::Flash::Poke (kV + 0x48 + 16, OddSize);
  ErstStore::Builder (kV + 0x5D).Add (5, 0x10);
  ASSERT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_SUCCESS);
  EXPECT_EQ (I ().SpiAddressStartErstErrorRecordRegion, kR + 1);
  EXPECT_EQ (I ().LengthErstStoreRegion, 0x20000u - 0x5D);
  EXPECT_EQ (Region ()->CurRecordID, 5u);

  // The search does not stop at the first volume with the name.
  Name (0xFF160000, gEfiWheaElogFvGuid);
  ErstStore::Builder (0xFF16005C).Add (10, 0x20);
  ASSERT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_SUCCESS);
  EXPECT_EQ (I ().SpiAddressFvBlockHeader, 0xFF160000u);
  EXPECT_EQ (I ().LengthTotalFv, 0xD20000u);
  EXPECT_EQ (Region ()->CurRecordID, 10u);

  // Without a volume of that name the store information stays zero.
  PowerCycle ();
  mPrivateDataVornApeiLogging.pErstParameterBlock =
      Host::At<VORN_ERST_PARAMETER_REGION> (Host::AllocateReserved (MAX_ERST_PARAMETER_REGION_SIZE));
  const EFI_GUID Other = {0x12345678, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
  Name (kV, Other);
  Name (0xFF160000, Other);
  ASSERT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_SUCCESS);
  EXPECT_EQ (I ().LengthTotalFv, 0u);
  EXPECT_EQ (I ().SpiAddressStartErstStoreHeader, 0u);
}

//
// The walks stop, without reading, at a successor at or past the last byte
// of the record region: a store filled to one byte short of its end is read
// whole and kept, and nothing past the volume is read.
//
TEST_F (ErstStoreTest, WalksStopOneByteShortOfTheRegionEnd) {
  NewStore ().Add (0x77, static_cast<UINT32> (kArea - 1 - 84));
  ASSERT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_SUCCESS);
  EXPECT_EQ (I ().ClearEntireStoreRegion, FALSE);
  EXPECT_EQ (I ().TotalNumberOfErstRecords, 1u);
  EXPECT_EQ (I ().SpiAddressStartAvailableStorage, kR + kArea - 1);

  const UINT64 Reads = Host::Flash::Count ().Read.Operations;
  EXPECT_EQ (Search (0x78, TRUE).Status, ERST_STATUS_RECORD_NOT_FOUND);
  EXPECT_EQ (First (), 0x77u);
  EXPECT_EQ (Host::Flash::Count ().Read.Operations, Reads + 2);
}

//
// A store the scan refuses: one rule broken in the second of two records, or
// in the store header. The store is flagged for clearing and the counts keep
// what the scan reached.
//
struct Damage {
  const char *Name;
  void (*Apply) (ERST_ERROR_RECORD_HEADER &Header, ERST_ERROR_RECORD_FLAGS &Flags, UINT64 Previous);
  const char *Line; // the last line logged, after "Record 1 "
};

class ErstDamageTest : public ErstStoreTest, public ::testing::WithParamInterface<Damage> {};

TEST_P (ErstDamageTest, FirstBrokenRuleFlagsTheStoreForClearing) {
  ErstStore::Builder      Store  = NewStore ();
  const auto              First  = Store.Add (0x31, 0x40);
  const auto              Second = Store.Add (0x32, 0x40);
  auto                    Header = ErstStore::ReadHeader (Second.Header);
  ERST_ERROR_RECORD_FLAGS Flags;
  std::memcpy (&Flags, Flash (Second.Flags, sizeof (Flags)).data (), sizeof (Flags));
  GetParam ().Apply (Header, Flags, First.Header);
  ErstStore::WriteHeader (Second.Header, Header);
  Host::Flash::Poke (Second.Flags, std::span<const UINT8> (reinterpret_cast<const UINT8 *> (&Flags), sizeof (Flags)));

  EXPECT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_VOLUME_CORRUPTED);
  EXPECT_EQ (I ().ClearEntireStoreRegion, TRUE);
  EXPECT_EQ (Region ()->RecordCount, 1u);
  EXPECT_EQ (SerialLines ().back (), L ("VornApeiLoggingGetErstPersistentStoreData", GetParam ().Line));
}

INSTANTIATE_TEST_SUITE_P (
    Rules,
    ErstDamageTest,
    ::testing::Values (
        Damage{"ForeignSignature", [] (auto &H, auto &, UINT64) { H.Signature = 0x1122334455667788ULL; },
               "Record 1 => PStore data corrupted, set flag to clear pstore"},
        Damage{
            "HeaderRevision", [] (auto &H, auto &, UINT64) { H.Revision = 0x00010002; },
            "Record 1 => ERST Error Record Header -> Revision 0x00010002 != Latest Revision 0x00010001, set flag to clear pstore"},
        Damage{"FlagsAddressZero", [] (auto &H, auto &, UINT64) { H.OsRecordFlagsAddress = 0; },
               "Record 1 =>ERST Error Record Flags Address 0x0000000000000000 not valid, set flag to clear pstore"},
        Damage{"FlagsAddressErased", [] (auto &H, auto &, UINT64) { H.OsRecordFlagsAddress = MAX_UINT64; },
               "Record 1 =>ERST Error Record Flags Address 0xFFFFFFFFFFFFFFFF not valid, set flag to clear pstore"},
        Damage{
            "PreviousNotTheLastRecord",
            [] (auto &H, auto &, UINT64 Previous) { H.PrevRecordHeaderAddress = Previous + 1; },
            "Record 1 => ERST Error Record Previous Record Address 0x00000000FF14006D != Last Record Address 0x00000000FF14006C, set flag to clear pstore"},
        Damage{
            "OsRecordAddressZero", [] (auto &H, auto &, UINT64) { H.OsRecordAddress = 0; },
            "Record 1 => ERST Error Record OS Record Address 0x0000000000000000 not valid, set flag to clear pstore"},
        Damage{"OsRecordLengthZero", [] (auto &H, auto &, UINT64) { H.OsRecordLength = 0; },
               "Record 1 => ERST Error Record OS Record Length 0x00000000 not valid, set flag to clear pstore"},
        Damage{"OsRecordLengthErased", [] (auto &H, auto &, UINT64) { H.OsRecordLength = MAX_UINT32; },
               "Record 1 => ERST Error Record OS Record Length 0xFFFFFFFF not valid, set flag to clear pstore"},
        Damage{
            "WriteCutAfterHeader", [] (auto &, auto &F, UINT64) { F.Revision = MAX_UINT32; },
            "Record 1 => ERST Error Record Flags -> Revision 0xFFFFFFFF != Latest Revision 0x00010001, set flag to clear pstore"}),
    CaseName ());

TEST_F (ErstStoreTest, ErasedOrOutdatedStoreHeaderFlagsTheStore) {
  EXPECT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_VOLUME_CORRUPTED);
  EXPECT_EQ (I ().ClearEntireStoreRegion, TRUE);

  ErstStore::Builder (kV + 0x5C, TRUE, 0x00010000).Add (1, 0x10);
  EXPECT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_VOLUME_CORRUPTED);
  EXPECT_EQ (I ().ClearEntireStoreRegion, TRUE);
  EXPECT_EQ (Region ()->RecordCount, 0u);
}

//
// Platform failures are returned (or turned into EFI_UNSUPPORTED where the
// block protocol misbehaves) and never ask for the store to be cleared.
//
struct PlatformFailure {
  const char *Name;
  void (*Arrange) ();
  EFI_STATUS Status;
};

class ErstDiscoveryFailureTest : public ErstStoreTest, public ::testing::WithParamInterface<PlatformFailure> {};

TEST_P (ErstDiscoveryFailureTest, IsReturnedWithoutClearing) {
  NewStore ().Add (1, 0x10);
  GetParam ().Arrange ();
  EXPECT_EQ (VornApeiLoggingGetErstPersistentStoreData (), GetParam ().Status);
  if (Info () != nullptr) {
    EXPECT_EQ (I ().ClearEntireStoreRegion, FALSE);
  }
}

void FailRead (UINT64 Nth) {
  Host::Flash::InjectFailure ({Op::Read, Nth, Cut::Fail, 0});
}

INSTANTIATE_TEST_SUITE_P (
    Platform,
    ErstDiscoveryFailureTest,
    ::testing::Values (
        PlatformFailure{"GetPhysicalAddress",
                        [] {
                          Host::Flash::SetVolumeFaults ({EFI_DEVICE_ERROR, FALSE, {}});
                        },
                        EFI_UNSUPPORTED},
        PlatformFailure{"ZeroAddress",
                        [] {
                          Host::Flash::SetVolumeFaults ({{}, TRUE, {}});
                        },
                        EFI_UNSUPPORTED},
        PlatformFailure{"GetBlockSize",
                        [] {
                          Host::Flash::SetVolumeFaults ({{}, FALSE, EFI_NO_MEDIA});
                        },
                        EFI_NO_MEDIA},
        PlatformFailure{"FvHeaderRead", [] { FailRead (1); }, EFI_DEVICE_ERROR},
        PlatformFailure{"FvExtHeaderRead", [] { FailRead (3); }, EFI_DEVICE_ERROR},
        PlatformFailure{"StoreHeaderRead", [] { FailRead (6); }, EFI_DEVICE_ERROR},
        PlatformFailure{"SecondRecordRead", [] { FailRead (8); }, EFI_DEVICE_ERROR},
        PlatformFailure{"StoreInformationPool",
                        [] {
                          Host::SetFault (Host::Service::BsAllocatePool, {Host::FaultKind::Fail, EFI_OUT_OF_RESOURCES});
                        },
                        EFI_UNSUPPORTED},
        PlatformFailure{"HandleList",
                        [] {
                          Host::SetFault (Host::Service::SmmLocateHandle, {Host::FaultKind::Fail, EFI_DEVICE_ERROR});
                        },
                        EFI_NOT_FOUND}),
    CaseName ());

//
// Search by identifier: the oldest copy, or the newest when asked; cleared
// records still match. Enumeration skips what the OS cleared.
//
TEST_F (ErstStoreTest, SearchFindsOldestOrNewestCopy) {
  ErstStore::Builder Store = NewStore ();
  const auto         A     = Store.Add (7, 0x40);
  Store.Add (8, 0x40, 0x22);
  const auto C = Store.Add (7, 0x40, 0x22);
  Store.Add (9, 0x40);
  Discovered ();

  EXPECT_EQ (Search (7, FALSE), At (A));
  EXPECT_EQ (Search (7, TRUE), At (C));
  EXPECT_EQ (Search (8, TRUE).Status, ERST_STATUS_SUCCESS);
  EXPECT_EQ (Search (5, TRUE), (Found{0, 0, MAX_UINT64, ERST_STATUS_RECORD_NOT_FOUND}));
  EXPECT_EQ (First (), 7u);
  EXPECT_EQ (Next (A.Next), 9u);
  EXPECT_EQ (Next (MAX_UINT64), MAX_UINT64);
}

TEST_F (ErstStoreTest, EnumerationOfOnlyClearedRecordsIsEmptyButTheStoreIsNot) {
  const auto R = NewStore ().Add (1, 0x20, 0x22);
  Discovered ();
  EXPECT_EQ (First (), MAX_UINT64);
  EXPECT_EQ (Next (R.Header), MAX_UINT64);
  EXPECT_EQ (Search (1, FALSE), At (R));

  // A zero successor ends every walk as an erased one does.
  SetNext (R, 0);
  EXPECT_EQ (Search (1, TRUE), (Found{R.Data, R.Flags, 0, ERST_STATUS_SUCCESS}));
}

TEST_F (ErstStoreTest, ForeignHeaderEndsEveryWalk) {
  const auto R = NewStore ().Add (1, 0x20, 0x22);
  Discovered ();
  const UINT8 Junk[] = {'J', 'U', 'N', 'K', 'J', 'U', 'N', 'K'};
  Host::Flash::Poke (R.Next, Junk);
  Region ()->CurRecordID = 0x55;
  VornApeiLoggingGetFirstOsRecordId (&Region ()->CurRecordID);

  EXPECT_EQ (Region ()->CurRecordID, MAX_UINT64);
  EXPECT_EQ (Search (2, FALSE).Status, ERST_STATUS_RECORD_NOT_FOUND);
  EXPECT_EQ (Next (R.Next), MAX_UINT64);
}

//
// Marking the found record cleared for the OS happens only for a flag byte
// reading 0x00 (records are stored with it erased), and on NOR flash that
// program is refused: a clear changes no flash byte.
//
TEST_F (ErstStoreTest, MarkClearedProgramsOnlyAZeroFlag) {
  ErstStore::Builder Store = NewStore ();
  const auto         A     = Store.Add (6, 0x20);
  const auto         B     = Store.Add (7, 0x20, 0x00);
  Discovered ();

  EXPECT_EQ (Search (6, FALSE, TRUE), At (A));
  EXPECT_EQ (Host::Flash::Count ().Program.Operations, 0u);
  EXPECT_EQ (Search (7, FALSE, TRUE), At (B));
  EXPECT_EQ (Host::Flash::ProgramFaults (), (std::vector<Host::Flash::ProgramFault>{{B.Flags + 4, 0x00, 0x22}}));
  EXPECT_EQ (Region ()->RecordCount, 2u);
}

TEST_F (ErstStoreTest, ReadFailureEndsTheWalkWithWhatWasFound) {
  ErstStore::Builder Store = NewStore ();
  const auto         A     = Store.Add (7, 0x20);
  Store.Add (8, 0x20);
  Discovered ();

  Host::Flash::InjectFailure ({Op::Read, 2, Cut::Fail, 0});
  EXPECT_EQ (Search (7, TRUE), At (A));
  Host::Flash::InjectFailure ({Op::Read, 1, Cut::Fail, 0});
  EXPECT_EQ (First (), MAX_UINT64);
}

TEST_F (ErstStoreTest, NullOutputsAreRefused) {
  NewStore ().Add (1, 0x20);
  Discovered ();
  for (int Missing = 0; Missing < 4; Missing++) {
    UINT64  Out[4] = {1, 2, 3, 4};
    UINT64 *Ptr[4] = {&Out[0], &Out[1], &Out[2], &Out[3]};
    Ptr[Missing]   = nullptr;
    VornApeiLoggingSearchErstPersistentStore (1, FALSE, FALSE, Ptr[0], Ptr[1], Ptr[2], Ptr[3]);
    EXPECT_EQ (std::vector<UINT64> (Out, Out + 4), (std::vector<UINT64>{1, 2, 3, 4})) << Missing;
  }

  VornApeiLoggingGetFirstOsRecordId (nullptr);
  VornApeiLoggingGetNextOsRecordId (Records (), nullptr);
  EXPECT_EQ (SerialLines ().size (), 6u);
}

} // namespace
