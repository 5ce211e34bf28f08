/** @file
  Memory copy, fill and compare routines.
**/
#include <Library/BaseMemoryLib.h>

/**
  Copies Length bytes; the two buffers may overlap.
**/
VOID *CopyMem (OUT VOID *DestinationBuffer, IN CONST VOID *SourceBuffer, IN UINTN Length) {
  UINT8       *Destination;
  CONST UINT8 *Source;

  Destination = (UINT8 *)DestinationBuffer;
  Source      = (CONST UINT8 *)SourceBuffer;
  if (Destination == Source || Length == 0) {
    return DestinationBuffer;
  }

  //
  // Copy backwards when the destination starts inside the source, so that
  // no source byte is overwritten before it is read.
  //
  if (Destination > Source && Destination < Source + Length) {
    for (UINTN Index = Length; Index > 0; Index--) {
      Destination[Index - 1] = Source[Index - 1];
    }
  } else {
    for (UINTN Index = 0; Index < Length; Index++) {
      Destination[Index] = Source[Index];
    }
  }

  return DestinationBuffer;
}

/**
  Fills Length bytes with Value.
**/
VOID *SetMem (OUT VOID *Buffer, IN UINTN Length, IN UINT8 Value) {
  UINT8 *Bytes;

  Bytes = (UINT8 *)Buffer;
  for (UINTN Index = 0; Index < Length; Index++) {
    Bytes[Index] = Value;
  }

  return Buffer;
}

/**
  Fills Length bytes with zero.
**/
VOID *ZeroMem (OUT VOID *Buffer, IN UINTN Length) {
  return SetMem (Buffer, Length, 0);
}

/**
  Compares two buffers: 0 when equal, otherwise the difference of the first
  differing bytes (destination minus source).
**/
INTN CompareMem (IN CONST VOID *DestinationBuffer, IN CONST VOID *SourceBuffer, IN UINTN Length) {
  CONST UINT8 *Destination;
  CONST UINT8 *Source;

  Destination = (CONST UINT8 *)DestinationBuffer;
  Source      = (CONST UINT8 *)SourceBuffer;
  for (UINTN Index = 0; Index < Length; Index++) {
    if (Destination[Index] != Source[Index]) {
      return (INTN)Destination[Index] - (INTN)Source[Index];
    }
  }

  return 0;
}

/**
  TRUE when the two GUIDs are equal.
**/
BOOLEAN
CompareGuid (IN CONST GUID *Guid1, IN CONST GUID *Guid2) {
  return (BOOLEAN)(CompareMem (Guid1, Guid2, sizeof (GUID)) == 0);
}

/**
  Copies a GUID and returns the destination.
**/
GUID *CopyGuid (OUT GUID *DestinationGuid, IN CONST GUID *SourceGuid) {
  CopyMem (DestinationGuid, SourceGuid, sizeof (GUID));
  return DestinationGuid;
}
