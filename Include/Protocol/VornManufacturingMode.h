/** @file
  The platform's manufacturing-mode protocol.
**/
#pragma once

#include <Uefi.h>

extern EFI_GUID gVornManufacturingModeProtocolGuid;

typedef struct _VORN_MANUFACTURING_MODE_PROTOCOL VORN_MANUFACTURING_MODE_PROTOCOL;

typedef UINT32 (EFIAPI *VORN_GET_MANUFACTURING_MODE) (IN VORN_MANUFACTURING_MODE_PROTOCOL *This);

struct _VORN_MANUFACTURING_MODE_PROTOCOL {
  VOID                       *Revision;
  VOID                       *SetManufacturingMode;
  VORN_GET_MANUFACTURING_MODE GetManufacturingMode;
};
