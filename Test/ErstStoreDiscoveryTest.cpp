/** @file
  ERST store discovery: finding the error-log volume, the store geometry,
  the record scan with its validation rules, and the platform failures.
**/
#include <cstring>
#include <tuple>

#include <ErstStoreFixture.h>
#include <ErstStoreScanBuffers.h>
#include <SpiFlash.h>

#include <Guid/WheaElogFv.h>

namespace {

const std::string kFunc     = "VornApeiLoggingGetErstPersistentStoreData";
const std::string kElogGuid = "D6A1CD70-4B33-4994-A6EA-375F2CCC5437";
const std::string kMax      = "0xFFFFFFFFFFFFFFFF";

constexpr UINT64 kV = 0xFF140000; // error-log volume
constexpr UINT64 kS = 0xFF14005C; // store header
constexpr UINT64 kR = 0xFF14006C; // record region

//
// Store information as discovery leaves it for the default volume.
//
ERST_SPI_STORE_INFORMATION
DefaultGeometry () {
  ERST_SPI_STORE_INFORMATION Info;

  std::memset (&Info, 0, sizeof (Info));
  Info.SpiAddressFvBlockHeader                       = kV;
  Info.SpiAddressFvBlockExtHeader                    = kV + 0x48;
  Info.LengthTotalFv                                 = 0x20000;
  Info.LengthErstBlockSize                           = 0x1000;
  Info.SpiAddressStartErstStoreHeader                = kS;
  Info.LengthErstStoreRegion                         = 0x20000 - 0x5C;
  Info.SpiAddressStartErstErrorRecordRegion          = kR;
  Info.LengthErstStoreRegionErrorRecordArea          = 0x20000 - 0x6C;
  Info.SpiAddressLastValidRecord                     = MAX_UINT64;
  Info.SpiAddressStartAvailableStorage               = kR;
  Info.LengthErstStoreRegionErrorRecordAreaAvailable = 0x20000 - 0x6C;
  return Info;
}

void ExpectInfo (const ERST_SPI_STORE_INFORMATION &Expected, const ERST_SPI_STORE_INFORMATION &Actual) {
  const auto Fields = [] (const ERST_SPI_STORE_INFORMATION &I) {
    return std::make_tuple (I.ClearEntireStoreRegion, I.SpiAddressFvBlockHeader, I.SpiAddressFvBlockExtHeader,
                            I.LengthTotalFv, I.LengthErstBlockSize, I.SpiAddressStartErstStoreHeader,
                            I.LengthErstStoreRegion, I.SpiAddressStartErstErrorRecordRegion,
                            I.LengthErstStoreRegionErrorRecordArea, I.SpiAddressLastValidRecord,
                            I.SpiAddressStartAvailableStorage, I.LengthErstStoreRegionErrorRecordAreaAvailable,
                            I.TotalNumberOfErstRecordsWithClearFlagOspm, I.TotalNumberOfErstRecordsWithClearFlagBios,
                            I.TotalNumberOfErstRecords);
  };
  EXPECT_EQ (Fields (Actual), Fields (Expected));
}

std::string D (const std::string &Text) {
  return ErstFixture::Line (0, kFunc + ": " + Text);
}

std::string Hx (UINT64 Value) {
  char Text[24];
  std::snprintf (Text, sizeof (Text), "0x%016llX", static_cast<unsigned long long> (Value));
  return Text;
}

std::string ReadingRecord (UINT32 Index, UINT64 Address) {
  return D ("Record " + std::to_string (Index) +
            " => Reading SPI flash ERST error record header & flags @ PhyAddress " + Hx (Address) +
            " Length 0x0000000000000054 bytes => local var ErstErrorRecordHeaderAndFlagsData @ " +
            Hx (reinterpret_cast<UINT64> (&mErstDiscoveryRecordData)));
}

class ErstStoreDiscoveryTest : public ErstStoreFixture {
protected:
  static ERST_SPI_STORE_INFORMATION &Info () {
    return *ErstFixture::Info ();
  }
};

TEST_F (ErstStoreDiscoveryTest, EmptyStoreOnTheDefaultImage) {
  NewStore ();
  ASSERT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_SUCCESS);

  ExpectInfo (DefaultGeometry (), Info ());
  EXPECT_EQ (Region ()->RecordCount, 0u);
  EXPECT_EQ (Region ()->CurRecordID, MAX_UINT64);

  EXPECT_EQ (CountContaining (" found @ "), 1u);
}

TEST_F (ErstStoreDiscoveryTest, ThreeChainedRecords) {
  ErstStore::Builder Store  = NewStore ();
  const auto         First  = Store.Add (0x1001, 0x100);
  const auto         Second = Store.Add (0x1002, 0x80);
  const auto         Third  = Store.Add (0x1003, 0x200);
  ASSERT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_SUCCESS);

  ERST_SPI_STORE_INFORMATION Expected      = DefaultGeometry ();
  Expected.TotalNumberOfErstRecords        = 3;
  Expected.SpiAddressStartAvailableStorage = kR + 0x47C;
  Expected.SpiAddressLastValidRecord       = Third.Header;
  ExpectInfo (Expected, Info ());
  EXPECT_EQ (Region ()->RecordCount, 3u);
  EXPECT_EQ (Region ()->CurRecordID, 0x1001u);

  EXPECT_TRUE (LoggedInOrder ({
      D ("Record 0 => LastValidRecordAddress @ " + kMax),
      ReadingRecord (0, First.Header),
      D ("Record 0 => pErstErrorRecordFlags->RecordClearPerOspm = 0xFF"),
      D ("Record 0 => pErstErrorRecordFlags->RecordClearPerBios = 0xFF"),
      D ("Record 0 => Move to next record @ " + Hx (Second.Header)),
      D ("Record 1 => LastValidRecordAddress @ " + Hx (First.Header)),
      ReadingRecord (1, Second.Header),
      D ("Record 1 => Move to next record @ " + Hx (Third.Header)),
      D ("Record 2 => LastValidRecordAddress @ " + Hx (Second.Header)),
      D ("Record 2 => Move to next record @ " + Hx (Third.Next)),
      D ("Record 3 => LastValidRecordAddress @ " + Hx (Third.Header)),
      ReadingRecord (3, Third.Next),
      D ("Record 3 => ERST Error Record Header -> Signature " + kMax +
         " == 0xFF data (record not valid/end of pstore data), exiting error record scan"),
  }));
}

TEST_F (ErstStoreDiscoveryTest, RecordEndingTheChainIsCountedButNotLast) {
  ErstStore::Builder Store       = NewStore ();
  const auto         First       = Store.Add (0x21, 0x40);
  const auto         Second      = Store.Add (0x22, 0x40);
  auto               Header      = ErstStore::ReadHeader (Second.Header);
  Header.NextRecordHeaderAddress = MAX_UINT64;
  ErstStore::WriteHeader (Second.Header, Header);

  ASSERT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_SUCCESS);
  EXPECT_EQ (Info ().TotalNumberOfErstRecords, 2u);
  EXPECT_EQ (Info ().SpiAddressLastValidRecord, First.Header);
  EXPECT_EQ (Info ().SpiAddressStartAvailableStorage, kR + 2 * (0x40 + 84));
  EXPECT_TRUE (Logged (kFunc + ": Record 1 => pErstErrorRecordHeader->NextRecordHeaderAddress " + kMax +
                       ", end of pstore data reached"));
}

TEST_F (ErstStoreDiscoveryTest, ClearedRecordsAreCountedByFlag) {
  ErstStore::Builder Store = NewStore ();
  Store.Add (1, 0x30, 0x22, 0x22);
  Store.Add (2, 0x30, 0x22, 0xFF);
  Store.Add (3, 0x30, 0xFF, 0x22);
  ASSERT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_SUCCESS);

  EXPECT_EQ (Info ().TotalNumberOfErstRecordsWithClearFlagOspm, 2u);
  EXPECT_EQ (Info ().TotalNumberOfErstRecordsWithClearFlagBios, 2u);
  EXPECT_EQ (Info ().TotalNumberOfErstRecords, 3u);
  EXPECT_EQ (Region ()->RecordCount, 3u);
  EXPECT_EQ (Region ()->CurRecordID, 1u);
  EXPECT_TRUE (LoggedInOrder ({
      D ("Record 0 => pErstErrorRecordFlags->RecordClearPerOspm = 0x22"),
      D ("Record 0 => pErstErrorRecordFlags->RecordClearPerBios = 0x22"),
      D ("Record 0 => Incremented pErstSpiStoreInformation->TotalNumberOfErstRecordsWithClearFlagOspm -> 1"),
      D ("Record 0 => Incremented pErstSpiStoreInformation->TotalNumberOfErstRecordsWithClearFlagBios -> 1"),
      D ("Record 1 => Incremented pErstSpiStoreInformation->TotalNumberOfErstRecordsWithClearFlagOspm -> 2"),
      D ("Record 2 => Incremented pErstSpiStoreInformation->TotalNumberOfErstRecordsWithClearFlagBios -> 2"),
  }));
}

TEST_F (ErstStoreDiscoveryTest, StoreHeaderDirectlyFollowsAnOddSizedExtendedHeader) {
  const UINT8 OddSize[] = {21, 0, 0, 0};
  Host::Flash::Poke (kV + 0x48 + 16, OddSize);
  ErstStore::Builder Store (kS + 1);
  Store.Add (5, 0x10);

  ASSERT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_SUCCESS);
  EXPECT_EQ (Info ().SpiAddressStartErstStoreHeader, kS + 1);
  EXPECT_EQ (Info ().SpiAddressStartErstErrorRecordRegion, kR + 1);
  EXPECT_EQ (Info ().LengthErstStoreRegion, 0x20000u - 0x5D);
  EXPECT_EQ (Info ().TotalNumberOfErstRecords, 1u);
  EXPECT_EQ (Region ()->CurRecordID, 5u);
}

TEST_F (ErstStoreDiscoveryTest, LaterVolumeWithTheSameNameWins) {
  // Name the main volume like the error-log volume: the search does not stop
  // at the first match.
  Host::Flash::Poke (0xFF160048,
                     std::span<const UINT8> (reinterpret_cast<const UINT8 *> (&gEfiWheaElogFvGuid), sizeof (EFI_GUID)));
  NewStore ().Add (9, 0x20);
  ErstStore::Builder (0xFF16005C).Add (10, 0x20);

  ASSERT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_SUCCESS);
  EXPECT_EQ (Info ().SpiAddressFvBlockHeader, 0xFF160000u);
  EXPECT_EQ (Info ().LengthTotalFv, 0xD20000u);
  EXPECT_EQ (Info ().TotalNumberOfErstRecords, 1u);
  EXPECT_EQ (Region ()->RecordCount, 1u);
  EXPECT_EQ (Region ()->CurRecordID, 10u);
  EXPECT_EQ (CountContaining (" found @ "), 2u);
}

TEST_F (ErstStoreDiscoveryTest, NoErrorLogVolumeLeavesFreshInformationZero) {
  const EFI_GUID Other = {0x12345678, 0x1, 0x2, {3, 4, 5, 6, 7, 8, 9, 10}};
  Host::Flash::Poke (kV + 0x48, std::span<const UINT8> (reinterpret_cast<const UINT8 *> (&Other), sizeof (Other)));

  ASSERT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_SUCCESS);
  ERST_SPI_STORE_INFORMATION Zero;
  std::memset (&Zero, 0, sizeof (Zero));
  ExpectInfo (Zero, Info ());
  EXPECT_EQ (CountContaining ("found @"), 0u);
}

TEST_F (ErstStoreDiscoveryTest, ExistingInformationIsReusedWithoutZeroing) {
  const EFI_GUID Other = {0x12345678, 0x1, 0x2, {3, 4, 5, 6, 7, 8, 9, 10}};
  Host::Flash::Poke (kV + 0x48, std::span<const UINT8> (reinterpret_cast<const UINT8 *> (&Other), sizeof (Other)));
  auto *Kept = Host::At<ERST_SPI_STORE_INFORMATION> (Host::AllocateReserved (sizeof (ERST_SPI_STORE_INFORMATION)));
  Kept->TotalNumberOfErstRecords                       = 77;
  mPrivateDataVornApeiLogging.pErstSpiStoreInformation = Kept;

  ASSERT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_SUCCESS);
  EXPECT_EQ (ErstFixture::Info (), Kept);
  EXPECT_EQ (Kept->TotalNumberOfErstRecords, 77u);
  EXPECT_EQ (CountContaining ("Allocating EfiReservedMemoryType"), 0u);
}

//
// A store the scan refuses: one rule broken in the second of two records.
//
struct Damage {
  const char *Name;
  void (*Apply) (ERST_ERROR_RECORD_HEADER &Header, ERST_ERROR_RECORD_FLAGS &Flags, UINT64 Previous);
  std::vector<std::string> Lines; // after "Record 1 "
};

void PrintTo (const Damage &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class ErstStoreDamageTest : public ErstStoreDiscoveryTest, public ::testing::WithParamInterface<Damage> {};

TEST_P (ErstStoreDamageTest, FirstBrokenRuleFlagsTheStoreForClearing) {
  ErstStore::Builder      Store  = NewStore ();
  const auto              First  = Store.Add (0x31, 0x40);
  const auto              Second = Store.Add (0x32, 0x40);
  auto                    Header = ErstStore::ReadHeader (Second.Header);
  ERST_ERROR_RECORD_FLAGS Flags;
  const auto              FlagBytes = Host::Flash::Peek (Second.Flags, sizeof (Flags));
  std::memcpy (&Flags, FlagBytes.data (), sizeof (Flags));
  GetParam ().Apply (Header, Flags, First.Header);
  ErstStore::WriteHeader (Second.Header, Header);
  Host::Flash::Poke (Second.Flags, std::span<const UINT8> (reinterpret_cast<const UINT8 *> (&Flags), sizeof (Flags)));

  EXPECT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_VOLUME_CORRUPTED);
  EXPECT_EQ (Info ().ClearEntireStoreRegion, TRUE);
  EXPECT_EQ (Region ()->RecordCount, 1u);

  // The rule's lines end the log: the routine returns at once.
  std::vector<std::string> Expected;
  for (const std::string &Text : GetParam ().Lines) {
    Expected.push_back (D ("Record 1 " + Text));
  }

  const auto Lines = SerialLines ();
  ASSERT_GE (Lines.size (), Expected.size ());
  EXPECT_EQ (std::vector<std::string> (Lines.end () - static_cast<long> (Expected.size ()), Lines.end ()), Expected);
}

INSTANTIATE_TEST_SUITE_P (
    Rules,
    ErstStoreDamageTest,
    ::testing::Values (
        Damage{
            "ForeignSignature",
            [] (auto &H, auto &, UINT64) { H.Signature = 0x1122334455667788ULL; },
            {"=> ERST Error Record Header -> Signature 0x1122334455667788 != SIGNATURE_64('E','R','S','T',' ','E','R','R')",
             "=> PStore data corrupted, set flag to clear pstore"}},
        Damage{
            "HeaderRevision",
            [] (auto &H, auto &, UINT64) { H.Revision = 0x00010002; },
            {"=> ERST Error Record Header -> Revision 0x00010002 != Latest Revision 0x00010001, set flag to clear pstore"}},
        Damage{"FlagsAddressZero",
               [] (auto &H, auto &, UINT64) { H.OsRecordFlagsAddress = 0; },
               {"=>ERST Error Record Flags Address 0x0000000000000000 not valid, set flag to clear pstore"}},
        Damage{"FlagsAddressErased",
               [] (auto &H, auto &, UINT64) { H.OsRecordFlagsAddress = MAX_UINT64; },
               {"=>ERST Error Record Flags Address 0xFFFFFFFFFFFFFFFF not valid, set flag to clear pstore"}},
        Damage{
            "PreviousNotTheLastRecord",
            [] (auto &H, auto &, UINT64 Previous) { H.PrevRecordHeaderAddress = Previous + 1; },
            {"=> ERST Error Record Previous Record Address 0x00000000FF14006D != Last Record Address 0x00000000FF14006C, set flag to clear pstore"}},
        Damage{"OsRecordAddressErased",
               [] (auto &H, auto &, UINT64) { H.OsRecordAddress = MAX_UINT64; },
               {"=> ERST Error Record OS Record Address 0xFFFFFFFFFFFFFFFF not valid, set flag to clear pstore"}},
        Damage{"OsRecordLengthZero",
               [] (auto &H, auto &, UINT64) { H.OsRecordLength = 0; },
               {"=> ERST Error Record OS Record Length 0x00000000 not valid, set flag to clear pstore"}},
        Damage{"OsRecordLengthErased",
               [] (auto &H, auto &, UINT64) { H.OsRecordLength = MAX_UINT32; },
               {"=> ERST Error Record OS Record Length 0xFFFFFFFF not valid, set flag to clear pstore"}},
        Damage{
            "WriteCutAfterHeader",
            [] (auto &, auto &F, UINT64) { F.Revision = MAX_UINT32; },
            {"=> ERST Error Record Flags -> Revision 0xFFFFFFFF != Latest Revision 0x00010001, set flag to clear pstore"}}),
    [] (const auto &Info) { return std::string (Info.param.Name); });

//
// Store headers that ask for the store to be rebuilt.
//
TEST_F (ErstStoreDiscoveryTest, ErasedOrOutdatedStoreHeaderFlagsTheStore) {
  EXPECT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_VOLUME_CORRUPTED);
  EXPECT_EQ (Info ().ClearEntireStoreRegion, TRUE);
  EXPECT_EQ (SerialLines ().back (), D ("ERST Store Header Signature not found, initialize ERST Store Header"));

  ClearLog ();
  ErstStore::Builder (kS, TRUE, 0x00010000);
  EXPECT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_VOLUME_CORRUPTED);
  EXPECT_EQ (Info ().ClearEntireStoreRegion, TRUE);
  EXPECT_EQ (
      SerialLines ().back (),
      D ("ERST PStore Record Header -> Revision 0x00010000 != Latest Revision 0x00010001, set flag to clear pstore"));
}

//
// Platform failures, each the first of its kind in the search.
//
struct PlatformFailure {
  const char *Name;
  void (*Arrange) ();
  EFI_STATUS  Status;
  std::string Last; // the routine's last line, after its name
};

void PrintTo (const PlatformFailure &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class ErstStorePlatformFailureTest : public ErstStoreDiscoveryTest,
                                     public ::testing::WithParamInterface<PlatformFailure> {};

TEST_P (ErstStorePlatformFailureTest, IsReportedAndReturned) {
  NewStore ().Add (1, 0x10);
  GetParam ().Arrange ();
  EXPECT_EQ (VornApeiLoggingGetErstPersistentStoreData (), GetParam ().Status);
  EXPECT_EQ (SerialLines ().back (), D (GetParam ().Last));
  if (ErstFixture::Info () != nullptr) {
    EXPECT_EQ (Info ().ClearEntireStoreRegion, FALSE);
  }
}

void FailRead (UINT64 Nth) {
  Host::Flash::InjectFailure ({Host::Flash::Op::Read, Nth, Host::Flash::Cut::Fail, 0});
}

INSTANTIATE_TEST_SUITE_P (
    Platform,
    ErstStorePlatformFailureTest,
    ::testing::Values (
        PlatformFailure{"GetPhysicalAddress",
                        [] {
                          Host::Flash::VolumeFaults F;
                          F.GetPhysicalAddress = EFI_DEVICE_ERROR;
                          Host::Flash::SetVolumeFaults (F);
                        },
                        EFI_UNSUPPORTED, "ERROR Device Error from FvBlock GetPhysicalAddress, aborting..."},
        PlatformFailure{"ZeroAddress",
                        [] {
                          Host::Flash::VolumeFaults F;
                          F.ReportZeroAddress = TRUE;
                          Host::Flash::SetVolumeFaults (F);
                        },
                        EFI_UNSUPPORTED, "FV Block physical address is zero, aborting..."},
        PlatformFailure{"GetBlockSize",
                        [] {
                          Host::Flash::VolumeFaults F;
                          F.GetBlockSize = EFI_NO_MEDIA;
                          Host::Flash::SetVolumeFaults (F);
                        },
                        EFI_NO_MEDIA,
                        "ERROR No Media from GetBlockSize (gEfiWheaElogFvGuid " + kElogGuid + "), aborting..."},
        PlatformFailure{
            "FvHeaderRead", [] { FailRead (1); }, EFI_DEVICE_ERROR,
            "ERROR Device Error from VornApeiLoggingReadDataViaSpi reading FV Header @ PhyAddress 0x00000000FF000000 NumBytes 0x0000000000000040, aborting..."},
        PlatformFailure{
            "FvExtHeaderRead", [] { FailRead (3); }, EFI_DEVICE_ERROR,
            "ERROR Device Error from VornApeiLoggingReadDataViaSpi reading FV extended header @ PhyAddress 0x00000000FF100048 NumBytes 0x0000000000000014, aborting..."},
        PlatformFailure{
            "StoreHeaderRead", [] { FailRead (6); }, EFI_DEVICE_ERROR,
            "ERROR Device Error from VornApeiLoggingReadDataViaSpi searching for ERST Store Header, aborting..."},
        PlatformFailure{
            "SecondRecordRead", [] { FailRead (8); }, EFI_DEVICE_ERROR,
            "ERROR Device Error from VornApeiLoggingReadDataViaSpi reading Record 1 ErstErrorRecordHeaderAddress 0x00000000FF1400D0 RegionLength 0x000000000001FF94, aborting..."},
        PlatformFailure{
            "StoreInformationPool",
            [] {
              Host::SetFault (Host::Service::BsAllocatePool, {Host::FaultKind::Fail, EFI_OUT_OF_RESOURCES, 0});
            },
            EFI_UNSUPPORTED,
            "ERROR mPrivateDataVornApeiLogging.pErstSpiStoreInformation is NULL after AllocatePool for length 0x0000000000000070 bytes, aborting..."},
        PlatformFailure{"HandleList",
                        [] {
                          Host::SetFault (Host::Service::SmmLocateHandle, {Host::FaultKind::Fail, EFI_DEVICE_ERROR, 0});
                        },
                        EFI_NOT_FOUND, "ERROR Not Found from VornApeiLoggingGetFvbCountAndBuffer, aborting..."}),
    [] (const auto &Info) { return std::string (Info.param.Name); });

//
// Without debug code only the store header is dumped.
//
class ErstStoreDiscoveryQuietTest : public ErstStoreDiscoveryTest {
protected:
  BOOLEAN DebugCode () const override {
    return FALSE;
  }
};

TEST_F (ErstStoreDiscoveryQuietTest, WithoutDebugCodeOnlyTheStoreHeaderIsDumped) {
  NewStore ().Add (0x44, 0x20);
  ASSERT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_SUCCESS);
  EXPECT_EQ (CountContaining ("DisplayFv"), 0u);
  EXPECT_EQ (CountContaining ("DisplayErstRecordHeader"), 0u);
  EXPECT_EQ (CountContaining ("DisplayErstErrorRecordFlags"), 0u);
  EXPECT_EQ (CountContaining ("PrintErst"), 0u);
  EXPECT_EQ (CountContaining ("DisplayErstStoreHeader"), 3u);
  EXPECT_EQ (CountContaining ("Starting Address"), 1u);
}

} // namespace
