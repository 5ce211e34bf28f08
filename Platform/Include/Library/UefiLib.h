/** @file
  Configuration-table lookup.
**/
#pragma once

#include <Uefi.h>

EFI_STATUS EfiGetSystemConfigurationTable (IN EFI_GUID *TableGuid, OUT VOID **Table);
