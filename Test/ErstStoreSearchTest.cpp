/** @file
  ERST record search by identifier and the enumeration of live record
  identifiers, over stores laid on flash and accepted by discovery.
**/
#include <ErstStoreFixture.h>
#include <ErstStoreScanBuffers.h>
#include <SpiFlash.h>

namespace {

const std::string kSearch = "VornApeiLoggingSearchErstPersistentStore";
const std::string kFirst  = "VornApeiLoggingGetFirstOsRecordId";
const std::string kNext   = "VornApeiLoggingGetNextOsRecordId";
const std::string kMax    = "0xFFFFFFFFFFFFFFFF";

//
// What a search reports.
//
struct Found {
  UINT64 Data                                  = 0xAAAA;
  UINT64 Flags                                 = 0xAAAA;
  UINT64 Next                                  = 0xAAAA;
  UINT64 Status                                = 0xAAAA;
  bool   operator== (const Found &Other) const = default;
};

void PrintTo (const Found &F, std::ostream *Out) {
  *Out << std::hex << "{data 0x" << F.Data << " flags 0x" << F.Flags << " next 0x" << F.Next << " status " << F.Status
       << "}";
}

class ErstStoreSearchTest : public ErstStoreFixture {
protected:
  //
  // Lays the records, runs discovery on them and clears the log.
  //
  ErstStore::Builder Store () {
    return NewStore ();
  }

  static Found Search (UINT64 RecordId, BOOLEAN FindNext, BOOLEAN MarkCleared) {
    Found F;
    VornApeiLoggingSearchErstPersistentStore (RecordId, FindNext, MarkCleared, &F.Data, &F.Flags, &F.Next, &F.Status);
    return F;
  }

  static UINT64 First () {
    UINT64 Id = 0xAAAA;
    VornApeiLoggingGetFirstOsRecordId (&Id);
    return Id;
  }

  static UINT64 Next (UINT64 HeaderAddress) {
    UINT64 Id = 0xAAAA;
    VornApeiLoggingGetNextOsRecordId (HeaderAddress, &Id);
    return Id;
  }

  static Found At (const ErstStore::Placed &Record) {
    return {Record.Data, Record.Flags, Record.Next, ERST_STATUS_SUCCESS};
  }

  static std::string Buffer () {
    return Hex (reinterpret_cast<UINT64> (&mErstSearchRecordData));
  }

  static std::string Reading (const std::string &Routine, const std::string &Record, UINT64 Address) {
    return L (Routine, Record + " => Reading SPI flash ERST error record header & flags @ PhyAddress " + Hex (Address) +
                           " Length 0x0000000000000054 bytes => local var ErstErrorRecordHeaderAndFlagsData @ " +
                           Buffer ());
  }

  static std::string FlashRead (UINT64 Address) {
    return L ("VornApeiLoggingReadDataViaSpi", "Reading SPI flash @ PhyAddress " + Hex (Address) +
                                                   " NumBytes 0x0000000000000054 to pBuffer " + Buffer ());
  }
};

class ErstStoreSearchQuietTest : public ErstStoreSearchTest {
protected:
  BOOLEAN DebugCode () const override {
    return FALSE;
  }
};

TEST_F (ErstStoreSearchTest, EmptyStoreAnswersEmptyEverywhere) {
  Store ();
  Discovered ();
  const UINT64 Reads = Host::Flash::Count ().Read.Operations;

  EXPECT_EQ (Search (1, FALSE, TRUE), (Found{0, 0, MAX_UINT64, ERST_STATUS_RECORD_STORE_EMPTY}));
  EXPECT_EQ (First (), MAX_UINT64);
  EXPECT_EQ (Next (Records ()), MAX_UINT64);
  EXPECT_EQ (SerialLines (), (std::vector<std::string>{
                                 L (kSearch, "Entering"),
                                 L (kSearch, "Pstore is empty, aborting..."),
                                 L (kFirst, "Entering"),
                                 L (kFirst, "Pstore is empty, aborting..."),
                                 L (kNext, "Entering"),
                                 L (kNext, "Pstore is empty, aborting..."),
                             }));
  EXPECT_EQ (Host::Flash::Count ().Read.Operations, Reads);
}

TEST_F (ErstStoreSearchQuietTest, FirstCopyWinsWithoutFindNext) {
  ErstStore::Builder S = Store ();
  const auto         A = S.Add (7, 0x40);
  S.Add (8, 0x40);
  S.Add (7, 0x40);
  Discovered ();

  EXPECT_EQ (Search (7, FALSE, FALSE), At (A));
  EXPECT_EQ (
      SerialLines (),
      (std::vector<std::string>{
          L (kSearch, "Entering"),
          Reading (kSearch, "Record 0", A.Header),
          FlashRead (A.Header),
          L (kSearch, "Record 0 => Matching RecordID 0x0000000000000007 found @ ERST Error Record Header " +
                          Hex (A.Header) + " OS Record " + Hex (A.Data)),
          L (kSearch, "Record 0 => First RecordID match found & FindNextRecordID = FALSE, returning to caller..."),
          L (kSearch,
             "Scan completed => OS Record ID 0x0000000000000007 OsErrorRecordFound 1 *pPersistentStatus 0x0000000000000000"),
          L (kSearch, "Scan completed => *pOsRecordPhyAddress " + Hex (A.Data) + " *pOsRecordFlagsPhyAddress " +
                          Hex (A.Flags) + " *pNextRecordHeaderPhyAddress " + Hex (A.Next)),
      }));
}

TEST_F (ErstStoreSearchQuietTest, LastCopyWinsWithFindNext) {
  ErstStore::Builder S = Store ();
  const auto         A = S.Add (7, 0x40);
  const auto         M = S.Add (8, 0x40);
  const auto         B = S.Add (7, 0x40);
  Discovered ();

  EXPECT_EQ (Search (7, TRUE, FALSE), At (B));
  EXPECT_TRUE (LoggedInOrder ({
      L (kSearch, "Record 0 => RecordID match found & FindNextRecordID = TRUE, continuing search..."),
      L (kSearch, "Record 0 => Move to next record @ " + Hex (M.Header)),
      L (kSearch, "Record 1 => Move to next record @ " + Hex (B.Header)),
      L (kSearch, "Record 2 => Matching RecordID 0x0000000000000007 found @ ERST Error Record Header " +
                      Hex (B.Header) + " OS Record " + Hex (B.Data)),
      L (kSearch, "Record 2 => RecordID match found & FindNextRecordID = TRUE, continuing search..."),
      L (kSearch, "Record 2 => Move to next record @ " + Hex (B.Next)),
      Reading (kSearch, "Record 3", B.Next),
      L (kSearch, "Record 3 => ERST Error Record Header -> Signature " + kMax +
                      " == 0xFF data (record not valid/end of pstore data)"),
      L (kSearch,
         "Scan completed => OS Record ID 0x0000000000000007 OsErrorRecordFound 1 *pPersistentStatus 0x0000000000000000"),
  }));
  EXPECT_EQ (CountContaining ("Matching RecordID"), 2u);
  (void)A;
}

TEST_F (ErstStoreSearchQuietTest, AbsentIdentifierIsNotFound) {
  ErstStore::Builder S = Store ();
  S.Add (1, 0x20);
  S.Add (2, 0x20);
  Discovered ();

  EXPECT_EQ (Search (0x63, TRUE, FALSE), (Found{0, 0, MAX_UINT64, ERST_STATUS_RECORD_NOT_FOUND}));
  EXPECT_EQ (
      SerialLines ().back (),
      L (kSearch,
         "Scan completed => OS Record ID 0x0000000000000063 OsErrorRecordFound 0 *pPersistentStatus 0x0000000000000005"));
}

TEST_F (ErstStoreSearchQuietTest, ClearedRecordIsFoundButNotEnumerated) {
  ErstStore::Builder S  = Store ();
  const auto         R1 = S.Add (1, 0x20, ERST_RECORD_CLEAR_FLAG_VALUE);
  const auto         R2 = S.Add (2, 0x20, 0xFF, ERST_RECORD_CLEAR_FLAG_VALUE);
  const auto         R3 = S.Add (3, 0x20);
  Discovered ();

  EXPECT_EQ (Search (1, FALSE, FALSE), At (R1));
  EXPECT_TRUE (Logged (kSearch + ": Record 0 => Record previously marked for clearance by OSPM"));

  // Marked by firmware only is still live; the walk from a header numbers
  // records from it.
  ClearLog ();
  EXPECT_EQ (First (), 2u);
  EXPECT_EQ (Next (R1.Next), 2u);
  EXPECT_EQ (Next (R2.Next), 3u);
  EXPECT_EQ (Next (R3.Next), MAX_UINT64);
  EXPECT_TRUE (LoggedInOrder ({
      L (kFirst, "Entering"),
      Reading (kFirst, "Record 0", R1.Header),
      FlashRead (R1.Header),
      L (kFirst, "Record 0 => Record previously marked for clearance by OSPM, skipping..."),
      L (kFirst, "Record 0 => Move to next record @ " + Hex (R2.Header)),
      Reading (kFirst, "Record 1", R2.Header),
      FlashRead (R2.Header),
      L (kFirst, "Record +1 => First RecordID 0x0000000000000002"),
      L (kFirst, "Scan completed => First Valid OS Record ID 0x0000000000000002"),
      L (kNext, "Record +0 => Next RecordID 0x0000000000000002"),
      L (kNext, "Scan completed => Next OS Record ID 0x0000000000000002"),
      L (kNext, "Record +0 => Next RecordID 0x0000000000000003"),
      Reading (kNext, "Record +0", R3.Next),
      L (kNext, "Record +0 => ERST Error Record Header -> Signature " + kMax +
                    " == 0xFF data (record not valid/end of pstore data)"),
      L (kNext, "Scan completed => Next OS Record ID " + kMax),
  }));
}

TEST_F (ErstStoreSearchQuietTest, OnlyClearedRecordsEnumerateNothingButAreNotEmpty) {
  ErstStore::Builder S = Store ();
  const auto         R = S.Add (4, 0x20, ERST_RECORD_CLEAR_FLAG_VALUE);
  S.Add (5, 0x20, ERST_RECORD_CLEAR_FLAG_VALUE);
  Discovered ();

  EXPECT_EQ (First (), MAX_UINT64);
  EXPECT_EQ (Next (R.Header), MAX_UINT64);
  EXPECT_TRUE (LoggedInOrder ({
      L (kFirst, "Record 1 => Record previously marked for clearance by OSPM, skipping..."),
      L (kFirst, "Record 1 => Move to next record @ " + Hex (R.Next + 0x20 + 84)),
      L (kFirst, "Record 2 => ERST Error Record Header -> Signature " + kMax +
                     " == 0xFF data (record not valid/end of pstore data)"),
      L (kNext, "Record +1 => Record previously marked for clearance by OSPM, skipping..."),
      L (kNext, "Record +2 => ERST Error Record Header -> Signature " + kMax +
                    " == 0xFF data (record not valid/end of pstore data)"),
      L (kNext, "Scan completed => Next OS Record ID " + kMax),
  }));

  // At erased flash the first-identifier walk ends without a completion line.
  EXPECT_EQ (CountContaining (kFirst + ": Scan completed"), 0u);
  EXPECT_EQ (CountContaining ("Pstore is empty"), 0u);
}

TEST_F (ErstStoreSearchQuietTest, ZeroSuccessorEndsTheChain) {
  const auto R                   = Store ().Add (1, 0x20, ERST_RECORD_CLEAR_FLAG_VALUE);
  auto       Header              = ErstStore::ReadHeader (R.Header);
  Header.NextRecordHeaderAddress = 0;
  ErstStore::WriteHeader (R.Header, Header);
  Discovered ();

  EXPECT_EQ (First (), MAX_UINT64);
  EXPECT_EQ (Search (1, TRUE, FALSE), (Found{R.Data, R.Flags, 0, ERST_STATUS_SUCCESS}));
  EXPECT_TRUE (LoggedInOrder ({
      L (kFirst,
         "Record 0 => ErstErrordRecordHeader.NextRecordHeaderAddress 0x0000000000000000, end of pstore data reached"),
      L (kFirst, "Scan completed => First Valid OS Record ID " + kMax),
      L (kSearch,
         "Record 0 => ErstErrordRecordHeader.NextRecordHeaderAddress 0x0000000000000000, end of pstore data reached"),
      L (kSearch, "Scan completed => *pOsRecordPhyAddress " + Hex (R.Data) + " *pOsRecordFlagsPhyAddress " +
                      Hex (R.Flags) + " *pNextRecordHeaderPhyAddress 0x0000000000000000"),
  }));
}

//
// Marking the found record cleared for the OS happens only for a flag byte
// reading 0x00; on NOR flash that program is refused.
//
TEST_F (ErstStoreSearchQuietTest, MarkClearedLeavesAnErasedFlagAlone) {
  const auto R = Store ().Add (6, 0x20);
  Discovered ();

  EXPECT_EQ (Search (6, FALSE, TRUE), At (R));
  EXPECT_EQ (Host::Flash::Count ().Program.Operations, 0u);
  EXPECT_EQ (Flash (R.Flags + 4, 2), (std::vector<UINT8>{0xFF, 0xFF}));
}

TEST_F (ErstStoreSearchQuietTest, MarkClearedProgramsAZeroFlagAndReportsTheFault) {
  const auto R = Store ().Add (6, 0x20, 0x00);
  Discovered ();

  EXPECT_EQ (Search (6, FALSE, TRUE), At (R));
  EXPECT_EQ (Host::Flash::ProgramFaults (), (std::vector<Host::Flash::ProgramFault>{{R.Flags + 4, 0x00, 0x22}}));
  EXPECT_TRUE (LoggedInOrder ({
      L (kSearch, "ERROR Device Error clearing Record 0 Record Clear Per OSPM flag"),
      L (kSearch, "Record 0 => First RecordID match found & FindNextRecordID = FALSE, returning to caller..."),
      L (kSearch,
         "Scan completed => OS Record ID 0x0000000000000006 OsErrorRecordFound 1 *pPersistentStatus 0x0000000000000000"),
  }));
}

TEST_F (ErstStoreSearchQuietTest, ForeignHeaderEndsEveryWalk) {
  ErstStore::Builder S      = Store ();
  const auto         R      = S.Add (1, 0x20, ERST_RECORD_CLEAR_FLAG_VALUE);
  const UINT8        Junk[] = {'J', 'U', 'N', 'K', 'J', 'U', 'N', 'K'};
  Discovered ();
  Host::Flash::Poke (R.Next, Junk);

  EXPECT_EQ (Search (2, FALSE, FALSE).Status, ERST_STATUS_RECORD_NOT_FOUND);
  EXPECT_EQ (First (), MAX_UINT64);
  EXPECT_EQ (Next (R.Next), MAX_UINT64);
  const std::string Junked =
      " => ErstErrordRecordHeader.Signature 0x4B4E554A4B4E554A != SIGNATURE_64('E','R','S','T',' ','E','R','R'), unexpected/corrupted pstore data";
  EXPECT_TRUE (LoggedInOrder ({
      L (kSearch, "Record 1" + Junked),
      L (kSearch,
         "Scan completed => OS Record ID 0x0000000000000002 OsErrorRecordFound 0 *pPersistentStatus 0x0000000000000005"),
      L (kFirst, "Record 1" + Junked),
      L (kNext, "Entering"),
      L (kNext, "Record +0" + Junked),
      L (kNext, "Scan completed => Next OS Record ID " + kMax),
  }));

  // The first-identifier walk stops there without a completion line.
  EXPECT_EQ (CountContaining (kFirst + ": Scan completed"), 0u);
}

TEST_F (ErstStoreSearchQuietTest, ReadFailureEndsTheWalkWithWhatWasFound) {
  ErstStore::Builder S = Store ();
  const auto         A = S.Add (7, 0x20);
  const auto         B = S.Add (8, 0x20);
  Discovered ();

  Host::Flash::InjectFailure ({Host::Flash::Op::Read, 2, Host::Flash::Cut::Fail, 0});
  EXPECT_EQ (Search (7, TRUE, FALSE), At (A));
  EXPECT_EQ (
      SerialLines ().back (),
      L (kSearch,
         "ERROR Device Error from VornApeiLoggingReadDataViaSpi reading Record 1 @ ErstErrorRecordHeaderAddress " +
             Hex (B.Header) + " RegionLength " + Hex (Info ()->LengthErstStoreRegionErrorRecordArea) +
             ", aborting..."));

  ClearLog ();
  Host::Flash::InjectFailure ({Host::Flash::Op::Read, 1, Host::Flash::Cut::Fail, 0});
  EXPECT_EQ (Next (B.Header), MAX_UINT64);
  EXPECT_EQ (
      SerialLines ().back (),
      L (kNext,
         "ERROR Device Error from VornApeiLoggingReadDataViaSpi reading Record +0 @ ErstErrorRecordHeaderAddress " +
             Hex (B.Header) + " RegionLength " + Hex (Info ()->LengthErstStoreRegionErrorRecordArea) +
             ", aborting..."));

  ClearLog ();
  Host::Flash::InjectFailure ({Host::Flash::Op::Read, 1, Host::Flash::Cut::Fail, 0});
  EXPECT_EQ (First (), MAX_UINT64);
  EXPECT_EQ (
      SerialLines ().back (),
      L (kFirst,
         "ERROR Device Error from VornApeiLoggingReadDataViaSpi reading Record 0 @ ErstErrorRecordHeaderAddress " +
             Hex (A.Header) + " RegionLength " + Hex (Info ()->LengthErstStoreRegionErrorRecordArea) +
             ", aborting..."));
}

TEST_F (ErstStoreSearchQuietTest, WalkStopsAtTheEndOfTheRecordRegion) {
  const auto R      = Store ().Add (1, 0x20);
  auto       Header = ErstStore::ReadHeader (R.Header);
  Discovered ();
  const UINT64 Bound =
      Info ()->SpiAddressStartErstErrorRecordRegion + Info ()->LengthErstStoreRegionErrorRecordArea - 1;
  Header.NextRecordHeaderAddress = Bound;
  ErstStore::WriteHeader (R.Header, Header);
  const UINT64 Reads = Host::Flash::Count ().Read.Operations;

  EXPECT_EQ (Search (2, FALSE, FALSE).Status, ERST_STATUS_RECORD_NOT_FOUND);
  EXPECT_EQ (SerialLines ().end ()[-2], L (kSearch, "Record 0 => Move to next record @ " + Hex (Bound)));
  EXPECT_EQ (Host::Flash::Count ().Read.Operations, Reads + 1);
}

TEST_F (ErstStoreSearchQuietTest, NextFromNoHeaderIsTheEnd) {
  Store ().Add (1, 0x20);
  Discovered ();

  EXPECT_EQ (Next (MAX_UINT64), MAX_UINT64);
  EXPECT_EQ (SerialLines (),
             (std::vector<std::string>{L (kNext, "Entering"),
                                       L (kNext, "RecordHeaderPhyAddress == MAX_UINT64, aborting...")}));
}

//
// NULL output pointers: the search writes nothing, the enumerators return.
//
class ErstSearchNullTest : public ErstStoreSearchQuietTest, public ::testing::WithParamInterface<int> {};

TEST_P (ErstSearchNullTest, SearchWritesNothing) {
  Store ().Add (1, 0x20);
  Discovered ();
  UINT64  Out[4]   = {1, 2, 3, 4};
  UINT64 *Ptr[4]   = {&Out[0], &Out[1], &Out[2], &Out[3]};
  Ptr[GetParam ()] = nullptr;

  VornApeiLoggingSearchErstPersistentStore (1, FALSE, FALSE, Ptr[0], Ptr[1], Ptr[2], Ptr[3]);
  EXPECT_EQ (std::vector<UINT64> (Out, Out + 4), (std::vector<UINT64>{1, 2, 3, 4}));
  EXPECT_EQ (SerialLines (),
             std::vector<std::string>{L (kSearch, "ERROR one or more input pointers are NULL, aborting...")});
}

// The search's outputs, in argument order.
const char *const kSearchOutputs[] = {"OsRecordPhyAddress", "OsRecordFlagsPhyAddress", "NextRecordHeaderPhyAddress",
                                      "PersistentStatus"};

INSTANTIATE_TEST_SUITE_P (EachOutput, ErstSearchNullTest, ::testing::Range (0, 4), [] (const auto &Info) {
  return std::string (kSearchOutputs[Info.param]);
});

TEST_F (ErstStoreSearchQuietTest, EnumeratorsRefuseNull) {
  VornApeiLoggingGetFirstOsRecordId (nullptr);
  VornApeiLoggingGetNextOsRecordId (Records (), nullptr);
  EXPECT_EQ (SerialLines (), (std::vector<std::string>{L (kFirst, "ERROR pFirstRecordId == NULL, aborting..."),
                                                       L (kNext, "ERROR pNextRecordId == NULL, aborting...")}));
}

} // namespace
