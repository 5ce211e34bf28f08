/** @file
  Memory copy, fill and compare routines.
**/
#pragma once

#include <Uefi.h>

VOID   *CopyMem (OUT VOID *DestinationBuffer, IN CONST VOID *SourceBuffer, IN UINTN Length);
VOID   *SetMem (OUT VOID *Buffer, IN UINTN Length, IN UINT8 Value);
VOID   *ZeroMem (OUT VOID *Buffer, IN UINTN Length);
INTN    CompareMem (IN CONST VOID *DestinationBuffer, IN CONST VOID *SourceBuffer, IN UINTN Length);
BOOLEAN CompareGuid (IN CONST GUID *Guid1, IN CONST GUID *Guid2);
GUID   *CopyGuid (OUT GUID *DestinationGuid, IN CONST GUID *SourceGuid);
