/** @file
  The diagnostic dumps, for what the golden logs do not show: the raw dump's
  cells, the record walk over several sections, the bit decodes each bit
  alone, the processor-specific walk over its checks and contexts, register
  data that does not fill its layout, the section dispatch, NULL structures
  and a level the platform does not print.
**/
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Handlers/CperBuilder.h"
#include <CperSections.h>
#include <Library/DebugLib.h>
#include <Library/ElogBaseLib.h>
#include <Library/ElogCperDump.h>
#include <Library/ElogStoreDump.h>

#include "StatusWord.h"
#include "TestMachine.h"

namespace {

using Lines = std::vector<std::string>;

const Cper::Bytes16 kFirmwareErrorType = {0x96, 0x2A, 0x21, 0x81, 0xED, 0x09, 0x96, 0x49,
                                          0x94, 0x71, 0x8D, 0x72, 0x9C, 0x8E, 0x69, 0xED};

class DumpTest : public MachineTest {
protected:
  void SetUp () override {
    MachineTest::SetUp ();
    mPrivateDataVornElogBase.SerDbgLevel = DEBUG_INFO;
  }

  // The log without the processor prefix.
  static Lines Logged () {
    Lines Out;
    for (const std::string &Text : SerialLines ()) {
      Out.push_back (Text.substr (std::min (Text.size (), CpuPrefix (0).size ())));
    }
    return Out;
  }

  // Expected lines that must appear, in this order, among the logged ones.
  static ::testing::AssertionResult InOrder (const Lines &Expected) {
    const Lines All = Logged ();
    auto        At  = All.begin ();
    for (const std::string &Text : Expected) {
      At = std::find (At, All.end (), Text);
      if (At == All.end ()) {
        return ::testing::AssertionFailure () << "missing or out of order: \"" << Text << "\"";
      }
      ++At;
    }
    return ::testing::AssertionSuccess ();
  }

  static UINT8 *Place (const void *Bytes, size_t Length) {
    UINT8 *Copy = Host::At<UINT8> (Host::AllocateReserved (Length + 16, 16));
    std::memcpy (Copy, Bytes, Length);
    return Copy;
  }

  template <typename T> static void Put (std::vector<UINT8> &Bytes, size_t Offset, T Value) {
    std::memcpy (Bytes.data () + Offset, &Value, sizeof (Value));
  }
};

std::string Hex16 (UINT64 Address) {
  char Text[24];
  std::snprintf (Text, sizeof (Text), "0x%016llX", static_cast<unsigned long long> (Address));
  return Text;
}

//
// Raw dump: sixteen cells a line from the 16-byte boundary below the data,
// "--" for the cells outside it, the last byte included.
//
TEST_F (DumpTest, RawDumpPadsTheCellsOutsideTheData) {
  UINT8 *Base = Host::At<UINT8> (Host::AllocateReserved (64, 16));
  std::memcpy (Base + 0xE, "\xDE\xAD\xBE\xEF", 4);
  PrintRawData (Base + 0xE, 4, DEBUG_INFO);
  PrintRawData (Base + 5, 0, DEBUG_INFO);
  std::string Dashes;
  for (int Cell = 0; Cell < 14; Cell++) {
    Dashes += "-- ";
  }
  EXPECT_EQ (Logged (),
             (Lines{"Starting Address    00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F",
                    Hex16 ((UINT64)Base) + ": " + Dashes + "DE AD ", Hex16 ((UINT64)Base + 16) + ": BE EF " + Dashes,
                    "Starting Address    00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F",
                    Hex16 ((UINT64)Base) + ": " + Dashes + "-- -- "}));
}

//
// The record walk finds each body through its SectionOffset and goes on
// past a section type it does not know.
//
TEST_F (DumpTest, RecordWalkVisitsEverySection) {
  Cper::RecordSpec Memory, Unknown, Pcie;
  Unknown.SectionType          = kFirmwareErrorType;
  Pcie.Kind                    = Cper::SectionKind::Pcie;
  constexpr UINT32 kHeader     = sizeof (EFI_COMMON_ERROR_RECORD_HEADER),
                   kDescriptor = sizeof (EFI_ERROR_SECTION_DESCRIPTOR);
  std::vector<UINT8> Record, Bodies;
  UINT32             Offset = kHeader + 3 * kDescriptor;
  for (const Cper::RecordSpec &Spec : {Memory, Unknown, Pcie}) {
    const std::vector<UINT8> Single = Cper::BuildRecord (Spec);
    if (Record.empty ()) {
      Record.assign (Single.begin (), Single.begin () + kHeader);
    }
    EFI_ERROR_SECTION_DESCRIPTOR Descriptor;
    std::memcpy (&Descriptor, Single.data () + kHeader, kDescriptor);
    Bodies.insert (Bodies.end (), 8, 0xEE); // a gap that only SectionOffset skips
    Descriptor.SectionOffset = Offset + 8;
    Offset += 8 + Descriptor.SectionLength;
    Bodies.insert (Bodies.end (), Single.begin () + kHeader + kDescriptor, Single.end ());
    Record.insert (Record.end (), reinterpret_cast<UINT8 *> (&Descriptor),
                   reinterpret_cast<UINT8 *> (&Descriptor) + kDescriptor);
  }
  Record.insert (Record.end (), Bodies.begin (), Bodies.end ());
  reinterpret_cast<EFI_COMMON_ERROR_RECORD_HEADER *> (Record.data ())->SectionCount = 3;

  DisplayCperRecord (DEBUG_INFO, Place (Record.data (), Record.size ()));
  EXPECT_TRUE (
      InOrder ({"DisplayCperRecord: Section count 3", "CPER platform memory error section data",
                "DisplayCperRecord: ERROR CPER section type GUID unrecognized, aborting...",
                "DisplayCperRecord: Processing Descriptor 2 and associated Section data",
                "CPER PCIe error section data", "     Port Type                       = 0x00000004 (Root Port)"}));

  Host::ClearSerialOutput ();
  Record[0] = 'X'; // not a record: refused at the caller's level, so a disabled one hides it
  DisplayCperRecord (DEBUG_VERBOSE, Place (Record.data (), Record.size ()));
  EXPECT_TRUE (Logged ().empty ());
  DisplayCperRecord (DEBUG_INFO, Place (Record.data (), Record.size ()));
  EXPECT_EQ (Logged ().size (), 1u);
}

//
// Descriptors: the FRU id only when it is vouched for; a CXL component
// event is named by its identifier.
//
TEST_F (DumpTest, DescriptorPrintsTheFruIdOnlyWhenValid) {
  Cper::RecordSpec Spec;
  Spec.FruId        = Cper::Bytes16{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  Spec.SectionFlags = 0x81;
  DisplayCperSectionDescriptor (DEBUG_INFO, &Cper::PlaceInSmram (Cper::BuildRecord (Spec))->Descriptor);
  EXPECT_TRUE (InOrder ({"     Validation Bits                 = 0x01", "       Bit[00] FRUId",
                         "       Bit[00] Primary", "       Bit[07] Overflow",
                         "     FRU ID                          = 04030201-0605-0807-090A-0B0C0D0E0F10"}));

  Host::ClearSerialOutput ();
  Spec       = Cper::RecordSpec ();
  Spec.Kind  = Cper::SectionKind::CxlComponent;
  Spec.Event = Cper::CxlEvent::MldPort;
  DisplayCperSectionDescriptor (DEBUG_INFO, &Cper::PlaceInSmram (Cper::BuildRecord (Spec))->Descriptor);
  const Lines All = Logged ();
  EXPECT_EQ (std::count_if (All.begin (), All.end (),
                            [] (const std::string &T) { return T.find ("FRU ID") != std::string::npos; }),
             0);
  EXPECT_TRUE (InOrder (
      {"     Section Type                    = 8DC44363-0C96-4710-B7BF-04BB99534C3F (UUID MLD Port Event Record)"}));
}

//
// Status block bits: each bit decoded from its own position.
//
TEST_F (DumpTest, StatusBlockBitsAreDecodedOneByOne) {
  const struct {
    UINT32 Word;
    Lines  Bits;
  } Cases[] = {{0x1, {"0x1", "0x0", "0x0", "0x0"}},
               {0x2, {"0x0", "0x1", "0x0", "0x0"}},
               {0x4, {"0x0", "0x0", "0x1", "0x0"}},
               {0x8, {"0x0", "0x0", "0x0", "0x1"}}};
  for (const auto &Case : Cases) {
    Host::ClearSerialOutput ();
    GENERIC_ERROR_STATUS Block = {BlockStatusOf (Case.Word | (3u << 4)), 0x2000, 0, 0x94, 7};
    DisplayWheaGenericErrorStatusBlock (DEBUG_INFO,
                                        reinterpret_cast<GENERIC_ERROR_STATUS *> (Place (&Block, sizeof (Block))));
    EXPECT_TRUE (InOrder ({"      Block Status.UncErrValid                  = " + Case.Bits[0],
                           "      Block Status.CorErrValid                  = " + Case.Bits[1],
                           "      Block Status.MultUncErrs                  = " + Case.Bits[2],
                           "      Block Status.MultCorErrs                  = " + Case.Bits[3],
                           "      Block Status.ErrDataEntries               = 0x003 (3)",
                           "      Error Severity                            = 0x00000007 (Unrecognized Type)"}))
        << Case.Word;
  }

  Host::ClearSerialOutput ();
  GENERIC_ERROR_STATUS Retire = {BlockStatusOf (0xC000000A), 0x2000, 0, 240, 2};
  DisplayWheaGenericErrorStatusBlockVmwarePageRetire (
      DEBUG_INFO, reinterpret_cast<GENERIC_ERROR_STATUS *> (Place (&Retire, sizeof (Retire))));
  EXPECT_TRUE (InOrder ({"      Block Status.UnprocessedGedeInWq          = 0x1",
                         "      Block Status.MultipleUnprocessedGedesInWq = 0x1",
                         "      Block Status.OsTransferData               = 0x3"}));
}

//
// Data entries: every validation and flag bit has its line; the timestamp's
// precision comes from its bit 0 of byte 3; the page-retire layout decodes
// only its own bits.
//
TEST_F (DumpTest, DataEntryBitsAndTimestamp) {
  GENERIC_ERROR_DATA_ENTRY Gede{};
  const auto               Type = Cper::SectionTypeBytes (Cper::SectionKind::Memory);
  std::memcpy (Gede.SectionType, Type.data (), 16);
  Gede.ValidationBits = 0xFF;
  Gede.Flags          = 0xA2;
  const UINT8 Stamp[] = {0x00, 0x05, 0x09, 0xFE, 0x01, 0x12, 0x99, 0x19};
  std::memcpy (Gede.Timestamp, Stamp, 8);
  DisplayWheaGenericErrorDataEntryv63 (DEBUG_INFO,
                                       reinterpret_cast<GENERIC_ERROR_DATA_ENTRY *> (Place (&Gede, sizeof (Gede))));
  EXPECT_TRUE (
      InOrder ({"       Bit[00] FRUId", "       Bit[01] FRUString", "       Bit[02] Timestamp",
                "       Bit[01] Containment Warning", "       Bit[05] Latent Error", "       Bit[07] Overflow",
                "     Timestamp Raw Data              = 0x019991201FE090500 (18/01/25153 09:05:00) !Precise"}));
  EXPECT_EQ (Logged ().size (), 18u);

  Host::ClearSerialOutput ();
  VMWARE_PAGE_RETIRE_DATA_ENTRY Entry{};
  Entry.ValidationBits = 0xFF;
  Entry.Flags          = 0xFF;
  DisplayWheaGenericErrorDataEntryVmwarePageRetire (
      DEBUG_INFO, reinterpret_cast<VMWARE_PAGE_RETIRE_DATA_ENTRY *> (Place (&Entry, sizeof (Entry))));
  const Lines All = Logged ();
  EXPECT_EQ (std::count_if (All.begin (), All.end (),
                            [] (const std::string &T) { return T.find ("Bit[") != std::string::npos; }),
             3);
  EXPECT_EQ (std::count_if (All.begin (), All.end (),
                            [] (const std::string &T) { return T.find ("Timestamp") != std::string::npos; }),
             0);
}

//
// Section data reaches the printer of its type; CXL component events after
// the CXL check; anything else is reported.
//
TEST_F (DumpTest, SectionDataReachesThePrinterOfItsType) {
  const struct {
    Cper::SectionKind Kind;
    const char       *Title;
  } Cases[] = {{Cper::SectionKind::ProcessorGeneric, "CPER processor generic error section data"},
               {Cper::SectionKind::ProcessorSpecific, "CPER IA32/X64 processor specific error section data"},
               {Cper::SectionKind::Memory, "CPER platform memory error section data"},
               {Cper::SectionKind::Pcie, "CPER PCIe error section data"},
               {Cper::SectionKind::PciComponent, "CPER PCI component error section data"},
               {Cper::SectionKind::CxlProtocol, "CPER CXL protocol error section data"},
               {Cper::SectionKind::CxlComponent, "CPER CXL component event section data"}};
  for (const auto &Case : Cases) {
    Host::ClearSerialOutput ();
    Cper::RecordSpec Spec;
    Spec.Kind           = Case.Kind;
    CPER_RECORD *Record = Cper::PlaceInSmram (Cper::BuildRecord (Spec));
    EFI_GUID     Type   = Record->Descriptor.SectionType;
    DisplayWheaGenericErrorData (DEBUG_INFO, &Type, Record->Section);
    EXPECT_TRUE (InOrder ({Case.Title})) << Case.Title;
  }

  // A code the printer's table does not name is a reserved one.
  Host::ClearSerialOutput ();
  CPER_SECTION_PCIE Pcie{};
  Pcie.PortType = 2;
  DisplayWheaGenericErrorData (DEBUG_INFO, &gEfiPcieErrorSectionGuid, Place (&Pcie, sizeof (Pcie)));
  EXPECT_TRUE (InOrder ({"     Port Type                       = 0x00000002 (Reserved)"}));

  Host::ClearSerialOutput ();
  EFI_GUID Type;
  std::memcpy (&Type, kFirmwareErrorType.data (), sizeof (Type));
  DisplayWheaGenericErrorData (DEBUG_INFO, &Type, Host::At<UINT8> (Host::AllocateReserved (64)));
  EXPECT_EQ (Logged ().back (), "DisplayWheaGenericErrorData: ERROR GUID unrecognized, aborting...");
}

//
// Two error information structures and three context structures of
// different sizes: each is found right after the one before it.
//
TEST_F (DumpTest, ProcessorSpecificWalksChecksAndContexts) {
  const EFI_GUID     Bus = {0x1CF3F8B3, 0xC5B1, 0x49A2, {0xAA, 0x59, 0x5E, 0xEF, 0x92, 0xFF, 0xA6, 0x3C}};
  const EFI_GUID     Ms  = {0x48AB7F57, 0xDC34, 0x4F6C, {0xA7, 0xD3, 0xB0, 0xB5, 0xB0, 0xA7, 0x43, 0x14}};
  std::vector<UINT8> Body (1016, 0);
  Put<UINT64> (Body, 0, 0x3 | (2 << 2) | (3 << 8));
  Put<EFI_GUID> (Body, 64, Bus);
  Put<UINT64> (Body, 64 + 16, 1);
  Put<UINT64> (Body, 64 + 24, 0x7FFULL | (2ULL << 16) | (1ULL << 18) | (1ULL << 32) | (2ULL << 33));
  Put<EFI_GUID> (Body, 128, Ms);
  Put<UINT64> (Body, 128 + 16, 1);
  Put<UINT64> (Body, 128 + 24, 0x3FULL | (3ULL << 16));
  Put<UINT16> (Body, 192, CPER_REGISTER_CONTEXT_X64);
  Put<UINT16> (Body, 194, sizeof (CPER_X64_REGISTER_STATE));
  Put<UINT64> (Body, 208 + offsetof (CPER_X64_REGISTER_STATE, Rip), 0xFFFF800012345678ULL);
  Put<UINT64> (Body, 208 + offsetof (CPER_X64_REGISTER_STATE, Cr8), 0xF);
  Put<UINT16> (Body, 208 + offsetof (CPER_X64_REGISTER_STATE, Tr), 0x40);
  Put<UINT16> (Body, 452, CPER_REGISTER_CONTEXT_FXSAVE);
  Put<UINT16> (Body, 454, 512);
  Put<UINT16> (Body, 980, CPER_REGISTER_CONTEXT_MSR);
  Put<UINT16> (Body, 982, 20);
  Put<UINT32> (Body, 984, 0xC0000080);
  for (UINT32 Word = 0; Word < 5; Word++) {
    Put<UINT32> (Body, 996 + 4 * Word, Word + 1);
  }

  DisplayCperSectionProcessorSpecific (DEBUG_INFO, Place (Body.data (), Body.size ()));
  EXPECT_TRUE (InOrder (
      {"     Error Information Count         = 0x02 (2)", "     Context Information Count       = 0x03 (3)",
       "     Error Structure Type            = 1CF3F8B3-C5B1-49A2-AA59-5EEF92FFA63C (IA32/X64 Bus Check Structure)",
       "       Operation                     = 0x1 (Generic Read)", "       Address Space                 = 0x2 (I/O)",
       "     Error Structure Type            = 48AB7F57-DC34-4F6C-A7D3-B0B5B0A74314 (IA32/X64 MS Check Field Description)",
       "       Error Type                    = 0x3 (External Error)",
       "     Register Array Size             = 0x00F4 (244)",
       "       RIP                           = 0xFFFF800012345678",
       "       CR8                           = 0x000000000000000F", "       TR                            = 0x0040",
       "       FXSAVE register context is not supported", "     MSR Address                     = 0xC0000080",
       "       +0x0000 = 0x00000001 0x00000002 0x00000003 0x00000004", "       +0x0010 = 0x00000005"}));

  // A register state shorter than its layout prints raw, never past the array.
  Host::ClearSerialOutput ();
  std::vector<UINT8> Short (64 + 16 + 6, 0);
  Put<UINT64> (Short, 0, 1 << 8);
  Put<UINT16> (Short, 64, CPER_REGISTER_CONTEXT_IA32_DEBUG);
  Put<UINT16> (Short, 66, 6);
  Put<UINT32> (Short, 80, 0xDDCCBBAA);
  Short[84] = 0x11;
  Short[85] = 0x22;
  DisplayCperSectionProcessorSpecific (DEBUG_INFO, Place (Short.data (), Short.size ()));
  const Lines All = Logged ();
  EXPECT_EQ (Lines (All.end () - 3, All.end ()),
             (Lines{"       +0x0000 = 0xDDCCBBAA", "       +0x0004 = 0x11", "       +0x0005 = 0x22"}));
}

TEST_F (DumpTest, CxlDownstreamPortIsAddressedByItsRcrb) {
  std::vector<UINT8> Body (sizeof (CPER_SECTION_CXL_PROTOCOL) + 6, 0);
  Put<UINT64> (Body, 0, 0x23);
  Body[offsetof (CPER_SECTION_CXL_PROTOCOL, AgentType)] = CPER_CXL_AGENT_CXL11_DOWNSTREAM_PORT;
  Put<UINT64> (Body, offsetof (CPER_SECTION_CXL_PROTOCOL, AgentAddress), 0xFED80000);
  Put<UINT16> (Body, offsetof (CPER_SECTION_CXL_PROTOCOL, DvsecLength), 6);
  for (UINT8 Byte = 0; Byte < 6; Byte++) {
    Body[sizeof (CPER_SECTION_CXL_PROTOCOL) + Byte] = Byte + 1;
  }
  DisplayCperSectionCxlProtocol (DEBUG_INFO, Place (Body.data (), Body.size ()));
  EXPECT_TRUE (InOrder ({"     Agent Type                      = 0x01 (CXL 1.1 Downstream Port)",
                         "     RCRB Base Address               = 0x00000000FED80000",
                         "     CXL DVSEC                       = 6 bytes", "       +0x0000 = 0x04030201",
                         "       +0x0004 = 0x05", "       +0x0005 = 0x06"}));
}

//
// NULL structures: one error line each, even at a level the platform does
// not print; a disabled level prints nothing of a dump.
//
TEST_F (DumpTest, NullStructuresAndDisabledLevels) {
  const std::function<void (UINTN)> Printers[] = {
      [] (UINTN L) { PrintRawData (nullptr, 4, L); },
      [] (UINTN L) { PrintErstSpiStoreInformation (nullptr, L); },
      [] (UINTN L) { PrintErstParameterRegion (nullptr, L); },
      [] (UINTN L) { DisplayErstStoreHeader (nullptr, L); },
      [] (UINTN L) { DisplayErstRecordHeader (nullptr, L); },
      [] (UINTN L) { DisplayErstErrorRecordFlags (nullptr, L); },
      [] (UINTN L) { DisplayFvHeader (nullptr, L); },
      [] (UINTN L) { DisplayFvExtHeader (nullptr, L); },
      [] (UINTN L) { DisplayCperRecordHeader (L, nullptr); },
      [] (UINTN L) { DisplayCperSectionDescriptor (L, nullptr); },
      [] (UINTN L) { DisplayWheaGenericErrorStatusBlock (L, nullptr); },
      [] (UINTN L) { DisplayWheaGenericErrorStatusBlockVmwarePageRetire (L, nullptr); },
      [] (UINTN L) { DisplayWheaGenericErrorDataEntryv63 (L, nullptr); },
      [] (UINTN L) { DisplayWheaGenericErrorDataEntryVmwarePageRetire (L, nullptr); },
      [] (UINTN L) { DisplayWheaGenericErrorData (L, nullptr, nullptr); },
      [] (UINTN L) { DisplayCperSectionMemoryPageRetire (L, nullptr); },
      [] (UINTN L) { DisplayCperSectionProcessor (L, nullptr); },
      [] (UINTN L) { DisplayCperSectionProcessorSpecific (L, nullptr); },
      [] (UINTN L) { DisplayCperSectionMemory (L, nullptr); },
      [] (UINTN L) { DisplayCperSectionPcie (L, nullptr); },
      [] (UINTN L) { DisplayCperSectionPciComponent (L, nullptr); },
      [] (UINTN L) { DisplayCperSectionCxlProtocol (L, nullptr); },
      [] (UINTN L) { DisplayCperSectionCxlComponent (L, nullptr); }};
  for (const auto &Print : Printers) {
    Host::ClearSerialOutput ();
    Print (DEBUG_VERBOSE);
    EXPECT_EQ (Logged ().size (), 1u);
    EXPECT_NE (Logged ().front ().find ("ERROR"), std::string::npos) << Logged ().front ();
  }

  Host::ClearSerialOutput ();
  ERST_STORE_HEADER          Store = {};
  ERST_SPI_STORE_INFORMATION Info  = {};
  UINT8                      Byte  = 0;
  PrintRawData (&Byte, 1, DEBUG_VERBOSE);
  PrintErstSpiStoreInformation (&Info, DEBUG_VERBOSE);
  DisplayErstStoreHeader (&Store, DEBUG_VERBOSE);
  GENERIC_ERROR_STATUS Block = {BlockStatusOf (0x13), 0x2000, 0, 0x94, 0};
  DisplayWheaGenericErrorStatusBlock (DEBUG_VERBOSE, &Block);
  EXPECT_TRUE (Logged ().empty ());
}

} // namespace
