/** @file
  Start-up through the image entry: the private data a healthy start leaves,
  the status block lookups, the failures that stop start-up and the ones it
  survives, and the level each of its lines goes out at.
**/
#include <algorithm>
#include <iterator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <TestAcpiTables.h>
#include <TestMachine.h>

#include <IndustryStandard/Acpi.h>
#include <Library/ElogBaseLib.h>
#include <Library/SmmServicesTableLib.h>
#include <Library/UefiBootServicesTableLib.h>
#include <Library/VornMultiThreadedDebugLib.h>
#include <ModuleEntryPoint.h>
#include <Protocol/SmmBase2.h>
#include <VornApeiLoggingSmm.h>

#include "Builder/ModuleImage.h"

namespace {

class StartupTest : public MachineTest {
protected:
  static EFI_STATUS Start () {
    Host::ClearSerialOutput ();
    return _ModuleEntryPoint (Host::ImageHandle (), Host::SystemTable ());
  }

  static bool Installed () {
    VOID *Interface = nullptr;
    return gSmst->SmmLocateProtocol (&gEfiVornApeiLoggingSmmProtocolGuid, nullptr, &Interface) == EFI_SUCCESS &&
           Interface == &mVornApeiLoggingSmmProtocol;
  }
};

TEST_F (StartupTest, HealthyStartFillsThePrivateData) {
  const AcpiTables::ApeiTables Tables = AcpiTables::InstallApeiTables ();
  ASSERT_EQ (Start (), EFI_SUCCESS);
  EXPECT_EQ (mDriverEntryPointStatus, EFI_SUCCESS);
  EXPECT_EQ (Host::BreakpointCount (), 0u);
  EXPECT_TRUE (Installed ());

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

//
// All three sources are looked up whatever became of the others; a missing
// one leaves its fields zero, a missing HEST is only a warning.
//
TEST_F (StartupTest, EverySourceIsLookedUpWhateverTheOthersGave) {
  for (UINTN Missing = 0; Missing < 3; Missing++) {
    MachineTest::SetUp ();
    const AcpiTables::ApeiTables Tables = AcpiTables::InstallApeiTables ();
    Host::At<EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE> (Tables.Hest + 40 + 64 * Missing)->SourceId = 0x55;
    ASSERT_EQ (Start (), EFI_SUCCESS);
    const auto  &Data      = mPrivateDataVornApeiLogging;
    const UINT64 Found[3]  = {Data.pApeiHestGhessErrStsDataBlkNmi, Data.pApeiHestGhessErrStsDataBlkSci,
                              Data.pApeiHestGhessErrStsDataBlkSciVmwareMemPageRetire};
    const UINT64 Blocks[3] = {Tables.NmiBlock, Tables.SciBlock, Tables.VmwareBlock};
    for (UINTN Index = 0; Index < 3; Index++) {
      EXPECT_EQ (Found[Index], Index == Missing ? 0 : Blocks[Index]) << Missing << " " << Index;
    }
    EXPECT_TRUE (Installed ());
  }

  MachineTest::SetUp ();
  AcpiTables::InstallApeiTables ({.WithHest = false});
  ASSERT_EQ (Start (), EFI_SUCCESS);
  EXPECT_FALSE (mPrivateDataVornApeiLogging.HestPresent);
  EXPECT_EQ (mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSci, 0u);
  EXPECT_EQ (mPrivateDataVornApeiLogging.ApeiHestGhessErrStsDataBlkLengthSci, 0u);
  EXPECT_TRUE (Installed ());
}

//
// Error lines go out at the error level and every other line, the WARN ones
// included, at the info level: a start-up seen through an errors-only and an
// info-only platform filter splits exactly into the two halves of the full
// log.
//
TEST_F (StartupTest, ErrorAndInfoLinesUseTheirOwnLevels) {
  const auto StartAt = [] (UINT32 PlatformLevel) {
    Host::MachineConfig Config;
    Config.DebugPrintErrorLevel = PlatformLevel;
    Boot (Config);
    AcpiTables::InstallApeiTables ({.WithVmwareSource = false});
    EXPECT_EQ (Start (), EFI_SUCCESS);
    return SerialLines ();
  };

  const std::vector<std::string> All    = StartAt (0x80000040);
  const std::vector<std::string> Errors = StartAt (0x80000000);
  const std::vector<std::string> Info   = StartAt (0x00000040);
  ASSERT_EQ (Errors.size (), 2u);
  EXPECT_THAT (Errors[1], ::testing::HasSubstr ("VornApeiLoggingSmmConstructor: ERROR Not Found retrieving GHESS"));
  std::vector<std::string> ExpectedInfo;
  std::copy_if (All.begin (), All.end (), std::back_inserter (ExpectedInfo), [&] (const std::string &Text) {
    return std::find (Errors.begin (), Errors.end (), Text) == Errors.end ();
  });
  EXPECT_EQ (ExpectedInfo.size (), All.size () - Errors.size ());
  EXPECT_EQ (Info, ExpectedInfo);
}

//
// A missing or failing SW dispatcher stops start-up with EFI_NOT_FOUND,
// whatever the lookup said, before the protocol is installed.
//
TEST_F (StartupTest, MissingDispatcherStopsStartUp) {
  for (const Host::FaultKind Kind : {Host::FaultKind::Absent, Host::FaultKind::Fail}) {
    MachineTest::SetUp ();
    AcpiTables::InstallApeiTables ();
    Host::SetFault (Host::Service::SwDispatch2, {Kind, EFI_DEVICE_ERROR});
    ASSERT_EQ (Start (), EFI_NOT_FOUND);
    EXPECT_EQ (mDriverEntryPointStatus, EFI_NOT_FOUND);
    EXPECT_TRUE (mPrivateDataVornApeiLogging.HestPresent);
    EXPECT_FALSE (Installed ());
  }
}

TEST_F (StartupTest, NotInSmmStopsBeforeTheTables) {
  Host::MachineConfig Config;
  Config.InSmm = FALSE;
  Host::PowerOn (Config);
  ModuleImageLoad ();
  AcpiTables::InstallApeiTables ();
  ASSERT_EQ (Start (), EFI_NOT_READY);
  EXPECT_EQ (mDriverEntryPointStatus, EFI_NOT_READY);
  EXPECT_FALSE (mPrivateDataVornApeiLogging.HestPresent);
  // Outside SMM the sink writes no processor prefix.
  EXPECT_EQ (SerialLines ().back (), "VornApeiLoggingSmmConstructor: InSmm 0 => Not in SMM, aborting...");
}

//
// Without the SMM base protocol each constructor that needs it reports and
// asserts, the list runs on to the module entry, and that stops not in SMM
// with only its error lines (the levels were never set).
//
TEST_F (StartupTest, MissingSmmBaseAssertsInTheConstructorsAndStopsNotInSmm) {
  AcpiTables::InstallApeiTables ();
  Host::SetFault (Host::Service::SmmBase2, {Host::FaultKind::Absent});
  ASSERT_EQ (Start (), EFI_NOT_READY);
  const std::vector<std::string> Log      = SerialLines ();
  const auto                     Reported = std::count_if (Log.begin (), Log.end (), [] (const std::string &Text) {
    return Text.find ("ASSERT_EFI_ERROR (Status = ") != std::string::npos;
  });
  EXPECT_GE (Host::BreakpointCount (), 2u);
  EXPECT_EQ (static_cast<UINT64> (Reported), Host::BreakpointCount ());
  EXPECT_EQ (Log.back (), Line (0, "VornApeiLoggingSmmConstructor: InSmm 0 => Not in SMM, aborting..."));
  EXPECT_EQ (mPrivateDataVornApeiLogging.SerDbgLevelConstructor, 0u);
  EXPECT_EQ (mPrivateDataVornApeiLogging.pSmmBase2Protocol, nullptr);
}

//
// Failures of the SMM base members, on the module entry alone once the
// libraries it needs have started: a failing InSmm means not in SMM, a
// missing SMST is reported and start-up goes on.
//
TEST_F (StartupTest, SmmBaseMemberFailures) {
  ASSERT_EQ (UefiBootServicesTableLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
  ASSERT_EQ (SmmServicesTableLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
  ASSERT_EQ (VornElogBaseLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
  const AcpiTables::ApeiTables Tables = AcpiTables::InstallApeiTables ();

  Host::SetFault (Host::Service::SmmBase2InSmm, {Host::FaultKind::Fail, EFI_DEVICE_ERROR});
  EXPECT_EQ (VornApeiLoggingSmmConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_NOT_READY);

  Host::ClearFaults ();
  mPrivateDataVornApeiLogging.pSmst = nullptr;
  Host::SetFault (Host::Service::SmmBase2GetSmst, {Host::FaultKind::Fail, EFI_DEVICE_ERROR});
  EXPECT_EQ (VornApeiLoggingSmmConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
  EXPECT_EQ (mPrivateDataVornApeiLogging.pSmst, nullptr);
  EXPECT_EQ (mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSci, Tables.SciBlock);
}

} // namespace
