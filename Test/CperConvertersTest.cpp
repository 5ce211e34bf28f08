/** @file
  The converters that name CPER codes: every value of every converter, the
  fallbacks for unknown values with their error lines, the severity
  converter's "no severity" values, and the two buffer checks they share.
**/
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Library/ElogCperDump.h>

#include "TestMachine.h"

namespace {

using Converter = std::function<std::optional<EFI_STATUS> (CHAR8 *Buffer, UINTN Size)>;

// What the buffer holds before a call, so an untouched buffer shows.
const char kUntouched[] = "untouched";

struct ConvertCase {
  std::string               Name;
  Converter                 Convert;
  std::string               Text;       // buffer afterwards
  std::optional<EFI_STATUS> Status;     // for the two converters that return one
  std::vector<std::string>  ErrorLines; // without the processor prefix
};

void PrintTo (const ConvertCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

EFI_GUID
Guid (UINT32 D1, UINT16 D2, UINT16 D3, std::initializer_list<UINT8> D4) {
  EFI_GUID G{D1, D2, D3, {}};
  std::copy (D4.begin (), D4.end (), G.Data4);
  return G;
}

Converter Severity (UINT32 Value) {
  return [Value] (CHAR8 *B, UINTN S) { return std::optional<EFI_STATUS> (ConvertCperSeverityToString (Value, B, S)); };
}

Converter SectionType (EFI_GUID Value) {
  return [Value] (CHAR8 *B, UINTN S) mutable {
    return std::optional<EFI_STATUS> (ConvertCperSectionTypeGuidToString (&Value, B, S));
  };
}

Converter StructureType (EFI_GUID Value) {
  return [Value] (CHAR8 *B, UINTN S) mutable {
    ConvertErrorStructureTypeGuidToString (&Value, B, S);
    return std::optional<EFI_STATUS> ();
  };
}

template <typename T> Converter Code (VOID (*Fn) (T, CHAR8 *, UINTN), T Value) {
  return [Fn, Value] (CHAR8 *B, UINTN S) {
    Fn (Value, B, S);
    return std::optional<EFI_STATUS> ();
  };
}

Converter ErrorStatus (UINT64 Value) {
  return [Value] (CHAR8 *B, UINTN S) mutable {
    ConvertErrorStatusTypeToString (&Value, B, S);
    return std::optional<EFI_STATUS> ();
  };
}

std::vector<ConvertCase> CodeCases (const std::string &Prefix,
                                    VOID (*Fn) (UINT8, CHAR8 *, UINTN),
                                    const std::vector<std::string> &Texts,
                                    const std::string              &Function,
                                    const std::string              &Field) {
  std::vector<ConvertCase> Cases;
  for (size_t V = 0; V < Texts.size (); V++) {
    Cases.push_back ({Prefix + std::to_string (V), Code<UINT8> (Fn, static_cast<UINT8> (V)), Texts[V], {}, {}});
  }

  const UINT8 Unknown = static_cast<UINT8> (Texts.size ());
  Cases.push_back ({Prefix + "Unknown",
                    Code<UINT8> (Fn, Unknown),
                    "Unrecognized Value",
                    {},
                    {Function + ": ERROR " + Field + " " + std::to_string (Unknown) + " unrecognized, aborting..."}});
  return Cases;
}

std::vector<ConvertCase> AllCases () {
  const EFI_GUID ProcessorGeneric = Guid (0x9876CCAD, 0x47B4, 0x4BDB, {0xB6, 0x5E, 0x16, 0xF1, 0x93, 0xC4, 0xF3, 0xDB});
  const EFI_GUID PciComponent     = Guid (0xEB5E4685, 0xCA66, 0x4769, {0xB6, 0xA2, 0x26, 0x06, 0x8B, 0x00, 0x13, 0x26});
  std::vector<ConvertCase> Cases  = {
       {"SeverityRecoverable", Severity (0), "Recoverable", EFI_SUCCESS, {}},
       {"SeverityFatal", Severity (1), "Fatal", EFI_SUCCESS, {}},
       {"SeverityCorrected", Severity (2), "Corrected", EFI_SUCCESS, {}},
       {"SeverityNone", Severity (3), "None", EFI_SUCCESS, {}},
       {"SeverityUnset16", Severity (0xFFFF), kUntouched, EFI_SUCCESS, {}},
       {"SeverityUnset32", Severity (0xFFFFFFFF), kUntouched, EFI_SUCCESS, {}},
       {"SeverityUnknown",
        Severity (4),
        "Unrecognized Type",
        EFI_UNSUPPORTED,
        {"ConvertCperSeverityToString: ERROR ErrorSeverity 4 unrecognized type, aborting..."}},
       {"SeverityJustBelowUnset",
        Severity (0xFFFE),
        "Unrecognized Type",
        EFI_UNSUPPORTED,
        {"ConvertCperSeverityToString: ERROR ErrorSeverity 65534 unrecognized type, aborting..."}},
       {"SectionProcSpecific",
        SectionType (Guid (0xDC3EA0B0, 0xA144, 0x4797, {0xB9, 0x5B, 0x53, 0xFA, 0x24, 0x2B, 0x6E, 0x1D})),
        "ProcSpecific",
        EFI_SUCCESS,
        {}},
       {"SectionMemory",
        SectionType (Guid (0xA5BC1114, 0x6F64, 0x4EDE, {0xB8, 0x63, 0x3E, 0x83, 0xED, 0x7C, 0x83, 0xB1})),
        "Memory",
        EFI_SUCCESS,
        {}},
       {"SectionPageRetire",
        SectionType (Guid (0x330F1140, 0x72A5, 0x11DF, {0x96, 0x90, 0x00, 0x02, 0xA5, 0xD5, 0xC5, 0x1B})),
        "Memory Page Retire - Linux/VMWare",
        EFI_SUCCESS,
        {}},
       {"SectionPcie",
        SectionType (Guid (0xD995E954, 0xBBC1, 0x430F, {0xAD, 0x91, 0xB4, 0x4D, 0xCB, 0x3C, 0x6F, 0x35})),
        "PCIe",
        EFI_SUCCESS,
        {}},
       {"SectionCxlProtocol",
        SectionType (Guid (0x80B9EFB4, 0x52B5, 0x4DE3, {0xA7, 0x77, 0x68, 0x78, 0x4B, 0x77, 0x10, 0x48})),
        "CXL Protocol",
        EFI_SUCCESS,
        {}},
       {"SectionProcessorGeneric", SectionType (ProcessorGeneric), "Unrecognized", EFI_UNSUPPORTED, {}},
       {"SectionPciComponent", SectionType (PciComponent), "Unrecognized", EFI_UNSUPPORTED, {}},
       {"StructureCache",
        StructureType (Guid (0xA55701F5, 0xE3EF, 0x43DE, {0xAC, 0x72, 0x24, 0x9B, 0x57, 0x3F, 0xAD, 0x2C})),
        "IA32/X64 Cache Check Structure",
        {},
        {}},
       {"StructureTlb",
        StructureType (Guid (0xFC06B535, 0x5E1F, 0x4562, {0x9F, 0x25, 0x0A, 0x3B, 0x9A, 0xDB, 0x63, 0xC3})),
        "IA32/X64 TLB Check Structure",
        {},
        {}},
       {"StructureBus",
        StructureType (Guid (0x1CF3F8B3, 0xC5B1, 0x49A2, {0xAA, 0x59, 0x5E, 0xEF, 0x92, 0xFF, 0xA6, 0x3C})),
        "IA32/X64 Bus Check Structure",
        {},
        {}},
       {"StructureMs",
        StructureType (Guid (0x48AB7F57, 0xDC34, 0x4F6C, {0xA7, 0xD3, 0xB0, 0xB5, 0xB0, 0xA7, 0x43, 0x14})),
        "IA32/X64 MS Check Field Description",
        {},
        {}},
       {"StructureUnknown", StructureType (ProcessorGeneric), kUntouched, {}, {}},
       {"ErrorStatusMem", ErrorStatus (0x0000000000000400ULL), "ERR_MEM storage error in memory (DRAM)", {}, {}},
       {"ErrorStatusOtherBitsIgnored",
        ErrorStatus (0xFFFFFFFFFFFF1AFFULL),
        "ERR_POISONED a read was issued to data that has been poisoned",
        {},
        {}},
       {"ErrorStatusUnknown",
        ErrorStatus (0x0200),
        "Unrecognized Value",
        {},
        {"ConvertErrorStatusTypeToString: ERROR ErrorType 2 unrecognized, aborting..."}},
       {"ErrorStatusGapInCodes",
        ErrorStatus (0x0A00),
        "Unrecognized Value",
        {},
        {"ConvertErrorStatusTypeToString: ERROR ErrorType 10 unrecognized, aborting..."}},
  };

  const std::vector<std::pair<UINT8, std::string>> StatusTexts = {
      {1, "ERR_INTERNAL error detected internal to the component"},
      {4, "ERR_MEM storage error in memory (DRAM)"},
      {5, "ERR_TLB storage error in TLB"},
      {6, "ERR_CACHE storage error in cache"},
      {7, "ERR_FUNCTION in one or more functional units"},
      {8, "ERR_SELFTEST component failed self test"},
      {9, "ERR_FLOW overflow or undervalue of internal queue"},
      {16, "ERR_BUS error detected in the bus"},
      {17, "ERR_MAP Virtual address not found"},
      {18, "ERR_IMPROPER improper access error"},
      {19, "ERR_UNIMPL access to unmapped memory address"},
      {20, "ERR_LOL loss of lockstep"},
      {21, "ERR_RESPONSE response not associated with request"},
      {22, "ERR_PARITY bus parity error"},
      {23, "ERR_PROTOCOL detection of protocol error"},
      {24, "ERR_ERROR detection of a PATH error"},
      {25, "ERR_TIMEOUT bus operation timeout"},
      {26, "ERR_POISONED a read was issued to data that has been poisoned"},
  };
  for (const auto &[Type, Text] : StatusTexts) {
    Cases.push_back (
        {"ErrorStatus" + std::to_string (Type), ErrorStatus (static_cast<UINT64> (Type) << 8), Text, {}, {}});
  }

  const std::vector<std::string> ContextTexts = {"Unclassified Data",
                                                 "MSR Registers",
                                                 "32 Bit Mode Execution Context",
                                                 "64 Bit Mode Execution Context",
                                                 "FXSAVE Context",
                                                 "32 Bit Mode Debug Registers",
                                                 "64 Bit Mode Debug Registers",
                                                 "Memory Mapped Registers"};
  for (size_t V = 0; V < ContextTexts.size (); V++) {
    Cases.push_back ({"Context" + std::to_string (V),
                      Code<UINT16> (ConvertRegisterContextTypeToString, static_cast<UINT16> (V)),
                      ContextTexts[V],
                      {},
                      {}});
  }

  Cases.push_back ({"ContextUnknown",
                    Code<UINT16> (ConvertRegisterContextTypeToString, 0x0100),
                    "Unrecognized Value",
                    {},
                    {"ConvertRegisterContextTypeToString: ERROR RegisterContextType 256 unrecognized, aborting..."}});

  for (auto &&Group : {
           CodeCases ("Transaction", ConvertTransactionTypeToString, {"Instruction", "Data Access", "Generic"},
                      "ConvertTransactionTypeToString", "TransactionType"),
           CodeCases ("Operation", ConvertOperationToString,
                      {"Generic Error", "Generic Read", "Generic Write", "Data Read", "Data Write", "Instruction Fetch",
                       "Prefetch", "Eviction", "Snoop"},
                      "ConvertOperationToString", "Operation"),
           CodeCases ("Participation", ConvertParticipationTypeToString,
                      {"Local Processor Originated Request", "Local Processor Responded to Request",
                       "Local Processor Observed", "Generic"},
                      "ConvertParticipationTypeToString", "ParticipationType"),
           CodeCases ("AddressSpace", ConvertAddressSpaceToString,
                      {"Memory Access", "Reserved", "I/O", "Other Transaction"}, "ConvertAddressSpaceToString",
                      "AddressSpace"),
           CodeCases ("ErrorType", ConvertErrorTypeToString,
                      {"No Error", "Unclassified", "Microcode ROM Parity Error", "External Error", "FRC Error",
                       "Internal Unclassified"},
                      "ConvertErrorTypeToString", "ErrorType"),
       }) {
    Cases.insert (Cases.end (), Group.begin (), Group.end ());
  }

  return Cases;
}

class CperConvertersTest : public MachineTest, public ::testing::WithParamInterface<ConvertCase> {};

TEST_P (CperConvertersTest, WritesTextStatusAndErrorLines) {
  const ConvertCase &Case = GetParam ();
  CHAR8              Buffer[100];
  std::memset (Buffer, 0x5A, sizeof (Buffer));
  std::memcpy (Buffer, kUntouched, sizeof (kUntouched));

  const std::optional<EFI_STATUS> Status = Case.Convert (Buffer, sizeof (Buffer));

  EXPECT_EQ (std::string (Buffer), Case.Text);
  EXPECT_EQ (Status, Case.Status);
  std::vector<std::string> Expected;
  for (const std::string &Text : Case.ErrorLines) {
    Expected.push_back (Line (0, Text));
  }

  EXPECT_EQ (SerialLines (), Expected);
}

INSTANTIATE_TEST_SUITE_P (EveryValue, CperConvertersTest, ::testing::ValuesIn (AllCases ()), [] (const auto &Info) {
  return Info.param.Name;
});

//
// The shared buffer checks: a NULL buffer and a zero size, each with the
// converter's own name, for every converter.
//
struct BufferCheckCase {
  std::string               Function;
  Converter                 Convert;
  std::optional<EFI_STATUS> Status;
};

void PrintTo (const BufferCheckCase &Case, std::ostream *Out) {
  *Out << Case.Function;
}

class CperConverterBufferTest : public MachineTest, public ::testing::WithParamInterface<BufferCheckCase> {};

TEST_P (CperConverterBufferTest, RefusesNullBufferAndZeroSize) {
  const BufferCheckCase &Case      = GetParam ();
  CHAR8                  Buffer[4] = {'a', 'b', 'c', 0};

  EXPECT_EQ (Case.Convert (nullptr, 100), Case.Status);
  EXPECT_EQ (Case.Convert (Buffer, 0), Case.Status);

  EXPECT_STREQ (Buffer, "abc");
  EXPECT_EQ (SerialLines (),
             (std::vector<std::string>{Line (0, Case.Function + ": ERROR pBuffer is NULL, aborting..."),
                                       Line (0, Case.Function + ": ERROR BufferSize is zero, aborting...")}));
}

const EFI_GUID kMemoryGuid = {0xA5BC1114, 0x6F64, 0x4EDE, {0xB8, 0x63, 0x3E, 0x83, 0xED, 0x7C, 0x83, 0xB1}};

INSTANTIATE_TEST_SUITE_P (
    EveryConverter,
    CperConverterBufferTest,
    ::testing::Values (
        BufferCheckCase{"ConvertCperSeverityToString", Severity (0xFFFF), EFI_INVALID_PARAMETER},
        BufferCheckCase{"ConvertCperSectionTypeGuidToString", SectionType (kMemoryGuid), EFI_INVALID_PARAMETER},
        BufferCheckCase{"ConvertErrorStructureTypeGuidToString", StructureType (kMemoryGuid), {}},
        BufferCheckCase{"ConvertRegisterContextTypeToString", Code<UINT16> (ConvertRegisterContextTypeToString, 1), {}},
        BufferCheckCase{"ConvertTransactionTypeToString", Code<UINT8> (ConvertTransactionTypeToString, 1), {}},
        BufferCheckCase{"ConvertOperationToString", Code<UINT8> (ConvertOperationToString, 1), {}},
        BufferCheckCase{"ConvertParticipationTypeToString", Code<UINT8> (ConvertParticipationTypeToString, 1), {}},
        BufferCheckCase{"ConvertAddressSpaceToString", Code<UINT8> (ConvertAddressSpaceToString, 1), {}},
        BufferCheckCase{"ConvertErrorTypeToString", Code<UINT8> (ConvertErrorTypeToString, 1), {}},
        BufferCheckCase{"ConvertErrorStatusTypeToString", ErrorStatus (0x400), {}}),
    [] (const auto &Info) { return Info.param.Function; });

TEST_F (MachineTest, ErrorStatusConverterRefusesNullStatusBeforeTheBuffer) {
  ConvertErrorStatusTypeToString (nullptr, nullptr, 0);

  EXPECT_EQ (SerialLines (),
             (std::vector<std::string>{
                 Line (0, "ConvertErrorStatusTypeToString: ERROR pUefiCperErrorStatus is NULL, aborting...")}));
}

TEST_F (MachineTest, ConvertersCutTextsToTheBuffer) {
  CHAR8 Buffer[8];
  std::memset (Buffer, 0x5A, sizeof (Buffer));

  EXPECT_EQ (ConvertCperSeverityToString (0, Buffer, 5), EFI_SUCCESS);
  EXPECT_STREQ (Buffer, "Reco");
  EXPECT_EQ (Buffer[5], 0x5A);

  ConvertOperationToString (5, Buffer, 1);
  EXPECT_STREQ (Buffer, "");
  EXPECT_TRUE (SerialLines ().empty ());
}

} // namespace
