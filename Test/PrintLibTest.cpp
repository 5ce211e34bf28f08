/** @file
  Formatted printing: every conversion, flag and limit the log relies on,
  checked against the exact bytes and the returned count.
**/
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <Library/PrintLib.h>

namespace {

struct PrintCase {
  std::string                           Name;
  UINTN                                 BufferSize;
  std::string                           Expected;
  std::function<UINTN (CHAR8 *, UINTN)> Print;
};

void PrintTo (const PrintCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

#define ROW(Name, Expected, ...)                                                            \
  PrintCase {                                                                               \
    Name, 256, Expected, [] (CHAR8 *B, UINTN S) { return AsciiSPrint (B, S, __VA_ARGS__); } \
  }
#define ROW_SIZED(Name, Size, Expected, ...)                                                 \
  PrintCase {                                                                                \
    Name, Size, Expected, [] (CHAR8 *B, UINTN S) { return AsciiSPrint (B, S, __VA_ARGS__); } \
  }

// UEFI time record layout, as %t reads it.
struct TestTime {
  UINT16 Year;
  UINT8  Month, Day, Hour, Minute, Second, Pad1;
  UINT32 Nanosecond;
  INT16  TimeZone;
  UINT8  Daylight, Pad2;
};

const TestTime        kTime       = {2024, 3, 7, 9, 5, 59, 0, 0, 0, 0, 0};
const CHAR8 *const    kNullAscii  = nullptr;
const CHAR16 *const   kNullWide   = nullptr;
const EFI_GUID *const kNullGuid   = nullptr;
const TestTime *const kNullTime   = nullptr;
const CHAR8 *const    kNullFormat = nullptr;
const std::string     kA254 (254, 'a');
const std::string     kA253 (253, 'a');
const std::string     kA300 (300, 'b');
const std::string     kFormat254Lf = kA254 + "\n";
const std::string     kFormat253Lf = kA253 + "\n";
// A GUID one byte into a buffer, so its fields are unaligned.
const UINT8 kUnalignedGuid[17] = {0x00, 0x71, 0xE8, 0x68, 0x88, 0xF1, 0xE4, 0xD3, 0x11,
                                  0xBC, 0x22, 0x00, 0x80, 0xC7, 0x3C, 0x88, 0x81};

struct StatusRow {
  UINT64      Status;
  const char *Text;
};

const StatusRow kStatusRows[] = {
    {0x0000000000000000ULL, "Success"},
    {0x0000000000000001ULL, "Warning Unknown Glyph"},
    {0x0000000000000002ULL, "Warning Delete Failure"},
    {0x0000000000000003ULL, "Warning Write Failure"},
    {0x0000000000000004ULL, "Warning Buffer Too Small"},
    {0x0000000000000005ULL, "Warning Stale Data"},
    {0x0000000000000006ULL, "Warning File System"},
    {0x0000000000000007ULL, "Warning Reset Required"},
    {0x0000000000000008ULL, "00000008"},
    {0x8000000000000000ULL, "00000000"},
    {0x8000000000000001ULL, "Load Error"},
    {0x8000000000000002ULL, "Invalid Parameter"},
    {0x8000000000000003ULL, "Unsupported"},
    {0x8000000000000004ULL, "Bad Buffer Size"},
    {0x8000000000000005ULL, "Buffer Too Small"},
    {0x8000000000000006ULL, "Not Ready"},
    {0x8000000000000007ULL, "Device Error"},
    {0x8000000000000008ULL, "Write Protected"},
    {0x8000000000000009ULL, "Out of Resources"},
    {0x800000000000000AULL, "Volume Corrupt"},
    {0x800000000000000BULL, "Volume Full"},
    {0x800000000000000CULL, "No Media"},
    {0x800000000000000DULL, "Media changed"},
    {0x800000000000000EULL, "Not Found"},
    {0x800000000000000FULL, "Access Denied"},
    {0x8000000000000010ULL, "No Response"},
    {0x8000000000000011ULL, "No mapping"},
    {0x8000000000000012ULL, "Time out"},
    {0x8000000000000013ULL, "Not started"},
    {0x8000000000000014ULL, "Already started"},
    {0x8000000000000015ULL, "Aborted"},
    {0x8000000000000016ULL, "ICMP Error"},
    {0x8000000000000017ULL, "TFTP Error"},
    {0x8000000000000018ULL, "Protocol Error"},
    {0x8000000000000019ULL, "Incompatible Version"},
    {0x800000000000001AULL, "Security Violation"},
    {0x800000000000001BULL, "CRC Error"},
    {0x800000000000001CULL, "End of Media"},
    {0x800000000000001DULL, "Reserved (29)"},
    {0x800000000000001EULL, "Reserved (30)"},
    {0x800000000000001FULL, "End of File"},
    {0x8000000000000020ULL, "Invalid Language"},
    {0x8000000000000021ULL, "Compromised Data"},
    {0x8000000000000022ULL, "IP Address Conflict"},
    {0x8000000000000023ULL, "HTTP Error"},
    {0x8000000000000024ULL, "00000024"},
    {0xA000000000000000ULL, "00000000"},
    {0xA000000000000001ULL, "00000001"},
    {0xA000000000000002ULL, "00000002"},
    {0x2000000000000000ULL, "00000000"},
    {0x2000000000000001ULL, "00000001"},
    {0x12345678ABCDEF01ULL, "ABCDEF01"},
};

struct GuidRow {
  const char *Name;
  EFI_GUID    Guid;
  const char *Text;
};

const GuidRow kGuidRows[] = {
    {"Acpi20",
     {0x8868E871, 0xE4F1, 0x11D3, {0xBC, 0x22, 0x00, 0x80, 0xC7, 0x3C, 0x88, 0x81}},
     "8868E871-E4F1-11D3-BC22-0080C73C8881"},
    {"Acpi10",
     {0xEB9D2D30, 0x2D88, 0x11D3, {0x9A, 0x16, 0x00, 0x90, 0x27, 0x3F, 0xC1, 0x4D}},
     "EB9D2D30-2D88-11D3-9A16-0090273FC14D"},
    {"SmmBase2",
     {0xF4CCBFB7, 0xF6E0, 0x47FD, {0x9D, 0xD4, 0x10, 0xA8, 0xF1, 0x50, 0xC1, 0x91}},
     "F4CCBFB7-F6E0-47FD-9DD4-10A8F150C191"},
    {"SwDispatch2",
     {0x18A3C6DC, 0x5EEA, 0x48C8, {0xA1, 0xC1, 0xB5, 0x33, 0x89, 0xF9, 0x89, 0x99}},
     "18A3C6DC-5EEA-48C8-A1C1-B53389F98999"},
    {"SmmFvb",
     {0xD326D041, 0xBD31, 0x4C01, {0xB5, 0xA8, 0x62, 0x8B, 0xE8, 0x7F, 0x06, 0x53}},
     "D326D041-BD31-4C01-B5A8-628BE87F0653"},
    {"SmmCpuService",
     {0x1D202CAB, 0xC8AB, 0x4D5C, {0x94, 0xF7, 0x3C, 0xFC, 0xC0, 0xD3, 0xD3, 0x35}},
     "1D202CAB-C8AB-4D5C-94F7-3CFCC0D3D335"},
    {"ProcessorGeneric",
     {0x9876CCAD, 0x47B4, 0x4BDB, {0xB6, 0x5E, 0x16, 0xF1, 0x93, 0xC4, 0xF3, 0xDB}},
     "9876CCAD-47B4-4BDB-B65E-16F193C4F3DB"},
    {"ProcessorSpecific",
     {0xDC3EA0B0, 0xA144, 0x4797, {0xB9, 0x5B, 0x53, 0xFA, 0x24, 0x2B, 0x6E, 0x1D}},
     "DC3EA0B0-A144-4797-B95B-53FA242B6E1D"},
    {"PlatformMemory",
     {0xA5BC1114, 0x6F64, 0x4EDE, {0xB8, 0x63, 0x3E, 0x83, 0xED, 0x7C, 0x83, 0xB1}},
     "A5BC1114-6F64-4EDE-B863-3E83ED7C83B1"},
    {"Pcie",
     {0xD995E954, 0xBBC1, 0x430F, {0xAD, 0x91, 0xB4, 0x4D, 0xCB, 0x3C, 0x6F, 0x35}},
     "D995E954-BBC1-430F-AD91-B44DCB3C6F35"},
    {"PciComponent",
     {0xEB5E4685, 0xCA66, 0x4769, {0xB6, 0xA2, 0x26, 0x06, 0x8B, 0x00, 0x13, 0x26}},
     "EB5E4685-CA66-4769-B6A2-26068B001326"},
    {"CxlProtocol",
     {0x80B9EFB4, 0x52B5, 0x4DE3, {0xA7, 0x77, 0x68, 0x78, 0x4B, 0x77, 0x10, 0x48}},
     "80B9EFB4-52B5-4DE3-A777-68784B771048"},
    {"VmwarePageRetire",
     {0x330F1140, 0x72A5, 0x11DF, {0x96, 0x90, 0x00, 0x02, 0xA5, 0xD5, 0xC5, 0x1B}},
     "330F1140-72A5-11DF-9690-0002A5D5C51B"},
    {"LoggingProtocol",
     {0xD9285651, 0x0FC4, 0x45BE, {0xB9, 0xE9, 0xDB, 0x44, 0x6E, 0x52, 0x04, 0x34}},
     "D9285651-0FC4-45BE-B9E9-DB446E520434"},
    {"WheaElogFv",
     {0xD6A1CD70, 0x4B33, 0x4994, {0xA6, 0xEA, 0x37, 0x5F, 0x2C, 0xCC, 0x54, 0x37}},
     "D6A1CD70-4B33-4994-A6EA-375F2CCC5437"},
    {"SinkSharedData",
     {0xB7399E59, 0x3AD5, 0x46BB, {0xB6, 0x93, 0x19, 0x7E, 0x7E, 0xCE, 0x7E, 0xF5}},
     "B7399E59-3AD5-46BB-B693-197E7ECE7EF5"},
};

std::vector<PrintCase> AllCases () {
  std::vector<PrintCase> Cases = {
      // Flags may come in any order; 'l' may sit anywhere in the run.
      ROW ("LongFlagBeforeZero", "0000001A", "%l08x", (UINT64)0x1A),
      ROW ("LongFlagInsideWidth", "0000001A", "%0l8x", (UINT64)0x1A),
      ROW ("DoubleLong", "ABCDEF0123", "%llx", (UINT64)0xABCDEF0123ULL),
      ROW ("UpperLong", "ABCDEF0123", "%Lx", (UINT64)0xABCDEF0123ULL),
      ROW ("DoubleLongSigned", "-5", "%lld", (INT64)-5),
      ROW ("FormatEndsInConversion", "abc", "abc%"),
      ROW ("StarWidth", "   42", "%*d", (UINTN)5, 42),
      ROW ("StarPrecision", "ab", "%.*a", (UINTN)2, "abcdef"),
      ROW ("StarWidthLeft", "ab   |", "%-*a|", (UINTN)5, "ab"),
      // Types.
      ROW ("HexUpperNoPad", "1A", "%X", 0x1a),
      ROW ("HexUpperWidthZeroPads", "0000001A", "%8X", 0x1a),
      ROW ("HexLowerIsUpperCase", "ABCDEF", "%x", 0xabcdef),
      ROW ("Pointer", "7FF012345678", "%p", (VOID *)0x7FF012345678ULL),
      ROW ("PointerWidth", "0000000000001234", "%16p", (VOID *)0x1234ULL),
      ROW ("PointerDropsPlus", "1234", "%+p", (VOID *)0x1234ULL),
      ROW ("CharLow8Bits", ":", "%c", (UINTN)0x263A),
      ROW ("CharPlain", "A", "%c", (UINTN)'A'),
      ROW ("CharZeroIsBlank", "[ ]", "[%c]", (UINTN)0),
      ROW ("CharWidth", "   A", "%4c", (UINTN)'A'),
      ROW ("Time", "03/07/2024  09:05", "%t", &kTime),
      ROW ("TimeNull", "<null time>", "%t", kNullTime),
      ROW ("Percent", "100%", "100%%"),
      // Numbers.
      ROW ("PrecisionZeroFills", "0007", "%.4d", 7),
      ROW ("WidthAndPrecision", "  0007", "%6.4d", 7),
      ROW ("NegativeWidthAndPrecision", " -0007", "%6.4d", -7),
      ROW ("PrecisionZeroOfZero", "[]", "[%.0d]", 0),
      ROW ("ZeroDefaultPrecision", "0", "%d", 0),
      ROW ("WidthNeverTruncates", "123", "%2d", 123),
      ROW ("ZeroWidthNeverTruncates", "123", "%02d", 123),
      ROW ("ZeroPadSignInside", "-0042", "%05d", -42),
      ROW ("ZeroPadPlusInside", "+0042", "%+05d", 42),
      ROW ("BlankPadNegative", "  -42", "%5d", -42),
      ROW ("LeftIgnoresZero", "1A      |", "%-08x|", 0x1a),
      ROW ("PlusOnHex", "+FF", "%+x", 255),
      ROW ("BlankOnUnsigned", " 7", "% u", 7),
      ROW ("PlusDroppedOnUnsigned", "7", "%+u", 7),
      ROW ("BlankOnSigned", " 7", "% d", 7),
      ROW ("BlankOnHex", " FF", "% x", 255),
      ROW ("PlusWinsOverBlank", "+5", "%+ d", 5),
      ROW ("Thousands", "1,234,567", "%,d", 1234567),
      ROW ("ThousandsLongNegative", "-1,234,567,890,123", "%,ld", (INT64)-1234567890123LL),
      ROW ("ThousandsCancelsZero", "   1,234", "%0,8d", 1234),
      ROW ("ThousandsIgnoredForHex", "123456", "%,x", 0x123456),
      ROW ("ThousandsThreeDigits", "999", "%,d", 999),
      ROW ("IntReadOfWideValue", "5", "%d", (UINT64)0x100000005ULL),
      ROW ("HexIntReadLow32", "ABCD5678", "%x", (UINT64)0x1234ABCD5678ULL),
      ROW ("AllOnesSigned", "-1", "%d", 0xFFFFFFFFU),
      ROW ("MinusOneUnsigned", "4294967295", "%u", -1),
      ROW ("NegativeInt8Hex", "FFFFFFFF", "%x", (INT8)-1),
      ROW ("Uint8Promotes", "AB", "%02x", (UINT8)0xAB),
      ROW ("LongHexMinusOne", "FFFFFFFFFFFFFFFF", "%lx", (INT64)-1),
      ROW ("LongUnsignedMax", "18446744073709551615", "%lu", MAX_UINT64),
      ROW ("LongSignedMin", "-9223372036854775808", "%ld", INT64_MIN),
      // Strings.
      ROW ("StringPrecision", "abc", "%.3a", "abcdef"),
      ROW ("StringZeroFlagPadsBlank", "       abc|", "%010a|", "abc"),
      ROW ("StringWidthNeverTruncates", "abcdef", "%3a", "abcdef"),
      ROW ("StringLeft", "ab   |", "%-5a|", "ab"),
      ROW ("AsciiNull", "<null string>", "%a", kNullAscii),
      ROW ("WideNull", "<null string>", "%s", kNullWide),
      ROW ("Wide", "Wide", "%s", u"Wide"),
      ROW ("WideCutTo8Bits", ":", "%S", u"\u263A"),
      ROW ("WidePrecision", "Wi", "%.2s", u"Wide"),
      ROW ("ArgumentCopiedRaw", "x\ny%d", "%a", "x\ny%d"),
      // GUIDs.
      ROW ("GuidNull", "<null guid>", "%g", kNullGuid),
      ROW ("GuidNullPrecision", "<null gu", "%.8g", kNullGuid),
      ROW ("GuidWidth", "    8868E871-E4F1-11D3-BC22-0080C73C8881", "%40g", (const VOID *)(kUnalignedGuid + 1)),
      ROW ("GuidUnaligned", "8868E871-E4F1-11D3-BC22-0080C73C8881", "%g", (const VOID *)(kUnalignedGuid + 1)),
      // Status width.
      ROW ("StatusWidth", "                                 Success", "%40r", (RETURN_STATUS)0),
      // End-of-line translation, in the format only.
      ROW ("LfToCrLf", "x\r\n", "x\n"),
      ROW ("LfCrToCrLf", "a\r\nb", "a\n\rb"),
      ROW ("CrLfKept", "a\r\nb", "a\r\nb"),
      ROW ("LoneCrKept", "a\rb", "a\rb"),
      ROW ("LfAfterPercent", "a\r\nb", "a%\nb"),
      ROW ("TwoLf", "\r\n\r\n", "\n\n"),
      // Unknown types print themselves and take no argument.
      ROW ("UnknownType", "aqb", "a%qb"),
      ROW ("UnknownTypeWidth", "a    qb", "a%5qb"),
      ROW ("UnknownI", "i", "%i"),
      ROW ("UnknownHash", "#x", "%#x"),
      ROW ("UnknownH", "hd", "%hd"),
      ROW ("UnknownZ", "zu", "%zu"),
      ROW ("UnknownTakesNoArgument", "qs", "%q%a", "s"),
      // Truncation: cut mid-conversion, count without the NUL.
      ROW_SIZED ("TruncateDecimal", 8, "1234567", "%d", 123456789),
      ROW_SIZED ("TruncateZeroPadded", 8, "0000123", "%08x", 0x1234),
      ROW_SIZED ("CrLfSplitAtEnd", 256, kA254 + "\r", kFormat254Lf.c_str ()),
      ROW_SIZED ("CrLfFitsAtEnd", 256, kA253 + "\r\n", kFormat253Lf.c_str ()),
      ROW_SIZED ("LongArgumentCut", 256, kA300.substr (0, 255), "%a", kA300.c_str ()),
      ROW_SIZED ("SizeOneGivesEmpty", 1, "", "abc"),
      ROW_SIZED ("SizeZeroWritesNothing", 0, "", "abc"),
      ROW ("NullFormat", "", kNullFormat),
      // Texts the module prints.
      ROW ("Address64", "0xFEDCBA9876543210", "0x%016lx", (UINT64)0xFEDCBA9876543210ULL),
      ROW ("Address64Padded", "0x0000000000ABCDEF", "0x%016lx", (UINT64)0xABCDEF),
      ROW ("Hex32", "0xDEADBEEF", "0x%08x", 0xDEADBEEF),
      ROW ("LiteralZeroThenBlankPad", "0x0        12345678", "0x0%16lx", (UINT64)0x12345678),
      ROW ("LiteralZeroThenFull", "0x02120051509300102", "0x0%16lx", (UINT64)0x2120051509300102ULL),
      ROW ("ProcessorPrefix", "[SMM] APIC 0x1F S00:C12:T01 > ", "[SMM] APIC 0x%02x S%02d:C%02d:T%02d > ", 0x1F, 0, 12,
           1),
      ROW ("StatusLine", "Status = Compromised Data\r\n", "Status = %r\n", (RETURN_STATUS)0x8000000000000021ULL),
      ROW ("FunctionLine", "Fn: ERROR pCper is null on entry, aborting...\r\n",
           "%a: ERROR pCper is null on entry, aborting...\n", "Fn"),
  };

  for (const StatusRow &Row : kStatusRows) {
    char Name[32];
    snprintf (Name, sizeof (Name), "Status%016llX", (unsigned long long)Row.Status);
    RETURN_STATUS Status = Row.Status;
    Cases.push_back ({Name, 256, Row.Text, [Status] (CHAR8 *B, UINTN S) { return AsciiSPrint (B, S, "%r", Status); }});
  }

  for (const GuidRow &Row : kGuidRows) {
    const EFI_GUID *Guid = &Row.Guid;
    Cases.push_back ({std::string ("Guid") + Row.Name, 256, Row.Text,
                      [Guid] (CHAR8 *B, UINTN S) { return AsciiSPrint (B, S, "%g", Guid); }});
  }

  return Cases;
}

class PrintLibTest : public ::testing::TestWithParam<PrintCase> {};

TEST_P (PrintLibTest, FormatsExactly) {
  const PrintCase &Case     = GetParam ();
  const CHAR8      Sentinel = 0x5A;
  CHAR8            Buffer[512];

  memset (Buffer, Sentinel, sizeof (Buffer));
  UINTN Count = Case.Print (Buffer, Case.BufferSize);

  EXPECT_EQ (Count, Case.Expected.size ());
  EXPECT_EQ (std::string (Buffer, Count), Case.Expected);
  if (Case.BufferSize == 0) {
    EXPECT_EQ (Buffer[0], Sentinel);
  } else if (Case.Expected.empty () && Case.BufferSize == 256) {
    // Rejected arguments leave the buffer alone.
    EXPECT_EQ (Buffer[0], Sentinel);
  } else {
    EXPECT_EQ (Buffer[Count], 0);
    EXPECT_EQ (Buffer[Case.BufferSize], Sentinel);
  }
}

INSTANTIATE_TEST_SUITE_P (AllConversions,
                          PrintLibTest,
                          ::testing::ValuesIn (AllCases ()),
                          [] (const ::testing::TestParamInfo<PrintCase> &Info) { return Info.param.Name; });

} // namespace
