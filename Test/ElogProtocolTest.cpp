/** @file
  The error-log protocol: slot order, the OS-loaded gate, which block a
  record goes to, the status a caller sees, and releasing blocks.
**/
#include <algorithm>
#include <cstring>
#include <tuple>

#include <GhesFixture.h>
#include "SectionKindName.h"
#include "TestFormat.h"
#include "StatusWord.h"

using Cper::RecordSpec;
using Cper::SectionKind;

namespace {

class ElogProtocol : public GhesFixture {
protected:
  static bool Logged (const std::string &Text) {
    const auto All = Lines ();
    return std::find (All.begin (), All.end (), L (Text)) != All.end ();
  }
};

TEST_F (ElogProtocol, IsApeiOsLoadedReportsTheSwitch) {
  BOOLEAN Loaded = FALSE;
  EXPECT_EQ (Protocol ()->ElogIsApeiOsLoaded (&Loaded), EFI_SUCCESS);
  EXPECT_TRUE (Loaded);
  mPrivateDataVornApeiLogging.IsApeiOsLoaded = FALSE;
  EXPECT_EQ (Protocol ()->ElogIsApeiOsLoaded (&Loaded), EFI_SUCCESS);
  EXPECT_FALSE (Loaded);
  EXPECT_EQ (Protocol ()->ElogIsApeiOsLoaded (NULL), EFI_INVALID_PARAMETER);
  EXPECT_EQ (Lines (), std::vector<std::string>{L (
                           "VornApeiLoggingElogIsApeiOsLoaded: ERROR pIsApeiOsLoaded is null on entry, aborting...")});
}

//
// Before the OS enables APEI, nothing that writes a block or raises the SCI
// acts; the NMI is raised anyway.
//
TEST_F (ElogProtocol, NothingActsBeforeTheOsEnablesApei) {
  mPrivateDataVornApeiLogging.IsApeiOsLoaded = FALSE;
  auto      *T                               = Protocol ();
  const auto Before                          = Bytes (SciBlock (), kSciBlockLength);
  char       Fru[20]                         = "DIMM A1";

  EXPECT_EQ (T->ElogRecord (T, Record ({}), 2), EFI_NOT_READY);
  EXPECT_EQ (T->ElogClear (T, SciBlock (), kSciBlockLength), EFI_NOT_READY);
  EXPECT_EQ (T->ElogClearAll (T), EFI_NOT_READY);
  EXPECT_EQ (T->ElogRecordMemoryPageRetire (T, NULL, Fru, 0x1000, 1), EFI_NOT_READY);
  EXPECT_EQ (T->ElogSignalSci (T, 1), EFI_NOT_READY);
  EXPECT_TRUE (Host::Trace ().empty ());
  EXPECT_EQ (Bytes (SciBlock (), kSciBlockLength), Before);
  EXPECT_EQ (VmwareBlock ()->DataLength, 0u);
  const std::string Gate = ": ERROR APEI O/S not present, aborting...";
  EXPECT_EQ (Lines (),
             (std::vector<std::string>{
                 L ("VornApeiLoggingElogRecord: Entering"), L ("VornApeiLoggingElogRecord" + Gate),
                 L ("VornApeiLoggingElogClear" + Gate), L ("VornApeiLoggingElogClearAll" + Gate),
                 L ("VornApeiLoggingElogRecordMemoryPageRetire" + Gate), L ("VornApeiLoggingElogSignalSci" + Gate)}));

  EXPECT_EQ (T->ElogSignalNmi (T), EFI_SUCCESS);
  EXPECT_EQ (Host::Trace (Host::AccessKind::MmioWrite).size (), 5u);
}

TEST_F (ElogProtocol, NullThisRefusedByEveryOperation) {
  char Fru[20] = "";
  EXPECT_EQ (VornApeiLoggingElogClear (NULL, SciBlock (), 1), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingElogClearAll (NULL), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingElogRecord (NULL, Record ({}), 2), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingElogRecordMemoryPageRetire (NULL, NULL, Fru, 0, 0), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingElogSignalSci (NULL, 0), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingElogSignalNmi (NULL), EFI_INVALID_PARAMETER);
  const std::string Null = ": ERROR pThis *EFI_VORN_APEI_LOGGING_SMM_PROTOCOL is null on entry, aborting...";
  EXPECT_EQ (Lines (),
             (std::vector<std::string>{
                 L ("VornApeiLoggingElogClear" + Null), L ("VornApeiLoggingElogClearAll" + Null),
                 L ("VornApeiLoggingElogRecord" + Null), L ("VornApeiLoggingElogRecordMemoryPageRetire" + Null),
                 L ("VornApeiLoggingElogSignalSci" + Null), L ("VornApeiLoggingElogSignalNmi" + Null)}));
  EXPECT_TRUE (Host::Trace ().empty ());
}

//
// Routing: the caller's severity and the section type choose the block.
//
class ElogRecordRouting : public ElogProtocol, public ::testing::WithParamInterface<std::tuple<UINT32, SectionKind>> {};

TEST_P (ElogRecordRouting, FatalAndRecoverablePcieOrCxlToNmi) {
  const auto [Severity, Kind] = GetParam ();
  const bool PcieOrCxl =
      Kind == SectionKind::Pcie || Kind == SectionKind::CxlProtocol || Kind == SectionKind::CxlComponent;
  const bool Nmi = Severity == 1 || (Severity == 0 && PcieOrCxl);

  // the record's own severities point the other way: only the argument counts
  auto *T = Protocol ();
  ASSERT_EQ (T->ElogRecord (T, Record ({.Kind = Kind, .HeaderSeverity = 2, .SectionSeverity = 2}), Severity),
             EFI_SUCCESS);
  const UINT32 Length = 72 + Cper::SectionBodyLength (Kind);
  EXPECT_EQ (NmiBlock ()->DataLength, Nmi ? Length : 0);
  EXPECT_EQ (SciBlock ()->DataLength, Nmi ? 0 : Length);
  EXPECT_TRUE (Logged (Nmi ? "VornApeiLoggingElogRecord: Find GHESS (NMI notification) Error Status Data Block"
                           : "VornApeiLoggingElogRecord: Find GHESS (SCI notification) Error Status Data Block"));
  EXPECT_TRUE (Logged (Fmt ("VornApeiLoggingElogRecord: GHESS Error Status Data Block @ 0x%016llX",
                            (unsigned long long)(UINTN)(Nmi ? NmiBlock () : SciBlock ()))));
}

INSTANTIATE_TEST_SUITE_P (SeverityByType,
                          ElogRecordRouting,
                          ::testing::Combine (::testing::Values (0u, 1u, 2u, 3u, 7u),
                                              ::testing::Values (SectionKind::Memory,
                                                                 SectionKind::Pcie,
                                                                 SectionKind::CxlProtocol,
                                                                 SectionKind::CxlComponent,
                                                                 SectionKind::ProcessorGeneric,
                                                                 SectionKind::PciComponent)),
                          [] (const auto &Info) {
                            return Format ("Severity%u_%s", std::get<0> (Info.param),
                                           Cper::SectionKindName (std::get<1> (Info.param)).c_str ());
                          });

//
// What the caller sees when the block refuses the record.
//
TEST_F (ElogProtocol, PopulationFailuresMappedForTheCaller) {
  auto             *T = Protocol ();
  const std::string R = "VornApeiLoggingElogRecord: ";

  EXPECT_EQ (T->ElogRecord (T, Record ({.SectionType = Cper::VmwarePageRetireSectionType ()}), 2), EFI_UNSUPPORTED);
  auto Log = Lines ();
  EXPECT_EQ (std::vector<std::string> (Log.end () - 3, Log.end ()),
             (std::vector<std::string>{L (R + "Error Unsupported populating GHESS Error Status Data Block"),
                                       L (R + "UEFI CPER error record type GUID not recognized"), L (R + "Exiting")}));

  ClearLog ();
  SetStatusWord (SciBlock (), 5 << 4);
  const auto Full = Bytes (SciBlock (), kSciBlockLength);
  EXPECT_EQ (T->ElogRecord (T, Record ({}), 2), EFI_SUCCESS);
  EXPECT_EQ (Bytes (SciBlock (), kSciBlockLength), Full);
  Log = Lines ();
  EXPECT_EQ (std::vector<std::string> (Log.end () - 3, Log.end ()),
             (std::vector<std::string>{L (R + "Error Buffer Too Small populating GHESS Error Status Data Block"),
                                       L (R + "Error record buffer overflow, ignoring error and continuing..."),
                                       L (R + "Exiting")}));

  ClearLog ();
  mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkNmi = 0;
  EXPECT_EQ (T->ElogRecord (T, Record ({}), 1), EFI_NOT_FOUND);
  EXPECT_EQ (Lines ().back (), L (R + "ERROR pointer to GHESS Error Status Data Block is null, aborting..."));

  ClearLog ();
  EXPECT_EQ (T->ElogRecord (T, NULL, 1), EFI_INVALID_PARAMETER);
  EXPECT_EQ (Lines (), std::vector<std::string>{L (R + "ERROR pCper is null on entry, aborting...")});
}

//
// ElogClear: the OS owns a block while a valid bit is set.
//
struct ClearCase {
  UINT32     BlockStatus;
  EFI_STATUS Status;
};

void PrintTo (const ClearCase &Case, std::ostream *Out) {
  *Out << Format ("BlockStatus%02X", Case.BlockStatus);
}

class ElogClearOwnership : public ElogProtocol, public ::testing::WithParamInterface<ClearCase> {};

TEST_P (ElogClearOwnership, ValidBitsKeepTheBlock) {
  auto *T = Protocol ();
  ASSERT_EQ (T->ElogRecord (T, Record ({}), 2), EFI_SUCCESS);
  SetStatusWord (SciBlock (), GetParam ().BlockStatus);
  SciBlock ()->RawDataLength = 0x10;
  const auto   Before        = Bytes (SciBlock (), kSciBlockLength + 16);
  const UINT64 G             = (UINT64)(UINTN)SciBlock ();
  ClearLog ();

  ASSERT_EQ (T->ElogClear (T, SciBlock (), kSciBlockLength), GetParam ().Status);
  const auto        After = Bytes (SciBlock (), kSciBlockLength + 16);
  const std::string C     = "VornApeiLoggingElogClear: ";
  const std::string Entry =
      C + Fmt ("On entry GHESS Error Status Data Block GESB UncorrectableErrorValid %u CorrectableErrorValid %u",
               GetParam ().BlockStatus & 1, (GetParam ().BlockStatus >> 1) & 1);
  if (GetParam ().Status == EFI_ALREADY_STARTED) {
    EXPECT_EQ (After, Before);
    EXPECT_EQ (Lines (),
               (std::vector<std::string>{
                   L (Entry), L (C + Fmt ("GHESS Error Status Data Block (GESB/GEDE/GED/Raw Data) @ 0x%016llX "
                                          "still in use, skip clearing",
                                          (unsigned long long)G))}));
    return;
  }
  std::vector<UINT8> Cleared (kSciBlockLength, 0);
  Cleared[5]  = 0x20; // RawDataOffset 8192
  Cleared[16] = 3;    // ErrorSeverity None
  EXPECT_EQ (std::vector<UINT8> (After.begin (), After.begin () + kSciBlockLength), Cleared);
  EXPECT_EQ (std::vector<UINT8> (After.begin () + kSciBlockLength, After.end ()),
             std::vector<UINT8> (Before.begin () + kSciBlockLength, Before.end ()))
      << "nothing past the length";
  EXPECT_EQ (Lines (),
             (std::vector<std::string>{
                 L (Entry), L (C + Fmt ("Clearing GHESS Error Status Data Block (GESB/GEDE/GED/Raw Data) @ 0x%016llX "
                                        "for length 0x0000000000002000",
                                        (unsigned long long)G))}));
}

INSTANTIATE_TEST_SUITE_P (BlockStatus,
                          ElogClearOwnership,
                          ::testing::Values (ClearCase{0x13, EFI_ALREADY_STARTED},
                                             ClearCase{0x11, EFI_ALREADY_STARTED},
                                             ClearCase{0x12, EFI_ALREADY_STARTED},
                                             ClearCase{0x14, EFI_SUCCESS},
                                             ClearCase{0x08, EFI_SUCCESS},
                                             ClearCase{0x00, EFI_SUCCESS}),
                          ::testing::PrintToStringParamName ());

//
// ElogClearAll goes through the instance's own ElogClear slot, block by block.
//
std::vector<std::pair<UINT64, UINTN>> mClearCalls;

EFI_STATUS EFIAPI RecordingClear (EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *, GENERIC_ERROR_STATUS *pGesb, UINTN GesbLength) {
  mClearCalls.emplace_back ((UINT64)(UINTN)pGesb, GesbLength);
  return mClearCalls.size () == 2 ? EFI_DEVICE_ERROR : EFI_SUCCESS;
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
  const std::string A = "VornApeiLoggingElogClearAll: ";
  EXPECT_EQ (
      Lines (),
      (std::vector<std::string>{
          L (A + "Clear APEI HEST GHESS error status data block for NMI notification"),
          L (A + "Clear APEI HEST GHESS error status data block for SCI notification"),
          L (A + "ERROR Device Error from ElogClear for GHESS (SCI notification) Error Status Data Block"),
          L (A +
             "Clear APEI HEST GHESS error status data block for SCI notification (VMWare memory page retirement)")}));
}

TEST_F (ElogProtocol, ClearAllGoesOnPastBlocksInUseOrMissing) {
  auto *T = Protocol ();
  SetStatusWord (NmiBlock (), 0x11);
  SetStatusWord (SciBlock (), 0x04);
  mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSciVmwareMemPageRetire = 0;
  EXPECT_EQ (T->ElogClearAll (T), EFI_SUCCESS);
  EXPECT_EQ (StatusWord (NmiBlock ()), 0x11u);
  EXPECT_EQ (StatusWord (SciBlock ()), 0u);
  const std::string A = "VornApeiLoggingElogClearAll: ";
  EXPECT_TRUE (
      Logged (A + "ERROR Already started from ElogClear for GHESS (NMI notification) Error Status Data Block"));
  EXPECT_TRUE (Logged ("VornApeiLoggingElogClear: ERROR pGesb is null on entry, aborting..."));
  EXPECT_EQ (
      Lines ().back (),
      L (A +
         "ERROR Invalid Parameter from ElogClear for for GHESS (SCI notification for VMWare memory page retire) Error Status Data Block"));
}

} // namespace
