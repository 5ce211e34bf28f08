/** @file
  The image handle, system table and boot services of the running module.
**/
#include <Library/UefiBootServicesTableLib.h>

EFI_HANDLE         gImageHandle;
EFI_SYSTEM_TABLE  *gST;
EFI_BOOT_SERVICES *gBS;

/**
  Keeps the tables the module was started with.
**/
EFI_STATUS
UefiBootServicesTableLibConstructor (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable) {
  if ((ImageHandle == NULL) || (SystemTable == NULL) || (SystemTable->BootServices == NULL)) {
    return EFI_INVALID_PARAMETER;
  }

  gImageHandle = ImageHandle;
  gST          = SystemTable;
  gBS          = SystemTable->BootServices;
  return EFI_SUCCESS;
}
