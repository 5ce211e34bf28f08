/** @file
  ERST record write, read and clear, and the clear-flag setters, on the
  default error-log volume: flash bytes, store summary, parameter region,
  statuses and log lines; writes cut at each flash program, then a reboot.
**/
#include <cstring>

#include <ErstFixture.h>

#include <ErstRecordOps.h>
#include <SpiFlash.h>
#include "TestFormat.h"

namespace {

using Host::Flash::Cut;
using Host::Flash::Op;

constexpr UINT32 kLength     = 0x100;
constexpr UINT64 kRecordArea = 0x20000 - 0x5C - 0x10;
const char       kWrite[]    = "VornApeiLoggingErstPersistentStoreWrite: ";
const char       kClear[]    = "VornApeiLoggingErstPersistentStoreClear: ";

void Put (std::vector<UINT8> &Bytes, size_t Offset, UINT64 Value, size_t Width) {
  for (size_t Index = 0; Index < Width; Index++) {
    Bytes[Offset + Index] = static_cast<UINT8> (Value >> (8 * Index));
  }
}

class ErstRecordOpsTest : public ErstFixture {
protected:
  void SetUp () override {
    ErstFixture::SetUp ();
    ASSERT_EQ (UpdateErst (), EFI_SUCCESS);
    ClearLog ();
  }

  static ERST_SPI_STORE_INFORMATION InfoCopy () {
    return *Info ();
  }

  static bool SameInfo (const ERST_SPI_STORE_INFORMATION &A, const ERST_SPI_STORE_INFORMATION &B) {
    return std::memcmp (&A, &B, sizeof (A)) == 0;
  }

  //
  // Header bytes as the write must lay them down, built field by field.
  //
  static std::vector<UINT8> ExpectedHeader (UINT64 Header, UINT64 Prev, const std::vector<UINT8> &Record, UINT64 Id) {
    std::vector<UINT8> Bytes (72, 0);
    Put (Bytes, 0, 0x5252452054535245ULL, 8);
    Put (Bytes, 8, 0x00010001, 4);
    Put (Bytes, 16, Header + 72, 8);
    Put (Bytes, 24, Header + 84, 8);
    Put (Bytes, 32, Prev, 8);
    Put (Bytes, 40, Header + 84 + Record.size (), 8);
    Put (Bytes, 48, Checksum (Record), 8);
    Put (Bytes, 56, Record.size (), 4);
    Put (Bytes, 64, Id, 8);
    return Bytes;
  }
};

TEST_F (ErstRecordOpsTest, WriteLaysDownHeaderFlagsRevisionAndRecord) {
  const auto Record = CperRecord (0x1111, kLength);
  const auto Before = Host::Flash::Count ().Program;

  VornApeiLoggingErstPersistentStoreWrite (PlaceRecord (Record), &Region ()->Status);

  EXPECT_EQ (Region ()->Status, 0u);
  EXPECT_EQ (Flash (Records (), 72), ExpectedHeader (Records (), MAX_UINT64, Record, 0x1111));
  EXPECT_EQ (Flash (Records () + 72, 12),
             (std::vector<UINT8>{0x01, 0x00, 0x01, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
  EXPECT_EQ (Flash (Records () + 84, kLength), Record);
  EXPECT_EQ (Flash (Records () + 84 + kLength, 84), std::vector<UINT8> (84, 0xFF));
  EXPECT_EQ (Host::Flash::Count ().Program.Operations - Before.Operations, 3u);
  EXPECT_EQ (Host::Flash::Count ().Program.Bytes - Before.Bytes, 72u + 4u + kLength);

  EXPECT_EQ (Info ()->SpiAddressLastValidRecord, Records ());
  EXPECT_EQ (Info ()->SpiAddressStartAvailableStorage, Records () + 84 + kLength);
  EXPECT_EQ (Info ()->LengthErstStoreRegionErrorRecordAreaAvailable, kRecordArea - 84 - kLength);
  EXPECT_EQ (Info ()->TotalNumberOfErstRecords, 1u);
  EXPECT_EQ (Region ()->RecordCount, 1u);
  EXPECT_EQ (Region ()->CurRecordID, 0x1111u);
  EXPECT_TRUE (Logged (Fmt (
      "%sWrite SPI flash ERST Error Record header @ 0x%016llX Length 0x0000000000000048 from local var ErstErrorRecordHeader @ 0x%016llX",
      kWrite, (unsigned long long)Records (), (unsigned long long)(UINTN)&mErstErrorRecordHeader)));
  EXPECT_TRUE (Logged (Fmt ("%sExiting => *pPersistentStatus 0x0000000000000000", kWrite)));
  ExpectFixedFlashBuffers ();
}

TEST_F (ErstRecordOpsTest, SecondWriteLinksBackAndDuplicateIdIsAppended) {
  const auto First  = CperRecord (7, kLength);
  const auto Second = CperRecord (7, 0x180);
  VornApeiLoggingErstPersistentStoreWrite (PlaceRecord (First), &Region ()->Status);
  VornApeiLoggingErstPersistentStoreWrite (PlaceRecord (Second), &Region ()->Status);

  const UINT64 SecondHeader = Records () + 84 + kLength;
  EXPECT_EQ (Region ()->Status, 0u);
  EXPECT_EQ (Flash (SecondHeader, 72), ExpectedHeader (SecondHeader, Records (), Second, 7));
  EXPECT_EQ (StoredIds (), (std::vector<UINT64>{7, 7}));
  EXPECT_EQ (Region ()->RecordCount, 2u);
  EXPECT_EQ (Region ()->CurRecordID, 7u);
  EXPECT_TRUE (Logged (Fmt (
      "%sDuplicate RecordID 0x0000000000000007 found => OsRecordPhyAddress 0x%016llX OsRecordFlagPhyAddress 0x%016llX *pPersistentStatus @ 0x%016llX = 0x0000000000000000. Aborting write action",
      kWrite, (unsigned long long)(Records () + 84), (unsigned long long)(Records () + 72),
      (unsigned long long)(UINTN)&Region ()->Status)));
}

//
// Records the write must refuse, and the line that says why.
//
struct BadRecord {
  const char *Name;
  size_t      Offset;
  UINT64      Value;
  size_t      Width;
  const char *Line;
};

void PrintTo (const BadRecord &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class ErstBadRecordTest : public ErstRecordOpsTest, public ::testing::WithParamInterface<BadRecord> {};

TEST_P (ErstBadRecordTest, RefusedWithStatusFailedAndNoFlashWrite) {
  auto Record = CperRecord (0x2222, kLength);
  Put (Record, GetParam ().Offset, GetParam ().Value, GetParam ().Width);
  const auto InfoBefore = InfoCopy ();
  const auto Before     = Host::Flash::Count ().Program;

  VornApeiLoggingErstPersistentStoreWrite (PlaceRecord (Record), &Region ()->Status);

  EXPECT_EQ (Region ()->Status, 3u);
  EXPECT_EQ (Host::Flash::Count ().Program, Before);
  EXPECT_TRUE (SameInfo (*Info (), InfoBefore));
  EXPECT_EQ (Region ()->RecordCount, 0u);
  EXPECT_TRUE (Logged (std::string (kWrite) + GetParam ().Line));
}

INSTANTIATE_TEST_SUITE_P (
    Records,
    ErstBadRecordTest,
    ::testing::Values (BadRecord{"ZeroId", 96, 0, 8, "ERROR pOsRecordHdr->RecordID is zero, aborting..."},
                       BadRecord{"NoCperSignature", 0, 0x58455043, 4,
                                 "ERROR pOsRecordHdr->SignatureStart != CPER, aborting..."},
                       BadRecord{"ZeroLength", 20, 0, 4, "ERROR pOsRecordHdr->RecordLength == 0, aborting..."}),
    [] (const auto &Info) { return std::string (Info.param.Name); });

//
// Free space around the record's need of RecordLength + 84 bytes.
//
class ErstFreeSpaceTest : public ErstRecordOpsTest, public ::testing::WithParamInterface<INT32> {};

TEST_P (ErstFreeSpaceTest, FitsExactlyOrIsRefused) {
  const UINT64 Available                                 = kLength + 84 + GetParam ();
  Info ()->LengthErstStoreRegionErrorRecordAreaAvailable = Available;
  const auto Before                                      = Host::Flash::Count ().Program;

  const UINT64 Status = WriteRecord (0x3333, kLength);

  if (GetParam () >= 0) {
    EXPECT_EQ (Status, 0u);
    EXPECT_EQ (Info ()->LengthErstStoreRegionErrorRecordAreaAvailable, 0u);
  } else {
    EXPECT_EQ (Status, 1u);
    EXPECT_EQ (Host::Flash::Count ().Program, Before);
    EXPECT_EQ (Region ()->RecordCount, 0u);
    EXPECT_TRUE (Logged (Fmt (
        "%sERROR mPrivateDataVornApeiLogging.pErstSpiStoreInformation->LengthErstStoreRegionOsRecordAreaAvailable 0x%016llX < pOsRecordHdr->RecordLength 0x%016llX, aborting...",
        kWrite, (unsigned long long)Available, (unsigned long long)kLength)));
  }
}

INSTANTIATE_TEST_SUITE_P (Space, ErstFreeSpaceTest, ::testing::Values (0, -1), [] (const auto &Info) {
  return Info.param >= 0 ? Format ("Spare%d", Info.param) : Format ("Short%d", -Info.param);
});

//
// A write cut at one of its three flash programs, then a reboot: what the
// write reports, and which records the rebooted store holds.
//
struct WriteCut {
  const char         *Name;
  UINT64              Nth;
  Cut                 How;
  UINT32              Landed;
  UINT64              Status;
  UINT32              CountedNow;
  std::vector<UINT64> IdsAfterReboot;
};

void PrintTo (const WriteCut &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class ErstWriteCutTest : public ErstRecordOpsTest, public ::testing::WithParamInterface<WriteCut> {};

TEST_P (ErstWriteCutTest, RebootKeepsOrDropsTheStore) {
  ASSERT_EQ (WriteRecord (0xA, kLength), 0u);
  Host::Flash::InjectFailure ({Op::Program, GetParam ().Nth, GetParam ().How, GetParam ().Landed});

  EXPECT_EQ (WriteRecord (0xB, kLength), GetParam ().Status);
  EXPECT_EQ (Info ()->TotalNumberOfErstRecords, GetParam ().CountedNow);
  EXPECT_EQ (Region ()->RecordCount, GetParam ().CountedNow);

  ASSERT_EQ (Reboot (), EFI_SUCCESS);
  EXPECT_EQ (StoredIds (), GetParam ().IdsAfterReboot);
  EXPECT_EQ (Region ()->RecordCount, GetParam ().IdsAfterReboot.size ());
  EXPECT_EQ (Info ()->SpiAddressStartAvailableStorage,
             Records () + GetParam ().IdsAfterReboot.size () * (84 + kLength));
  EXPECT_EQ (Flash (StoreHeader (), 12),
             (std::vector<UINT8>{'E', 'R', 'S', 'T', ' ', 'L', 'O', 'G', 0x01, 0x00, 0x01, 0x00}));
}

INSTANTIATE_TEST_SUITE_P (Cuts,
                          ErstWriteCutTest,
                          ::testing::Values (
                              // Nothing of the header landed: the chain still ends after record A.
                              WriteCut{"HeaderRefused", 1, Cut::Fail, 0, 3, 1, {0xA}},
                              // Only the signature landed: a header that fails validation wipes the store.
                              WriteCut{"HeaderTorn", 1, Cut::Partial, 8, 3, 1, {}},
                              // Flags revision missing: counted now, rejected at the next start-up.
                              WriteCut{"FlagsRevisionLost", 2, Cut::Fail, 0, 0, 2, {}},
                              // Header and flags complete, data short: discovery does not check data.
                              WriteCut{"DataTorn", 3, Cut::Partial, 0x10, 3, 1, {0xA, 0xB}}),
                          [] (const auto &Info) { return std::string (Info.param.Name); });

class ErstReadTest : public ErstRecordOpsTest {
protected:
  void SetUp () override {
    ErstRecordOpsTest::SetUp ();
    for (UINT64 Id : {1, 2, 3}) {
      ASSERT_EQ (WriteRecord (Id, kLength), 0u);
    }

    std::memset (reinterpret_cast<void *> (Region ()->ErrorLogAddressRange), 0x5A, Region ()->ErrorLogAddressLength);
    ClearLog ();
  }
};

//
// Identifier asked for -> ERST status and the cursor left for the OS.
//
class ErstReadCursorTest : public ErstReadTest,
                           public ::testing::WithParamInterface<std::tuple<UINT64, UINT64, UINT64>> {};

TEST_P (ErstReadCursorTest, LocatesMovesCursorAndCopiesNothing) {
  const auto [Id, Status, Cursor] = GetParam ();

  VornApeiLoggingErstPersistentStoreRead (Region ()->ErrorLogAddressRange, Id, &Region ()->Status);

  EXPECT_EQ (Region ()->Status, Status);
  EXPECT_EQ (Region ()->CurRecordID, Cursor);
  EXPECT_EQ (Region ()->RecordCount, 3u);
  const auto *Buffer = reinterpret_cast<const UINT8 *> (Region ()->ErrorLogAddressRange);
  EXPECT_EQ (std::vector<UINT8> (Buffer, Buffer + Region ()->ErrorLogAddressLength),
             std::vector<UINT8> (Region ()->ErrorLogAddressLength, 0x5A));
  EXPECT_TRUE (Logged ("VornApeiLoggingErstPersistentStoreRead: Exiting"));
}

INSTANTIATE_TEST_SUITE_P (
    Ids,
    ErstReadCursorTest,
    ::testing::Values (std::make_tuple (2, 0, 3), std::make_tuple (3, 0, MAX_UINT64), std::make_tuple (9, 5, 1)),
    [] (const auto &Info) { return Format ("Id%llu", (unsigned long long)std::get<0> (Info.param)); });

TEST_F (ErstRecordOpsTest, ReadAndClearOfEmptyStoreReportStoreEmpty) {
  VornApeiLoggingErstPersistentStoreRead (Region ()->ErrorLogAddressRange, 1, &Region ()->Status);
  EXPECT_EQ (Region ()->Status, 4u);
  VornApeiLoggingErstPersistentStoreClear (1, &Region ()->Status);
  EXPECT_EQ (Region ()->Status, 4u);
  EXPECT_EQ (Region ()->CurRecordID, MAX_UINT64);
  EXPECT_TRUE (Logged (Fmt ("%s*pPersistentStatus 0x0000000000000004 record store empty, exiting...", kClear)));
  EXPECT_TRUE (Logged (Fmt ("%sExiting successfully", kClear)));
}

TEST_F (ErstReadTest, ClearCountsDownWithoutTouchingAnErasedFlag) {
  const UINT64 Second = Records () + 84 + kLength;
  const auto   Before = Host::Flash::Count ().Program;

  VornApeiLoggingErstPersistentStoreClear (2, &Region ()->Status);

  EXPECT_EQ (Region ()->Status, 0u);
  EXPECT_EQ (Region ()->RecordCount, 2u);
  EXPECT_EQ (Region ()->CurRecordID, 3u);
  EXPECT_EQ (Info ()->TotalNumberOfErstRecords, 3u);
  EXPECT_EQ (Flash (Second + 76, 2), (std::vector<UINT8>{0xFF, 0xFF}));
  EXPECT_EQ (Host::Flash::Count ().Program, Before);
  EXPECT_TRUE (
      Logged (Fmt ("%smPrivateDataVornApeiLogging.pErstParameterBlock->RecordCount decremented to 2", kClear)));
}

TEST_F (ErstReadTest, ClearOfZeroedFlagTriesTheProgramAndStillSucceeds) {
  const UINT64 Second = Records () + 84 + kLength;
  Host::Flash::Poke (Second + 76, std::vector<UINT8>{0x00});

  VornApeiLoggingErstPersistentStoreClear (2, &Region ()->Status);

  // NOR cannot raise 0x00 to 0x22: the program is refused, the clear goes on.
  EXPECT_EQ (Region ()->Status, 0u);
  EXPECT_EQ (Host::Flash::ProgramFaults (), (std::vector<Host::Flash::ProgramFault>{{Second + 76, 0x00, 0x22}}));
  EXPECT_TRUE (Logged (Fmt (
      "VornApeiLoggingErstSetRecordClearPerOspm: Write SPI flash Record Clear (OS) flag @ PhyAddress 0x%016llX NumBytes 0x0000000000000001 = 0x22",
      (unsigned long long)(Second + 76))));
  EXPECT_TRUE (Logged (Fmt (
      "VornApeiLoggingSearchErstPersistentStore: ERROR Device Error clearing Record 1 Record Clear Per OSPM flag")));
  EXPECT_EQ (Region ()->RecordCount, 2u);
  EXPECT_EQ (Info ()->TotalNumberOfErstRecords, 3u);
}

TEST_F (ErstReadTest, ClearOfAbsentOrZeroIdentifier) {
  const auto ReadsBefore = Host::Flash::Count ().Read;
  VornApeiLoggingErstPersistentStoreClear (0, &Region ()->Status);
  EXPECT_EQ (Region ()->Status, 3u);
  EXPECT_EQ (Host::Flash::Count ().Read, ReadsBefore);
  EXPECT_TRUE (Logged (Fmt ("%sERROR RecordId is zero, aborting...", kClear)));

  Region ()->CurRecordID = 3;
  VornApeiLoggingErstPersistentStoreClear (0x77, &Region ()->Status);
  EXPECT_EQ (Region ()->Status, 5u);
  EXPECT_EQ (Region ()->CurRecordID, 1u);
  EXPECT_EQ (Region ()->RecordCount, 3u);
}

//
// The two clear-flag setters: the byte each programs and whether the counts
// follow.
//
class ErstClearFlagTest : public ErstReadTest, public ::testing::WithParamInterface<bool> {};

TEST_P (ErstClearFlagTest, ProgramsItsByteAndReportsFailureInOneWording) {
  const bool   Ospm  = GetParam ();
  const UINT64 Flags = Records () + 72;
  auto         Set   = Ospm ? VornApeiLoggingErstSetRecordClearPerOspm : VornApeiLoggingErstSetRecordClearPerBios;

  EXPECT_EQ (Set (Flags), EFI_SUCCESS);
  EXPECT_EQ (Flash (Flags + 4, 2), Ospm ? (std::vector<UINT8>{0x22, 0xFF}) : (std::vector<UINT8>{0xFF, 0x22}));
  EXPECT_EQ (Region ()->RecordCount, Ospm ? 2u : 3u);
  EXPECT_EQ (Info ()->TotalNumberOfErstRecords, Ospm ? 2u : 3u);

  Host::Flash::InjectFailure ({Op::Program, 1, Cut::Fail, 0});
  EXPECT_EQ (Set (Flags + 84 + kLength + 84), EFI_DEVICE_ERROR);
  EXPECT_EQ (Region ()->RecordCount, Ospm ? 2u : 3u);
  EXPECT_TRUE (Logged (Fmt (
      "VornApeiLoggingErstSetRecordClearPer%s: ERROR Device Error from VornApeiLoggingWriteDataViaSpi @ PhyAddress 0x%016llX NumBytes 0x0000000000000001 (attempt to set Record Clear OS flag), aborting...",
      Ospm ? "Ospm" : "Bios", (unsigned long long)(Flags + 84 + kLength + 84 + (Ospm ? 4 : 5)))));
}

INSTANTIATE_TEST_SUITE_P (Flags, ErstClearFlagTest, ::testing::Values (true, false), [] (const auto &Info) {
  return std::string (Info.param ? "Ospm" : "Bios");
});

} // namespace
