/** @file
  The platform's SMM attribute-storage protocol: named settings kept in NVRAM.
**/
#pragma once

#include <Uefi.h>

extern EFI_GUID gVornSmmAttributeStorageProtocolGuid;
extern EFI_GUID gVornRasAttributeNamespaceGuid;

typedef struct _VORN_SMM_ATTRIBUTE_STORAGE_PROTOCOL VORN_SMM_ATTRIBUTE_STORAGE_PROTOCOL;

typedef EFI_STATUS (EFIAPI *VORN_GET_ATTRIBUTE) (IN VORN_SMM_ATTRIBUTE_STORAGE_PROTOCOL *This,
                                                 IN CONST EFI_GUID                      *Namespace,
                                                 IN CONST CHAR16                        *Name,
                                                 OUT UINT32 *Attributes                  OPTIONAL,
                                                 IN OUT UINTN                           *DataSize,
                                                 OUT VOID                               *Data);

struct _VORN_SMM_ATTRIBUTE_STORAGE_PROTOCOL {
  VOID              *Revision;
  VORN_GET_ATTRIBUTE GetAttribute;
};
