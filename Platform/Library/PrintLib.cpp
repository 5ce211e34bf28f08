/** @file
  Formatted printing into ASCII buffers.

  Conversions: %[flags][width][.precision]type with the flags - + blank , l L 0
  and *, and the types d u x X p c a s S g t r %. Hex digits are always upper
  case; an unknown type prints its own character and takes no argument. A
  "\n" in the format is written as CR LF. Output stops one character short of
  the buffer size and is always NUL-terminated; the result is the number of
  characters written. A format longer than the longest accepted string
  prints nothing.

  The formatter is on the path of every log line, so it copies literal runs
  and digit strings in bulk and reads the format only once.
**/
#include <Library/PrintLib.h>
#include <Library/BaseLib.h>
#include <Library/BaseMemoryLib.h>

#include <MachineAccess.h>

#include "BaseMemoryInternal.h"

//
// Longest buffer and format string the engine accepts.
//
#define PRINT_MAXIMUM_STRING_LENGTH 1000000

//
// Digits of a 64-bit value in any supported radix, and a GUID's text.
//
#define PRINT_DIGIT_SCRATCH_SIZE 24
#define PRINT_TEXT_SCRATCH_SIZE  40

//
// Calendar part of a UEFI time record, which is all %t prints.
//
typedef struct {
  UINT16 Year;
  UINT8  Month;
  UINT8  Day;
  UINT8  Hour;
  UINT8  Minute;
} PRINT_TIME;

static_assert (offsetof (PRINT_TIME, Month) == 2, "time month offset");
static_assert (offsetof (PRINT_TIME, Minute) == 5, "time minute offset");

typedef struct {
  CHAR8 *Buffer;
  UINTN  Limit; // characters that fit before the terminating NUL
  UINTN  Count;
} PRINT_OUTPUT;

typedef struct {
  BOOLEAN LeftJustify;
  BOOLEAN PrefixPlus;
  BOOLEAN PrefixBlank;
  BOOLEAN Comma;
  BOOLEAN Long;
  BOOLEAN ZeroPad;
  BOOLEAN WidthSet;
  BOOLEAN PrecisionSet;
  UINTN   Width;
  UINTN   Precision;
} PRINT_SPEC;

STATIC CONST CHAR8 mPrintHexDigits[] = "0123456789ABCDEF";

//
// Texts of warning codes 0..7 and of error codes 0..35 (index 0 has none).
//
STATIC CONST CHAR8 *CONST mPrintWarningText[] = {
    "Success",
    "Warning Unknown Glyph",
    "Warning Delete Failure",
    "Warning Write Failure",
    "Warning Buffer Too Small",
    "Warning Stale Data",
    "Warning File System",
    "Warning Reset Required",
};

STATIC CONST CHAR8 *CONST mPrintErrorText[] = {
    NULL,
    "Load Error",
    "Invalid Parameter",
    "Unsupported",
    "Bad Buffer Size",
    "Buffer Too Small",
    "Not Ready",
    "Device Error",
    "Write Protected",
    "Out of Resources",
    "Volume Corrupt",
    "Volume Full",
    "No Media",
    "Media changed",
    "Not Found",
    "Access Denied",
    "No Response",
    "No mapping",
    "Time out",
    "Not started",
    "Already started",
    "Aborted",
    "ICMP Error",
    "TFTP Error",
    "Protocol Error",
    "Incompatible Version",
    "Security Violation",
    "CRC Error",
    "End of Media",
    "Reserved (29)",
    "Reserved (30)",
    "End of File",
    "Invalid Language",
    "Compromised Data",
    "IP Address Conflict",
    "HTTP Error",
};

/**
  Appends one character unless the buffer is full.
**/
STATIC inline VOID PrintPutChar (IN OUT PRINT_OUTPUT *Output, IN CHAR8 Character) {
  if (Output->Count < Output->Limit) {
    Output->Buffer[Output->Count] = Character;
    Output->Count++;
  }
}

/**
  Appends as much of the Length characters at Text as the buffer holds.
**/
STATIC inline VOID PrintPutText (IN OUT PRINT_OUTPUT *Output, IN CONST CHAR8 *Text, IN UINTN Length) {
  UINTN Room;

  Room   = Output->Limit - Output->Count;
  Length = (Length < Room) ? Length : Room;
  if (Length == 0) {
    return;
  }

  InternalCopyMem (Output->Buffer + Output->Count, Text, Length);
  Output->Count += Length;
}

/**
  Appends Count copies of Character.
**/
STATIC inline VOID PrintPutRepeated (IN OUT PRINT_OUTPUT *Output, IN CHAR8 Character, IN UINTN Count) {
  UINTN Room;

  Room  = Output->Limit - Output->Count;
  Count = (Count < Room) ? Count : Room;
  if (Count == 0) {
    return;
  }

  InternalSetMem (Output->Buffer + Output->Count, Count, (UINT8)Character);
  Output->Count += Count;
}

/**
  Writes the digits of Value in Radix, most significant first, with at least
  MinDigits digits (0 gives no digit for a zero value). Returns the count.
**/
STATIC UINTN PrintValueToText (OUT CHAR8 *Text, IN UINT64 Value, IN UINT32 Radix, IN UINTN MinDigits) {
  CHAR8 Reversed[PRINT_DIGIT_SCRATCH_SIZE];
  UINTN Count;

  for (Count = 0; Value != 0 || Count < MinDigits; Count++) {
    Reversed[Count] = mPrintHexDigits[Value % Radix];
    Value           = Value / Radix;
  }

  for (UINTN Index = 0; Index < Count; Index++) {
    Text[Index] = Reversed[Count - 1 - Index];
  }

  return Count;
}

//
// Word-at-a-time scanning: a word has a zero byte when (w - 0x01..) & ~w &
// 0x80.. is non-zero, and a byte equal to c when w ^ (c in every byte) has a
// zero byte. Words are read aligned, so a read past the terminator never
// leaves the page the terminator is on; the address sanitizer would still
// see the bytes after it, hence the attribute.
//
typedef UINT64 __attribute__ ((may_alias)) PRINT_WORD;

#define PRINT_ONES  0x0101010101010101ULL
#define PRINT_HIGHS 0x8080808080808080ULL

STATIC inline UINT64 PrintZeroBytes (IN UINT64 Word) {
  return (Word - PRINT_ONES) & ~Word & PRINT_HIGHS;
}

/**
  TRUE for the format characters that end a literal run: the terminator,
  '%' and the two end-of-line characters.
**/
STATIC inline BOOLEAN PrintEndsLiteral (IN CHAR8 Character) {
  //
  // Letters and most punctuation lie above '%': one comparison for them.
  //
  if ((UINT8)Character > '%') {
    return FALSE;
  }

  return (BOOLEAN)(Character == 0 || Character == '%' || Character == '\n' || Character == '\r');
}

/**
  Returns the first character at or after Text that ends a literal run.
**/
__attribute__ ((no_sanitize ("address"))) STATIC CONST CHAR8 *PrintLiteralEnd (IN CONST CHAR8 *Text) {
  UINT64 Word;

  for (; ((UINTN)Text % sizeof (UINT64)) != 0; Text++) {
    if (PrintEndsLiteral (*Text)) {
      return Text;
    }
  }

  for (;; Text += sizeof (UINT64)) {
    Word = *(CONST PRINT_WORD *)(CONST VOID *)Text;
    if ((PrintZeroBytes (Word) | PrintZeroBytes (Word ^ (PRINT_ONES * '%')) |
         PrintZeroBytes (Word ^ (PRINT_ONES * '\n')) | PrintZeroBytes (Word ^ (PRINT_ONES * '\r'))) != 0) {
      break;
    }
  }

  while (!PrintEndsLiteral (*Text)) {
    Text++;
  }

  return Text;
}

/**
  Length of an ASCII string, at most Limit characters.
**/
__attribute__ ((no_sanitize ("address"))) STATIC UINTN PrintAsciiLength (IN CONST CHAR8 *Text, IN UINTN Limit) {
  CONST CHAR8 *Start;
  UINT64       Word;

  Start = Text;
  if (Limit == MAX_UINTN) {
    for (; ((UINTN)Text % sizeof (UINT64)) != 0; Text++) {
      if (*Text == 0) {
        return (UINTN)(Text - Start);
      }
    }

    for (;; Text += sizeof (UINT64)) {
      Word = *(CONST PRINT_WORD *)(CONST VOID *)Text;
      if (PrintZeroBytes (Word) != 0) {
        break;
      }
    }
  }

  while ((UINTN)(Text - Start) < Limit && *Text != 0) {
    Text++;
  }

  return (UINTN)(Text - Start);
}

/**
  Writes the digits of Value, decimal or hex, so that they end just before
  End; a zero value has no digit. Returns the count.
**/
STATIC UINTN PrintDigitsToEnd (OUT CHAR8 *End, IN UINT64 Value, IN BOOLEAN Decimal) {
  CHAR8 *Digit;

  Digit = End;
  if (Decimal) {
    for (; Value != 0; Value /= 10) {
      *--Digit = (CHAR8)('0' + Value % 10);
    }
  } else {
    for (; Value != 0; Value >>= 4) {
      *--Digit = mPrintHexDigits[Value & 0xF];
    }
  }

  return (UINTN)(End - Digit);
}

/**
  Writes a text of Length characters (ASCII, or UCS-2 cut to 8 bits), padded
  with blanks to the field width.
**/
STATIC VOID PrintPadded (IN OUT PRINT_OUTPUT  *Output,
                         IN CONST PRINT_SPEC  *Spec,
                         IN CONST CHAR8 *Ascii OPTIONAL,
                         IN CONST CHAR16 *Wide OPTIONAL,
                         IN UINTN              Length) {
  UINTN Padding;

  Padding = (Spec->Width > Length) ? Spec->Width - Length : 0;
  if (!Spec->LeftJustify) {
    PrintPutRepeated (Output, ' ', Padding);
  }

  if (Ascii != NULL) {
    PrintPutText (Output, Ascii, Length);
  } else {
    for (UINTN Index = 0; Index < Length && Output->Count < Output->Limit; Index++) {
      PrintPutChar (Output, (CHAR8)Wide[Index]);
    }
  }

  if (Spec->LeftJustify) {
    PrintPutRepeated (Output, ' ', Padding);
  }
}

/**
  Writes a NUL-terminated string under the string rules: the precision caps
  the characters taken, the width pads with blanks.
**/
STATIC VOID PrintText (IN OUT PRINT_OUTPUT  *Output,
                       IN CONST PRINT_SPEC  *Spec,
                       IN CONST CHAR8 *Ascii OPTIONAL,
                       IN CONST CHAR16 *Wide OPTIONAL) {
  UINTN Limit;
  UINTN Length;

  Limit = Spec->PrecisionSet ? Spec->Precision : MAX_UINTN;
  if (Ascii != NULL) {
    Length = PrintAsciiLength (Ascii, Limit);
  } else {
    for (Length = 0; Length < Limit && Wide[Length] != 0; Length++) {
    }
  }

  PrintPadded (Output, Spec, Ascii, Wide, Length);
}

/**
  Writes a number: sign or prefix, zero fill up to the minimum digit count,
  digits with optional thousands separators, padded to the width.
**/
STATIC VOID PrintNumber (
    IN OUT PRINT_OUTPUT *Output, IN CONST PRINT_SPEC *Spec, IN CHAR8 Type, IN UINT64 Magnitude, IN BOOLEAN Negative) {
  CHAR8   Digits[PRINT_DIGIT_SCRATCH_SIZE];
  UINTN   DigitCount;
  UINTN   MinDigits;
  UINTN   TotalDigits;
  UINTN   SignLength;
  UINTN   Length;
  UINTN   Padding;
  CHAR8   Sign;
  BOOLEAN Decimal;
  BOOLEAN Comma;

  Decimal = (BOOLEAN)(Type == 'd' || Type == 'u');
  Comma   = (BOOLEAN)(Spec->Comma && Decimal);

  Sign = 0;
  if (Negative) {
    Sign = '-';
  } else if (Spec->PrefixPlus && Type != 'u') {
    Sign = '+';
  } else if (Spec->PrefixBlank) {
    Sign = ' ';
  }

  //
  // Separators reset the precision and cancel zero padding; otherwise the
  // zero flag fills the whole width, the sign included.
  //
  SignLength = (Sign != 0) ? 1 : 0;
  MinDigits  = 1;
  if (!Comma) {
    if (Spec->PrecisionSet) {
      MinDigits = Spec->Precision;
    } else if (Spec->ZeroPad && Spec->WidthSet && !Spec->LeftJustify && Spec->Width > SignLength) {
      MinDigits = Spec->Width - SignLength;
    }
  }

  DigitCount  = PrintDigitsToEnd (Digits + sizeof (Digits), Magnitude, Decimal);
  TotalDigits = (MinDigits > DigitCount) ? MinDigits : DigitCount;
  Length      = TotalDigits + SignLength;
  if (Comma && TotalDigits > 0) {
    Length += (TotalDigits - 1) / 3;
  }

  Padding = (Spec->Width > Length) ? Spec->Width - Length : 0;
  if (!Spec->LeftJustify) {
    PrintPutRepeated (Output, ' ', Padding);
  }

  if (Sign != 0) {
    PrintPutChar (Output, Sign);
  }

  if (!Comma) {
    PrintPutRepeated (Output, '0', TotalDigits - DigitCount);
    PrintPutText (Output, Digits + sizeof (Digits) - DigitCount, DigitCount);
  } else {
    for (UINTN Index = 0; Index < TotalDigits && Output->Count < Output->Limit; Index++) {
      if (Index > 0 && ((TotalDigits - Index) % 3) == 0) {
        PrintPutChar (Output, ',');
      }

      PrintPutChar (Output, (Index < TotalDigits - DigitCount) ? '0' : Digits[sizeof (Digits) - TotalDigits + Index]);
    }
  }

  if (Spec->LeftJustify) {
    PrintPutRepeated (Output, ' ', Padding);
  }
}

/**
  Builds the registry-format text of a GUID, which may be unaligned.
**/
STATIC VOID PrintGuidToText (OUT CHAR8 *Text, IN CONST VOID *GuidPointer) {
  GUID  Guid;
  UINTN Length;

  CopyMem (&Guid, GuidPointer, sizeof (Guid));
  Length         = PrintValueToText (Text, Guid.Data1, 16, 8);
  Text[Length++] = '-';
  Length += PrintValueToText (Text + Length, Guid.Data2, 16, 4);
  Text[Length++] = '-';
  Length += PrintValueToText (Text + Length, Guid.Data3, 16, 4);
  Text[Length++] = '-';
  for (UINTN Index = 0; Index < sizeof (Guid.Data4); Index++) {
    if (Index == 2) {
      Text[Length++] = '-';
    }

    Length += PrintValueToText (Text + Length, Guid.Data4[Index], 16, 2);
  }

  Text[Length] = 0;
}

/**
  Builds "mm/dd/yyyy  hh:mm" from a time record.
**/
STATIC VOID PrintTimeToText (OUT CHAR8 *Text, IN CONST PRINT_TIME *Time) {
  UINTN Length;

  Length         = PrintValueToText (Text, Time->Month, 10, 2);
  Text[Length++] = '/';
  Length += PrintValueToText (Text + Length, Time->Day, 10, 2);
  Text[Length++] = '/';
  Length += PrintValueToText (Text + Length, Time->Year, 10, 4);
  Text[Length++] = ' ';
  Text[Length++] = ' ';
  Length += PrintValueToText (Text + Length, Time->Hour, 10, 2);
  Text[Length++] = ':';
  Length += PrintValueToText (Text + Length, Time->Minute, 10, 2);
  Text[Length] = 0;
}

/**
  Returns the text of a status code, or builds the 8-digit hex of its low 32
  bits into Scratch for codes without a name.
**/
STATIC CONST CHAR8 *PrintStatusToText (OUT CHAR8 *Scratch, IN RETURN_STATUS Status) {
  UINTN Code;

  if ((Status & MAX_BIT) != 0) {
    Code = Status & ~MAX_BIT;
    if (Code >= 1 && Code < ARRAY_SIZE (mPrintErrorText)) {
      return mPrintErrorText[Code];
    }
  } else if (Status < ARRAY_SIZE (mPrintWarningText)) {
    return mPrintWarningText[Status];
  }

  Scratch[PrintValueToText (Scratch, (UINT32)Status, 16, 8)] = 0;
  return Scratch;
}

/**
  Consumes an end-of-line sequence at *Format and returns what it prints:
  LF and LF CR become CR LF, CR LF stays, a lone CR stays.
**/
STATIC CONST CHAR8 *PrintEndOfLine (IN OUT CONST CHAR8 **Format) {
  CONST CHAR8 *Current;

  Current = *Format;
  if (Current[0] == '\n') {
    *Format = Current + ((Current[1] == '\r') ? 2 : 1);
    return "\r\n";
  }

  if (Current[1] == '\n') {
    *Format = Current + 2;
    return "\r\n";
  }

  *Format = Current + 1;
  return "\r";
}

/**
  Parses the flags, width and precision after '%'. Returns the type character
  position.
**/
STATIC CONST CHAR8 *PrintParseSpec (IN CONST CHAR8 *Format, OUT PRINT_SPEC *Spec, IN OUT va_list *Marker) {
  UINTN Number;

  *Spec = PRINT_SPEC{};
  for (;; Format++) {
    switch (*Format) {
      case '-':
        Spec->LeftJustify = TRUE;
        break;
      case '+':
        Spec->PrefixPlus = TRUE;
        break;
      case ' ':
        Spec->PrefixBlank = TRUE;
        break;
      case ',':
        Spec->Comma = TRUE;
        break;
      case 'l':
      case 'L':
        Spec->Long = TRUE;
        break;
      case '.':
        Spec->PrecisionSet = TRUE;
        Spec->Precision    = 0;
        break;
      case '*':
        if (Spec->PrecisionSet) {
          Spec->Precision = va_arg (*Marker, UINTN);
        } else {
          Spec->WidthSet = TRUE;
          Spec->Width    = va_arg (*Marker, UINTN);
        }

        break;
      case '0':
      case '1':
      case '2':
      case '3':
      case '4':
      case '5':
      case '6':
      case '7':
      case '8':
      case '9':
        if (*Format == '0' && !Spec->PrecisionSet) {
          Spec->ZeroPad = TRUE;
        }

        for (Number = 0; *Format >= '0' && *Format <= '9'; Format++) {
          Number = Number * 10 + (UINTN)(*Format - '0');
        }

        Format--;
        if (Spec->PrecisionSet) {
          Spec->Precision = Number;
        } else {
          Spec->WidthSet = TRUE;
          Spec->Width    = Number;
        }

        break;
      default:
        return Format;
    }
  }
}

/**
  Reads a numeric argument and prints it. Without 'l' the argument is an int.
**/
STATIC VOID PrintNumericArgument (IN OUT PRINT_OUTPUT *Output,
                                  IN PRINT_SPEC       *Spec,
                                  IN CHAR8             Type,
                                  IN OUT va_list      *Marker) {
  UINT64 Raw;
  INT64  Signed;

  if (Type == 'p') {
    Spec->PrefixPlus  = FALSE;
    Spec->PrefixBlank = FALSE;
    Spec->Long        = TRUE;
    Raw               = (UINT64)(UINTN)va_arg (*Marker, VOID *);
  } else if (Spec->Long) {
    Raw = va_arg (*Marker, UINT64);
  } else {
    Raw = (UINT64)(INT64)va_arg (*Marker, int);
  }

  if (Type == 'p' || Type == 'X') {
    Spec->ZeroPad = TRUE;
  }

  if (Type == 'd') {
    Signed = (INT64)Raw;
    PrintNumber (Output, Spec, Type, (Signed < 0) ? 0 - Raw : Raw, (BOOLEAN)(Signed < 0));
    return;
  }

  PrintNumber (Output, Spec, Type, Spec->Long ? Raw : (UINT32)Raw, FALSE);
}

/**
  Prints one conversion; Format points just after '%'. Returns the position
  after the conversion.
**/
STATIC CONST CHAR8 *PrintConversion (IN OUT PRINT_OUTPUT *Output, IN CONST CHAR8 *Format, IN OUT va_list *Marker) {
  PRINT_SPEC   Spec;
  CHAR8        Scratch[PRINT_TEXT_SCRATCH_SIZE];
  CONST VOID  *Pointer;
  CONST CHAR8 *Text;
  CHAR8        Type;
  UINTN        Character;

  Format = PrintParseSpec (Format, &Spec, Marker);
  Type   = *Format;
  switch (Type) {
    case 0:
      return Format;
    case 'd':
    case 'u':
    case 'x':
    case 'X':
    case 'p':
      PrintNumericArgument (Output, &Spec, Type, Marker);
      break;
    case 'c':
      Character  = va_arg (*Marker, UINTN) & 0xFFFF;
      Scratch[0] = (Character == 0) ? ' ' : (CHAR8)Character;
      Scratch[1] = 0;
      PrintText (Output, &Spec, Scratch, NULL);
      break;
    case 'a':
      Text = va_arg (*Marker, CONST CHAR8 *);
      PrintText (Output, &Spec, (Text != NULL) ? Text : "<null string>", NULL);
      break;
    case 's':
    case 'S':
      Pointer = va_arg (*Marker, CONST CHAR16 *);
      if (Pointer == NULL) {
        PrintText (Output, &Spec, "<null string>", NULL);
      } else {
        PrintText (Output, &Spec, NULL, (CONST CHAR16 *)Pointer);
      }

      break;
    case 'g':
      Pointer = va_arg (*Marker, CONST GUID *);
      if (Pointer != NULL) {
        PrintGuidToText (Scratch, Pointer);
      }

      PrintText (Output, &Spec, (Pointer != NULL) ? Scratch : "<null guid>", NULL);
      break;
    case 't':
      Pointer = va_arg (*Marker, CONST VOID *);
      if (Pointer != NULL) {
        PrintTimeToText (Scratch, (CONST PRINT_TIME *)Pointer);
      }

      PrintText (Output, &Spec, (Pointer != NULL) ? Scratch : "<null time>", NULL);
      break;
    case 'r':
      PrintText (Output, &Spec, PrintStatusToText (Scratch, va_arg (*Marker, RETURN_STATUS)), NULL);
      break;
    case '\n':
    case '\r':
      Text = PrintEndOfLine (&Format);
      PrintText (Output, &Spec, Text, NULL);
      return Format;
    default:
      //
      // '%' and unknown types print the character itself and take no argument.
      //
      Scratch[0] = Type;
      Scratch[1] = 0;
      PrintText (Output, &Spec, Scratch, NULL);
      break;
  }

  return Format + 1;
}

/**
  Formats into StartOfBuffer from a variable argument list. Returns the
  number of characters written, without the NUL.
**/
UINTN
AsciiVSPrint (OUT CHAR8 *StartOfBuffer, IN UINTN BufferSize, IN CONST CHAR8 *FormatString, IN VA_LIST Marker) {
  PRINT_OUTPUT Output;
  CONST CHAR8 *Format;
  CONST CHAR8 *Run;
  UINTN        Length;
  va_list      Arguments;

  if (BufferSize == 0 || StartOfBuffer == NULL || FormatString == NULL || BufferSize > PRINT_MAXIMUM_STRING_LENGTH) {
    return 0;
  }

  //
  // The output is checked once; within it the formatter copies unchecked.
  //
  Host::Internal::CheckMachineAccess (StartOfBuffer, BufferSize, Host::MachineFaultKind::Write);
  Output.Buffer = StartOfBuffer;
  Output.Limit  = BufferSize - 1;
  Output.Count  = 0;

  va_copy (Arguments, Marker);
  Format = FormatString;
  while (Output.Count < Output.Limit) {
    //
    // A literal run is measured, then copied as a whole.
    //
    Run = PrintLiteralEnd (Format);

    if (Run != Format) {
      Length = (UINTN)(Run - Format);
      if (Length > Output.Limit - Output.Count) {
        Length = Output.Limit - Output.Count;
      }

      PrintPutText (&Output, Format, Length);
      Format += Length;
      continue;
    }

    if (*Format == '%') {
      Format = PrintConversion (&Output, Format + 1, &Arguments);
    } else if (*Format != 0) {
      for (CONST CHAR8 *Text = PrintEndOfLine (&Format); *Text != 0; Text++) {
        PrintPutChar (&Output, *Text);
      }
    } else {
      break;
    }
  }

  va_end (Arguments);

  //
  // The length limit of the format is checked last, so that a format of
  // ordinary length is read once; only a full buffer makes the rest of it
  // be measured.
  //
  if ((UINTN)(Format - FormatString) + ((*Format == 0) ? 0 : AsciiStrnLenS (Format, PRINT_MAXIMUM_STRING_LENGTH + 1)) >
      PRINT_MAXIMUM_STRING_LENGTH) {
    StartOfBuffer[0] = 0;
    return 0;
  }

  StartOfBuffer[Output.Count] = 0;
  return Output.Count;
}

/**
  Formats into StartOfBuffer. Returns the number of characters written,
  without the NUL.
**/
UINTN
AsciiSPrint (OUT CHAR8 *StartOfBuffer, IN UINTN BufferSize, IN CONST CHAR8 *FormatString, ...) {
  VA_LIST Marker;
  UINTN   Count;

  VA_START (Marker, FormatString);
  Count = AsciiVSPrint (StartOfBuffer, BufferSize, FormatString, Marker);
  VA_END (Marker);
  return Count;
}
