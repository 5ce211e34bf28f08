/** @file
  SMRAM boundary checks for buffers shared with the OS.
**/
#pragma once

#include <Uefi.h>

BOOLEAN    SmmIsBufferOutsideSmmValid (IN EFI_PHYSICAL_ADDRESS Buffer, IN UINT64 Length);
EFI_STATUS SmmMemLibConstructor (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable);
