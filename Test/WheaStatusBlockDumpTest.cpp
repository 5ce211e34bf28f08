/** @file
  Status block and data entry dumps, line by line: both status block
  readings, both data entry layouts (section type naming, bit decodes, FRU
  fields, the timestamp line), the section data dispatch, the page-retire
  record, the NULL checks, and a disabled level.
**/
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Handlers/CperBuilder.h"
#include <Library/DebugLib.h>
#include <Library/ElogBaseLib.h>
#include <Library/ElogCperDump.h>

#include "SectionKindName.h"
#include "TestMachine.h"
#include "StatusWord.h"

namespace {

using Lines = std::vector<std::string>;

const Cper::Bytes16 kMemoryType        = {0x14, 0x11, 0xBC, 0xA5, 0x64, 0x6F, 0xDE, 0x4E,
                                          0xB8, 0x63, 0x3E, 0x83, 0xED, 0x7C, 0x83, 0xB1};
const Cper::Bytes16 kFirmwareErrorType = {0x96, 0x2A, 0x21, 0x81, 0xED, 0x09, 0x96, 0x49,
                                          0x94, 0x71, 0x8D, 0x72, 0x9C, 0x8E, 0x69, 0xED};

// The CXL check's lines, logged at the library's run-time level.
Lines CxlCheck (const std::string &UuidText, bool IsCxl) {
  return {"VornElogCxlCheckComponentEventSectionType: Validating UUID " + UuidText + " for CXL Component UUID",
          IsCxl ? "VornElogCxlCheckComponentEventSectionType: UUID is CXL component event section type"
                : "VornElogCxlCheckComponentEventSectionType: UUID is not CXL component event section type"};
}

Lines Concat (std::initializer_list<Lines> Parts) {
  Lines All;
  for (const Lines &Part : Parts) {
    All.insert (All.end (), Part.begin (), Part.end ());
  }

  return All;
}

class WheaDumpTest : public MachineTest {
protected:
  void SetUp () override {
    MachineTest::SetUp ();
    // What the library start-up leaves: run-time lines at the info level.
    mPrivateDataVornElogBase.SerDbgLevel = DEBUG_INFO;
  }

  static Lines Logged (const Lines &Texts) {
    Lines Out;
    for (const std::string &Text : Texts) {
      Out.push_back (Line (0, Text));
    }

    return Out;
  }

  template <typename T> static T *Place (const T &Value) {
    T *Copy = Host::At<T> (Host::AllocateReserved (sizeof (T)));
    std::memcpy (static_cast<void *> (Copy), &Value, sizeof (T));
    return Copy;
  }
};

//
// Status block header, ACPI reading.
//
struct StatusBlockCase {
  std::string          Name;
  GENERIC_ERROR_STATUS Block;
  Lines                Expected;
};

void PrintTo (const StatusBlockCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class StatusBlockDumpTest : public WheaDumpTest, public ::testing::WithParamInterface<StatusBlockCase> {};

TEST_P (StatusBlockDumpTest, PrintsEveryFieldAndBit) {
  DisplayWheaGenericErrorStatusBlock (DEBUG_INFO, Place (GetParam ().Block));
  EXPECT_EQ (SerialLines (), Logged (GetParam ().Expected));
}

INSTANTIATE_TEST_SUITE_P (
    Blocks,
    StatusBlockDumpTest,
    ::testing::Values (StatusBlockCase{"OneRecoverableEntry",
                                       {BlockStatusOf (0x00000013), 0x2000, 0, 0x94, 0},
                                       {"WHEA Generic Error Status Block data",
                                        "      Block Status                              = 0x00000013",
                                        "      Block Status.UncErrValid                  = 0x1",
                                        "      Block Status.CorErrValid                  = 0x1",
                                        "      Block Status.MultUncErrs                  = 0x0",
                                        "      Block Status.MultCorErrs                  = 0x0",
                                        "      Block Status.ErrDataEntries               = 0x001 (1)",
                                        "      Raw Data Offset                           = 0x00002000",
                                        "      Raw Data Length                           = 0x00000000",
                                        "      Data Length                               = 0x00000094",
                                        "      Error Severity                            = 0x00000000 (Recoverable)"}},
                       StatusBlockCase{
                           "FullCountUnknownSeverity",
                           {BlockStatusOf (0xFFFFFFFC), 0x10, 0x20, 0x1FEC, 7},
                           {"WHEA Generic Error Status Block data",
                            "      Block Status                              = 0xFFFFFFFC",
                            "      Block Status.UncErrValid                  = 0x0",
                            "      Block Status.CorErrValid                  = 0x0",
                            "      Block Status.MultUncErrs                  = 0x1",
                            "      Block Status.MultCorErrs                  = 0x1",
                            "      Block Status.ErrDataEntries               = 0x3FF (1023)",
                            "      Raw Data Offset                           = 0x00000010",
                            "      Raw Data Length                           = 0x00000020",
                            "      Data Length                               = 0x00001FEC",
                            "ConvertCperSeverityToString: ERROR ErrorSeverity 7 unrecognized type, aborting...",
                            "      Error Severity                            = 0x00000007 (Unrecognized Type)"}},
                       StatusBlockCase{"UnsetSeverityHasNoName",
                                       {BlockStatusOf (0x00000000), 0x2000, 0, 0, 0xFFFF},
                                       {"WHEA Generic Error Status Block data",
                                        "      Block Status                              = 0x00000000",
                                        "      Block Status.UncErrValid                  = 0x0",
                                        "      Block Status.CorErrValid                  = 0x0",
                                        "      Block Status.MultUncErrs                  = 0x0",
                                        "      Block Status.MultCorErrs                  = 0x0",
                                        "      Block Status.ErrDataEntries               = 0x000 (0)",
                                        "      Raw Data Offset                           = 0x00002000",
                                        "      Raw Data Length                           = 0x00000000",
                                        "      Data Length                               = 0x00000000",
                                        "      Error Severity                            = 0x0000FFFF ()"}}),
    [] (const auto &Info) { return Info.param.Name; });

TEST_F (WheaDumpTest, PageRetireStatusBlockUsesItsOwnBitNames) {
  DisplayWheaGenericErrorStatusBlockVmwarePageRetire (
      DEBUG_INFO, Place (GENERIC_ERROR_STATUS{BlockStatusOf (0xC000002A), 0x2000, 0, 240, 2}));

  EXPECT_EQ (SerialLines (), Logged ({"WHEA Generic Error Status Block VMWare Page Retire v0.73 data",
                                      "      Block Status                              = 0xC000002A",
                                      "      Block Status.UnprocessedGedeInWq          = 0x1",
                                      "      Block Status.MultipleUnprocessedGedesInWq = 0x1",
                                      "      Block Status.ErrDataEntries               = 0x002 (2)",
                                      "      Block Status.OsTransferData               = 0x3",
                                      "      Raw Data Offset                           = 0x00002000",
                                      "      Raw Data Length                           = 0x00000000",
                                      "      Data Length                               = 0x000000F0",
                                      "      Error Severity                            = 0x00000002 (Corrected)"}));
}

//
// ACPI 6.3 data entry.
//
GENERIC_ERROR_DATA_ENTRY
Entry (const Cper::Bytes16 &Type,
       UINT8                ValidationBits,
       UINT8                Flags,
       const std::string   &FruText,
       std::array<UINT8, 8> Timestamp) {
  GENERIC_ERROR_DATA_ENTRY Gede{};
  std::memcpy (Gede.SectionType, Type.data (), sizeof (Gede.SectionType));
  Gede.ErrorSeverity   = 1;
  Gede.Revision        = 0x0300;
  Gede.ValidationBits  = ValidationBits;
  Gede.Flags           = Flags;
  Gede.ErrorDataLength = 80;
  std::memcpy (Gede.FruText, FruText.data (), std::min (FruText.size (), sizeof (Gede.FruText)));
  std::memcpy (Gede.Timestamp, Timestamp.data (), sizeof (Gede.Timestamp));
  return Gede;
}

struct DataEntryCase {
  std::string              Name;
  GENERIC_ERROR_DATA_ENTRY Gede;
  Lines                    Expected;
};

void PrintTo (const DataEntryCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class DataEntryDumpTest : public WheaDumpTest, public ::testing::WithParamInterface<DataEntryCase> {};

TEST_P (DataEntryDumpTest, PrintsEveryField) {
  DisplayWheaGenericErrorDataEntryv63 (DEBUG_INFO, Place (GetParam ().Gede));
  EXPECT_EQ (SerialLines (), Logged (GetParam ().Expected));
}

const std::array<UINT8, 8> kTimestamp           = {0x59, 0x34, 0x12, 0x01, 0x17, 0x05, 0x24, 0x20};
const std::array<UINT8, 8> kTimestampNotPrecise = {0x00, 0x05, 0x09, 0xFE, 0x01, 0x12, 0x99, 0x19};

// The same fields after the section type in each case.
Lines EntryTail (const std::string &Validation,
                 const Lines       &ValidationBits,
                 const std::string &Flags,
                 const Lines       &FlagBits,
                 const std::string &FruText,
                 const std::string &Timestamp) {
  return Concat (
      {{"     Error Severity                  = 0x00000001 (Fatal)", "     Revision                        = 0x0300",
        "     Validation Bits                 = " + Validation},
       ValidationBits,
       {"     Flags                           = " + Flags},
       FlagBits,
       {"     Error Data Length               = 0x00000050 (80)",
        "     FRU ID                          = 00000000-0000-0000-0000-000000000000",
        "     FRU Text                        = " + FruText, "     Timestamp Raw Data              = " + Timestamp}});
}

const std::string kTitle      = "WHEA Generic Error Data Entry data ";
const std::string kMemoryTail = "0x02024051701123459 (05/23/3236 18:52:89) Precise";

INSTANTIATE_TEST_SUITE_P (
    Entries,
    DataEntryDumpTest,
    ::testing::Values (
        DataEntryCase{
            "MemoryNoValidationBitsStillPrintsFru", Entry (kMemoryType, 0x00, 0x01, "DIMM A1", kTimestamp),
            Concat ({{kTitle},
                     CxlCheck ("1411BCA5-646F-DE4E-B863-3E83ED7C83B1", false),
                     {"     Section Type                    = A5BC1114-6F64-4EDE-B863-3E83ED7C83B1 (GUID Memory)"},
                     EntryTail ("0x00", {}, "0x01", {"       Bit[00] Primary"}, "DIMM A1", kMemoryTail)})},
        DataEntryCase{
            "ProcessorGenericIsUnrecognizedAllBitsSet",
            Entry (Cper::SectionTypeBytes (Cper::SectionKind::ProcessorGeneric),
                   0xFF,
                   0xFF,
                   "0123456789ABCDEFGHIJ",
                   kTimestampNotPrecise),
            Concat (
                {{kTitle},
                 CxlCheck ("ADCC7698-B447-DB4B-B65E-16F193C4F3DB", false),
                 {"     Section Type                    = 9876CCAD-47B4-4BDB-B65E-16F193C4F3DB (GUID Unrecognized)"},
                 EntryTail ("0xFF",
                            {"       Bit[00] FRUId", "       Bit[01] FRUString", "       Bit[02] Timestamp"},
                            "0xFF",
                            {"       Bit[00] Primary", "       Bit[01] Containment Warning", "       Bit[02] Reset",
                             "       Bit[03] Error Threshold Exceeded", "       Bit[04] Resource Not Accessible",
                             "       Bit[05] Latent Error", "       Bit[06] Propagated", "       Bit[07] Overflow"},
                            "0123456789ABCDEFGHIJ",
                            "0x019991201FE090500 (18/01/25153 09:05:00) !Precise")})},
        DataEntryCase{
            "PciComponentIsUnrecognized",
            Entry (Cper::SectionTypeBytes (Cper::SectionKind::PciComponent), 0x02, 0x20, "", kTimestamp),
            Concat (
                {{kTitle},
                 CxlCheck ("85465EEB-66CA-6947-B6A2-26068B001326", false),
                 {"     Section Type                    = EB5E4685-CA66-4769-B6A2-26068B001326 (GUID Unrecognized)"},
                 EntryTail (
                     "0x02", {"       Bit[01] FRUString"}, "0x20", {"       Bit[05] Latent Error"}, "", kMemoryTail)})},
        DataEntryCase{
            "CxlComponentPrintsUuidTextThenEventName",
            Entry (Cper::CxlEventIdentifier (Cper::CxlEvent::Dram), 0x00, 0x00, "", kTimestamp),
            Concat (
                {{kTitle},
                 CxlCheck ("601DCBB3-9C06-4EAB-B8AF-4E9BFB5C9624", true),
                 {"     Section Type                    = 601DCBB3-9C06-4EAB-B8AF-4E9BFB5C9624 (UUID DRAM Event Record)"},
                 EntryTail ("0x00", {}, "0x00", {}, "", kMemoryTail)})}),
    [] (const auto &Info) { return Info.param.Name; });

TEST_F (WheaDumpTest, PageRetireEntryDecodesOnlyItsBitsAndHasNoTimestamp) {
  VMWARE_PAGE_RETIRE_DATA_ENTRY Entry{};
  const Cper::Bytes16           Type = Cper::VmwarePageRetireSectionType ();
  std::memcpy (Entry.SectionType, Type.data (), sizeof (Entry.SectionType));
  Entry.ErrorSeverity   = 2;
  Entry.Revision        = 0x0201;
  Entry.ValidationBits  = 0xFF;
  Entry.Flags           = 0xFF;
  Entry.ErrorDataLength = 56;
  Entry.FruId[0]        = 0x11;
  std::memcpy (Entry.FruText, "DIMM A1", 7);

  DisplayWheaGenericErrorDataEntryVmwarePageRetire (DEBUG_INFO, Place (Entry));

  EXPECT_EQ (
      SerialLines (),
      Logged (
          {"WHEA Generic Error Data Entry VMWare Page Retire v0.73 data",
           "     Section Type                    = 330F1140-72A5-11DF-9690-0002A5D5C51B (GUID Memory Page Retire - Linux/VMWare)",
           "     Error Severity                  = 0x00000002 (Corrected)",
           "     Revision                        = 0x0201", "     Validation Bits                 = 0xFF",
           "       Bit[00] FRUId", "       Bit[01] FRUString", "     Flags                           = 0xFF",
           "       Bit[00] Primary", "     Error Data Length               = 0x00000038 (56)",
           "     FRU ID                          = 00000011-0000-0000-0000-000000000000",
           "     FRU Text                        = DIMM A1"}));
}

//
// Section data behind an entry.
//
TEST_F (WheaDumpTest, PageRetireRecordIsDispatchedAfterTheCxlCheck) {
  const VMWARE_PAGE_RETIRE_RECORD Record = {1, 1, 1, 0, 0, 0x12345000, 0x1000, 0x12345FFF, 7, 0, 0};
  EFI_GUID                        Type;
  const Cper::Bytes16             TypeBytes = Cper::VmwarePageRetireSectionType ();
  std::memcpy (&Type, TypeBytes.data (), sizeof (Type));

  DisplayWheaGenericErrorData (DEBUG_INFO, &Type, Place (Record));

  EXPECT_EQ (SerialLines (),
             Logged (Concat (
                 {CxlCheck ("40110F33-A572-DF11-9690-0002A5D5C51B", false),
                  {"CPER memory page retire section data", "     revision                        = 0x0001",
                   "     command                         = 0x01", "     error status code               = 0x01",
                   "     sflags                          = 0x0000", "     os_status                       = 0x0000",
                   "     begin_add                       = 0x0000000012345000",
                   "     stride                          = 0x0000000000001000",
                   "     end_addr                        = 0x0000000012345FFF",
                   "     error status count              = 0x0000000000000007",
                   "     examined_cnt                    = 0x0000000000000000",
                   "     retired_cnt                     = 0x0000000000000000"}})));
}

TEST_F (WheaDumpTest, UnknownSectionTypeIsReported) {
  EFI_GUID Type;
  std::memcpy (&Type, kFirmwareErrorType.data (), sizeof (Type));
  UINT8 *Data = Host::At<UINT8> (Host::AllocateReserved (64));

  DisplayWheaGenericErrorData (DEBUG_INFO, &Type, Data);

  EXPECT_EQ (SerialLines (), Logged (Concat ({CxlCheck ("962A2181-ED09-9649-9471-8D729C8E69ED", false),
                                              {"DisplayWheaGenericErrorData: ERROR GUID unrecognized, aborting..."}})));
}

struct DispatchCase {
  Cper::SectionKind Kind;
  std::string       Title;
  bool              AfterCxlCheck;
};

void PrintTo (const DispatchCase &Case, std::ostream *Out) {
  *Out << Cper::SectionKindName (Case.Kind);
}

class SectionDispatchTest : public WheaDumpTest, public ::testing::WithParamInterface<DispatchCase> {};

// Each type reaches its own printer; only CXL component events need the CXL
// check, which comes after the six GUID types.
TEST_P (SectionDispatchTest, ReachesThePrinterOfTheType) {
  Cper::RecordSpec Spec;
  Spec.Kind           = GetParam ().Kind;
  CPER_RECORD *Record = Cper::PlaceInSmram (Cper::BuildRecord (Spec));
  EFI_GUID     Type   = Record->Descriptor.SectionType;

  DisplayWheaGenericErrorData (DEBUG_INFO, &Type, Record->Section);

  const Lines  Logged  = SerialLines ();
  const size_t TitleAt = GetParam ().AfterCxlCheck ? 2 : 0;
  ASSERT_GT (Logged.size (), TitleAt);
  EXPECT_EQ (Logged[TitleAt], Line (0, GetParam ().Title));
  if (GetParam ().AfterCxlCheck) {
    EXPECT_EQ (Logged[1],
               Line (0, "VornElogCxlCheckComponentEventSectionType: UUID is CXL component event section type"));
  }
}

INSTANTIATE_TEST_SUITE_P (
    Kinds,
    SectionDispatchTest,
    ::testing::Values (DispatchCase{Cper::SectionKind::ProcessorGeneric, "CPER processor generic error section data",
                                    false},
                       DispatchCase{Cper::SectionKind::ProcessorSpecific,
                                    "CPER IA32/X64 processor specific error section data", false},
                       DispatchCase{Cper::SectionKind::Memory, "CPER platform memory error section data", false},
                       DispatchCase{Cper::SectionKind::Pcie, "CPER PCIe error section data", false},
                       DispatchCase{Cper::SectionKind::PciComponent, "CPER PCI component error section data", false},
                       DispatchCase{Cper::SectionKind::CxlProtocol, "CPER CXL protocol error section data", false},
                       DispatchCase{Cper::SectionKind::CxlComponent, "CPER CXL component event section data", true}),
    ::testing::PrintToStringParamName ());

//
// NULL structures: one error line each, at the error level.
//
struct NullCase {
  std::string            Name;
  std::function<void ()> Call;
  std::string            Expected;
};

void PrintTo (const NullCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class NullArgumentTest : public WheaDumpTest, public ::testing::WithParamInterface<NullCase> {};

TEST_P (NullArgumentTest, PrintsItsMessageAndReturns) {
  GetParam ().Call ();
  EXPECT_EQ (SerialLines (), Logged ({GetParam ().Expected}));
}

INSTANTIATE_TEST_SUITE_P (
    Routines,
    NullArgumentTest,
    ::testing::Values (
        NullCase{"StatusBlock", [] { DisplayWheaGenericErrorStatusBlock (DEBUG_INFO, nullptr); },
                 "DisplayWheaGenericErrorStatusBlock: ERROR pGenericErrorStatusBlock is a null pointer, returning."},
        NullCase{
            "PageRetireStatusBlock", [] { DisplayWheaGenericErrorStatusBlockVmwarePageRetire (DEBUG_INFO, nullptr); },
            "DisplayWheaGenericErrorStatusBlockVmwarePageRetire: ERROR pGenericErrorStatusBlock is a null pointer, returning."},
        NullCase{"DataEntry", [] { DisplayWheaGenericErrorDataEntryv63 (DEBUG_INFO, nullptr); },
                 "DisplayWheaGenericErrorDataEntryv63: ERROR pGenericErrorDataEntry is a null pointer, returning."},
        NullCase{
            "PageRetireDataEntry", [] { DisplayWheaGenericErrorDataEntryVmwarePageRetire (DEBUG_INFO, nullptr); },
            "DisplayWheaGenericErrorDataEntryVmwarePageRetire: ERROR pGenericErrorDataEntry is a null pointer, returning."},
        NullCase{"Data", [] { DisplayWheaGenericErrorData (DEBUG_INFO, nullptr, nullptr); },
                 "DisplayWheaGenericErrorData: ERROR pErrorDataPtr is a null pointer, returning."},
        NullCase{"PageRetireRecord", [] { DisplayCperSectionMemoryPageRetire (DEBUG_INFO, nullptr); },
                 "DisplayCperSectionMemoryPageRetire: ERROR pCperSectionMemoryPageRetire is NULL, aborting..."},
        NullCase{"MemorySection", [] { DisplayCperSectionMemory (DEBUG_INFO, nullptr); },
                 "DisplayCperSectionMemory: ERROR pSection is NULL, aborting..."}),
    [] (const auto &Info) { return Info.param.Name; });

// A level the platform does not print costs nothing but the CXL check's own
// lines, which follow the library's level.
TEST_F (WheaDumpTest, DisabledLevelPrintsNothingOfTheDump) {
  DisplayWheaGenericErrorStatusBlock (DEBUG_VERBOSE,
                                      Place (GENERIC_ERROR_STATUS{BlockStatusOf (0x13), 0x2000, 0, 0x94, 0}));
  DisplayWheaGenericErrorDataEntryv63 (DEBUG_VERBOSE, Place (Entry (kMemoryType, 0x07, 0xFF, "DIMM", kTimestamp)));
  EFI_GUID Type;
  std::memcpy (&Type, kMemoryType.data (), sizeof (Type));
  DisplayWheaGenericErrorData (DEBUG_VERBOSE, &Type, Place (std::array<UINT8, 80>{}));

  EXPECT_EQ (SerialLines (), Logged (CxlCheck ("1411BCA5-646F-DE4E-B863-3E83ED7C83B1", false)));
}

} // namespace
