/** @file
  The memory routines without the check CopyMem and SetMem make first
  (MachineAccess.h), for platform libraries that copy between buffers they
  have already checked or that are their own.
**/
#pragma once

#include <Uefi.h>

VOID *InternalCopyMem (OUT VOID *DestinationBuffer, IN CONST VOID *SourceBuffer, IN UINTN Length);
VOID *InternalSetMem (OUT VOID *Buffer, IN UINTN Length, IN UINT8 Value);
