/** @file
  Name of the firmware volume that holds the ERST record store.
**/
#pragma once

#include <Uefi.h>

extern EFI_GUID gEfiWheaElogFvGuid;
