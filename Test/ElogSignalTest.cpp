/** @file
  Signalling the OS through the protocol, and the APEI enable and disable
  software SMIs.
**/
#include <algorithm>

#include <GhesFixture.h>
#include <TestAcpiTables.h>

namespace {

using ElogSignal = GhesFixture;

TEST_F (ElogSignal, SciCarriesItsCauseToTheScratchRegister) {
  auto *T = Protocol ();
  Host::SetPciConfig32 (0x74, 0x2);
  ASSERT_EQ (T->ElogSignalSci (T, 0x5), EFI_SUCCESS);
  EXPECT_EQ (Host::GetPciConfig32 (0x74), 0x7u);
  EXPECT_EQ (Host::SciCount (), 1u);
  EXPECT_EQ (Lines ().front (), L ("VornApeiLoggingElogSignalSci: Signaling SCI"));
  Host::ClearTrace ();
  ASSERT_EQ (T->ElogSignalSci (T, 0), EFI_SUCCESS);
  EXPECT_TRUE (Host::Trace (Host::AccessKind::PciRead).empty ());
  EXPECT_EQ (Host::SciCount (), 2u);
}

//
// Enable sets the switch first, whatever the ERST mark-up then returns.
//
TEST_F (ElogSignal, EnableSetsSwitchAndPassesOnMarkUpFailure) {
  mPrivateDataVornApeiLogging.IsApeiOsLoaded = FALSE;
  EXPECT_EQ (VornApeiLoggingSoftSmiEnable (NULL, NULL, NULL, NULL), EFI_INVALID_PARAMETER);
  EXPECT_TRUE (mPrivateDataVornApeiLogging.IsApeiOsLoaded);
  const std::string E = "VornApeiLoggingSoftSmiEnable: ";
  EXPECT_EQ (
      Lines (),
      (std::vector<std::string>{
          L (E + "Enabling APEI signaling"), L ("VornProgramWheaSignals: EnableWhea = 1"),
          L (E + "Status Success returned"), L (E + "Invoking ERST obsolete record mark-up for future defragmentation"),
          L ("VornApeiLoggingErstMarkObsoleteRecords: ERROR mPrivateDataVornApeiLogging.pErstParameterBlock is NULL, aborting..."),
          L (E + "ERROR Invalid Parameter from VornApeiLoggingErstMarkObsoleteRecords")}));
}

TEST_F (ElogSignal, DisableClearsSwitchAndStopsTheSci) {
  auto *T = Protocol ();
  EXPECT_EQ (VornApeiLoggingSoftSmiDisable (NULL, NULL, NULL, NULL), EFI_SUCCESS);
  EXPECT_FALSE (mPrivateDataVornApeiLogging.IsApeiOsLoaded);
  EXPECT_EQ (Lines (), (std::vector<std::string>{L ("VornApeiLoggingSoftSmiDisable: APEI signaling disabled"),
                                                 L ("VornProgramWheaSignals: EnableWhea = 0"),
                                                 L ("VornApeiLoggingSoftSmiDisable: Status Success returned")}));
  ClearLog ();
  EXPECT_EQ (T->ElogSignalSci (T, 1), EFI_NOT_READY);
  EXPECT_TRUE (Host::Trace ().empty ());
}

//
// Start-up registers the two APEI software SMIs and installs the protocol
// last; the OS then switches APEI on and off through the SMI port.
//
class ApeiStartUp : public MachineTest {
protected:
  static EFI_STATUS Boot () {
    AcpiTables::InstallApeiTables ();
    Host::ClearSerialOutput ();
    return _ModuleEntryPoint (Host::ImageHandle (), Host::SystemTable ());
  }

  static bool Logged (const std::string &Text) {
    const auto All = SerialLines ();
    return std::find (All.begin (), All.end (), Line (0, "VornApeiLoggingSmmConstructor: " + Text)) != All.end ();
  }

  static const std::string kEnable;
  static const std::string kDisable;
  static const std::string kInstall;
};

const std::string ApeiStartUp::kEnable =
    "S/W SMI handler VornApeiLoggingSoftSmiEnable for SwSmiInputValue 0x000000000000009E";
const std::string ApeiStartUp::kDisable =
    "S/W SMI handler VornApeiLoggingSoftSmiDisable for SwSmiInputValue 0x000000000000009D";
const std::string ApeiStartUp::kInstall =
    "protocol gEfiVornApeiLoggingSmmProtocolGuid D9285651-0FC4-45BE-B9E9-DB446E520434";

TEST_F (ApeiStartUp, HandlersLiveAndProtocolInstalled) {
  ASSERT_EQ (Boot (), EFI_SUCCESS);
  EXPECT_TRUE (Logged ("Calling SwDispatch->Register to register " + kEnable));
  EXPECT_TRUE (Logged ("Calling SwDispatch->Register to register " + kDisable));
  EXPECT_EQ (SerialLines ().back (), Line (0, "VornApeiLoggingSmmConstructor: Installing " + kInstall));

  VOID *Interface = NULL;
  ASSERT_EQ (Host::Smst ()->SmmLocateProtocol (&gEfiVornApeiLoggingSmmProtocolGuid, NULL, &Interface), EFI_SUCCESS);
  EXPECT_EQ (Interface, &mVornApeiLoggingSmmProtocol);

  EXPECT_FALSE (mPrivateDataVornApeiLogging.IsApeiOsLoaded);
  Host::RaiseSwSmi (0x9E, 3);
  EXPECT_TRUE (mPrivateDataVornApeiLogging.IsApeiOsLoaded);
  Host::RaiseSwSmi (0x9D, 1);
  EXPECT_FALSE (mPrivateDataVornApeiLogging.IsApeiOsLoaded);
  EXPECT_EQ (SerialLines ().back (), Line (1, "VornApeiLoggingSoftSmiDisable: Status Success returned"));
}

TEST_F (ApeiStartUp, FailedRegistrationsLoggedAndStartUpGoesOn) {
  Host::SetFault (Host::Service::SwDispatch2Register, {Host::FaultKind::Fail, EFI_OUT_OF_RESOURCES});
  ASSERT_EQ (Boot (), EFI_SUCCESS);
  EXPECT_TRUE (Logged ("ERROR Out of Resources from SwDispatch->Register to register " + kEnable));
  EXPECT_TRUE (Logged ("ERROR Out of Resources from SwDispatch->Register to register " + kDisable));
  EXPECT_TRUE (Logged ("Installing " + kInstall));
}

TEST_F (ApeiStartUp, InstallFailureIsTheResult) {
  Host::SetFault (Host::Service::SmmInstallProtocolInterface, {Host::FaultKind::Fail, EFI_ACCESS_DENIED});
  EXPECT_EQ (Boot (), EFI_ACCESS_DENIED);
  EXPECT_TRUE (Logged ("ERROR Access Denied installing " + kInstall + ", aborting..."));
}

} // namespace
