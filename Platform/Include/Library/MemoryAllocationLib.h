/** @file
  Pool allocation for SMM code (SMRAM pool of type EfiRuntimeServicesData).
**/
#pragma once

#include <Uefi.h>

VOID *AllocatePool (IN UINTN AllocationSize);
VOID *AllocateZeroPool (IN UINTN AllocationSize);
VOID  FreePool (IN VOID *Buffer);
