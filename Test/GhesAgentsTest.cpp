/** @file
  The error-handler agents and the OS's GHES side against the booted module:
  routing by the handler, the reader's checks and acknowledgement, page
  retire, and CPER files from other tools.
**/

#include <algorithm>
#include <cstring>
#include <memory>
#include <sstream>

#include <gtest/gtest.h>

#include <Guid/Cper.h>
#include <Host.h>
#include <SpiFlash.h>
#include <TestMachine.h>

#include "Builder/Boot.h"
#include "Handlers/CperFile.h"
#include "Handlers/ErrorHandlerAgent.h"
#include "Commands/ErrorInjection.h"
#include "Builder/FlashImage.h"
#include "Os/GhesReader.h"
#include "Os/OsApei.h"
#include "Common/TextFormat.h"
#include "StatusWord.h"

namespace {

using Sim::Notification;

constexpr UINT32 kEntryHeader = sizeof (GENERIC_ERROR_DATA_ENTRY);

//
// The default platform with the module booted on a factory flash image, and
// the OS's reader on its HEST.
//
class GhesAgentsTest : public ::testing::Test {
protected:
  void SetUp () override {
    Host::Flash::AttachMemory (FlashImage::BuildDefault ());
    Booted = Sim::Boot (Sim::BootOptions ());
    ASSERT_EQ (EFI_SUCCESS, Booted.Status);
    Reader = std::make_unique<Sim::GhesReader> (Booted.Platform.Hest, Out);
    Host::ClearSerialOutput ();
  }

  // Source 7 (NMI), 8 (SCI), 0xFFFE (SCI, page retire), in HEST order.
  GENERIC_ERROR_STATUS *Block (size_t Index) const {
    return Host::At<GENERIC_ERROR_STATUS> (Booted.Platform.StatusBlocks[Index].StatusBlock);
  }

  static EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *Protocol () {
    EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *Found = nullptr;
    EXPECT_EQ (EFI_SUCCESS, Host::Smst ()->SmmLocateProtocol (&gEfiVornApeiLoggingSmmProtocolGuid, nullptr,
                                                              reinterpret_cast<VOID **> (&Found)));
    return Found;
  }

  static bool Logged (const std::string &Line) {
    const auto Lines = MachineTest::SerialLines ();
    return std::find (Lines.begin (), Lines.end (), Line) != Lines.end ();
  }

  Sim::BootResult                  Booted;
  std::ostringstream               Out;
  std::unique_ptr<Sim::GhesReader> Reader;
};

//
// Routing by the handler: which block, which signal, on the handler's
// processor.
//
struct RouteCase {
  const char  *Name;
  const char  *Kind;
  UINT32       Severity;
  Notification Expected;
};

void PrintTo (const RouteCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class HandlerRoutingTest : public GhesAgentsTest, public ::testing::WithParamInterface<RouteCase> {};

TEST_P (HandlerRoutingTest, RecordsInTheRoutedBlockAndRaisesItsSignal) {
  constexpr UINTN  kCpu  = 3;
  const RouteCase &Case  = GetParam ();
  const auto      &Kind  = Sim::FindErrorKind (Case.Kind);
  const bool       ToNmi = Case.Expected == Notification::Nmi;
  Sim::OsEnableApei ();
  Host::ClearSerialOutput ();

  const UINT64             Sci = Host::SciCount ();
  const UINT64             Nmi = Host::NmiCount ();
  const Sim::HandlerReport Report =
      Sim::ErrorHandlerAgent (kCpu).Report (Sim::BuildKindRecord (Kind, Case.Severity), Case.Severity);
  EXPECT_EQ (EFI_SUCCESS, Report.Locate);
  EXPECT_TRUE (Report.OsLoaded);
  EXPECT_TRUE (Report.Recorded);
  EXPECT_EQ (EFI_SUCCESS, Report.Record);
  EXPECT_EQ (Case.Expected, Report.Signal);
  EXPECT_EQ (EFI_SUCCESS, Report.SignalStatus);
  EXPECT_EQ (Sci + (ToNmi ? 0 : 1), Host::SciCount ());
  EXPECT_EQ (Nmi + (ToNmi ? 1 : 0), Host::NmiCount ());
  EXPECT_EQ (0u, Host::CurrentCpu ()); // the caller's processor is back

  const UINT32 BodyLength = Cper::SectionBodyLength (Kind.Section);
  EXPECT_EQ (kEntryHeader + BodyLength, Block (ToNmi ? 0 : 1)->DataLength);
  EXPECT_EQ (0u, Block (ToNmi ? 1 : 0)->DataLength);
  EXPECT_TRUE (Logged (MachineTest::Line (kCpu, ToNmi ? "VornApeiLoggingElogSignalNmi: Signaling NMI"
                                                      : "VornApeiLoggingElogSignalSci: Signaling SCI")));

  // The OS reads the one block with data and acknowledges it.
  const auto Reports = Reader->Poll ();
  ASSERT_EQ (ToNmi ? 1u : 2u, Reports.size ());
  EXPECT_EQ (Sim::BlockOutcome::Acknowledged, Reports[0].Outcome);
  EXPECT_EQ (ToNmi ? 0x0007 : 0x0008, Reports[0].SourceId);
  ASSERT_EQ (1u, Reports[0].Entries.size ());
  EXPECT_EQ (BodyLength, Reports[0].Entries[0].Length);
  EXPECT_EQ (Case.Severity, Reports[0].Entries[0].Severity);
  EXPECT_EQ (0u, StatusWord (Block (ToNmi ? 0 : 1)));
}

INSTANTIATE_TEST_SUITE_P (
    KindsAndSeverities,
    HandlerRoutingTest,
    ::testing::Values (
        RouteCase{"MemoryCorrected", "memory", EFI_GENERIC_ERROR_CORRECTED, Notification::Sci},
        RouteCase{"MemoryRecoverable", "memory", EFI_GENERIC_ERROR_RECOVERABLE, Notification::Sci},
        RouteCase{"MemoryFatal", "memory", EFI_GENERIC_ERROR_FATAL, Notification::Nmi},
        RouteCase{"PcieRecoverable", "pcie", EFI_GENERIC_ERROR_RECOVERABLE, Notification::Nmi},
        RouteCase{"CxlProtocolRecoverable", "cxl-protocol", EFI_GENERIC_ERROR_RECOVERABLE, Notification::Nmi},
        RouteCase{"CxlComponentCorrected", "cxl-component", EFI_GENERIC_ERROR_CORRECTED, Notification::Sci},
        RouteCase{"ProcessorGenericRecoverable", "processor-generic", EFI_GENERIC_ERROR_RECOVERABLE, Notification::Sci},
        RouteCase{"ProcessorSpecificFatal", "processor-specific", EFI_GENERIC_ERROR_FATAL, Notification::Nmi},
        RouteCase{"PciComponentRecoverable", "pci-component", EFI_GENERIC_ERROR_RECOVERABLE, Notification::Sci}),
    [] (const auto &Info) { return std::string (Info.param.Name); });

TEST_F (GhesAgentsTest, BeforeTheOsEnablesApeiNothingIsRecordedOrSignalled) {
  const auto               Record = Sim::BuildKindRecord (Sim::FindErrorKind ("pcie"), EFI_GENERIC_ERROR_FATAL);
  const Sim::HandlerReport Report = Sim::ErrorHandlerAgent (1).Report (Record, EFI_GENERIC_ERROR_FATAL);
  EXPECT_FALSE (Report.OsLoaded);
  EXPECT_FALSE (Report.Recorded);
  EXPECT_EQ (Notification::None, Report.Signal);
  EXPECT_EQ (0u, Host::NmiCount ());
  EXPECT_EQ (0u, StatusWord (Block (0)));
  EXPECT_EQ ("handler: processor 1: pcie error, severity fatal, record @ " +
                 Sim::Format ("0x%016llX", static_cast<unsigned long long> (Report.RecordAddress)) +
                 ": APEI OS not loaded, not reported\n",
             Sim::HandlerSummary (Report, 1, "pcie error, severity fatal"));

  // Once the OS gives APEI up again, the handler stops reporting.
  Sim::OsEnableApei ();
  Sim::OsDisableApei ();
  EXPECT_FALSE (Sim::ErrorHandlerAgent (1).Report (Record, EFI_GENERIC_ERROR_FATAL).OsLoaded);
}

TEST_F (GhesAgentsTest, ARefusedRecordIsNotSignalled) {
  // A CXL identifier laid out as an EFI GUID is not a section type the
  // module knows.
  Cper::RecordSpec Spec;
  Spec.Kind        = Cper::SectionKind::CxlComponent;
  Spec.SectionType = Cper::CxlEventIdentifierAsEfiGuid (Cper::CxlEvent::GeneralMedia);
  Sim::OsEnableApei ();
  const Sim::HandlerReport Report =
      Sim::ErrorHandlerAgent (0).Report (Cper::BuildRecord (Spec), EFI_GENERIC_ERROR_RECOVERABLE);
  EXPECT_EQ (EFI_UNSUPPORTED, Report.Record);
  EXPECT_EQ (Notification::None, Report.Signal);
  EXPECT_EQ (0u, Host::SciCount () + Host::NmiCount ());
  EXPECT_TRUE (Sim::HandlerSummary (Report, 0, "x").ends_with (": ElogRecord Unsupported, nothing signalled\n"));
}

TEST_F (GhesAgentsTest, AcknowledgementLetsTheHandlerClearTheBlock) {
  Sim::OsEnableApei ();
  const auto &Kind = Sim::FindErrorKind ("memory");
  Sim::ErrorHandlerAgent (2).Report (Sim::BuildKindRecord (Kind, EFI_GENERIC_ERROR_CORRECTED),
                                     EFI_GENERIC_ERROR_CORRECTED);
  EXPECT_EQ (EFI_ALREADY_STARTED, Protocol ()->ElogClear (Protocol (), Block (1), 0x2000));

  const auto Reports = Reader->Poll ();
  ASSERT_EQ (2u, Reports.size ());
  EXPECT_EQ (0x12u, Reports[0].BlockStatus);
  EXPECT_EQ (Sim::BlockOutcome::Empty, Reports[1].Outcome); // the page-retire source
  EXPECT_EQ (Sim::BlockOutcome::Acknowledged, Reports[0].Outcome);
  EXPECT_TRUE (Reader->Poll ().empty ()); // nothing new raised

  EXPECT_EQ (EFI_SUCCESS, Protocol ()->ElogClear (Protocol (), Block (1), 0x2000));
  EXPECT_EQ (0u, StatusWord (Block (1)));
  EXPECT_EQ (0x2000u, Block (1)->RawDataOffset);
  EXPECT_EQ (0u, Block (1)->DataLength);
  EXPECT_EQ (3u, Block (1)->ErrorSeverity);
}

TEST_F (GhesAgentsTest, PageRetireRequestsAreReadThroughTheirOwnSource) {
  Sim::OsEnableApei ();
  Sim::ErrorHandlerAgent Handler (4);
  EXPECT_EQ (Notification::Sci, Handler.RetirePage (0x12345678, "DIMM A1", 1).Signal);
  EXPECT_EQ (Notification::Sci, Handler.RetirePage (0x9ABCD010, "", 1).Signal);
  UINT64 PageBegin; // the first request's begin_add, behind its 64-byte entry
  std::memcpy (&PageBegin, Host::At<void> (Booted.Platform.StatusBlocks[2].StatusBlock + 20 + 64 + 8), 8);
  EXPECT_EQ (0x0000000012345000ULL, PageBegin);

  const auto Reports = Reader->Poll ();
  ASSERT_EQ (2u, Reports.size ());
  EXPECT_EQ (Sim::BlockOutcome::Empty, Reports[0].Outcome);
  ASSERT_EQ (Sim::BlockOutcome::Acknowledged, Reports[1].Outcome);
  ASSERT_EQ (2u, Reports[1].Entries.size ());
  EXPECT_EQ (0x2Au, Reports[1].BlockStatus); // correctable, multiple correctable, 2 entries
  EXPECT_NE (std::string::npos, Out.str ().find ("os:   entry 0: FRU text \"DIMM A1\"\n"));
  EXPECT_EQ (std::string::npos, Out.str ().find ("entry 1: FRU text"));
  EXPECT_EQ (0u, StatusWord (Block (2)));
}

//
// A block that fails the OS's checks: reported, not decoded, acknowledged.
//
struct CorruptCase {
  const char *Name;
  void (*Corrupt) (GENERIC_ERROR_STATUS *Block);
  const char *Problem;
};

void PrintTo (const CorruptCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

GENERIC_ERROR_DATA_ENTRY *FirstEntry (GENERIC_ERROR_STATUS *Block) {
  return reinterpret_cast<GENERIC_ERROR_DATA_ENTRY *> (Block + 1);
}

// In Linux's order: truncated, longer than the HEST says, CPER header, entries.
const CorruptCase kCorruptCases[] = {
    {"RawDataOffsetTruncates",
     [] (GENERIC_ERROR_STATUS *B) {
       B->RawDataOffset = 4;
       B->DataLength    = 40;
     },
     "Truncated error status block! (4 bytes)"},
    {"BlockLongerThanTheHestSays",
     [] (GENERIC_ERROR_STATUS *B) {
       B->DataLength    = 0x2000;
       B->RawDataLength = 16;
     },
     "Invalid error status block length! (8212 bytes, the HEST block length is 8192)"},
    {"DataLengthShorterThanAHeader", [] (GENERIC_ERROR_STATUS *B) { B->DataLength = 40; },
     "Invalid CPER header! (DataLength 40 is shorter than a data entry header)"},
    {"RawDataOverlapsTheEntries",
     [] (GENERIC_ERROR_STATUS *B) {
       B->RawDataLength = 16;
       B->RawDataOffset = 100;
     },
     "Invalid CPER header! (raw data at offset 100 overlaps the entries)"},
    {"DataLengthPastTheEntries", [] (GENERIC_ERROR_STATUS *B) { B->DataLength += 8; },
     "Failed to read error status block! (DataLength 160 ends inside entry 1: 8 bytes left)"},
    {"OldRevisionShortensTheHeader", [] (GENERIC_ERROR_STATUS *B) { FirstEntry (B)->Revision = 0x0201; },
     "Failed to read error status block! (DataLength 152 ends inside entry 1: 8 bytes left)"},
    {"EntryDataPastDataLength", [] (GENERIC_ERROR_STATUS *B) { FirstEntry (B)->ErrorDataLength = 81; },
     "Failed to read error status block! (entry 0, revision 0x0300, 72-byte header and 81 bytes of data, runs past "
     "DataLength: 152 bytes left)"},
};

class CorruptBlockTest : public GhesAgentsTest, public ::testing::WithParamInterface<CorruptCase> {};

TEST_P (CorruptBlockTest, IsReportedNotDecodedAndAcknowledged) {
  Sim::OsEnableApei ();
  Sim::ErrorHandlerAgent (0).Report (Sim::BuildKindRecord (Sim::FindErrorKind ("memory"), 2), 2);
  GetParam ().Corrupt (Block (1));

  const auto Reports = Reader->Poll ();
  ASSERT_EQ (2u, Reports.size ());
  EXPECT_EQ (Sim::BlockOutcome::Rejected, Reports[0].Outcome);
  EXPECT_EQ (GetParam ().Problem, Reports[0].Problem);
  EXPECT_TRUE (Reports[0].Entries.empty ());
  EXPECT_EQ (0u, StatusWord (Block (1)));
}

INSTANTIATE_TEST_SUITE_P (Blocks, CorruptBlockTest, ::testing::ValuesIn (kCorruptCases), [] (const auto &Info) {
  return std::string (Info.param.Name);
});

//
// CPER records from other tools.
//
std::vector<UINT8> MemoryRecord () {
  return Cper::BuildRecord (Cper::RecordSpec ());
}

template <typename T> void Put (std::vector<UINT8> &Bytes, size_t Offset, T Value) {
  std::memcpy (Bytes.data () + Offset, &Value, sizeof (Value));
}

// The body moved Gap bytes further, behind Extra more descriptors.
std::vector<UINT8> Spread (UINT16 ExtraDescriptors, UINT32 Gap) {
  std::vector<UINT8> Record = MemoryRecord ();
  const UINT32       Added  = ExtraDescriptors * 72u + Gap;
  Record.insert (Record.begin () + 200, Added, 0xA5);
  Put<UINT16> (Record, 10, static_cast<UINT16> (1 + ExtraDescriptors));
  Put<UINT32> (Record, 20, static_cast<UINT32> (Record.size ()));
  Put<UINT32> (Record, 128, 200 + Added);
  return Record;
}

TEST (CperFileTest, SectionsElsewhereAreRebuiltAtByte200) {
  EXPECT_EQ (MemoryRecord (), Sim::SingleSectionRecord (MemoryRecord ()));
  EXPECT_EQ (MemoryRecord (), Sim::SingleSectionRecord (Spread (0, 56)));
  EXPECT_EQ (MemoryRecord (), Sim::SingleSectionRecord (Spread (2, 0)));
}

// A corrected machine check is announced as a CMC, whatever the section.
TEST (CperBuilderTest, NotificationTypeFollowsSectionAndSeverity) {
  const struct {
    Cper::SectionKind Kind;
    UINT32            Severity;
    const EFI_GUID   *Expected;
  } Cases[] = {
      {Cper::SectionKind::ProcessorGeneric, EFI_GENERIC_ERROR_CORRECTED, &gEfiEventNotificationTypeCmcGuid},
      {Cper::SectionKind::ProcessorSpecific, EFI_GENERIC_ERROR_CORRECTED, &gEfiEventNotificationTypeCmcGuid},
      {Cper::SectionKind::ProcessorGeneric, EFI_GENERIC_ERROR_FATAL, &gEfiEventNotificationTypeMceGuid},
      {Cper::SectionKind::Memory, EFI_GENERIC_ERROR_RECOVERABLE, &gEfiEventNotificationTypeMceGuid},
      {Cper::SectionKind::Pcie, EFI_GENERIC_ERROR_CORRECTED, &gEfiEventNotificationTypePcieGuid},
  };
  for (const auto &Case : Cases) {
    Cper::RecordSpec Spec;
    Spec.Kind                       = Case.Kind;
    Spec.SectionSeverity            = Case.Severity;
    const std::vector<UINT8> Record = Cper::BuildRecord (Spec);
    EXPECT_EQ (0, std::memcmp (Record.data () + 80, Case.Expected, sizeof (EFI_GUID)))
        << static_cast<int> (Case.Kind) << " severity " << Case.Severity;
  }
}

struct BadCperCase {
  const char *Name;
  std::vector<UINT8> (*Make) ();
  const char *Message;
};

void PrintTo (const BadCperCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

const BadCperCase kBadCperCases[] = {
    {"ShorterThanAHeader", [] { return std::vector<UINT8> (100, 0); },
     "100 bytes is shorter than a CPER record header (128 bytes)"},
    {"NoSignature",
     [] {
       auto R = MemoryRecord ();
       R[0]   = 'X';
       return R;
     },
     "not a CPER record (no \"CPER\" signature)"},
    {"RecordLengthIsNotTheSize",
     [] {
       auto R = MemoryRecord ();
       R.push_back (0);
       return R;
     },
     "RecordLength 280 does not match the record's 281 bytes"},
    {"NoSection",
     [] {
       auto R = MemoryRecord ();
       Put<UINT16> (R, 10, 0);
       return R;
     },
     "SectionCount is 0: the record has no section to report"},
    {"SectionPastTheEnd",
     [] {
       auto R = MemoryRecord ();
       Put<UINT32> (R, 132, 81);
       return R;
     },
     "the first section (offset 200, 81 bytes) runs past the record's 280 bytes"},
};

class BadCperTest : public ::testing::TestWithParam<BadCperCase> {};

TEST_P (BadCperTest, IsRefusedWithItsReason) {
  try {
    Sim::SingleSectionRecord (GetParam ().Make ());
    FAIL () << "accepted";
  } catch (const Sim::CperFileError &Error) {
    EXPECT_STREQ (GetParam ().Message, Error.what ());
  }
}

INSTANTIATE_TEST_SUITE_P (Records, BadCperTest, ::testing::ValuesIn (kBadCperCases), [] (const auto &Info) {
  return std::string (Info.param.Name);
});

} // namespace
