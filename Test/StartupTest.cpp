/** @file
  Start-up through the image entry: the whole log of a healthy start, the
  failures that stop it, the ones it survives, and the private data left
  behind.
**/
#include <algorithm>
#include <iterator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <TestAcpiTables.h>
#include <TestFormat.h>
#include <TestMachine.h>

#include <IndustryStandard/Acpi.h>
#include <Library/ElogBaseLib.h>
#include <Library/SmmServicesTableLib.h>
#include <Library/VornMultiThreadedDebugLib.h>
#include <Library/UefiBootServicesTableLib.h>
#include <ModuleEntryPoint.h>
#include "Builder/ModuleImage.h"
#include <Protocol/SmmBase2.h>
#include <VornApeiLoggingSmm.h>

namespace {

using ::testing::MatchesRegex;

const std::string kEntry = "VornApeiLoggingSmmConstructor: ";

std::string Hex16 (UINT64 Value) {
  return Format ("0x%016llX", static_cast<unsigned long long> (Value));
}

std::string Hex (UINT64 Value) {
  return Format ("0x%llX", static_cast<unsigned long long> (Value));
}

//
// The lines of one function, in order, out of a whole log.
//
std::vector<std::string> LinesOf (const std::vector<std::string> &Log, const std::string &Function) {
  std::vector<std::string> Out;
  for (const auto &Text : Log) {
    if (Text.find ("> " + Function + ": ") != std::string::npos) {
      Out.push_back (Text);
    }
  }

  return Out;
}

//
// Start-up's own lines from the HEST search through the SW dispatch lookup.
//
std::vector<std::string> TableAndDispatchLines (const std::vector<std::string> &Log) {
  const std::vector<std::string> Entry = LinesOf (Log, "VornApeiLoggingSmmConstructor");
  auto                           First = std::find_if (Entry.begin (), Entry.end (), [] (const std::string &Text) {
    return Text.ends_with ("Retrieving ACPI HEST GHESS Error Status Data Block addresses");
  });
  auto                           Last  = std::find_if (First, Entry.end (), [] (const std::string &Text) {
    return Text.find ("Locating protocol gEfiSmmSwDispatch2ProtocolGuid") != std::string::npos;
  });
  return std::vector<std::string> (First, Last == Entry.end () ? Last : Last + 1);
}

class StartupTest : public MachineTest {
protected:
  static EFI_STATUS Start () {
    Host::ClearSerialOutput ();
    return _ModuleEntryPoint (Host::ImageHandle (), Host::SystemTable ());
  }

  static std::string E (const std::string &Text) {
    return Line (0, kEntry + Text);
  }

  static UINT64 Register (const AcpiTables::ApeiTables &Tables, UINTN Index) {
    return Host::At<EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE> (Tables.Hest + 40 + 64 * Index)
        ->ErrorStatusAddress.Address;
  }

  //
  // Start-up's own lines from the HEST search on, for a HEST with the
  // given sources found by the XSDT pass, up to the SW dispatch lookup.
  //
  static std::vector<std::string> BlockLines (const char *Source, const char *Field, UINT64 Address, UINT64 Length) {
    return {E (Format ("Find GHESS (%s) Error Status Data Block address", Source)),
            E (Format ("mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlk%s      = %s", Field,
                       Hex16 (Address).c_str ())),
            E (Format ("mPrivateDataVornApeiLogging.ApeiHestGhessErrStsDataBlkLength%s = %s", Field,
                       Hex16 (Length).c_str ()))};
  }
};

TEST_F (StartupTest, HealthyStartLogsEveryStageAndFillsPrivateData) {
  const AcpiTables::ApeiTables Tables = AcpiTables::InstallApeiTables ();
  ASSERT_EQ (Start (), EFI_SUCCESS);
  EXPECT_EQ (mDriverEntryPointStatus, EFI_SUCCESS);
  EXPECT_EQ (Host::BreakpointCount (), 0u);

  const std::string        Locate   = "VornApeiLoggingAcpiLocateTable: ";
  const std::string        Find     = "VornApeiLoggingFindHestGhess: ";
  std::vector<std::string> Expected = {
      "VornElogBaseLibConstructor: InSmm 1 SerDbgLevelConstructor 0x0000000000000040",
      "VornElogBaseLibConstructor: InSmm 1 SerDbgLevel            0x0000000000000040",
      "VornElogBaseLibConstructor: InSmm 1 SerDbgLevelDetailed    0x0000000000000040",
      "VornElogDisplayPciSegmentInfo: PCI_SEGMENT_INFO entry 0 => SegmentNumber 0x0000 Base Address 0x0000000060000000 "
      "StartBusNumber 0x00 EndBusNumber 0xFF",
      "VornElogGetRasMemEccLoggingMode: Retrieving NVRAM attribute value for INTERNAL_CORERR_THRESHOLD_ATTR_NAME "
      "'CorErrLoggingThreshold'",
      "VornElogGetRasMemEccLoggingMode: ERROR Not Found retrieving NVRAM attribute value for "
      "INTERNAL_CORERR_THRESHOLD_ATTR_NAME 's', default to RasMemEccThresholdMode",
      "VornElogBaseLibConstructor: MemEccLoggingMode 0 (threshold=0, diagnostic=1)",
      "VornElogBaseLibConstructor: Locating protocol gVornManufacturingModeProtocolGuid",
      "VornElogBaseLibConstructor: Manufacturing mode disabled",
      "VornElogBaseLibConstructor: ManufacturingDiagsEnabled 0",
      "VornGetRasErrorLoggingMode: mPrivateDataVornElogBase ManufacturingDiagsEnabled 0 MfgModeType 0",
      "VornGetRasErrorLoggingMode: mPrivateDataVornElogBase.MemEccLoggingMode 0 (RasMemEccThresholdMode = 0 "
      "RasMemEccDiagnosticMode = 1)",
      "VornGetRasErrorLoggingMode: Exiting => ErrorLoggingMode 0 (RasProductionMode = 0 RasDiagnosticMode = 1)",
      kEntry + "mPrivateDataVornApeiLogging.RasErrorLoggingMode 0",
      kEntry + "mPrivateDataVornApeiLogging.DebugOutputExtensive 0",
      kEntry + "Determine if we are in SMM",
      kEntry + "Locating protocol gEfiSmmBase2ProtocolGuid F4CCBFB7-F6E0-47FD-9DD4-10A8F150C191",
      kEntry + "InSmm 1 mPrivateDataVornApeiLogging.pSmst @ " + Hex16 (reinterpret_cast<UINTN> (Host::Smst ())),
      kEntry + "Retrieving ACPI HEST GHESS Error Status Data Block addresses",
      Locate + "Searching ACPI tables for entry signature = 0x54534548 (HEST)",
      Locate + "Retrieved RSD PTR Revision 2 (RSDT & XSDT)",
      Locate + "RSDT at " + Hex (Tables.Rsdt),
      Locate + "XSDT at " + Hex (Tables.Xsdt),
      Locate + "XSDT length = 0x34 (52)",
      Locate + "Size table header = 0x24 (36)",
      Locate + "XSDT NumberTableEntries = 0x2 (2)",
      Locate + "Scanning XSDT for requested table signature",
      Locate + "XSDT Entry @ " + Hex (Tables.Xsdt + 36) + " = " + Hex (Tables.Entries[0]) + ", Deferenced Table @ " +
          Hex (Tables.Entries[0]),
      Locate + "XSDT Table Index 0 => Table Signature 0x50434146 (FACP)",
      Locate + "XSDT Entry @ " + Hex (Tables.Xsdt + 44) + " = " + Hex (Tables.Hest) + ", Deferenced Table @ " +
          Hex (Tables.Hest),
      Locate + "XSDT Table Index 1 => Table Signature 0x54534548 (HEST)",
      Locate + "Requested signature found, returning address " + Hex (Tables.Hest) + " to caller",
      kEntry + "HEST @ " + Hex16 (Tables.Hest),
  };

  struct {
    const char *Source;
    const char *Field;
    unsigned    SourceId;
    UINT64      Block;
    UINT64      Length;
  } const Sources[] = {
      {"NMI notification", "Nmi", 7, Tables.NmiBlock, 0x1000},
      {"SCI notification", "Sci", 8, Tables.SciBlock, 0x2000},
      {"SCI notification - VMWare memory page retire", "SciVmwareMemPageRetire", 0xFFFE, Tables.VmwareBlock, 0x800},
  };
  for (UINTN Index = 0; Index < 3; Index++) {
    const auto                    &Source = Sources[Index];
    const UINT64                   Ghess  = Tables.Hest + 40 + 64 * Index;
    const std::vector<std::string> Block  = BlockLines (Source.Source, Source.Field, Source.Block, Source.Length);
    Expected.push_back (Block[0].substr (CpuPrefix (0).size ()));
    Expected.push_back (Find + Format ("On entry Type 9 SourceId %u RelatedSourceId 0xFFFF", Source.SourceId));
    Expected.push_back (Find + "HEST @ " + Hex16 (Tables.Hest) + " Length 0x000000E8 (232)");
    Expected.push_back (Find + "HEST Number of Error Sources 3");
    Expected.push_back (Find + Format ("Matching error source %u found, returning...", static_cast<unsigned> (Index)));
    Expected.push_back (Find + "GHESS @ " + Hex16 (Ghess) + " GAS @ " + Hex16 (Ghess + 20) +
                        " AddrSpaceId 0 RegBitWidth 64 RegBitOffset 0 AccessSize 4 Address " +
                        Hex16 (Register (Tables, Index)));
    Expected.push_back (Find + "GHESS GAS Address " + Hex16 (Register (Tables, Index)) +
                        " => GAR Register = " + Hex16 (Source.Block) + " (Error Status Data Block GESB Address)");
    Expected.push_back (Block[1].substr (CpuPrefix (0).size ()));
    Expected.push_back (Block[2].substr (CpuPrefix (0).size ()));
  }

  Expected.push_back (kEntry + "Locating protocol gEfiSmmSwDispatch2ProtocolGuid 18A3C6DC-5EEA-48C8-A1C1-B53389F98999");
  for (auto &Text : Expected) {
    Text = Line (0, Text);
  }

  const std::vector<std::string> Log = SerialLines ();
  ASSERT_GT (Log.size (), Expected.size ());
  EXPECT_EQ (std::vector<std::string> (Log.begin (), Log.begin () + Expected.size ()), Expected);

  //
  // The later stages, seen from start-up: no ERST on this platform, both
  // APEI software SMIs registered, the protocol installed last.
  //
  const std::vector<std::string> Later =
      LinesOf (std::vector<std::string> (Log.begin () + Expected.size (), Log.end ()), "VornApeiLoggingSmmConstructor");
  EXPECT_EQ (Later,
             (std::vector<std::string>{
                 E ("Retrieving ACPI ERST address"), E ("WARN Not Found searching for ERST, ERST not found..."),
                 E ("Calling SwDispatch->Register to register S/W SMI handler VornApeiLoggingSoftSmiEnable for "
                    "SwSmiInputValue 0x000000000000009E"),
                 E ("Calling SwDispatch->Register to register S/W SMI handler VornApeiLoggingSoftSmiDisable for "
                    "SwSmiInputValue 0x000000000000009D"),
                 E ("Installing protocol gEfiVornApeiLoggingSmmProtocolGuid D9285651-0FC4-45BE-B9E9-DB446E520434")}));
  EXPECT_EQ (Log.back (), Later.back ());

  VOID *Installed = nullptr;
  ASSERT_EQ (gSmst->SmmLocateProtocol (&gEfiVornApeiLoggingSmmProtocolGuid, nullptr, &Installed), EFI_SUCCESS);
  EXPECT_EQ (Installed, &mVornApeiLoggingSmmProtocol);

  const VORN_APEI_LOGGING_PRIVATE_DATA &Data     = mPrivateDataVornApeiLogging;
  EFI_SMM_BASE2_PROTOCOL               *SmmBase2 = nullptr;
  ASSERT_EQ (gBS->LocateProtocol (&gEfiSmmBase2ProtocolGuid, nullptr, reinterpret_cast<VOID **> (&SmmBase2)),
             EFI_SUCCESS);
  EXPECT_EQ (Data.SerDbgLevelConstructor, 0x40u);
  EXPECT_EQ (Data.SerDbgLevel, 0x40u);
  EXPECT_EQ (Data.SerDbgLevelDetailed, 0x40u);
  EXPECT_EQ (Data.RasErrorLoggingMode, static_cast<UINT32> (RasProductionMode));
  EXPECT_FALSE (Data.DebugOutputExtensive);
  EXPECT_EQ (Data.pSmmBase2Protocol, SmmBase2);
  EXPECT_EQ (Data.pSmst, Host::Smst ());
  EXPECT_TRUE (Data.HestPresent);
  EXPECT_FALSE (Data.ErstPresent);
  EXPECT_EQ (Data.pApeiHestGhessErrStsDataBlkNmi, Tables.NmiBlock);
  EXPECT_EQ (Data.ApeiHestGhessErrStsDataBlkLengthNmi, 0x1000u);
  EXPECT_EQ (Data.pApeiHestGhessErrStsDataBlkSci, Tables.SciBlock);
  EXPECT_EQ (Data.ApeiHestGhessErrStsDataBlkLengthSci, 0x2000u);
  EXPECT_EQ (Data.pApeiHestGhessErrStsDataBlkSciVmwareMemPageRetire, Tables.VmwareBlock);
  EXPECT_EQ (Data.ApeiHestGhessErrStsDataBlkLengthSciVmwareMemPageRetire, 0x800u);
  EXPECT_FALSE (Data.IsApeiOsLoaded);
  EXPECT_FALSE (Data.ErstUnitTestSeverityOverride);
}

TEST_F (StartupTest, MissingHestIsOnlyAWarning) {
  AcpiTables::InstallApeiTables ({.WithHest = false});
  ASSERT_EQ (Start (), EFI_SUCCESS);

  EXPECT_EQ (TableAndDispatchLines (SerialLines ()),
             (std::vector<std::string>{
                 E ("Retrieving ACPI HEST GHESS Error Status Data Block addresses"),
                 E ("WARN Not Found searching for HEST, HEST not found"),
                 E ("Locating protocol gEfiSmmSwDispatch2ProtocolGuid 18A3C6DC-5EEA-48C8-A1C1-B53389F98999")}));
  EXPECT_FALSE (mPrivateDataVornApeiLogging.HestPresent);
  EXPECT_EQ (mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkNmi, 0u);
  EXPECT_EQ (mPrivateDataVornApeiLogging.ApeiHestGhessErrStsDataBlkLengthNmi, 0u);
  EXPECT_EQ (mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSci, 0u);
  EXPECT_EQ (mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSciVmwareMemPageRetire, 0u);
}

TEST_F (StartupTest, MissingVmwareSourceLeavesItsFieldsZero) {
  const AcpiTables::ApeiTables Tables = AcpiTables::InstallApeiTables ({.WithVmwareSource = false});
  ASSERT_EQ (Start (), EFI_SUCCESS);

  EXPECT_TRUE (mPrivateDataVornApeiLogging.HestPresent);
  EXPECT_EQ (mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkNmi, Tables.NmiBlock);
  EXPECT_EQ (mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSci, Tables.SciBlock);
  EXPECT_EQ (mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSciVmwareMemPageRetire, 0u);
  EXPECT_EQ (mPrivateDataVornApeiLogging.ApeiHestGhessErrStsDataBlkLengthSciVmwareMemPageRetire, 0u);
}

//
// Error lines go out at the error level and every other line, the WARN ones
// included, at the info level: a start-up seen through an errors-only and
// an info-only platform filter splits exactly into the two halves of the
// full log.
//
TEST_F (StartupTest, ErrorAndInfoLinesUseTheirOwnLevels) {
  const auto StartAt = [] (UINT32 PlatformLevel) {
    Host::MachineConfig Config;
    Config.DebugPrintErrorLevel = PlatformLevel;
    Host::PowerOn (Config);
    ModuleImageLoad ();
    EXPECT_EQ (VornMultiThreadedDebugLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
    AcpiTables::InstallApeiTables ({.WithVmwareSource = false});
    EXPECT_EQ (Start (), EFI_SUCCESS);

    std::vector<std::string> Own;
    for (const auto &Text : SerialLines ()) {
      for (const char *Function :
           {"VornApeiLoggingSmmConstructor", "VornApeiLoggingAcpiLocateTable", "VornApeiLoggingFindHestGhess",
            "VornElogBaseLibConstructor", "VornElogGetRasMemEccLoggingMode", "VornGetRasErrorLoggingMode",
            "VornElogDisplayPciSegmentInfo"}) {
        if (Text.find ("> " + std::string (Function) + ": ") != std::string::npos) {
          Own.push_back (Text);
        }
      }
    }

    return Own;
  };

  const std::vector<std::string> All    = StartAt (0x80000040);
  const std::vector<std::string> Errors = StartAt (0x80000000);
  const std::vector<std::string> Info   = StartAt (0x00000040);

  EXPECT_EQ (Errors,
             (std::vector<std::string>{
                 Line (0, "VornElogGetRasMemEccLoggingMode: ERROR Not Found retrieving NVRAM attribute value for "
                          "INTERNAL_CORERR_THRESHOLD_ATTR_NAME 's', default to RasMemEccThresholdMode"),
                 E ("ERROR Not Found retrieving GHESS (SCI notification - VMWare memory page retire) Error "
                    "Status Data Block address")}));
  std::vector<std::string> ExpectedInfo;
  std::copy_if (All.begin (), All.end (), std::back_inserter (ExpectedInfo), [&] (const std::string &Text) {
    return std::find (Errors.begin (), Errors.end (), Text) == Errors.end ();
  });
  EXPECT_EQ (ExpectedInfo.size (), All.size () - Errors.size ());
  EXPECT_EQ (Info, ExpectedInfo);
  EXPECT_THAT (Info, ::testing::Contains (E ("WARN Not Found searching for ERST, ERST not found...")));
}

//
// A missing or failing SW dispatcher stops start-up with EFI_NOT_FOUND,
// whatever the lookup said.
//
struct DispatchCase {
  const char     *Name;
  Host::FaultKind Kind;
  EFI_STATUS      Status;
  const char     *Printed;
};

void PrintTo (const DispatchCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class SwDispatchTest : public StartupTest, public ::testing::WithParamInterface<DispatchCase> {};

TEST_P (SwDispatchTest, MissingDispatcherStopsStartUp) {
  AcpiTables::InstallApeiTables ();
  Host::SetFault (Host::Service::SwDispatch2, {GetParam ().Kind, GetParam ().Status});
  ASSERT_EQ (Start (), EFI_NOT_FOUND);
  EXPECT_EQ (mDriverEntryPointStatus, EFI_NOT_FOUND);
  EXPECT_EQ (
      SerialLines ().back (),
      E (Format (
          "ERROR %s locating protocol gEfiSmmSwDispatch2ProtocolGuid 18A3C6DC-5EEA-48C8-A1C1-B53389F98999, aborting...",
          GetParam ().Printed)));
  EXPECT_TRUE (mPrivateDataVornApeiLogging.HestPresent);
  EXPECT_TRUE (LinesOf (SerialLines (), "VornApeiLoggingAcpiLocateTable").back ().ends_with ("to caller"));
  VOID *Installed = nullptr;
  EXPECT_EQ (gSmst->SmmLocateProtocol (&gEfiVornApeiLoggingSmmProtocolGuid, nullptr, &Installed), EFI_NOT_FOUND);
}

INSTANTIATE_TEST_SUITE_P (
    Lookups,
    SwDispatchTest,
    ::testing::Values (DispatchCase{"Absent", Host::FaultKind::Absent, EFI_NOT_FOUND, "Not Found"},
                       DispatchCase{"Failing", Host::FaultKind::Fail, EFI_DEVICE_ERROR, "Device Error"}),
    [] (const auto &Info) { return std::string (Info.param.Name); });

class OutsideSmmStartupTest : public StartupTest {
protected:
  Host::MachineConfig MachineConfiguration () const override {
    Host::MachineConfig Config;
    Config.InSmm = FALSE;
    return Config;
  }
};

TEST_F (OutsideSmmStartupTest, NotInSmmStopsBeforeTheTables) {
  AcpiTables::InstallApeiTables ();
  ASSERT_EQ (Start (), EFI_NOT_READY);
  EXPECT_EQ (mDriverEntryPointStatus, EFI_NOT_READY);

  //
  // Outside SMM the sink writes no processor prefix.
  //
  const std::vector<std::string> Log = SerialLines ();
  ASSERT_GE (Log.size (), 2u);
  EXPECT_EQ (std::vector<std::string> (Log.end () - 2, Log.end ()),
             (std::vector<std::string>{kEntry + "InSmm 0 mPrivateDataVornApeiLogging.pSmst @ " +
                                           Hex16 (reinterpret_cast<UINTN> (Host::Smst ())),
                                       kEntry + "InSmm 0 => Not in SMM, aborting..."}));
  EXPECT_FALSE (mPrivateDataVornApeiLogging.HestPresent);
}

TEST_F (StartupTest, MissingSmmBaseAssertsInConstructorsAndStopsNotInSmm) {
  AcpiTables::InstallApeiTables ();
  Host::SetFault (Host::Service::SmmBase2, {Host::FaultKind::Absent});
  ASSERT_EQ (Start (), EFI_NOT_READY);
  const UINT64 Asserts = Host::BreakpointCount ();
  EXPECT_GE (Asserts, 2u);

  //
  // Each failing constructor reports and asserts; the list runs on to the
  // module entry.
  //
  const std::vector<std::string> Log = SerialLines ();
  const std::string              Assert =
      R"(.*ASSERT \[[A-Za-z]+\] ModuleEntryPoint\.cpp\([0-9]+\): !\(\(\(INTN\)\(RETURN_STATUS\)\(Status\)\) < 0\))";
  UINT64 Reported = 0;
  for (UINTN Index = 0; Index < Log.size (); Index++) {
    if (Log[Index].find ("ASSERT_EFI_ERROR (Status = ") != std::string::npos) {
      Reported++;
      ASSERT_LT (Index + 1, Log.size ());
      EXPECT_THAT (Log[Index + 1], MatchesRegex (Assert));
    }
  }

  EXPECT_EQ (Reported, Asserts);
  EXPECT_THAT (Log, ::testing::Contains (::testing::EndsWith ("ASSERT_EFI_ERROR (Status = Not Found)")));
  EXPECT_THAT (
      Log, ::testing::Contains (::testing::EndsWith (
               "VornElogBaseLibConstructor: ERROR Not Found locating protocol gEfiSmmBase2ProtocolGuid, aborting...")));
  //
  // The error-log base library never set the levels, so start-up's info
  // lines are silent and only its errors show.
  //
  EXPECT_EQ (LinesOf (Log, "VornApeiLoggingSmmConstructor"),
             (std::vector<std::string>{
                 E ("ERROR Not Found locating protocol gEfiSmmBase2ProtocolGuid F4CCBFB7-F6E0-47FD-9DD4-10A8F150C191"),
                 E ("InSmm 0 => Not in SMM, aborting...")}));
  EXPECT_EQ (Log.back (), E ("InSmm 0 => Not in SMM, aborting..."));
  EXPECT_EQ (mPrivateDataVornApeiLogging.SerDbgLevelConstructor, 0u);
  EXPECT_EQ (mPrivateDataVornApeiLogging.pSmmBase2Protocol, nullptr);
}

//
// Failures of the SMM base members, driven on the module entry alone once
// the libraries it needs have started.
//
class ModuleEntryTest : public StartupTest {
protected:
  void SetUp () override {
    StartupTest::SetUp ();
    ASSERT_EQ (UefiBootServicesTableLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
    ASSERT_EQ (SmmServicesTableLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
    ASSERT_EQ (VornElogBaseLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
    Tables = AcpiTables::InstallApeiTables ();
    Host::ClearSerialOutput ();
  }

  static std::vector<std::string> SmmCheckLines () {
    return LinesOf (SerialLines (), "VornApeiLoggingSmmConstructor");
  }

  AcpiTables::ApeiTables Tables;
};

TEST_F (ModuleEntryTest, FailingInSmmCallMeansNotInSmm) {
  Host::SetFault (Host::Service::SmmBase2InSmm, {Host::FaultKind::Fail, EFI_DEVICE_ERROR});
  ASSERT_EQ (VornApeiLoggingSmmConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_NOT_READY);
  const std::vector<std::string> Entry = SmmCheckLines ();
  ASSERT_EQ (Entry.size (), 7u);
  EXPECT_EQ (std::vector<std::string> (Entry.begin () + 3, Entry.end ()),
             (std::vector<std::string>{
                 E ("Locating protocol gEfiSmmBase2ProtocolGuid F4CCBFB7-F6E0-47FD-9DD4-10A8F150C191"),
                 E ("ERROR Device Error from mPrivateDataVornApeiLogging.pSmmBase2Protocol->InSmm"),
                 E ("InSmm 0 mPrivateDataVornApeiLogging.pSmst @ " + Hex16 (reinterpret_cast<UINTN> (Host::Smst ()))),
                 E ("InSmm 0 => Not in SMM, aborting...")}));
}

TEST_F (ModuleEntryTest, MissingSmstIsReportedAndStartUpGoesOn) {
  Host::SetFault (Host::Service::SmmBase2GetSmst, {Host::FaultKind::Fail, EFI_DEVICE_ERROR});
  ASSERT_EQ (VornApeiLoggingSmmConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
  const std::vector<std::string> Entry = SmmCheckLines ();
  ASSERT_GE (Entry.size (), 7u);
  EXPECT_EQ (
      std::vector<std::string> (Entry.begin () + 3, Entry.begin () + 7),
      (std::vector<std::string>{E ("Locating protocol gEfiSmmBase2ProtocolGuid F4CCBFB7-F6E0-47FD-9DD4-10A8F150C191"),
                                E ("ERROR Device Error retrieving SMST location"),
                                E ("InSmm 1 mPrivateDataVornApeiLogging.pSmst @ 0x0000000000000000"),
                                E ("Retrieving ACPI HEST GHESS Error Status Data Block addresses")}));
  EXPECT_EQ (mPrivateDataVornApeiLogging.pSmst, nullptr);
  EXPECT_EQ (mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSci, Tables.SciBlock);
}

} // namespace
