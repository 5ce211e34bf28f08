/** @file
  Configuration-table GUIDs under which the RSDP is published.

  gEfiAcpi20TableGuid carries the ACPI 2.0 RSDP; gEfiAcpi10TableGuid carries
  the ACPI 1.0 one (EB9D2D30-...).
**/
#pragma once

#include <Uefi.h>

extern EFI_GUID gEfiAcpi20TableGuid;
extern EFI_GUID gEfiAcpi10TableGuid;
