/** @file
  The simulated OS's ERST driver: its instruction interpreter on hand-built
  entries, the table checks it makes before trusting an ERST, and whole
  operations against the booted module through the software SMI.
**/
#include <algorithm>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <ErstFixture.h>
#include <ParamName.h>

#include <Guid/Cper.h>
#include <SpiFlash.h>
#include <VornApeiLoggingSmm.h>

#include "Builder/AcpiErst.h"
#include "Builder/Boot.h"
#include "Handlers/CperBuilder.h"
#include "Os/ErstDriver.h"
#include "Builder/FlashImage.h"

namespace {

using Sim::ErstDriver;
using Sim::ErstEntry;
using Sim::ErstInterpreter;
using Sim::ErstResult;

constexpr UINT8 kAction   = EFI_ACPI_6_3_ERST_GET_RECORD_COUNT; // any action will do
constexpr UINT8 kNoReg    = 0xFF;
constexpr UINT8 kMemory   = EFI_ACPI_6_3_SYSTEM_MEMORY;
constexpr int   kRegCount = 4;

//
// One hand-built entry of kAction on register R<Reg> (a qword in reserved
// memory), or on no register.
//
struct Step {
  UINT8  Instruction;
  UINT8  Reg       = kNoReg;
  UINT64 Value     = 0;
  UINT64 Mask      = MAX_UINT64;
  UINT8  BitOffset = 0;
  UINT8  Flags     = 0;
};

struct InterpreterCase {
  const char           *Name;
  std::vector<Step>     Steps;
  std::array<UINT64, 4> Before;
  UINT64                Input;
  UINT64                Output;
  std::array<UINT64, 4> After;
};

class ErstInterpreterTest : public MachineTest, public ::testing::WithParamInterface<InterpreterCase> {
protected:
  void SetUp () override {
    MachineTest::SetUp ();
    mBank = Host::AllocateReserved (sizeof (UINT64) * kRegCount, sizeof (UINT64));
  }

  UINT64 &Reg (int Index) const {
    return *Host::At<UINT64> (mBank + sizeof (UINT64) * Index);
  }

  std::vector<ErstEntry> Build (const std::vector<Step> &Steps) const {
    std::vector<ErstEntry> Entries;
    for (const Step &S : Steps) {
      ErstEntry Entry{};
      Entry.SerializationAction = kAction;
      Entry.Instruction         = S.Instruction;
      Entry.Flags               = S.Flags;
      Entry.Value               = S.Value;
      Entry.Mask                = S.Mask;
      if (S.Reg != kNoReg) {
        Entry.RegisterRegion = {kMemory, static_cast<UINT8> (64 - S.BitOffset), S.BitOffset, EFI_ACPI_6_3_QWORD,
                                mBank + sizeof (UINT64) * S.Reg};
      }
      Entries.push_back (Entry);
    }
    return Entries;
  }

  UINT64 mBank = 0;
};

TEST_P (ErstInterpreterTest, RunsTheActionWithAcpiSemantics) {
  const InterpreterCase &Case = GetParam ();
  for (int Index = 0; Index < kRegCount; Index++) {
    Reg (Index) = Case.Before[Index];
  }
  const std::vector<ErstEntry> Entries = Build (Case.Steps);
  ErstInterpreter              Interpreter (Entries);

  Interpreter.SetInput (Case.Input);
  Interpreter.Run (kAction);

  EXPECT_EQ (Case.Output, Interpreter.Output ());
  for (int Index = 0; Index < kRegCount; Index++) {
    EXPECT_EQ (Case.After[Index], Reg (Index)) << "R" << Index;
  }
}

constexpr UINT8 RD       = EFI_ACPI_6_3_ERST_READ_REGISTER;
constexpr UINT8 RDV      = EFI_ACPI_6_3_ERST_READ_REGISTER_VALUE;
constexpr UINT8 WR       = EFI_ACPI_6_3_ERST_WRITE_REGISTER;
constexpr UINT8 WRV      = EFI_ACPI_6_3_ERST_WRITE_REGISTER_VALUE;
constexpr UINT8 PRESERVE = EFI_ACPI_6_3_ERST_PRESERVE_REGISTER;

INSTANTIATE_TEST_SUITE_P (
    Instructions,
    ErstInterpreterTest,
    ::testing::Values (
        InterpreterCase{"ReadShiftsAndMasks", {{RD, 0, 0, 0xFF, 4}}, {0x12345, 0, 0, 0}, 0, 0x34, {0x12345, 0, 0, 0}},
        InterpreterCase{"ReadValueTrue", {{RDV, 0, 0x3, 0x3}}, {0x7, 0, 0, 0}, 0, 1, {0x7, 0, 0, 0}},
        InterpreterCase{"WriteReplacesTheRegister",
                        {{WR, 0, 0, 0xFF, 8}},
                        {0xAAAAAAAA, 0, 0, 0},
                        0x1234,
                        0x1234,
                        {0x3400, 0, 0, 0}},
        InterpreterCase{"WritePreservesBitsOutsideTheField",
                        {{WR, 0, 0, 0xFF, 8, PRESERVE}},
                        {0xAAAAAAAA, 0, 0, 0},
                        0x1234,
                        0x1234,
                        {0xAAAA34AA, 0, 0, 0}},
        InterpreterCase{
            "WriteValueUsesTheEntryValue", {{WRV, 1, 0x9C, 0xFF}}, {0, 0xFFFF, 0, 0}, 7, 0x9C, {0, 0x9C, 0, 0}},
        InterpreterCase{"LoadAddStore",
                        {{EFI_ACPI_6_3_ERST_LOAD_VAR1, 0},
                         {EFI_ACPI_6_3_ERST_LOAD_VAR2, 1},
                         {EFI_ACPI_6_3_ERST_ADD},
                         {EFI_ACPI_6_3_ERST_STORE_VAR1, 2}},
                        {5, 7, 0, 0},
                        0,
                        0,
                        {5, 7, 12, 0}},
        // SUBTRACT is VAR1 - VAR2; the _VALUE forms take the context's value, not the entry's.
        InterpreterCase{"LoadSubtractStoreWraps",
                        {{EFI_ACPI_6_3_ERST_LOAD_VAR1, 0},
                         {EFI_ACPI_6_3_ERST_LOAD_VAR2, 1},
                         {EFI_ACPI_6_3_ERST_SUBTRACT},
                         {EFI_ACPI_6_3_ERST_STORE_VAR1, 2}},
                        {5, 7, 0, 0},
                        0,
                        0,
                        {5, 7, MAX_UINT64 - 1, 0}},
        InterpreterCase{"AddValue", {{EFI_ACPI_6_3_ERST_ADD_VALUE, 3, 7}}, {0, 0, 0, 10}, 5, 5, {0, 0, 0, 15}},
        InterpreterCase{"SkipWhenTrue",
                        {{EFI_ACPI_6_3_ERST_SKIP_NEXT_INSTRUCTION_IF_TRUE, 0, 9}, {WRV, 1, 0x11}, {WRV, 2, 0x22}},
                        {3, 0, 0, 0},
                        3,
                        0x22,
                        {3, 0, 0x22, 0}},
        InterpreterCase{"GotoJumpsForward",
                        {{EFI_ACPI_6_3_ERST_GOTO, kNoReg, 9}, {WRV, 1, 0x11}, {WRV, 2, 0x22}},
                        {0, 0, 0, 0},
                        2,
                        0x22,
                        {0, 0, 0x22, 0}},
        InterpreterCase{"StallWhileTrueEndsWhenTheRegisterDiffers",
                        {{EFI_ACPI_6_3_ERST_STALL_WHILE_TRUE, 0, 0}},
                        {1, 0, 0, 0},
                        0,
                        0,
                        {1, 0, 0, 0}}),
    CaseName ());

TEST_F (ErstInterpreterTest, BackwardGotoRescansUntilASkipLeavesTheLoop) {
  // R0 += R1 until R0 wraps to 0; then R2 is written once.
  Reg (0)                              = MAX_UINT64 - 1;
  Reg (1)                              = 1;
  const std::vector<ErstEntry> Entries = Build ({{EFI_ACPI_6_3_ERST_LOAD_VAR1, 0},
                                                 {EFI_ACPI_6_3_ERST_LOAD_VAR2, 1},
                                                 {EFI_ACPI_6_3_ERST_ADD},
                                                 {EFI_ACPI_6_3_ERST_STORE_VAR1, 0},
                                                 {EFI_ACPI_6_3_ERST_SKIP_NEXT_INSTRUCTION_IF_TRUE, 0, 0},
                                                 {EFI_ACPI_6_3_ERST_GOTO, kNoReg, 0},
                                                 {WRV, 2, 0xD0}});
  ErstInterpreter              Interpreter (Entries);

  Interpreter.Run (kAction);

  EXPECT_EQ (0u, Reg (0));
  EXPECT_EQ (0u, Interpreter.Variables ().Var1);
  EXPECT_EQ (1u, Interpreter.Variables ().Var2);
  EXPECT_EQ (0xD0u, Reg (2));
  EXPECT_EQ (0xD0u, Interpreter.Output ());
}

TEST_F (ErstInterpreterTest, MoveDataCopiesBetweenTheBasesAtTheRegisterOffset) {
  const UINT64 Source = Host::AllocateReserved (16, 8);
  const UINT64 Target = Host::AllocateReserved (16, 8);
  std::memcpy (Host::At<void> (Source), "0123456789ABCDEF", 16);
  std::memset (Host::At<void> (Target), '.', 16);
  Reg (0)                              = Source;
  Reg (1)                              = Target;
  Reg (2)                              = 4; // offset
  Reg (3)                              = 6; // length
  const std::vector<ErstEntry> Entries = Build ({{EFI_ACPI_6_3_ERST_SET_SRC_ADDRESS_BASE, 0},
                                                 {EFI_ACPI_6_3_ERST_SET_DST_ADDRESS_BASE, 1},
                                                 {EFI_ACPI_6_3_ERST_LOAD_VAR2, 3},
                                                 {EFI_ACPI_6_3_ERST_MOVE_DATA, 2}});
  ErstInterpreter              Interpreter (Entries);

  Interpreter.Run (kAction);

  EXPECT_EQ ("....456789......", std::string (Host::At<char> (Target), 16));
}

TEST_F (ErstInterpreterTest, ActionsThatCannotCompleteAreErrors) {
  const std::vector<ErstEntry> Loop = Build ({{EFI_ACPI_6_3_ERST_GOTO}});
  const std::vector<ErstEntry> Stall =
      Build ({{EFI_ACPI_6_3_ERST_LOAD_VAR1, 1}, {EFI_ACPI_6_3_ERST_STALL_WHILE_TRUE, 0}});
  Reg (1) = 80; // microseconds per poll, cut to the cap
  ErstInterpreter Looping (Loop);
  ErstInterpreter Stalling (Stall);

  const auto Message = [] (ErstInterpreter &Interpreter) -> std::string {
    try {
      Interpreter.Run (kAction);
    } catch (const Sim::ErstExecutionError &Error) {
      return Error.what ();
    }
    return "completed";
  };
  EXPECT_EQ (Message (Looping),
             "GET_RECORD_COUNT ran 10000 instructions without finishing: Linux has no limit and would loop for ever");
  EXPECT_EQ (Message (Stalling), "STALL_WHILE_TRUE of GET_RECORD_COUNT still true after 1000 us: Linux fails the "
                                 "action with -EIO (\"Firmware does not respond in time.\")");
  EXPECT_EQ (ErstInterpreter::kStallWhileTrueMicroseconds, Stalling.StalledMicroseconds ());
  EXPECT_THROW (Looping.Run (EFI_ACPI_6_3_ERST_END_OPERATION), Sim::ErstExecutionError);
  EXPECT_NO_THROW (Looping.RunOptional (EFI_ACPI_6_3_ERST_END_OPERATION));
}

//
// Table checks: each case spoils the default ERST one way.
//
struct TableCase {
  const char                       *Name;
  std::function<void (UINT64 Erst)> Spoil;
  const char                       *Message;
};

ErstEntry &EntryOf (UINT64 Erst, UINT32 Index) {
  return Host::At<ErstEntry> (Erst + ErstDriver::kHeaderSize)[Index];
}

EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER &TableOf (UINT64 Erst) {
  return *Host::At<EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER> (Erst);
}

class ErstTableCheckTest : public MachineTest, public ::testing::WithParamInterface<TableCase> {
protected:
  void SetUp () override {
    MachineTest::SetUp ();
    std::vector<Sim::ErstRegisterPlacement> Placements;
    mErst                                      = Sim::BuildDefaultErst (Placements);
    mErrorLog                                  = Host::AllocateReserved (0x100, 8);
    *Host::At<UINT64> (Placements[13].Address) = mErrorLog;
    *Host::At<UINT64> (Placements[14].Address) = 0x100;
  }

  UINT64 mErst     = 0;
  UINT64 mErrorLog = 0;
};

TEST_P (ErstTableCheckTest, RefusesWhatAnOsRefuses) {
  GetParam ().Spoil (mErst);

  try {
    ErstDriver Os (mErst);
    FAIL () << "table taken";
  } catch (const Sim::AcpiTableError &Error) {
    EXPECT_STREQ (GetParam ().Message, Error.what ());
  }
}

INSTANTIATE_TEST_SUITE_P (
    Refusals,
    ErstTableCheckTest,
    ::testing::Values (
        TableCase{
            "Signature",
            [] (UINT64 Erst) { TableOf (Erst).Header.Signature = EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE; },
            "ERST refused: signature 'HEST' is not 'ERST'"},
        TableCase{"SerializationHeaderSize", [] (UINT64 Erst) { TableOf (Erst).SerializationHeaderSize = 36; },
                  "ERST refused: serialization header size 36 is neither 12 nor 48"},
        TableCase{"EntryCount", [] (UINT64 Erst) { TableOf (Erst).InstructionEntryCount = 17; },
                  "ERST refused: 17 instruction entries, but its length 560 leaves room for 16"},
        TableCase{"AddressSpace", [] (UINT64 Erst) { EntryOf (Erst, 6).RegisterRegion.AddressSpaceId = 2; },
                  "ERST entry 6 (CHECK_BUSY_STATUS, READ_REGISTER_VALUE): address space 2 is neither system memory "
                  "(0) nor system I/O (1)"},
        TableCase{"BitWidthBeyondAccess", [] (UINT64 Erst) { EntryOf (Erst, 9).RegisterRegion.RegisterBitOffset = 8; },
                  "ERST entry 9 (SET_RECORD_IDENTIFIER, WRITE_REGISTER): bit offset 8 + bit width 64 do not fit a "
                  "64-bit access"},
        TableCase{"RegisterInSmram", [] (UINT64 Erst) { EntryOf (Erst, 10).RegisterRegion.Address = Host::kSmramBase; },
                  "ERST entry 10 (GET_RECORD_COUNT, READ_REGISTER): system memory register 0x20000000 lies outside the "
                  "memory the OS can map"},
        TableCase{"NoErrorLogRange", [] (UINT64 Erst) { EntryOf (Erst, 14).Instruction = EFI_ACPI_6_3_ERST_NOOP; },
                  "ERST refused: error-log address range 0x10800080 length 0x0 is not memory the OS can map"}),
    CaseName ());

//
// Whole operations: the module booted on the default platform and flash, the
// driver on the table the module patched.
//
class ErstDriverModuleTest : public ErstFixture {
protected:
  void SetUp () override {
    ErstFixture::SetUp ();
    Boot ();
  }

  void Boot () {
    const Sim::BootResult Booted = Sim::Boot (Sim::BootOptions ());
    ASSERT_EQ (EFI_SUCCESS, Booted.Status);
    mErst = Booted.Platform.Erst;
    mOs.emplace (mErst);
  }

  static std::vector<UINT8> Record (UINT64 RecordId, UINT32 Length = 0x100) {
    return CperRecord (RecordId, Length);
  }

  ErstDriver &Os () {
    return *mOs;
  }

  UINT64                    mErst = 0;
  std::optional<ErstDriver> mOs;
};

TEST_F (ErstDriverModuleTest, AnEmptyStoreAnswersEveryOperation) {
  EXPECT_EQ (reinterpret_cast<UINT64> (Region ()) + sizeof (VORN_ERST_PARAMETER_REGION), Os ().ErrorLog ().Base);
  EXPECT_EQ (0x1FA0u, Os ().ErrorLog ().Length);
  EXPECT_EQ (0u, Os ().RecordCount ());
  EXPECT_EQ (ErstDriver::kNoRecord, Os ().RecordId ());
  EXPECT_EQ (ErstResult::StoreEmpty, Os ().Read (1));
  EXPECT_EQ (ErstResult::StoreEmpty, Os ().Clear (1));
  const Sim::ErstListing Listing = Os ().List ();
  EXPECT_TRUE (Listing.Ids.empty ());
  EXPECT_EQ (Sim::ErstListEnd::NoMoreRecords, Listing.End);
}

TEST_F (ErstDriverModuleTest, WritesRaiseTheErstSmiAndLandOnFlash) {
  Host::ClearTrace ();

  EXPECT_EQ (ErstResult::Success, Os ().Write (Record (1)));

  const std::vector<Host::Access> Execute = {{Host::AccessKind::IoWrite, Host::kSmiCommandPort, 1, 0x9C}};
  EXPECT_EQ (Execute, Host::Trace (Host::AccessKind::IoWrite));
  EXPECT_EQ (ErstResult::Success, Os ().Write (Record (2, 0x180)));
  EXPECT_EQ (ErstResult::Success, Os ().Write (Record (3)));
  EXPECT_EQ ((std::vector<UINT64>{1, 2, 3}), StoredIds ());
  EXPECT_EQ (3u, Os ().RecordCount ());
  EXPECT_EQ (1u, Os ().RecordId ());
}

TEST_F (ErstDriverModuleTest, ListReadsEachRecordToMoveOnAndStopsWherePstoreStops) {
  for (UINT64 Id : {0x11, 0x22, 0x33}) {
    ASSERT_EQ (ErstResult::Success, Os ().Write (Record (Id)));
  }

  // The buffer still holds the last record written, so every read seems to
  // bring a whole record; none is pstore's own.
  const Sim::ErstListing All = Os ().List ();
  EXPECT_EQ ((std::vector<UINT64>{0x11, 0x22, 0x33}), All.Ids);
  EXPECT_EQ (Sim::ErstListEnd::NoMoreRecords, All.End);
  EXPECT_EQ (0u, All.Pstore);
  EXPECT_EQ (ErstDriver::kNoRecord, Os ().RecordId ());

  // After a boot the read leaves the zeroed buffer as it is: pstore takes
  // RecordLength 0 from it and stops (-EIO).
  Boot ();
  const Sim::ErstListing First = Os ().List ();
  EXPECT_EQ ((std::vector<UINT64>{0x11}), First.Ids);
  EXPECT_EQ (Sim::ErstListEnd::ShortRecord, First.End);
  EXPECT_EQ (0u, First.LastLength);
}

TEST_F (ErstDriverModuleTest, AnIdentifierWhoseReadSaysNotFoundIsSkipped) {
  for (UINT64 Id : {0x11, 0x22, 0x33}) {
    ASSERT_EQ (ErstResult::Success, Os ().Write (Record (Id)));
  }

  // Between GET_RECORD_ID and the read, 0x22's header stops naming it, as
  // when another reader clears it first.
  const UINT64 Second  = HeaderAt (Records ()).NextRecordHeaderAddress;
  const UINT64 Renamed = 0x99;
  const auto   Rename  = [&] (size_t Offered) {
    if (Offered == 2) {
      Host::Flash::Poke (Second + OFFSET_OF (ERST_ERROR_RECORD_HEADER, OsRecordID),
                            {reinterpret_cast<const UINT8 *> (&Renamed), sizeof (Renamed)});
    }
  };
  const Sim::ErstListing Listing = Os ().List (ErstDriver::kListLimit, Rename);
  EXPECT_EQ ((std::vector<UINT64>{0x11, 0x22}), Listing.Ids);
  EXPECT_EQ (1u, Listing.Skipped);
  // The failed read leaves the cursor at the first record, where Linux stops.
  EXPECT_EQ (Sim::ErstListEnd::Repeated, Listing.End);
}

TEST_F (ErstDriverModuleTest, AFullStoreAnswersNoSpace) {
  // Records as large as the error-log buffer: 16 fill the 32-block volume.
  const UINT32 Length = 0x1FA0;
  for (UINT64 Id = 1; Id <= 16; Id++) {
    ASSERT_EQ (ErstResult::Success, Os ().Write (Record (Id, Length))) << Id;
  }

  EXPECT_EQ (ErstResult::NoSpace, Os ().Write (Record (17, Length)));
  EXPECT_EQ (16u, Os ().RecordCount ());
  EXPECT_EQ (16u, StoredIds ().size ());
}

TEST_F (ErstDriverModuleTest, ABusyFlagThatNeverClearsTimesOut) {
  // CHECK_BUSY_STATUS now reads "busy" while BusyFlag is 0.
  EntryOf (mErst, EFI_ACPI_6_3_ERST_CHECK_BUSY_STATUS).Value = 0;

  EXPECT_EQ (ErstResult::TimedOut, Os ().DummyWrite ());
}

} // namespace
