/** @file
  I/O port and memory-mapped register access.
**/
#pragma once

#include <Uefi.h>

UINT8  IoRead8 (IN UINTN Port);
UINT8  IoWrite8 (IN UINTN Port, IN UINT8 Value);
UINT32 MmioRead32 (IN UINTN Address);
UINT32 MmioWrite32 (IN UINTN Address, IN UINT32 Value);
