/** @file
  ASCII and UCS-2 string routines, including the bounded "safe" copy and
  concatenation forms.

  The safe forms check their arguments before touching the destination: on
  any error they return the status and leave the destination as it was.
**/
#include <Library/BaseLib.h>

//
// Longest string the safe routines accept, terminator excluded.
//
#define STRING_MAXIMUM_ASCII_LENGTH 1000000

/**
  TRUE when the byte ranges [Base1, Base1 + Size1) and [Base2, Base2 + Size2)
  share a byte.
**/
STATIC BOOLEAN StringRangesOverlap (IN CONST VOID *Base1, IN UINTN Size1, IN CONST VOID *Base2, IN UINTN Size2) {
  UINTN Start1;
  UINTN Start2;

  Start1 = (UINTN)Base1;
  Start2 = (UINTN)Base2;
  return (BOOLEAN)((Start1 < Start2 + Size2) && (Start2 < Start1 + Size1));
}

/**
  Length of a NUL-terminated ASCII string.
**/
UINTN
AsciiStrLen (IN CONST CHAR8 *String) {
  UINTN Length;

  for (Length = 0; String[Length] != 0; Length++) {
  }

  return Length;
}

/**
  Length of an ASCII string, but at most MaxSize. A NULL string or a zero
  MaxSize gives 0.
**/
UINTN
AsciiStrnLenS (IN CONST CHAR8 *String, IN UINTN MaxSize) {
  UINTN Length;

  if (String == NULL || MaxSize == 0) {
    return 0;
  }

  for (Length = 0; Length < MaxSize && String[Length] != 0; Length++) {
  }

  return Length;
}

/**
  Appends Length characters of Source at Destination and terminates it.
**/
STATIC VOID StringCopyCharacters (OUT CHAR8 *Destination, IN CONST CHAR8 *Source, IN UINTN Length) {
  for (UINTN Index = 0; Index < Length; Index++) {
    Destination[Index] = Source[Index];
  }

  Destination[Length] = 0;
}

/**
  Checks shared by the copy forms and copies at most Length characters of
  Source into a DestMax-character Destination.
**/
STATIC RETURN_STATUS StringCopyBounded (OUT CHAR8      *Destination,
                                        IN UINTN        DestMax,
                                        IN CONST CHAR8 *Source,
                                        IN UINTN        Length) {
  UINTN SourceLength;

  if (Destination == NULL || Source == NULL || DestMax == 0 || DestMax > STRING_MAXIMUM_ASCII_LENGTH) {
    return EFI_INVALID_PARAMETER;
  }

  SourceLength = AsciiStrnLenS (Source, (DestMax < Length) ? DestMax : Length);
  if (SourceLength >= DestMax) {
    return EFI_BUFFER_TOO_SMALL;
  }

  if (StringRangesOverlap (Destination, DestMax, Source, SourceLength + 1)) {
    return EFI_ACCESS_DENIED;
  }

  StringCopyCharacters (Destination, Source, SourceLength);
  return EFI_SUCCESS;
}

/**
  Checks shared by the concatenation forms and appends at most Length
  characters of Source to the string in a DestMax-character Destination.
**/
STATIC RETURN_STATUS StringCatBounded (IN OUT CHAR8   *Destination,
                                       IN UINTN        DestMax,
                                       IN CONST CHAR8 *Source,
                                       IN UINTN        Length) {
  UINTN DestinationLength;
  UINTN Room;
  UINTN SourceLength;

  if (Destination == NULL || Source == NULL || DestMax == 0 || DestMax > STRING_MAXIMUM_ASCII_LENGTH) {
    return EFI_INVALID_PARAMETER;
  }

  DestinationLength = AsciiStrnLenS (Destination, DestMax);
  Room              = DestMax - DestinationLength;
  if (Room == 0) {
    return EFI_BAD_BUFFER_SIZE;
  }

  SourceLength = AsciiStrnLenS (Source, (Room < Length) ? Room : Length);
  if (SourceLength >= Room) {
    return EFI_BUFFER_TOO_SMALL;
  }

  if (StringRangesOverlap (Destination, DestMax, Source, SourceLength + 1)) {
    return EFI_ACCESS_DENIED;
  }

  StringCopyCharacters (Destination + DestinationLength, Source, SourceLength);
  return EFI_SUCCESS;
}

/**
  Copies Source into Destination, which holds DestMax characters with the NUL.
**/
RETURN_STATUS
AsciiStrCpyS (OUT CHAR8 *Destination, IN UINTN DestMax, IN CONST CHAR8 *Source) {
  return StringCopyBounded (Destination, DestMax, Source, MAX_UINTN);
}

/**
  Copies at most Length characters of Source into Destination.
**/
RETURN_STATUS
AsciiStrnCpyS (OUT CHAR8 *Destination, IN UINTN DestMax, IN CONST CHAR8 *Source, IN UINTN Length) {
  if (Length > STRING_MAXIMUM_ASCII_LENGTH) {
    return EFI_INVALID_PARAMETER;
  }

  return StringCopyBounded (Destination, DestMax, Source, Length);
}

/**
  Appends Source to the string in Destination.
**/
RETURN_STATUS
AsciiStrCatS (IN OUT CHAR8 *Destination, IN UINTN DestMax, IN CONST CHAR8 *Source) {
  return StringCatBounded (Destination, DestMax, Source, MAX_UINTN);
}

/**
  Appends at most Length characters of Source to the string in Destination.
**/
RETURN_STATUS
AsciiStrnCatS (IN OUT CHAR8 *Destination, IN UINTN DestMax, IN CONST CHAR8 *Source, IN UINTN Length) {
  if (Length > STRING_MAXIMUM_ASCII_LENGTH) {
    return EFI_INVALID_PARAMETER;
  }

  return StringCatBounded (Destination, DestMax, Source, Length);
}

/**
  Length in characters of a NUL-terminated UCS-2 string.
**/
UINTN
StrLen (IN CONST CHAR16 *String) {
  UINTN Length;

  for (Length = 0; String[Length] != 0; Length++) {
  }

  return Length;
}

/**
  Size in bytes of a UCS-2 string, terminator included.
**/
UINTN
StrSize (IN CONST CHAR16 *String) {
  return (StrLen (String) + 1) * sizeof (CHAR16);
}

/**
  Compares two UCS-2 strings: 0 when equal, otherwise the difference of the
  first differing characters.
**/
INTN StrCmp (IN CONST CHAR16 *FirstString, IN CONST CHAR16 *SecondString) {
  while (*FirstString != 0 && *FirstString == *SecondString) {
    FirstString++;
    SecondString++;
  }

  return (INTN)*FirstString - (INTN)*SecondString;
}
