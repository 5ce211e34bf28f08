/** @file
  HEST generic error source lookup: the walk over every structure type and
  its end, the match rule, the status-address checks and the returned block.
**/
#include <gtest/gtest.h>

#include <ParamName.h>
#include <TestAcpiTables.h>
#include <TestMachine.h>

#include <IndustryStandard/Acpi.h>
#include <Library/DebugLib.h>
#include <VornApeiLoggingSmm.h>

namespace {

using AcpiTables::Bytes;

constexpr UINT64 kUntouched = 0x5A5A5A5A5A5A5A5AULL;

class HestGhessTest : public MachineTest {
protected:
  void SetUp () override {
    MachineTest::SetUp ();
    mPrivateDataVornApeiLogging.SerDbgLevelConstructor = DEBUG_INFO;
  }

  //
  // A GHESS for Source Id 7 whose register points at a fresh block.
  //
  static Bytes NmiGhess (UINT64 *Block, UINT32 BlockLength = 0x1000, UINT32 MaxRaw = 0x100) {
    *Block = AcpiTables::AllocateStatusBlock (0x2000);
    return AcpiTables::GhessBytes ({.SourceId               = 7,
                                    .MaxRawDataLength       = MaxRaw,
                                    .ErrorStatusBlockLength = BlockLength,
                                    .ErrorStatusAddress     = AcpiTables::InstallStatusRegister (*Block)});
  }

  //
  // Looks up Source Id 7 / Related 0xFFFF; the outputs start as a marker.
  //
  EFI_STATUS FindNmi (UINT64 Hest, UINT16 Type = 9) {
    Gesb       = kUntouched;
    GesbLength = kUntouched;
    Host::ClearSerialOutput ();
    return VornApeiLoggingFindHestGhess (Host::At<VOID> (Hest), Type, 7, 0xFFFF, &Gesb, &GesbLength);
  }

  static size_t Logged (const std::string &Text) {
    const auto Lines = SerialLines ();
    return static_cast<size_t> (
        std::count (Lines.begin (), Lines.end (), Line (0, "VornApeiLoggingFindHestGhess: " + Text)));
  }

  UINT64 Gesb       = 0;
  UINT64 GesbLength = 0;
};

//
// Each known structure type the walk steps over, ahead of the wanted GHESS,
// built so that the GHESS sits exactly one step later.
//
struct StepCase {
  const char *Name;
  UINT16      Type;
  std::size_t Size;
  std::size_t PatchOffset;
  UINT32      PatchValue;
  bool        Patch8;
};

class HestStepTest : public HestGhessTest, public ::testing::WithParamInterface<StepCase> {};

TEST_P (HestStepTest, WalkStepsOverTheStructureToTheGhess) {
  const StepCase &Case    = GetParam ();
  Bytes           Leading = AcpiTables::ErrorSource (Case.Type, Case.Size);
  if (Case.Patch8) {
    AcpiTables::Patch8 (Leading, Case.PatchOffset, static_cast<UINT8> (Case.PatchValue));
  } else if (Case.PatchOffset != 0) {
    AcpiTables::Patch32 (Leading, Case.PatchOffset, Case.PatchValue);
  }

  UINT64 Block;
  ASSERT_EQ (FindNmi (AcpiTables::InstallHest ({Leading, NmiGhess (&Block)})), EFI_SUCCESS);
  EXPECT_EQ (Gesb, Block);
  EXPECT_EQ (GesbLength, 0x1100u);
  EXPECT_EQ (Logged ("Matching error source 1 found, returning..."), 1u);
}

INSTANTIATE_TEST_SUITE_P (KnownTypes,
                          HestStepTest,
                          ::testing::Values (StepCase{"MceTwoBanks", 0, 40 + 2 * 28, 32, 2, true},
                                             StepCase{"CmcThreeBanks", 1, 48 + 3 * 28, 44, 3, true},
                                             // 18 plus the UINT32 at offset 14: a 20-byte structure needs 2 there.
                                             StepCase{"NmiStepFromOffset14", 2, 20, 14, 2, false},
                                             StepCase{"NmiLongStep", 2, 18 + 0x30, 14, 0x30, false},
                                             StepCase{"RootPortAer", 6, 48, 0, 0, false},
                                             StepCase{"DeviceAer", 7, 44, 0, 0, false},
                                             StepCase{"BridgeAer", 8, 56, 0, 0, false}),
                          CaseName ());

TEST_F (HestGhessTest, MatchNeedsTypeNineSourceAndRelatedId) {
  UINT64      Block;
  const Bytes Sci = AcpiTables::GhessBytes ({.SourceId = 8, .ErrorStatusAddress = 0x1234});
  const Bytes RelatedSet =
      AcpiTables::GhessBytes ({.SourceId = 7, .RelatedSourceId = 0x0001, .ErrorStatusAddress = 0x1234});
  const UINT64 Hest = AcpiTables::InstallHest ({Sci, RelatedSet, NmiGhess (&Block, 0x800, 0x40)});
  ASSERT_EQ (FindNmi (Hest), EFI_SUCCESS);
  EXPECT_EQ (Gesb, Block);
  EXPECT_EQ (GesbLength, 0x840u);

  // The Type argument is only printed: type 2 still finds the type-9 source.
  ASSERT_EQ (FindNmi (Hest, 2), EFI_SUCCESS);
  EXPECT_EQ (Gesb, Block);

  ASSERT_EQ (FindNmi (AcpiTables::InstallHest ({Sci})), EFI_NOT_FOUND);
  EXPECT_EQ (Gesb, kUntouched);
}

//
// An unrecognised structure stops the cursor: every remaining iteration
// meets it again, so nothing behind it is ever found.
//
TEST_F (HestGhessTest, UnrecognisedTypeRepeatsForEveryRemainingIteration) {
  UINT64       Block;
  const UINT64 Hest = AcpiTables::InstallHest ({AcpiTables::ErrorSource (3, 24), NmiGhess (&Block), NmiGhess (&Block)});
  ASSERT_EQ (FindNmi (Hest), EFI_NOT_FOUND);
  EXPECT_EQ (Gesb, kUntouched);
  EXPECT_EQ (GesbLength, kUntouched);
  EXPECT_EQ (Logged ("ERROR Unrecognized error source 3, aborting..."), 3u);
}

//
// The walk's end: a structure that starts exactly at the table's end is
// still read; one step past it, the walk stops.
//
TEST_F (HestGhessTest, AStructureAtTheTableEndIsReadAndOnePastIsNot) {
  UINT64       Block;
  const UINT64 Hest = AcpiTables::InstallHest ({AcpiTables::GhessBytes ({.SourceId = 8}), NmiGhess (&Block)});
  Host::At<EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_HEADER> (Hest)->Header.Length = 40 + 64;
  ASSERT_EQ (FindNmi (Hest), EFI_SUCCESS);
  EXPECT_EQ (Gesb, Block);

  // After the one GHESS the cursor sits at the end: zeroed memory there is a
  // type-0 source with no banks, a 40-byte step that leaves the table.
  ASSERT_EQ (FindNmi (AcpiTables::InstallHest ({AcpiTables::GhessBytes ({.SourceId = 8})}, 5)), EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ (Gesb, kUntouched);
  EXPECT_EQ (Logged ("ERROR Exceeded table length"), 1u);
}

TEST_F (HestGhessTest, UnusableStatusAddressIsCompromised) {
  // A zero GAS address ends the lookup without searching on.
  UINT64       Block;
  const UINT64 NoGas = AcpiTables::InstallHest ({AcpiTables::GhessBytes ({.SourceId = 7}), NmiGhess (&Block)});
  EXPECT_EQ (FindNmi (NoGas), EFI_COMPROMISED_DATA);
  EXPECT_EQ (Gesb, kUntouched);

  const UINT64 NoBlock = AcpiTables::InstallHest (
      {AcpiTables::GhessBytes ({.SourceId = 7, .ErrorStatusAddress = AcpiTables::InstallStatusRegister (0)})});
  EXPECT_EQ (FindNmi (NoBlock), EFI_COMPROMISED_DATA);
  EXPECT_EQ (Gesb, kUntouched);
  EXPECT_EQ (GesbLength, kUntouched);

  // The register is read as memory whatever the GAS says; the lengths add in 32 bits.
  const UINT64 Odd = AcpiTables::InstallHest (
      {AcpiTables::GhessBytes ({.SourceId               = 7,
                                .MaxRawDataLength       = 0x200,
                                .ErrorStatusBlockLength = 0xFFFFFF00,
                                .ErrorStatusAddress     = AcpiTables::InstallStatusRegister (Block),
                                .AddressSpaceId         = 1,
                                .RegisterBitWidth       = 32,
                                .RegisterBitOffset      = 8,
                                .AccessSize             = 3})});
  ASSERT_EQ (FindNmi (Odd), EFI_SUCCESS);
  EXPECT_EQ (Gesb, Block);
  EXPECT_EQ (GesbLength, 0x100u);
}

TEST_F (HestGhessTest, NullArgumentsAreRejectedInOrder) {
  UINT64       Block;
  const UINT64 Hest = AcpiTables::InstallHest ({NmiGhess (&Block)});
  EXPECT_EQ (VornApeiLoggingFindHestGhess (nullptr, 9, 7, 0xFFFF, &Gesb, nullptr), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingFindHestGhess (Host::At<VOID> (Hest), 9, 7, 0xFFFF, &Gesb, nullptr), EFI_INVALID_PARAMETER);
  EXPECT_EQ (SerialLines ().size (), 2u);
}

} // namespace
