/** @file
  CPER record dump: the walk over descriptors and sections (SectionOffset
  honoured, an unknown type reported without stopping the walk), the header
  and descriptor dumps line by line, the signature check and the NULL
  checks.
**/
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Handlers/CperBuilder.h"
#include "SectionKindName.h"
#include <Library/DebugLib.h>
#include <Library/ElogBaseLib.h>
#include <Library/ElogCperDump.h>

#include "TestFormat.h"
#include "TestMachine.h"

namespace {

using Lines = std::vector<std::string>;

constexpr UINT32 kHeaderSize     = sizeof (EFI_COMMON_ERROR_RECORD_HEADER);
constexpr UINT32 kDescriptorSize = sizeof (EFI_ERROR_SECTION_DESCRIPTOR);

const Cper::Bytes16 kFirmwareErrorType = {0x96, 0x2A, 0x21, 0x81, 0xED, 0x09, 0x96, 0x49,
                                          0x94, 0x71, 0x8D, 0x72, 0x9C, 0x8E, 0x69, 0xED};

std::string Hex16 (const void *Address) {
  char Text[24];
  std::snprintf (Text, sizeof (Text), "0x%016llX",
                 static_cast<unsigned long long> (reinterpret_cast<uintptr_t> (Address)));
  return Text;
}

class CperRecordDumpTest : public MachineTest {
protected:
  void SetUp () override {
    MachineTest::SetUp ();
    mPrivateDataVornElogBase.SerDbgLevel = DEBUG_INFO;
  }

  static Lines Logged (const Lines &Texts) {
    Lines Out;
    for (const std::string &Text : Texts) {
      Out.push_back (Line (0, Text));
    }

    return Out;
  }

  //
  // One record from several single-section ones: the first one's header,
  // every descriptor, then the bodies, with a gap of Gap bytes before each
  // body so that only SectionOffset finds it.
  //
  static UINT8 *Compose (const std::vector<Cper::RecordSpec> &Specs, UINT32 Gap) {
    std::vector<std::vector<UINT8>> Singles;
    for (const Cper::RecordSpec &Spec : Specs) {
      Singles.push_back (Cper::BuildRecord (Spec));
    }

    std::vector<UINT8> Record (Singles[0].begin (), Singles[0].begin () + kHeaderSize);
    std::vector<UINT8> Bodies;
    UINT32             Offset = kHeaderSize + kDescriptorSize * static_cast<UINT32> (Specs.size ());
    for (const std::vector<UINT8> &Single : Singles) {
      EFI_ERROR_SECTION_DESCRIPTOR Descriptor;
      std::memcpy (&Descriptor, Single.data () + kHeaderSize, kDescriptorSize);
      Offset += Gap;
      Bodies.insert (Bodies.end (), Gap, 0xEE);
      Descriptor.SectionOffset = Offset;
      Offset += Descriptor.SectionLength;
      Bodies.insert (Bodies.end (), Single.begin () + kHeaderSize + kDescriptorSize, Single.end ());
      const UINT8 *Bytes = reinterpret_cast<const UINT8 *> (&Descriptor);
      Record.insert (Record.end (), Bytes, Bytes + kDescriptorSize);
    }

    Record.insert (Record.end (), Bodies.begin (), Bodies.end ());
    auto *Header         = reinterpret_cast<EFI_COMMON_ERROR_RECORD_HEADER *> (Record.data ());
    Header->SectionCount = static_cast<UINT16> (Specs.size ());
    Header->RecordLength = static_cast<UINT32> (Record.size ());
    return reinterpret_cast<UINT8 *> (Cper::PlaceInSmram (Record));
  }

  // The record walk's own lines and the section printers' titles.
  static Lines WalkLines () {
    Lines Walk;
    for (const std::string &Logged : SerialLines ()) {
      const std::string Text = Logged.substr (CpuPrefix (0).size ());
      if (Text.rfind ("DisplayCperRecord: ", 0) == 0 || Text.rfind ("CPER ", 0) == 0) {
        Walk.push_back (Text);
      }
    }

    return Walk;
  }
};

TEST_F (CperRecordDumpTest, UnknownSecondSectionDoesNotStopTheWalk) {
  Cper::RecordSpec Memory;
  Cper::RecordSpec Unknown;
  Unknown.SectionType = kFirmwareErrorType;
  Cper::RecordSpec Pcie;
  Pcie.Kind           = Cper::SectionKind::Pcie;
  UINT8       *Record = Compose ({Memory, Unknown, Pcie}, 8);
  const UINT32 First  = kHeaderSize + 3 * kDescriptorSize + 8;
  const UINT32 Second = First + Cper::SectionBodyLength (Cper::SectionKind::Memory) + 8;
  const UINT32 Third  = Second + Cper::SectionBodyLength (Cper::SectionKind::Memory) + 8;

  DisplayCperRecord (DEBUG_INFO, Record);

  EXPECT_EQ (WalkLines (),
             (Lines{"DisplayCperRecord: pOsRecordHdr->SignatureStart == CPER, Parsing CPER record",
                    "DisplayCperRecord: Section count 3", "CPER Record Header @ " + Hex16 (Record) + " length 128",
                    "DisplayCperRecord: Processing Descriptor 0 and associated Section data",
                    "CPER Section Descriptor @ " + Hex16 (Record + 128) + " length 72",
                    "DisplayCperRecord: CPER section data @ " + Hex16 (Record + First) + " length 80",
                    "DisplayCperRecord: CPER section type memory error GUID detected",
                    "CPER platform memory error section data",
                    "DisplayCperRecord: Processing Descriptor 1 and associated Section data",
                    "CPER Section Descriptor @ " + Hex16 (Record + 200) + " length 72",
                    "DisplayCperRecord: CPER section data @ " + Hex16 (Record + Second) + " length 80",
                    "DisplayCperRecord: ERROR CPER section type GUID unrecognized, aborting...",
                    "DisplayCperRecord: Processing Descriptor 2 and associated Section data",
                    "CPER Section Descriptor @ " + Hex16 (Record + 272) + " length 72",
                    "DisplayCperRecord: CPER section data @ " + Hex16 (Record + Third) + " length 208",
                    "DisplayCperRecord: CPER section type PCIe error GUID detected", "CPER PCIe error section data"}));
  // The PCIe body was found through its offset: its port type decodes.
  const Lines All = SerialLines ();
  EXPECT_NE (
      std::find (All.begin (), All.end (), Line (0, "     Port Type                       = 0x00000004 (Root Port)")),
      All.end ());
}

struct DetectionCase {
  Cper::SectionKind Kind;
  std::string       Detected;
  std::string       Title;
};

void PrintTo (const DetectionCase &Case, std::ostream *Out) {
  *Out << Cper::SectionKindName (Case.Kind);
}

class CperRecordDetectionTest : public CperRecordDumpTest, public ::testing::WithParamInterface<DetectionCase> {};

TEST_P (CperRecordDetectionTest, NamesTheTypeThenPrintsTheSection) {
  Cper::RecordSpec Spec;
  Spec.Kind = GetParam ().Kind;

  DisplayCperRecord (DEBUG_INFO, Compose ({Spec}, 0));

  const Lines Walk = WalkLines ();
  ASSERT_GE (Walk.size (), 8u);
  EXPECT_EQ (Walk[6], "DisplayCperRecord: CPER section type " + GetParam ().Detected + " GUID detected");
  EXPECT_EQ (Walk[7], GetParam ().Title);
}

INSTANTIATE_TEST_SUITE_P (
    Kinds,
    CperRecordDetectionTest,
    ::testing::Values (
        DetectionCase{Cper::SectionKind::ProcessorGeneric, "processor generic error",
                      "CPER processor generic error section data"},
        DetectionCase{Cper::SectionKind::ProcessorSpecific, "processor specific error",
                      "CPER IA32/X64 processor specific error section data"},
        DetectionCase{Cper::SectionKind::Memory, "memory error", "CPER platform memory error section data"},
        DetectionCase{Cper::SectionKind::Pcie, "PCIe error", "CPER PCIe error section data"},
        DetectionCase{Cper::SectionKind::PciComponent, "PCI component error", "CPER PCI component error section data"},
        DetectionCase{Cper::SectionKind::CxlProtocol, "CXL protocol error", "CPER CXL protocol error section data"},
        DetectionCase{Cper::SectionKind::CxlComponent, "CXL component event", "CPER CXL component event section data"}),
    ::testing::PrintToStringParamName ());

TEST_F (CperRecordDumpTest, PageRetireSectionIsDetectedBeforeTheCxlTypes) {
  Cper::RecordSpec Spec;
  Spec.SectionType = Cper::VmwarePageRetireSectionType ();
  Spec.BodyLength  = sizeof (VMWARE_PAGE_RETIRE_RECORD);

  DisplayCperRecord (DEBUG_INFO, Compose ({Spec}, 0));

  const Lines Walk = WalkLines ();
  ASSERT_EQ (Walk.size (), 8u);
  EXPECT_EQ (Walk[6], "DisplayCperRecord: CPER section type VMWare WHEA page retire record GUID detected");
  EXPECT_EQ (Walk[7], "CPER memory page retire section data");
}

// The signature line goes out at the caller's level: a disabled level hides it.
TEST_F (CperRecordDumpTest, RecordWithoutSignatureIsRefusedAtTheGivenLevel) {
  std::vector<UINT8> Bytes = Cper::BuildRecord (Cper::RecordSpec ());
  Bytes[0]                 = 'X';
  UINT8 *Record            = reinterpret_cast<UINT8 *> (Cper::PlaceInSmram (Bytes));

  DisplayCperRecord (DEBUG_VERBOSE, Record);
  EXPECT_TRUE (SerialLines ().empty ());

  DisplayCperRecord (DEBUG_INFO, Record);
  EXPECT_EQ (SerialLines (), Logged ({"DisplayCperRecord: ERROR pOsRecordHdr->SignatureStart != CPER, aborting..."}));
}

EFI_COMMON_ERROR_RECORD_HEADER
Header (const EFI_GUID &Notification) {
  EFI_COMMON_ERROR_RECORD_HEADER H{};
  H.SignatureStart   = EFI_ERROR_RECORD_SIGNATURE_START;
  H.Revision         = EFI_ERROR_RECORD_REVISION;
  H.SignatureEnd     = EFI_ERROR_RECORD_SIGNATURE_END;
  H.SectionCount     = 1;
  H.ErrorSeverity    = EFI_GENERIC_ERROR_FATAL;
  H.ValidationBits   = 0x5;
  H.RecordLength     = 0x148;
  H.TimeStamp        = {0x59, 0x30, 0x23, 0x00, 0x31, 0x12, 0x99, 0x19};
  H.PlatformID       = {0x11111111, 0x2222, 0x3333, {0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}};
  H.CreatorID        = {0xAABBCCDD, 0xEEFF, 0x0011, {0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99}};
  H.NotificationType = Notification;
  H.RecordID         = 0x0000000100000002ULL;
  H.Flags            = 0x6;
  H.PersistenceInfo  = 0x1122334455667788ULL;
  return H;
}

TEST_F (CperRecordDumpTest, HeaderPrintsEveryField) {
  auto *Placed = Host::At<EFI_COMMON_ERROR_RECORD_HEADER> (Host::AllocateSmram (kHeaderSize));
  *Placed      = Header (gEfiEventNotificationTypeCmcGuid);

  DisplayCperRecordHeader (DEBUG_INFO, Placed);

  EXPECT_EQ (SerialLines (),
             Logged ({"CPER Record Header @ " + Hex16 (Placed) + " length 128",
                      "     Signature Start                 = 0x52455043",
                      "     Revision                        = 0x0101",
                      "     Signature End                   = 0xFFFFFFFF",
                      "     Section Count                   = 0x0001 (1)",
                      "     Error Severity                  = 0x00000001 (Fatal)",
                      "     Validation Bits                 = 0x00000005",
                      "       Bit[00] Platform ID",
                      "       Bit[02] Partition ID",
                      "     Record Length                   = 0x00000148 (328)",
                      "     Timestamp Raw Data              = 0x01999123100233059 (18/49/25153 35:48:89) !Precise",
                      "     Platform ID                     = 11111111-2222-3333-4444-555555555555",
                      "     Partition ID                    = 00000000-0000-0000-0000-000000000000",
                      "     Creator ID                      = AABBCCDD-EEFF-0011-2233-445566778899",
                      "     Notification Type               = 2DCE8BB1-BDD7-450E-B9AD-9CF4EBD4F890 (CMC)",
                      "     Record ID                       = 0x0000000100000002",
                      "     Flags                           = 0x00000006",
                      "       Bit[01] Previous Error",
                      "       Bit[02] Simulated",
                      "     Persistence Information         = 0x1122334455667788"}));
}

struct NotificationCase {
  EFI_GUID   *Guid;
  std::string Expected;
};

void PrintTo (const NotificationCase &Case, std::ostream *Out) {
  *Out << Case.Expected;
}

class NotificationNameTest : public CperRecordDumpTest, public ::testing::WithParamInterface<NotificationCase> {};

TEST_P (NotificationNameTest, OnlyFourTypesHaveAName) {
  auto *Placed = Host::At<EFI_COMMON_ERROR_RECORD_HEADER> (Host::AllocateSmram (kHeaderSize));
  *Placed      = Header (*GetParam ().Guid);

  DisplayCperRecordHeader (DEBUG_INFO, Placed);

  const Lines All = SerialLines ();
  ASSERT_EQ (All.size (), 20u);
  EXPECT_EQ (All[14], Line (0, "     Notification Type               = " + GetParam ().Expected));
}

INSTANTIATE_TEST_SUITE_P (
    Types,
    NotificationNameTest,
    ::testing::Values (
        NotificationCase{&gEfiEventNotificationTypeMceGuid, "E8F56FFE-919C-4CC5-BA88-65ABE14913BB (MCE)"},
        NotificationCase{&gEfiEventNotificationTypeNmiGuid, "5BAD89FF-B7E6-42C9-814A-CF2485D6E98A (NMI)"},
        NotificationCase{&gEfiEventNotificationTypePcieGuid, "CF93C01F-1A16-4DFC-B8BC-9C4DAF67C104 (PCIE)"},
        NotificationCase{&gEfiPcieErrorSectionGuid, "D995E954-BBC1-430F-AD91-B44DCB3C6F35 ()"}),
    [] (const auto &Info) { return Format ("Guid%08X", Info.param.Guid->Data1); });

TEST_F (CperRecordDumpTest, DescriptorWithFruIdPrintsIt) {
  Cper::RecordSpec Spec;
  Spec.FruId =
      Cper::Bytes16{0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10};
  Spec.FruText        = "DIMM A1";
  Spec.SectionFlags   = 0x81;
  CPER_RECORD *Record = Cper::PlaceInSmram (Cper::BuildRecord (Spec));

  DisplayCperSectionDescriptor (DEBUG_INFO, &Record->Descriptor);

  EXPECT_EQ (
      SerialLines (),
      Logged (
          {"CPER Section Descriptor @ " + Hex16 (&Record->Descriptor) + " length 72",
           "     Section Offset                  = 0x000000C8 (200)",
           "     Section Length                  = 0x00000050 (80)", "     Revision                        = 0x0100",
           "     Validation Bits                 = 0x03", "       Bit[00] FRUId", "       Bit[01] FRUString",
           "     Reserved                        = 0x00", "     Flags                           = 0x00000081",
           "       Bit[00] Primary", "       Bit[07] Overflow",
           "VornElogCxlCheckComponentEventSectionType: Validating UUID 1411BCA5-646F-DE4E-B863-3E83ED7C83B1 for CXL Component UUID",
           "VornElogCxlCheckComponentEventSectionType: UUID is not CXL component event section type",
           "     Section Type                    = A5BC1114-6F64-4EDE-B863-3E83ED7C83B1 (GUID Memory)",
           "     FRU ID                          = 04030201-0605-0807-090A-0B0C0D0E0F10",
           "     Section Severity                = 0x00000002 (Corrected)",
           "     FRU Text                        = DIMM A1"}));
}

TEST_F (CperRecordDumpTest, CxlDescriptorWithoutFruIdShowsTheEventName) {
  Cper::RecordSpec Spec;
  Spec.Kind            = Cper::SectionKind::CxlComponent;
  Spec.Event           = Cper::CxlEvent::MldPort;
  Spec.SectionSeverity = EFI_GENERIC_ERROR_INFO;
  Spec.SectionFlags    = 0;
  CPER_RECORD *Record  = Cper::PlaceInSmram (Cper::BuildRecord (Spec));

  DisplayCperSectionDescriptor (DEBUG_INFO, &Record->Descriptor);

  const Lines All = SerialLines ();
  ASSERT_EQ (All.size (), 12u);
  EXPECT_EQ (
      Lines (All.begin () + 5, All.end ()),
      Logged (
          {"     Reserved                        = 0x00", "     Flags                           = 0x00000000",
           "VornElogCxlCheckComponentEventSectionType: Validating UUID 8DC44363-0C96-4710-B7BF-04BB99534C3F for CXL Component UUID",
           "VornElogCxlCheckComponentEventSectionType: UUID is CXL component event section type",
           "     Section Type                    = 8DC44363-0C96-4710-B7BF-04BB99534C3F (UUID MLD Port Event Record)",
           "     Section Severity                = 0x00000003 (None)", "     FRU Text                        = "}));
}

TEST_F (CperRecordDumpTest, NullHeaderAndDescriptorAreRefused) {
  DisplayCperRecordHeader (DEBUG_INFO, nullptr);
  DisplayCperSectionDescriptor (DEBUG_INFO, nullptr);

  EXPECT_EQ (SerialLines (),
             Logged ({"DisplayCperRecordHeader: ERROR pCperHeader is NULL, aborting...",
                      "DisplayCperSectionDescriptor: ERROR pCperSectionDescriptor is NULL, aborting..."}));
}

} // namespace
