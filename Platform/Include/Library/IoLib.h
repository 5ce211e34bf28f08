/** @file
  I/O port and memory-mapped register access.
**/
#pragma once

#include <Uefi.h>

UINT8  IoRead8 (IN UINTN Port);
UINT8  IoWrite8 (IN UINTN Port, IN UINT8 Value);
VOID   IoWriteFifo8 (IN UINTN Port, IN UINTN Count, IN VOID *Buffer);
UINT32 MmioRead32 (IN UINTN Address);
UINT32 MmioWrite32 (IN UINTN Address, IN UINT32 Value);
