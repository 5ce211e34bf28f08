/** @file
  The SMST of the running SMM module.
**/
#pragma once

#include <Pi/PiSmmCis.h>

extern EFI_SMM_SYSTEM_TABLE2 *gSmst;

EFI_STATUS SmmServicesTableLibConstructor (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable);
BOOLEAN    InSmm (VOID);
