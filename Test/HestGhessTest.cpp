/** @file
  HEST generic error source lookup: the walk over every structure type, the
  match rule, the status-address checks and the returned block.
**/
#include <gtest/gtest.h>

#include <TestAcpiTables.h>
#include <TestFormat.h>
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
  EFI_STATUS
  FindNmi (UINT64 Hest) {
    Gesb       = kUntouched;
    GesbLength = kUntouched;
    Host::ClearSerialOutput ();
    return VornApeiLoggingFindHestGhess (Host::At<VOID> (Hest), 9, 7, 0xFFFF, &Gesb, &GesbLength);
  }

  static std::string L (const std::string &Text) {
    return Line (0, "VornApeiLoggingFindHestGhess: " + Text);
  }

  static std::vector<std::string> Entry (UINT64 Hest, UINT16 Type, UINT16 SourceId) {
    const auto  *Header = Host::At<EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_HEADER> (Hest);
    const UINT32 Length = Header->Header.Length;
    return {L (Format ("On entry Type %u SourceId %u RelatedSourceId 0xFFFF", Type, SourceId)),
            L (Format ("HEST @ 0x%016llX Length 0x%08X (%u)", static_cast<unsigned long long> (Hest), Length, Length)),
            L (Format ("HEST Number of Error Sources %u", Header->ErrorSourceCount))};
  }

  static std::vector<std::string> MatchLines (UINT32 Index, UINT64 Ghess, UINT64 Register, UINT64 Block) {
    return {L (Format ("Matching error source %u found, returning...", Index)),
            L (Format ("GHESS @ 0x%016llX GAS @ 0x%016llX AddrSpaceId 0 RegBitWidth 64 RegBitOffset 0 AccessSize 4 "
                       "Address 0x%016llX",
                       static_cast<unsigned long long> (Ghess), static_cast<unsigned long long> (Ghess + 20),
                       static_cast<unsigned long long> (Register))),
            L (Format ("GHESS GAS Address 0x%016llX => GAR Register = 0x%016llX (Error Status Data Block GESB Address)",
                       static_cast<unsigned long long> (Register), static_cast<unsigned long long> (Block)))};
  }

  static UINT64 RegisterOf (UINT64 Ghess) {
    return Host::At<EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE> (Ghess)->ErrorStatusAddress.Address;
  }

  UINT64 Gesb       = 0;
  UINT64 GesbLength = 0;
};

std::vector<std::string> Concat (std::vector<std::string> First, const std::vector<std::string> &Second) {
  First.insert (First.end (), Second.begin (), Second.end ());
  return First;
}

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

void PrintTo (const StepCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class HestStepTest : public HestGhessTest, public ::testing::WithParamInterface<StepCase> {};

TEST_P (HestStepTest, WalkStepsOverStructureToTheGhess) {
  const StepCase &Case    = GetParam ();
  Bytes           Leading = AcpiTables::ErrorSource (Case.Type, Case.Size);
  if (Case.Patch8) {
    AcpiTables::Patch8 (Leading, Case.PatchOffset, static_cast<UINT8> (Case.PatchValue));
  } else if (Case.PatchOffset != 0) {
    AcpiTables::Patch32 (Leading, Case.PatchOffset, Case.PatchValue);
  }

  UINT64       Block;
  const UINT64 Hest  = AcpiTables::InstallHest ({Leading, NmiGhess (&Block)});
  const UINT64 Ghess = Hest + 40 + Case.Size;

  ASSERT_EQ (FindNmi (Hest), EFI_SUCCESS);
  EXPECT_EQ (Gesb, Block);
  EXPECT_EQ (GesbLength, 0x1100u);
  EXPECT_EQ (SerialLines (), Concat (Entry (Hest, 9, 7), MatchLines (1, Ghess, RegisterOf (Ghess), Block)));
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
                          [] (const auto &Info) { return std::string (Info.param.Name); });

TEST_F (HestGhessTest, OtherGhessAndWrongRelatedIdAreSkipped) {
  UINT64      Block;
  const Bytes Sci = AcpiTables::GhessBytes ({.SourceId = 8, .ErrorStatusAddress = 0x1234});
  const Bytes RelatedSet =
      AcpiTables::GhessBytes ({.SourceId = 7, .RelatedSourceId = 0x0001, .ErrorStatusAddress = 0x1234});
  const UINT64 Hest  = AcpiTables::InstallHest ({Sci, RelatedSet, NmiGhess (&Block, 0x800, 0x40)});
  const UINT64 Ghess = Hest + 40 + 2 * 64;

  ASSERT_EQ (FindNmi (Hest), EFI_SUCCESS);
  EXPECT_EQ (Gesb, Block);
  EXPECT_EQ (GesbLength, 0x840u);
  EXPECT_EQ (SerialLines (), Concat (Entry (Hest, 9, 7), MatchLines (2, Ghess, RegisterOf (Ghess), Block)));
}

TEST_F (HestGhessTest, UnrecognisedTypeRepeatsForEveryRemainingIteration) {
  UINT64       Block;
  const UINT64 Hest = AcpiTables::InstallHest ({AcpiTables::ErrorSource (3, 24), NmiGhess (&Block), NmiGhess (&Block)});

  ASSERT_EQ (FindNmi (Hest), EFI_NOT_FOUND);
  EXPECT_EQ (Gesb, kUntouched);
  EXPECT_EQ (GesbLength, kUntouched);
  const std::string Unrecognised = L ("ERROR Unrecognized error source 3, aborting...");
  EXPECT_EQ (SerialLines (), Concat (Entry (Hest, 9, 7), {Unrecognised, Unrecognised, Unrecognised}));
}

TEST_F (HestGhessTest, NoMatchReturnsNotFoundQuietly) {
  const UINT64 Hest = AcpiTables::InstallHest ({AcpiTables::GhessBytes ({.SourceId = 8, .ErrorStatusAddress = 0x10})});
  ASSERT_EQ (FindNmi (Hest), EFI_NOT_FOUND);
  EXPECT_EQ (Gesb, kUntouched);
  EXPECT_EQ (SerialLines (), Entry (Hest, 9, 7));
}

TEST_F (HestGhessTest, CountBeyondStructuresStopsOncePastTheEnd) {
  //
  // After the one GHESS the cursor sits exactly at the end and is still
  // read: zeroed memory there is a type-0 source with no banks, a 40-byte
  // step that leaves the table.
  //
  const Bytes  Sci  = AcpiTables::GhessBytes ({.SourceId = 8, .ErrorStatusAddress = 0x10});
  const UINT64 Hest = AcpiTables::InstallHest ({Sci}, 5);
  ASSERT_EQ (FindNmi (Hest), EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ (Gesb, kUntouched);
  EXPECT_EQ (GesbLength, kUntouched);
  EXPECT_EQ (SerialLines (), Concat (Entry (Hest, 9, 7), {L ("ERROR Exceeded table length")}));
}

TEST_F (HestGhessTest, ZeroGasAddressIsCompromisedWithoutSearchingOn) {
  UINT64       Block;
  const Bytes  NoRegister = AcpiTables::GhessBytes ({.SourceId = 7, .ErrorStatusAddress = 0});
  const UINT64 Hest       = AcpiTables::InstallHest ({NoRegister, NmiGhess (&Block)});
  const UINT64 Ghess      = Hest + 40;

  ASSERT_EQ (FindNmi (Hest), EFI_COMPROMISED_DATA);
  EXPECT_EQ (Gesb, kUntouched);
  EXPECT_EQ (GesbLength, kUntouched);
  EXPECT_EQ (
      SerialLines (),
      Concat (Entry (Hest, 9, 7),
              {L ("Matching error source 0 found, returning..."),
               L (Format ("GHESS @ 0x%016llX GAS @ 0x%016llX AddrSpaceId 0 RegBitWidth 64 RegBitOffset 0 "
                          "AccessSize 4 Address 0x0000000000000000",
                          static_cast<unsigned long long> (Ghess), static_cast<unsigned long long> (Ghess + 20))),
               L ("GHESS GAS Address is zero value, no Generic Address Register available, aborting...")}));
}

TEST_F (HestGhessTest, ZeroRegisterIsCompromised) {
  const UINT64 Register = AcpiTables::InstallStatusRegister (0);
  const UINT64 Hest =
      AcpiTables::InstallHest ({AcpiTables::GhessBytes ({.SourceId = 7, .ErrorStatusAddress = Register})});
  const UINT64 Ghess = Hest + 40;

  ASSERT_EQ (FindNmi (Hest), EFI_COMPROMISED_DATA);
  EXPECT_EQ (Gesb, kUntouched);
  EXPECT_EQ (GesbLength, kUntouched);
  EXPECT_EQ (SerialLines (),
             Concat (Entry (Hest, 9, 7),
                     Concat (MatchLines (0, Ghess, Register, 0),
                             {L ("GHESS GAR is NULL, unable to find Error Status Data Block, aborting...")})));
}

TEST_F (HestGhessTest, LengthSumWrapsAt32Bits) {
  UINT64       Block;
  const UINT64 Hest = AcpiTables::InstallHest ({NmiGhess (&Block, 0xFFFFFF00, 0x200)});
  ASSERT_EQ (FindNmi (Hest), EFI_SUCCESS);
  EXPECT_EQ (GesbLength, 0x100u);
}

TEST_F (HestGhessTest, TypeAndGasFieldsArePrintedButRegisterIsAlwaysReadAsMemory) {
  const UINT64 Block    = AcpiTables::AllocateStatusBlock (0x1000);
  const UINT64 Register = AcpiTables::InstallStatusRegister (Block);
  const UINT64 Hest     = AcpiTables::InstallHest ({AcpiTables::GhessBytes ({.SourceId           = 7,
                                                                             .ErrorStatusAddress = Register,
                                                                             .AddressSpaceId     = 1,
                                                                             .RegisterBitWidth   = 32,
                                                                             .RegisterBitOffset  = 8,
                                                                             .AccessSize         = 3})});

  //
  // The Type argument is only printed: type 2 still finds the type-9 source.
  //
  Host::ClearSerialOutput ();
  ASSERT_EQ (VornApeiLoggingFindHestGhess (Host::At<VOID> (Hest), 2, 7, 0xFFFF, &Gesb, &GesbLength), EFI_SUCCESS);
  EXPECT_EQ (Gesb, Block);
  EXPECT_EQ (SerialLines ()[0], L ("On entry Type 2 SourceId 7 RelatedSourceId 0xFFFF"));
  EXPECT_EQ (SerialLines ()[4],
             L (Format ("GHESS @ 0x%016llX GAS @ 0x%016llX AddrSpaceId 1 RegBitWidth 32 RegBitOffset 8 AccessSize 3 "
                        "Address 0x%016llX",
                        static_cast<unsigned long long> (Hest + 40), static_cast<unsigned long long> (Hest + 60),
                        static_cast<unsigned long long> (Register))));
}

//
// Through an errors-only platform filter each failing walk shows its failure
// lines and nothing else: they are error lines, the trace is info.
//
class HestGhessErrorLevelTest : public HestGhessTest {
protected:
  Host::MachineConfig MachineConfiguration () const override {
    Host::MachineConfig Config;
    Config.DebugPrintErrorLevel = 0x80000000;
    return Config;
  }
};

TEST_F (HestGhessErrorLevelTest, OnlyFailureLinesPassAnErrorsOnlyFilter) {
  UINT64       Block;
  const UINT64 Unrecognised = AcpiTables::InstallHest ({AcpiTables::ErrorSource (4, 24), NmiGhess (&Block)});
  const UINT64 NoGas        = AcpiTables::InstallHest ({AcpiTables::GhessBytes ({.SourceId = 7})});
  const UINT64 NoGar        = AcpiTables::InstallHest (
             {AcpiTables::GhessBytes ({.SourceId = 7, .ErrorStatusAddress = AcpiTables::InstallStatusRegister (0)})});
  // Last, so that the zeroed memory behind it is what the walk runs into.
  const UINT64 Past = AcpiTables::InstallHest ({AcpiTables::GhessBytes ({.SourceId = 8})}, 5);
  const struct {
    UINT64                   Hest;
    EFI_STATUS               Status;
    std::vector<std::string> Lines;
  } Cases[] = {
      {Past, EFI_BUFFER_TOO_SMALL, {L ("ERROR Exceeded table length")}},
      {Unrecognised,
       EFI_NOT_FOUND,
       {L ("ERROR Unrecognized error source 4, aborting..."), L ("ERROR Unrecognized error source 4, aborting...")}},
      {NoGas,
       EFI_COMPROMISED_DATA,
       {L ("GHESS GAS Address is zero value, no Generic Address Register available, aborting...")}},
      {NoGar, EFI_COMPROMISED_DATA, {L ("GHESS GAR is NULL, unable to find Error Status Data Block, aborting...")}},
  };

  for (const auto &Case : Cases) {
    EXPECT_EQ (FindNmi (Case.Hest), Case.Status);
    EXPECT_EQ (SerialLines (), Case.Lines);
  }
}

TEST_F (HestGhessTest, NullArgumentsAreRejectedInOrder) {
  UINT64       Block;
  const UINT64 Hest = AcpiTables::InstallHest ({NmiGhess (&Block)});

  EXPECT_EQ (VornApeiLoggingFindHestGhess (nullptr, 9, 7, 0xFFFF, &Gesb, nullptr), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingFindHestGhess (Host::At<VOID> (Hest), 9, 7, 0xFFFF, &Gesb, nullptr), EFI_INVALID_PARAMETER);
  EXPECT_EQ (SerialLines (), (std::vector<std::string>{L ("ERROR pHestAddress is null on entry, aborting..."),
                                                       L ("ERROR pGesbLength is null on entry, aborting...")}));
}

} // namespace
