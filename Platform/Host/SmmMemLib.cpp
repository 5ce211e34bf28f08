/** @file
  SMRAM boundary checks against the machine's memory map.
**/
#include <Library/SmmMemLib.h>

#include "Host.h"

//
// TRUE when [Buffer, Buffer + Length) touches [Base, Base + Size).
//
static bool Overlaps (UINT64 Buffer, UINT64 Length, UINT64 Base, UINT64 Size) {
  const bool StartsIn = (Buffer >= Base) && (Buffer < Base + Size);
  const bool Covers   = (Base >= Buffer) && (Base - Buffer < Length);
  return StartsIn || Covers;
}

BOOLEAN
SmmIsBufferOutsideSmmValid (IN EFI_PHYSICAL_ADDRESS Buffer, IN UINT64 Length) {
  if ((Length != 0) && (Buffer > MAX_UINT64 - (Length - 1))) {
    return FALSE;
  }

  return (Overlaps (Buffer, Length, Host::kSmramBase, Host::kSmramSize) ||
          Overlaps (Buffer, Length, Host::kModuleDataBase, Host::kModuleDataSize))
             ? FALSE
             : TRUE;
}

EFI_STATUS
SmmMemLibConstructor (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable) {
  (void)ImageHandle;
  (void)SystemTable;
  return EFI_SUCCESS;
}
