/** @file
  Formatted printing: one row per conversion, flag and limit rule the log
  relies on, checked against the exact bytes, the returned count and the
  bytes left alone behind the terminator.
**/
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <Library/PrintLib.h>

namespace {

struct PrintCase {
  const char                           *Rule;
  UINTN                                 BufferSize;
  std::string                           Expected;
  std::function<UINTN (CHAR8 *, UINTN)> Print;
};

#define ROW(Rule, Expected, ...)                                                            \
  PrintCase {                                                                               \
    Rule, 256, Expected, [] (CHAR8 *B, UINTN S) { return AsciiSPrint (B, S, __VA_ARGS__); } \
  }
#define ROW_SIZED(Rule, Size, Expected, ...)                                                 \
  PrintCase {                                                                                \
    Rule, Size, Expected, [] (CHAR8 *B, UINTN S) { return AsciiSPrint (B, S, __VA_ARGS__); } \
  }

// UEFI time record layout, as %t reads it.
struct TestTime {
  UINT16 Year;
  UINT8  Month, Day, Hour, Minute, Second, Pad1;
  UINT32 Nanosecond;
  INT16  TimeZone;
  UINT8  Daylight, Pad2;
};

const TestTime        kTime      = {2024, 3, 7, 9, 5, 59, 0, 0, 0, 0, 0};
const CHAR8 *const    kNullAscii = nullptr;
const CHAR16 *const   kNullWide  = nullptr;
const EFI_GUID *const kNullGuid  = nullptr;
const TestTime *const kNullTime  = nullptr;
const std::string     kA254 (254, 'a');
const std::string     kA253 (253, 'a');
const std::string     kFormat254Lf = kA254 + "\n";
const std::string     kFormat253Lf = kA253 + "\n";
// A GUID one byte into a buffer, so its fields are unaligned.
const UINT8    kUnalignedGuid[17] = {0x00, 0x71, 0xE8, 0x68, 0x88, 0xF1, 0xE4, 0xD3, 0x11,
                                     0xBC, 0x22, 0x00, 0x80, 0xC7, 0x3C, 0x88, 0x81};
const EFI_GUID kElogFv            = {0xD6A1CD70, 0x4B33, 0x4994, {0xA6, 0xEA, 0x37, 0x5F, 0x2C, 0xCC, 0x54, 0x37}};

const PrintCase kCases[] = {
    // Flags in any order; 'l' anywhere in the run; '*' takes width or precision.
    ROW ("long flag before zero", "0000001A", "%l08x", (UINT64)0x1A),
    ROW ("long flag inside width", "0000001A", "%0l8x", (UINT64)0x1A),
    ROW ("double and upper long", "ABCDEF0123-5", "%llx%Ld", (UINT64)0xABCDEF0123ULL, (INT64)-5),
    ROW ("star width and precision",
         "   42|ab|ab   |",
         "%*d|%.*a|%-*a|",
         (UINTN)5,
         42,
         (UINTN)2,
         "abcdef",
         (UINTN)5,
         "ab"),
    ROW ("format ending in a conversion", "abc", "abc%"),
    // Hex is upper case; %X and %p zero-fill to the width.
    ROW ("hex", "1A|ABCDEF|0000001A|    001A", "%X|%x|%8X|%8.4x", 0x1a, 0xabcdef, 0x1a, 0x1a),
    ROW ("pointer",
         "7FF012345678|0000000000001234|1234",
         "%p|%16p|%+p",
         (VOID *)0x7FF012345678ULL,
         (VOID *)0x1234ULL,
         (VOID *)0x1234ULL),
    // %c: low 8 bits, 0 as a blank.
    ROW ("char", ":|A|[ ]|   A", "%c|%c|[%c]|%4c", (UINTN)0x263A, (UINTN)'A', (UINTN)0, (UINTN)'A'),
    ROW ("time", "03/07/2024  09:05|<null time>", "%t|%t", &kTime, kNullTime),
    ROW ("percent", "100%", "100%%"),
    // Numbers: precision is a minimum digit count; width never truncates.
    ROW ("precision", "0007|  0007| -0007|[]|0", "%.4d|%6.4d|%6.4d|[%.0d]|%d", 7, 7, -7, 0, 0),
    ROW ("width never truncates", "123|123", "%2d|%02d", 123, 123),
    ROW ("zero fill keeps the sign first", "-0042|+0042|  -42", "%05d|%+05d|%5d", -42, 42, -42),
    ROW ("left justify ignores zero", "1A      |", "%-08x|", 0x1a),
    ROW ("signs", "+FF| 7|7| 7| FF|+5", "%+x|% u|%+u|% d|% x|%+ d", 255, 7, 7, 7, 255, 5),
    ROW ("thousands",
         "1,234,567|-1,234,567,890,123|   1,234|123456|999",
         "%,d|%,ld|%0,8d|%,x|%,d",
         1234567,
         (INT64)-1234567890123LL,
         1234,
         0x123456,
         999),
    ROW ("an int reads 32 bits",
         "5|ABCD5678|-1|4294967295|FFFFFFFF|AB",
         "%d|%x|%d|%u|%x|%02x",
         (UINT64)0x100000005ULL,
         (UINT64)0x1234ABCD5678ULL,
         0xFFFFFFFFU,
         -1,
         (INT8)-1,
         (UINT8)0xAB),
    ROW ("long extremes",
         "FFFFFFFFFFFFFFFF|18446744073709551615|-9223372036854775808",
         "%lx|%lu|%ld",
         (INT64)-1,
         MAX_UINT64,
         INT64_MIN),
    // Strings: precision caps, width pads with blanks, arguments are raw.
    ROW ("strings",
         "abc|       abc|abcdef|ab   |x\ny%d",
         "%.3a|%010a|%3a|%-5a|%a",
         "abcdef",
         "abc",
         "abcdef",
         "ab",
         "x\ny%d"),
    ROW ("wide strings", "Wide|:|Wi", "%s|%S|%.2s", u"Wide", u"\u263A", u"Wide"),
    ROW ("null strings", "<null string>|<null string>", "%a|%s", kNullAscii, kNullWide),
    // GUIDs: registry format, unaligned, null.
    ROW ("guid", "D6A1CD70-4B33-4994-A6EA-375F2CCC5437", "%g", &kElogFv),
    ROW ("unaligned guid with width",
         "    8868E871-E4F1-11D3-BC22-0080C73C8881",
         "%40g",
         (const VOID *)(kUnalignedGuid + 1)),
    ROW ("null guid", "<null guid>|<null gu", "%g|%.8g", kNullGuid, kNullGuid),
    // Status names; codes without one print their low 32 bits.
    ROW ("status",
         "Success|Warning Reset Required|00000008|Load Error|Compromised Data|HTTP Error|00000024",
         "%r|%r|%r|%r|%r|%r|%r",
         (RETURN_STATUS)0,
         (RETURN_STATUS)7,
         (RETURN_STATUS)8,
         (RETURN_STATUS)0x8000000000000001ULL,
         (RETURN_STATUS)0x8000000000000021ULL,
         (RETURN_STATUS)0x8000000000000023ULL,
         (RETURN_STATUS)0x8000000000000024ULL),
    ROW ("status without a name",
         "00000000|00000001|ABCDEF01",
         "%r|%r|%r",
         (RETURN_STATUS)0x8000000000000000ULL,
         (RETURN_STATUS)0xA000000000000001ULL,
         (RETURN_STATUS)0x12345678ABCDEF01ULL),
    ROW ("status width", "                                 Success", "%40r", (RETURN_STATUS)0),
    // End-of-line translation, in the format only.
    ROW ("line ends", "x\r\n|a\r\nb|a\r\nb|a\rb|a\r\nb|\r\n\r\n", "x\n|a\n\rb|a\r\nb|a\rb|a%\nb|\n\n"),
    // Unknown types print themselves and take no argument.
    ROW ("unknown types", "aqb|a    qb|i|#x|hd|zu|qs", "a%qb|a%5qb|%i|%#x|%hd|%zu|%q%a", "s"),
    // Truncation: cut mid-conversion, count without the NUL.
    ROW_SIZED ("truncated decimal", 8, "1234567", "%d", 123456789),
    ROW_SIZED ("truncated zero fill", 8, "0000123", "%08x", 0x1234),
    ROW_SIZED ("CR LF split at the end", 256, kA254 + "\r", kFormat254Lf.c_str ()),
    ROW_SIZED ("CR LF fits at the end", 256, kA253 + "\r\n", kFormat253Lf.c_str ()),
    ROW_SIZED ("size one gives an empty string", 1, "", "abc"),
    ROW_SIZED ("size zero writes nothing", 0, "", "abc"),
    // The texts the module prints most.
    ROW ("addresses",
         "0xFEDCBA9876543210|0x0000000000ABCDEF|0x0        12345678",
         "0x%016lx|0x%016lx|0x0%16lx",
         (UINT64)0xFEDCBA9876543210ULL,
         (UINT64)0xABCDEF,
         (UINT64)0x12345678),
    ROW (
        "processor prefix", "[SMM] APIC 0x1F S00:C12:T01 > ", "[SMM] APIC 0x%02x S%02d:C%02d:T%02d > ", 0x1F, 0, 12, 1),
};

TEST (PrintLibTest, FormatsEveryRuleExactly) {
  for (const PrintCase &Case : kCases) {
    CHAR8 Buffer[512];
    memset (Buffer, 0x5A, sizeof (Buffer));
    const UINTN Count = Case.Print (Buffer, Case.BufferSize);
    EXPECT_EQ (std::string (Buffer, Count), Case.Expected) << Case.Rule;
    EXPECT_EQ (Count, Case.Expected.size ()) << Case.Rule;
    if (Case.BufferSize != 0) {
      EXPECT_EQ (Buffer[Count], 0) << Case.Rule;
    }
    EXPECT_EQ (Buffer[Case.BufferSize], 0x5A) << Case.Rule;
  }
}

TEST (PrintLibTest, RefusedArgumentsLeaveTheBufferAlone) {
  CHAR8 Buffer[8];
  memset (Buffer, 0x5A, sizeof (Buffer));
  EXPECT_EQ (AsciiSPrint (Buffer, sizeof (Buffer), nullptr), 0u);
  EXPECT_EQ (AsciiSPrint (nullptr, sizeof (Buffer), "abc"), 0u);
  EXPECT_EQ (Buffer[0], 0x5A);
}

} // namespace
