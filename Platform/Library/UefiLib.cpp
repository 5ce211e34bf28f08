/** @file
  Configuration-table lookup over the system table.
**/
#include <Library/BaseMemoryLib.h>
#include <Library/UefiBootServicesTableLib.h>
#include <Library/UefiLib.h>

/**
  Returns the table published under TableGuid.
**/
EFI_STATUS
EfiGetSystemConfigurationTable (IN EFI_GUID *TableGuid, OUT VOID **Table) {
  UINTN Index;

  if ((TableGuid == NULL) || (Table == NULL)) {
    return EFI_INVALID_PARAMETER;
  }

  *Table = NULL;
  for (Index = 0; Index < gST->NumberOfTableEntries; Index++) {
    if (CompareGuid (TableGuid, &gST->ConfigurationTable[Index].VendorGuid)) {
      *Table = gST->ConfigurationTable[Index].VendorTable;
      return EFI_SUCCESS;
    }
  }

  return EFI_NOT_FOUND;
}
