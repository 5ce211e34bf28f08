/** @file
  ERST records as the OS stores, reads and clears them: the bytes a write
  lays down and the order of its programs, free space, writes cut by a power
  loss, the record cursor, the clear rules and the two flag setters, the
  command handler and the set-up that points the ERST table at it.
**/
#include <algorithm>
#include <cstring>
#include <numeric>

#include <ErstFixture.h>
#include <ParamName.h>
#include <SpiFlash.h>

#include "Builder/Boot.h"
#include "TestAcpiTables.h"

namespace {

using Host::Flash::Cut;
using Host::Flash::Op;

constexpr UINT32 kLength = 0x100;
constexpr UINT64 kArea   = 0x1FF94; // record region length of the default volume

class ErstRecordTest : public ErstFixture {
protected:
  void SetUp () override {
    ErstFixture::SetUp ();
    ASSERT_EQ (UpdateErst (), EFI_SUCCESS);
    mPrograms = Host::Flash::Count ().Program.Operations;
    ClearLog ();
  }

  UINT64 mPrograms = 0; // flash programs of the set-up

  static void Read (UINT64 Id) {
    VornApeiLoggingErstPersistentStoreRead (Region ()->ErrorLogAddressRange, Id, &Region ()->Status);
  }

  static void Clear (UINT64 Id) {
    VornApeiLoggingErstPersistentStoreClear (Id, &Region ()->Status);
  }

  //
  // TRUE when SMI 0x9C reaches the ERST command handler.
  //
  static bool HandlerRegistered () {
    ClearLog ();
    OsCommand (ERST_PERSISTENT_DUMMY_WRITE);
    return !LinesContaining ("VornApeiLoggingErstElogSwSmiCallback: ").empty ();
  }
};

TEST_F (ErstRecordTest, WriteLaysDownHeaderThenFlagsRevisionThenRecord) {
  const auto Record = CperRecord (0x1111, kLength);
  const auto Before = Host::Flash::Count ().Program;

  VornApeiLoggingErstPersistentStoreWrite (PlaceRecord (Record), &Region ()->Status);

  EXPECT_EQ (Region ()->Status, ERST_STATUS_SUCCESS);
  const ERST_ERROR_RECORD_HEADER H = HeaderAt (0xFF14006C);
  EXPECT_EQ (H.Signature, 0x5252452054535245u); // "ERST ERR"
  EXPECT_EQ (H.Revision, 0x00010001u);
  EXPECT_EQ (H.OsRecordFlagsAddress, 0xFF1400B4u);
  EXPECT_EQ (H.OsRecordAddress, 0xFF1400C0u);
  EXPECT_EQ (H.PrevRecordHeaderAddress, MAX_UINT64);
  EXPECT_EQ (H.NextRecordHeaderAddress, 0xFF1401C0u);
  EXPECT_EQ (H.OsRecordLength, kLength);
  EXPECT_EQ (H.OsRecordID, 0x1111u);
  // The checksum byte makes the record's bytes sum to zero.
  EXPECT_EQ (static_cast<UINT8> (std::accumulate (Record.begin (), Record.end (), H.OsRecordChecksum)), 0u);
  EXPECT_LE (H.OsRecordChecksum, 0xFFu);
  EXPECT_EQ (Flash (0xFF14006C + 12, 4), std::vector<UINT8> (4, 0)); // gap
  EXPECT_EQ (Flash (0xFF14006C + 60, 4), std::vector<UINT8> (4, 0)); // gap
  EXPECT_EQ (Flash (0xFF1400B4, 12), (std::vector<UINT8>{1, 0, 1, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
  EXPECT_EQ (Flash (0xFF1400C0, kLength), Record);
  EXPECT_EQ (Host::Flash::Count ().Program.Operations - Before.Operations, 3u);

  EXPECT_EQ (Info ()->SpiAddressLastValidRecord, 0xFF14006Cu);
  EXPECT_EQ (Info ()->SpiAddressStartAvailableStorage, 0xFF1401C0u);
  EXPECT_EQ (Info ()->LengthErstStoreRegionErrorRecordAreaAvailable, kArea - 84 - kLength);
  EXPECT_EQ (Info ()->TotalNumberOfErstRecords, 1u);
  EXPECT_EQ (Region ()->RecordCount, 1u);
  EXPECT_EQ (Region ()->CurRecordID, 0x1111u);
  ExpectFixedFlashBuffers ();
}

TEST_F (ErstRecordTest, SecondWriteLinksBackAndADuplicateIdIsAppended) {
  ASSERT_EQ (WriteRecord (7, kLength), ERST_STATUS_SUCCESS);
  ASSERT_EQ (WriteRecord (7, 0x180), ERST_STATUS_SUCCESS);

  const ERST_ERROR_RECORD_HEADER H = HeaderAt (0xFF1401C0);
  EXPECT_EQ (H.PrevRecordHeaderAddress, 0xFF14006Cu);
  EXPECT_EQ (H.NextRecordHeaderAddress, 0xFF1401C0u + 84 + 0x180);
  EXPECT_EQ (StoredIds (), (std::vector<UINT64>{7, 7}));
  EXPECT_EQ (Flash (0xFF14006C + 76, 2), (std::vector<UINT8>{0xFF, 0xFF})); // the older copy is not marked
  EXPECT_EQ (Region ()->RecordCount, 2u);
  EXPECT_EQ (Region ()->CurRecordID, 7u);
}

//
// Records the write refuses with status 3, before touching flash.
//
struct BadRecord {
  const char *Name;
  size_t      Offset;
  UINT32      Value;
};

class ErstBadRecordTest : public ErstRecordTest, public ::testing::WithParamInterface<BadRecord> {};

TEST_P (ErstBadRecordTest, IsRefusedWithoutAFlashWrite) {
  auto Record = CperRecord (0x2222, kLength);
  std::memcpy (Record.data () + GetParam ().Offset, &GetParam ().Value, sizeof (UINT32));
  if (GetParam ().Offset == 96) {
    std::memset (Record.data () + 96, 0, 8);
  }

  VornApeiLoggingErstPersistentStoreWrite (PlaceRecord (Record), &Region ()->Status);
  EXPECT_EQ (Region ()->Status, ERST_STATUS_FAILED);
  EXPECT_EQ (Host::Flash::Count ().Program.Operations, mPrograms);
  EXPECT_EQ (Info ()->SpiAddressStartAvailableStorage, 0xFF14006Cu);
  EXPECT_EQ (Region ()->RecordCount, 0u);
}

INSTANTIATE_TEST_SUITE_P (Records,
                          ErstBadRecordTest,
                          ::testing::Values (BadRecord{"ZeroId", 96, 0},
                                             BadRecord{"NotCper", 0, 0x58455043},
                                             BadRecord{"ZeroLength", 20, 0}),
                          CaseName ());

TEST_F (ErstRecordTest, ARecordFitsExactlyOrIsRefused) {
  Info ()->LengthErstStoreRegionErrorRecordAreaAvailable = kLength + 84 - 1;
  EXPECT_EQ (WriteRecord (0x3333, kLength), ERST_STATUS_NOT_ENOUGH_SPACE);
  EXPECT_EQ (Host::Flash::Count ().Program.Operations, mPrograms);
  EXPECT_EQ (Region ()->RecordCount, 0u);

  Info ()->LengthErstStoreRegionErrorRecordAreaAvailable = kLength + 84;
  EXPECT_EQ (WriteRecord (0x3333, kLength), ERST_STATUS_SUCCESS);
  EXPECT_EQ (Info ()->LengthErstStoreRegionErrorRecordAreaAvailable, 0u);
}

//
// A write cut at one of its three programs, then a reboot: what the write
// reports, what it counted, and which records the rebooted store holds.
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

class ErstWriteCutTest : public ErstRecordTest, public ::testing::WithParamInterface<WriteCut> {};

TEST_P (ErstWriteCutTest, RebootKeepsOrDropsTheStore) {
  ASSERT_EQ (WriteRecord (0xA, kLength), ERST_STATUS_SUCCESS);
  Host::Flash::InjectFailure ({Op::Program, GetParam ().Nth, GetParam ().How, GetParam ().Landed});

  EXPECT_EQ (WriteRecord (0xB, kLength), GetParam ().Status);
  EXPECT_EQ (Region ()->RecordCount, GetParam ().CountedNow);

  ASSERT_EQ (Reboot (), EFI_SUCCESS);
  EXPECT_EQ (StoredIds (), GetParam ().IdsAfterReboot);
  EXPECT_EQ (Region ()->RecordCount, GetParam ().IdsAfterReboot.size ());
}

INSTANTIATE_TEST_SUITE_P (Cuts,
                          ErstWriteCutTest,
                          ::testing::Values (
                              // Nothing of the header landed: the chain still ends after record A.
                              WriteCut{"HeaderRefused", 1, Cut::Fail, 0, ERST_STATUS_FAILED, 1, {0xA}},
                              // Only the signature landed: a header that fails validation wipes the store.
                              WriteCut{"HeaderTorn", 1, Cut::Partial, 8, ERST_STATUS_FAILED, 1, {}},
                              // Flags revision lost: the write still succeeds and counts; the next start-up rejects it.
                              WriteCut{"FlagsRevisionLost", 2, Cut::Fail, 0, ERST_STATUS_SUCCESS, 2, {}},
                              // Header and flags complete, data short: discovery does not look at data.
                              WriteCut{"DataTorn", 3, Cut::Partial, 0x10, ERST_STATUS_FAILED, 1, {0xA, 0xB}}),
                          CaseName ());

//
// Read: the newest copy is found, the cursor moves to the next live record
// (or the first one when the identifier is unknown), nothing is copied.
//
TEST_F (ErstRecordTest, ReadMovesTheCursorAndCopiesNothing) {
  for (UINT64 Id : {1, 2, 1, 3}) {
    ASSERT_EQ (WriteRecord (Id, kLength), ERST_STATUS_SUCCESS);
  }
  std::memset (reinterpret_cast<void *> (Region ()->ErrorLogAddressRange), 0x5A, Region ()->ErrorLogAddressLength);

  const struct { UINT64 Id, Status, Cursor; } Cases[] = {{2, 0, 1}, {1, 0, 3}, {3, 0, MAX_UINT64}, {9, 5, 1}};
  for (const auto &Case : Cases) {
    Region ()->CurRecordID = 0x55;
    Read (Case.Id);
    EXPECT_EQ (Region ()->Status, Case.Status) << Case.Id;
    EXPECT_EQ (Region ()->CurRecordID, Case.Cursor) << Case.Id;
  }

  const auto *Buffer = reinterpret_cast<const UINT8 *> (Region ()->ErrorLogAddressRange);
  EXPECT_TRUE (std::all_of (Buffer, Buffer + Region ()->ErrorLogAddressLength, [] (UINT8 B) { return B == 0x5A; }));
  EXPECT_EQ (Region ()->RecordCount, 4u);
}

TEST_F (ErstRecordTest, ReadAndClearOfAnEmptyStore) {
  Region ()->CurRecordID = 0x55;
  Read (1);
  EXPECT_EQ (Region ()->Status, ERST_STATUS_RECORD_STORE_EMPTY);
  Clear (1);
  EXPECT_EQ (Region ()->Status, ERST_STATUS_RECORD_STORE_EMPTY);
  EXPECT_EQ (Region ()->CurRecordID, 0x55u);
}

//
// Clear: the oldest copy is the one found; no flash byte changes (the flag is
// erased), the count goes down but never below zero, so clearing one
// identifier again and again keeps succeeding.
//
TEST_F (ErstRecordTest, ClearFindsTheOldestCopyAndCountsDownToZero) {
  for (UINT64 Id : {7, 8, 7, 9}) {
    ASSERT_EQ (WriteRecord (Id, kLength), ERST_STATUS_SUCCESS);
  }
  const auto Programs = Host::Flash::Count ().Program;

  Clear (7);
  EXPECT_EQ (Region ()->Status, ERST_STATUS_SUCCESS);
  EXPECT_EQ (Region ()->CurRecordID, 8u); // the record after the oldest copy
  EXPECT_EQ (Region ()->RecordCount, 3u);
  EXPECT_EQ (Info ()->TotalNumberOfErstRecords, 4u);

  Region ()->RecordCount = 1;
  for (int Again = 0; Again < 2; Again++) {
    Clear (9);
    EXPECT_EQ (Region ()->Status, ERST_STATUS_SUCCESS);
    EXPECT_EQ (Region ()->RecordCount, 0u);
    EXPECT_EQ (Region ()->CurRecordID, MAX_UINT64);
  }
  EXPECT_EQ (Host::Flash::Count ().Program, Programs);
}

TEST_F (ErstRecordTest, ClearOfAZeroedFlagTriesTheProgramAndStillSucceeds) {
  for (UINT64 Id : {1, 2}) {
    ASSERT_EQ (WriteRecord (Id, kLength), ERST_STATUS_SUCCESS);
  }
  const UINT64 Second = 0xFF14006C + 84 + kLength;
  Host::Flash::Poke (Second + 76, std::vector<UINT8>{0x00});

  Clear (2);
  // NOR cannot raise 0x00 to 0x22: the program is refused and the clear goes on.
  EXPECT_EQ (Region ()->Status, ERST_STATUS_SUCCESS);
  EXPECT_EQ (Host::Flash::ProgramFaults (), (std::vector<Host::Flash::ProgramFault>{{Second + 76, 0x00, 0x22}}));
  EXPECT_EQ (Region ()->RecordCount, 1u);
}

TEST_F (ErstRecordTest, ClearOfAbsentOrZeroIdentifier) {
  for (UINT64 Id : {1, 2}) {
    ASSERT_EQ (WriteRecord (Id, kLength), ERST_STATUS_SUCCESS);
  }
  const auto Reads = Host::Flash::Count ().Read;
  Clear (0);
  EXPECT_EQ (Region ()->Status, ERST_STATUS_FAILED);
  EXPECT_EQ (Host::Flash::Count ().Read, Reads);

  Region ()->CurRecordID = 2;
  Clear (0x77);
  EXPECT_EQ (Region ()->Status, ERST_STATUS_RECORD_NOT_FOUND);
  EXPECT_EQ (Region ()->CurRecordID, 1u);
  EXPECT_EQ (Region ()->RecordCount, 2u);
}

//
// The flag setters program their own byte; only the OS one takes the record
// off the counts, and never below zero.
//
TEST_F (ErstRecordTest, FlagSettersProgramTheirByteAndCountDownToZero) {
  for (UINT64 Id : {1, 2}) {
    ASSERT_EQ (WriteRecord (Id, kLength), ERST_STATUS_SUCCESS);
  }
  const UINT64 First = 0xFF1400B4, Second = First + 84 + kLength;

  EXPECT_EQ (VornApeiLoggingErstSetRecordClearPerBios (First), EFI_SUCCESS);
  EXPECT_EQ (Flash (First + 4, 2), (std::vector<UINT8>{0xFF, 0x22}));
  EXPECT_EQ (Region ()->RecordCount, 2u);
  EXPECT_EQ (VornApeiLoggingErstSetRecordClearPerOspm (First), EFI_SUCCESS);
  EXPECT_EQ (Flash (First + 4, 2), (std::vector<UINT8>{0x22, 0x22}));
  EXPECT_EQ (Region ()->RecordCount, 1u);
  EXPECT_EQ (Info ()->TotalNumberOfErstRecords, 1u);

  Region ()->RecordCount            = 0;
  Info ()->TotalNumberOfErstRecords = 0;
  EXPECT_EQ (VornApeiLoggingErstSetRecordClearPerOspm (Second), EFI_SUCCESS);
  EXPECT_EQ (Region ()->RecordCount, 0u);
  EXPECT_EQ (Info ()->TotalNumberOfErstRecords, 0u);

  Host::Flash::InjectFailure ({Op::Program, 1, Cut::Fail, 0});
  EXPECT_EQ (VornApeiLoggingErstSetRecordClearPerBios (Second), EFI_DEVICE_ERROR);
  EXPECT_TRUE (Logged (
      "VornApeiLoggingErstSetRecordClearPerBios: ERROR Device Error from VornApeiLoggingWriteDataViaSpi @ PhyAddress 0x00000000FF14020D NumBytes 0x0000000000000001 (attempt to set Record Clear OS flag), aborting..."));
}

//
// The command handler: the record at LogOffset, statuses for the OS, BusyFlag
// clear afterwards, and nothing done for other commands.
//
TEST_F (ErstRecordTest, HandlerRunsTheCommandInTheRegion) {
  const auto Record = CperRecord (0x5151, 0x120);
  PlaceRecord (CperRecord (0x9999, 0x100), 0);
  PlaceRecord (Record, 0x200);
  OsCommand (ERST_PERSISTENT_SET_RECORD, 0, 0x200);
  EXPECT_EQ (Region ()->Status, ERST_STATUS_SUCCESS);
  EXPECT_EQ (Region ()->BusyFlag, 0u);
  EXPECT_EQ (Flash (0xFF1400C0, Record.size ()), Record);

  OsCommand (ERST_PERSISTENT_GET_RECORD, 0x7777);
  EXPECT_EQ (Region ()->Status, ERST_STATUS_RECORD_NOT_FOUND);
  Region ()->CurRecordID = 0x7777;
  OsCommand (ERST_PERSISTENT_GET_RECORD, 0x5151);
  EXPECT_EQ (Region ()->Status, ERST_STATUS_SUCCESS);
  EXPECT_EQ (Region ()->CurRecordID, MAX_UINT64);
  OsCommand (ERST_PERSISTENT_CLEAR_RECORD, 0x5151);
  EXPECT_EQ (Region ()->Status, ERST_STATUS_SUCCESS);
  EXPECT_EQ (Region ()->RecordCount, 0u);
  EXPECT_EQ (Region ()->BusyFlag, 0u);

  const UINT64 Others[] = {0x0, 0x4, ERST_PERSISTENT_DUMMY_WRITE, 0x10};
  for (UINT64 Command : Others) {
    Region ()->Status                 = 0x77;
    VORN_ERST_PARAMETER_REGION Before = *Region ();
    Before.Command                    = Command;
    Before.RecordID                   = 0x5151;
    OsCommand (Command, 0x5151);
    EXPECT_EQ (std::memcmp (Region (), &Before, sizeof (Before)), 0) << Command;
  }
  EXPECT_EQ (Host::Flash::Count ().Program.Operations - mPrograms, 3u);
}

//
// Set-up: the table's registers point into the parameter region, its
// checksum holds, an erased store is initialised and the handler registered.
//
TEST_F (ErstRecordTest, SetUpPointsTheTableAtTheRegion) {
  const UINT64 Base = reinterpret_cast<UINT64> (Region ());
  // Field each entry's register must reach, in action order; -1: the platform's own register.
  const INT64 Offsets[16] = {0x00, 0x00, 0x00, 0x00, 0x18, -1,   0x28, 0x20,
                             0x58, 0x08, 0x30, 0x00, 0x10, 0x38, 0x40, 0x48};
  const auto *Entries = reinterpret_cast<const EFI_ACPI_6_3_ERST_SERIALIZATION_INSTRUCTION_ENTRY *> (ErstTable () + 48);
  for (UINT32 Index = 0; Index < 16; Index++) {
    EXPECT_EQ (Entries[Index].RegisterRegion.Address,
               Offsets[Index] < 0 ? ErstRegisters ()[Index].Address : Base + Offsets[Index])
        << "entry " << Index;
  }

  const auto *Table = reinterpret_cast<const UINT8 *> (ErstTable ());
  EXPECT_EQ (static_cast<UINT8> (std::accumulate (
                 Table, Table + reinterpret_cast<const EFI_ACPI_DESCRIPTION_HEADER *> (Table)->Length, 0)),
             0u);
  VORN_ERST_PARAMETER_REGION Expected = {};
  Expected.ErrorLogAddressRange       = Base + 0x60;
  Expected.ErrorLogAddressLength      = 0x1FA0;
  Expected.CurRecordID                = MAX_UINT64;
  EXPECT_EQ (std::memcmp (Region (), &Expected, sizeof (Expected)), 0);
  EXPECT_EQ (Flash (StoreHeader (), 16),
             (std::vector<UINT8>{'E', 'R', 'S', 'T', ' ', 'L', 'O', 'G', 1, 0, 1, 0, 0xA4, 0xFF, 0x01, 0x00}));
  EXPECT_TRUE (HandlerRegistered ());

  EFI_SMM_SW_DISPATCH2_PROTOCOL Dispatch = {};
  EXPECT_EQ (VornApeiLoggingUpdateErst (nullptr, &Dispatch), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingUpdateErst (&Dispatch, nullptr), EFI_INVALID_PARAMETER);
}

//
// A failing step of the set-up returns its status and leaves the command
// handler unregistered.
//
struct SetUpFailure {
  const char *Name;
  void (*Arrange) ();
  EFI_STATUS Status;
};

class ErstSetUpFailureTest : public ErstRecordTest, public ::testing::WithParamInterface<SetUpFailure> {};

TEST_P (ErstSetUpFailureTest, ReturnsTheStatusOfTheFailedStep) {
  // A store with an OS-cleared record, so that start-up defragments.
  ASSERT_EQ (WriteRecord (1, kLength), ERST_STATUS_SUCCESS);
  Host::Flash::Poke (Records () + 76, std::vector<UINT8>{0x22});
  PowerCycle ();
  GetParam ().Arrange ();

  EXPECT_EQ (UpdateErst (), GetParam ().Status);
  if (Region () != nullptr) {
    EXPECT_FALSE (HandlerRegistered ());
  }
}

INSTANTIATE_TEST_SUITE_P (
    Steps,
    ErstSetUpFailureTest,
    ::testing::Values (
        SetUpFailure{"RegionAllocation", [] { Host::SetFault (Host::Service::BsAllocatePool, {}); }, EFI_DEVICE_ERROR},
        SetUpFailure{"Discovery", [] { Host::SetFault (Host::Service::SmmLocateHandle, {}); }, EFI_NOT_FOUND},
        SetUpFailure{"ClearOfADamagedStore",
                     [] {
                       Host::Flash::Poke (0xFF14006C, std::vector<UINT8> (8, 0));
                       Host::Flash::InjectFailure ({Op::Erase, 1, Cut::Fail, 0});
                     },
                     EFI_DEVICE_ERROR},
        SetUpFailure{"Defragmentation",
                     [] {
                       Host::SetFault (Host::Service::BsAllocatePages, {});
                       Host::Flash::InjectFailure ({Op::Erase, 1, Cut::Fail, 0});
                     },
                     EFI_DEVICE_ERROR},
        SetUpFailure{"Registration", [] { Host::SetFault (Host::Service::SwDispatch2Register, {}); },
                     EFI_DEVICE_ERROR}),
    CaseName ());

TEST_F (ErstRecordTest, StartUpWithoutErstGoesOn) {
  PowerCycle ();
  AcpiTables::InstallApeiTables ();
  EXPECT_EQ (_ModuleEntryPoint (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
  EXPECT_FALSE (mPrivateDataVornApeiLogging.ErstPresent);
  EXPECT_EQ (Region (), nullptr);
}

} // namespace
