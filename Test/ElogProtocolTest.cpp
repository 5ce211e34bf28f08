/** @file
  The error-log protocol: the OS-loaded gate, which block a record goes to,
  the status a caller sees, releasing blocks, signalling the OS, and the APEI
  enable and disable software SMIs that start-up registers.
**/
#include <cstring>
#include <tuple>

#include <GhesFixture.h>
#include <SectionKindName.h>
#include <StatusWord.h>
#include <TestAcpiTables.h>
#include <TestFormat.h>

using Cper::SectionKind;

namespace {

using ElogProtocol = GhesFixture;

//
// Before the OS enables APEI, nothing that writes a block or raises the SCI
// acts; the NMI is raised anyway. A null instance is refused by every slot.
//
TEST_F (ElogProtocol, NothingActsBeforeTheOsEnablesApei) {
  auto   *T       = Protocol ();
  BOOLEAN Loaded  = FALSE;
  char    Fru[20] = "DIMM A1";
  EXPECT_EQ (T->ElogIsApeiOsLoaded (&Loaded), EFI_SUCCESS);
  EXPECT_TRUE (Loaded);
  EXPECT_EQ (T->ElogIsApeiOsLoaded (NULL), EFI_INVALID_PARAMETER);

  mPrivateDataVornApeiLogging.IsApeiOsLoaded = FALSE;
  const auto Before                          = Bytes (SciBlock (), kSciBlockLength);
  EXPECT_EQ (T->ElogIsApeiOsLoaded (&Loaded), EFI_SUCCESS);
  EXPECT_FALSE (Loaded);
  EXPECT_EQ (T->ElogRecord (T, Record ({}), 2), EFI_NOT_READY);
  EXPECT_EQ (T->ElogClear (T, SciBlock (), kSciBlockLength), EFI_NOT_READY);
  EXPECT_EQ (T->ElogClearAll (T), EFI_NOT_READY);
  EXPECT_EQ (T->ElogRecordMemoryPageRetire (T, NULL, Fru, 0x1000, 1), EFI_NOT_READY);
  EXPECT_EQ (T->ElogSignalSci (T, 1), EFI_NOT_READY);
  EXPECT_TRUE (Host::Trace ().empty ());
  EXPECT_EQ (Bytes (SciBlock (), kSciBlockLength), Before);
  EXPECT_EQ (VmwareBlock ()->DataLength, 0u);
  EXPECT_EQ (T->ElogSignalNmi (T), EFI_SUCCESS);
  EXPECT_EQ (Host::NmiCount (), 1u);

  EXPECT_EQ (VornApeiLoggingElogClear (NULL, SciBlock (), 1), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingElogClearAll (NULL), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingElogRecord (NULL, Record ({}), 2), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingElogRecordMemoryPageRetire (NULL, NULL, Fru, 0, 0), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingElogSignalSci (NULL, 0), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingElogSignalNmi (NULL), EFI_INVALID_PARAMETER);
  EXPECT_EQ (Host::NmiCount (), 1u);
}

//
// Routing: the caller's severity and the section type choose the block;
// the record's own severities do not count.
//
class ElogRecordRouting : public ElogProtocol, public ::testing::WithParamInterface<std::tuple<UINT32, SectionKind>> {};

TEST_P (ElogRecordRouting, FatalAndRecoverablePcieOrCxlGoToTheNmiBlock) {
  const auto [Severity, Kind] = GetParam ();
  const bool PcieOrCxl =
      Kind == SectionKind::Pcie || Kind == SectionKind::CxlProtocol || Kind == SectionKind::CxlComponent;
  const bool Nmi = Severity == 1 || (Severity == 0 && PcieOrCxl);

  auto *T = Protocol ();
  ASSERT_EQ (T->ElogRecord (T, Record ({.Kind = Kind, .HeaderSeverity = 2, .SectionSeverity = 2}), Severity),
             EFI_SUCCESS);
  const UINT32 Length = 72 + Cper::SectionBodyLength (Kind);
  EXPECT_EQ (NmiBlock ()->DataLength, Nmi ? Length : 0);
  EXPECT_EQ (SciBlock ()->DataLength, Nmi ? 0 : Length);
}

INSTANTIATE_TEST_SUITE_P (SeverityByType,
                          ElogRecordRouting,
                          ::testing::Combine (::testing::Values (0u, 1u, 2u, 3u, 7u),
                                              ::testing::Values (SectionKind::Memory,
                                                                 SectionKind::Pcie,
                                                                 SectionKind::CxlProtocol,
                                                                 SectionKind::CxlComponent,
                                                                 SectionKind::ProcessorGeneric)),
                          [] (const auto &Info) {
                            return Format ("Severity%u_%s", std::get<0> (Info.param),
                                           Cper::SectionKindName (std::get<1> (Info.param)).c_str ());
                          });

//
// What the caller sees when the block refuses the record: an unknown type
// is reported, a full block is not (the record is lost), a missing block is.
//
TEST_F (ElogProtocol, PopulationFailuresAsTheCallerSeesThem) {
  auto *T = Protocol ();
  EXPECT_EQ (T->ElogRecord (T, Record ({.SectionType = Cper::VmwarePageRetireSectionType ()}), 2), EFI_UNSUPPORTED);

  SetStatusWord (SciBlock (), 5 << 4);
  const auto Full = Bytes (SciBlock (), kSciBlockLength);
  EXPECT_EQ (T->ElogRecord (T, Record ({}), 2), EFI_SUCCESS);
  EXPECT_EQ (Bytes (SciBlock (), kSciBlockLength), Full);

  mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkNmi = 0;
  EXPECT_EQ (T->ElogRecord (T, Record ({}), 1), EFI_NOT_FOUND);
  EXPECT_EQ (T->ElogRecord (T, NULL, 1), EFI_INVALID_PARAMETER);
}

//
// ElogClear: the OS owns a block while a valid bit is set. A released block
// is zeroed over the length given (0 included: nothing is refused), then
// gets RawDataOffset 8192 and severity None whatever that length.
//
TEST_F (ElogProtocol, ClearReleasesOnlyBlocksTheOsGaveBack) {
  auto *T = Protocol ();
  const struct {
    UINT32     BlockStatus;
    UINTN      Length;
    EFI_STATUS Status;
  } Cases[] = {{0x13, 0x2000, EFI_ALREADY_STARTED}, {0x11, 0x2000, EFI_ALREADY_STARTED},
               {0x12, 0x2000, EFI_ALREADY_STARTED}, {0x14, 0x2000, EFI_SUCCESS},
               {0x08, 0x100, EFI_SUCCESS},          {0x00, 0, EFI_SUCCESS}};
  for (const auto &Case : Cases) {
    ASSERT_EQ (T->ElogRecord (T, Record ({}), 2), EFI_SUCCESS);
    SetStatusWord (SciBlock (), Case.BlockStatus);
    SciBlock ()->RawDataLength = 0x10;
    SciBlock ()->RawDataOffset = 0x1234;
    const auto Before          = Bytes (SciBlock (), kSciBlockLength + 16);

    ASSERT_EQ (T->ElogClear (T, SciBlock (), Case.Length), Case.Status) << Case.BlockStatus;
    auto Expected = Before;
    if (Case.Status == EFI_SUCCESS) {
      std::fill (Expected.begin (), Expected.begin () + static_cast<long> (Case.Length), 0);
      const UINT32 Offset = 0x2000, None = 3;
      std::memcpy (Expected.data () + 4, &Offset, 4);
      std::memcpy (Expected.data () + 16, &None, 4);
    }
    EXPECT_EQ (Bytes (SciBlock (), kSciBlockLength + 16), Expected) << Case.BlockStatus;
    std::memset (SciBlock (), 0, kSciBlockLength);
  }
}

//
// ElogClearAll goes through the instance's own ElogClear slot, block by
// block, and carries on past blocks it cannot release.
//
std::vector<std::pair<UINT64, UINTN>> mClearCalls;

EFI_STATUS EFIAPI RecordingClear (EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *, GENERIC_ERROR_STATUS *pGesb, UINTN GesbLength) {
  mClearCalls.emplace_back ((UINT64)(UINTN)pGesb, GesbLength);
  return mClearCalls.size () == 1 ? EFI_ALREADY_STARTED : EFI_SUCCESS;
}

TEST_F (ElogProtocol, ClearAllCallsTheInstanceSlotInBlockOrder) {
  EFI_VORN_APEI_LOGGING_SMM_PROTOCOL Instance = *Protocol ();
  Instance.ElogClear                          = RecordingClear;
  mClearCalls.clear ();
  EXPECT_EQ (Instance.ElogClearAll (&Instance), EFI_SUCCESS);
  const auto &P = mPrivateDataVornApeiLogging;
  EXPECT_EQ (mClearCalls, (std::vector<std::pair<UINT64, UINTN>>{
                              {P.pApeiHestGhessErrStsDataBlkNmi, kNmiBlockLength},
                              {P.pApeiHestGhessErrStsDataBlkSci, kSciBlockLength},
                              {P.pApeiHestGhessErrStsDataBlkSciVmwareMemPageRetire, kVmwareBlockLength}}));

  auto *T = Protocol ();
  SetStatusWord (NmiBlock (), 0x11);
  SetStatusWord (SciBlock (), 0x04);
  mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSciVmwareMemPageRetire = 0;
  EXPECT_EQ (T->ElogClearAll (T), EFI_SUCCESS);
  EXPECT_EQ (StatusWord (NmiBlock ()), 0x11u);
  EXPECT_EQ (StatusWord (SciBlock ()), 0u);
}

//
// Signals: the SCI ORs its cause into the scratch register (none for cause
// 0); disabling APEI stops the SCI; enabling sets the switch first, whatever
// the ERST mark-up then returns.
//
TEST_F (ElogProtocol, SignalsAndTheApeiSwitch) {
  auto *T = Protocol ();
  Host::SetPciConfig32 (0x74, 0x2);
  ASSERT_EQ (T->ElogSignalSci (T, 0x5), EFI_SUCCESS);
  EXPECT_EQ (Host::GetPciConfig32 (0x74), 0x7u);
  Host::ClearTrace ();
  ASSERT_EQ (T->ElogSignalSci (T, 0), EFI_SUCCESS);
  EXPECT_TRUE (Host::Trace (Host::AccessKind::PciRead).empty ());
  EXPECT_EQ (Host::SciCount (), 2u);

  EXPECT_EQ (VornApeiLoggingSoftSmiDisable (NULL, NULL, NULL, NULL), EFI_SUCCESS);
  EXPECT_FALSE (mPrivateDataVornApeiLogging.IsApeiOsLoaded);
  EXPECT_EQ (T->ElogSignalSci (T, 1), EFI_NOT_READY);
  EXPECT_EQ (Host::SciCount (), 2u);

  EXPECT_EQ (VornApeiLoggingSoftSmiEnable (NULL, NULL, NULL, NULL), EFI_INVALID_PARAMETER); // no ERST region
  EXPECT_TRUE (mPrivateDataVornApeiLogging.IsApeiOsLoaded);
}

//
// Start-up registers the two APEI software SMIs and installs the protocol
// last; the OS then switches APEI on and off through the SMI port. Failed
// registrations are logged and start-up goes on; a failed install is the
// result.
//
class ApeiStartUp : public MachineTest {
protected:
  static EFI_STATUS Boot () {
    AcpiTables::InstallApeiTables ();
    return _ModuleEntryPoint (Host::ImageHandle (), Host::SystemTable ());
  }
};

TEST_F (ApeiStartUp, RegistersTheSwitchesAndInstallsTheProtocol) {
  ASSERT_EQ (Boot (), EFI_SUCCESS);
  VOID *Interface = NULL;
  ASSERT_EQ (Host::Smst ()->SmmLocateProtocol (&gEfiVornApeiLoggingSmmProtocolGuid, NULL, &Interface), EFI_SUCCESS);
  EXPECT_EQ (Interface, &mVornApeiLoggingSmmProtocol);

  EXPECT_FALSE (mPrivateDataVornApeiLogging.IsApeiOsLoaded);
  Host::RaiseSwSmi (0x9E, 3);
  EXPECT_TRUE (mPrivateDataVornApeiLogging.IsApeiOsLoaded);
  Host::RaiseSwSmi (0x9D, 1);
  EXPECT_FALSE (mPrivateDataVornApeiLogging.IsApeiOsLoaded);
}

TEST_F (ApeiStartUp, FailedRegistrationsAreLoggedAndAFailedInstallIsTheResult) {
  Host::SetFault (Host::Service::SwDispatch2Register, {Host::FaultKind::Fail, EFI_OUT_OF_RESOURCES});
  ASSERT_EQ (Boot (), EFI_SUCCESS);
  Host::RaiseSwSmi (0x9E);
  EXPECT_FALSE (mPrivateDataVornApeiLogging.IsApeiOsLoaded);

  MachineTest::SetUp ();
  Host::SetFault (Host::Service::SmmInstallProtocolInterface, {Host::FaultKind::Fail, EFI_ACCESS_DENIED});
  EXPECT_EQ (Boot (), EFI_ACCESS_DENIED);
}

} // namespace
