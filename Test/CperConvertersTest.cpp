/** @file
  The converters that name CPER codes: a known value of each, the fallback
  for an unknown value with its error line, the severity converter's "no
  severity" values, the error-status field it reads, and the buffer checks.
**/
#include <cstring>
#include <functional>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include <Library/ElogCperDump.h>

#include "TestMachine.h"

namespace {

using Converter = std::function<std::optional<EFI_STATUS> (CHAR8 *Buffer, UINTN Size)>;

// What the buffer holds before a call, so an untouched buffer shows.
const char kUntouched[] = "untouched";

EFI_GUID Guid (UINT32 D1, UINT16 D2, UINT16 D3, std::initializer_list<UINT8> D4) {
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

struct ConvertCase {
  const char               *Name;
  Converter                 Convert;
  std::string               Text;      // the buffer afterwards
  std::optional<EFI_STATUS> Status;    // for the two converters that return one
  const char               *ErrorLine; // or nullptr
};

TEST_F (MachineTest, ConvertersNameKnownValuesAndFallBackForOthers) {
  const EFI_GUID ProcessorGeneric = Guid (0x9876CCAD, 0x47B4, 0x4BDB, {0xB6, 0x5E, 0x16, 0xF1, 0x93, 0xC4, 0xF3, 0xDB});
  const ConvertCase Cases[]       = {
            {"Severity", Severity (2), "Corrected", EFI_SUCCESS, nullptr},
            {"SeverityUnset16", Severity (0xFFFF), kUntouched, EFI_SUCCESS, nullptr},
            {"SeverityUnset32", Severity (0xFFFFFFFF), kUntouched, EFI_SUCCESS, nullptr},
            {"SeverityUnknown", Severity (0xFFFE), "Unrecognized Type", EFI_UNSUPPORTED,
             "ConvertCperSeverityToString: ERROR ErrorSeverity 65534 unrecognized type, aborting..."},
            {"Section", SectionType (Guid (0x330F1140, 0x72A5, 0x11DF, {0x96, 0x90, 0x00, 0x02, 0xA5, 0xD5, 0xC5, 0x1B})),
             "Memory Page Retire - Linux/VMWare", EFI_SUCCESS, nullptr},
            {"SectionUnnamed", SectionType (ProcessorGeneric), "Unrecognized", EFI_UNSUPPORTED, nullptr},
            {"Structure",
             StructureType (Guid (0x48AB7F57, 0xDC34, 0x4F6C, {0xA7, 0xD3, 0xB0, 0xB5, 0xB0, 0xA7, 0x43, 0x14})),
             "IA32/X64 MS Check Field Description",
             {},
             nullptr},
            {"StructureUnknown", StructureType (ProcessorGeneric), kUntouched, {}, nullptr},
            // The error type sits in bits 8..15; the other bits are ignored.
            {"ErrorStatus",
             ErrorStatus (0xFFFFFFFFFFFF1AFFULL),
             "ERR_POISONED a read was issued to data that has been poisoned",
             {},
             nullptr},
            {"ErrorStatusGap",
             ErrorStatus (0x0A00),
             "Unrecognized Value",
             {},
             "ConvertErrorStatusTypeToString: ERROR ErrorType 10 unrecognized, aborting..."},
            {"Context", Code<UINT16> (ConvertRegisterContextTypeToString, 7), "Memory Mapped Registers", {}, nullptr},
            {"ContextUnknown",
             Code<UINT16> (ConvertRegisterContextTypeToString, 0x0100),
             "Unrecognized Value",
             {},
             "ConvertRegisterContextTypeToString: ERROR RegisterContextType 256 unrecognized, aborting..."},
            {"Transaction", Code<UINT8> (ConvertTransactionTypeToString, 2), "Generic", {}, nullptr},
            {"TransactionUnknown",
             Code<UINT8> (ConvertTransactionTypeToString, 3),
             "Unrecognized Value",
             {},
             "ConvertTransactionTypeToString: ERROR TransactionType 3 unrecognized, aborting..."},
            {"Operation", Code<UINT8> (ConvertOperationToString, 8), "Snoop", {}, nullptr},
            {"Participation", Code<UINT8> (ConvertParticipationTypeToString, 3), "Generic", {}, nullptr},
            {"AddressSpace", Code<UINT8> (ConvertAddressSpaceToString, 2), "I/O", {}, nullptr},
            {"ErrorType", Code<UINT8> (ConvertErrorTypeToString, 5), "Internal Unclassified", {}, nullptr},
            {"ErrorTypeUnknown",
             Code<UINT8> (ConvertErrorTypeToString, 6),
             "Unrecognized Value",
             {},
             "ConvertErrorTypeToString: ERROR ErrorType 6 unrecognized, aborting..."},
  };
  for (const ConvertCase &Case : Cases) {
    Host::ClearSerialOutput ();
    CHAR8 Buffer[100];
    std::memset (Buffer, 0x5A, sizeof (Buffer));
    std::memcpy (Buffer, kUntouched, sizeof (kUntouched));
    EXPECT_EQ (Case.Convert (Buffer, sizeof (Buffer)), Case.Status) << Case.Name;
    EXPECT_EQ (std::string (Buffer), Case.Text) << Case.Name;
    EXPECT_EQ (SerialLines (), Case.ErrorLine == nullptr ? std::vector<std::string>{}
                                                         : std::vector<std::string>{Line (0, Case.ErrorLine)})
        << Case.Name;
  }
}

//
// A NULL buffer and a zero size are refused before anything is written; a
// text longer than the buffer is cut to it.
//
TEST_F (MachineTest, ConvertersCheckAndFitTheBuffer) {
  CHAR8 Buffer[8];
  std::memcpy (Buffer, "abcdefg", 8);
  EXPECT_EQ (ConvertCperSeverityToString (1, nullptr, 8), EFI_INVALID_PARAMETER);
  EXPECT_EQ (ConvertCperSeverityToString (1, Buffer, 0), EFI_INVALID_PARAMETER);
  ConvertOperationToString (1, Buffer, 0);
  EXPECT_EQ (std::string (Buffer), "abcdefg");
  EXPECT_EQ (SerialLines ().size (), 3u);

  ConvertOperationToString (5, Buffer, sizeof (Buffer));
  EXPECT_EQ (std::string (Buffer), "Instruc");
  UINT64 *NoStatus = nullptr;
  ConvertErrorStatusTypeToString (NoStatus, nullptr, 0);
  EXPECT_EQ (SerialLines ().size (), 4u);
}

} // namespace
