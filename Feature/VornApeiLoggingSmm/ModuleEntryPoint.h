/** @file
  Image entry state: the result the module entry hands back and the context
  the exit routine jumps to.
**/
#pragma once

#include <Uefi.h>
#include <Library/BaseLib.h>

extern EFI_STATUS               mDriverEntryPointStatus;
extern BASE_LIBRARY_JUMP_BUFFER mDriverJumpContext;
