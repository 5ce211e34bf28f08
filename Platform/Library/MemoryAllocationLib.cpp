/** @file
  Pool allocation for SMM code: SMRAM pool of type EfiRuntimeServicesData.
**/
#include <Library/BaseMemoryLib.h>
#include <Library/MemoryAllocationLib.h>
#include <Library/SmmServicesTableLib.h>

/**
  Allocates AllocationSize bytes of SMRAM pool; NULL when the pool refuses.
**/
VOID *AllocatePool (IN UINTN AllocationSize) {
  VOID *Buffer;

  Buffer = NULL;
  if (EFI_ERROR (gSmst->SmmAllocatePool (EfiRuntimeServicesData, AllocationSize, &Buffer))) {
    return NULL;
  }

  return Buffer;
}

/**
  Allocates AllocationSize bytes of zeroed SMRAM pool.
**/
VOID *AllocateZeroPool (IN UINTN AllocationSize) {
  VOID *Buffer;

  Buffer = AllocatePool (AllocationSize);
  if (Buffer != NULL) {
    ZeroMem (Buffer, AllocationSize);
  }

  return Buffer;
}

/**
  Returns a buffer to the SMRAM pool. A bad buffer is the caller's bug, which
  the pool already refuses; there is nothing more to do here.
**/
VOID FreePool (IN VOID *Buffer) {
  (VOID) gSmst->SmmFreePool (Buffer);
}
