/** @file
  The image handle, system table and boot services of the running module.
**/
#pragma once

#include <Uefi.h>

extern EFI_HANDLE         gImageHandle;
extern EFI_SYSTEM_TABLE  *gST;
extern EFI_BOOT_SERVICES *gBS;

EFI_STATUS UefiBootServicesTableLibConstructor (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable);
