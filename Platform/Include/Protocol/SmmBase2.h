/** @file
  EFI_SMM_BASE2_PROTOCOL: tells a driver whether it runs in SMRAM and where
  the SMST is.
**/
#pragma once

#include <Pi/PiSmmCis.h>

extern EFI_GUID gEfiSmmBase2ProtocolGuid;

typedef struct _EFI_SMM_BASE2_PROTOCOL EFI_SMM_BASE2_PROTOCOL;

typedef EFI_STATUS (EFIAPI *EFI_SMM_INSIDE_OUT2) (IN CONST EFI_SMM_BASE2_PROTOCOL *This, OUT BOOLEAN *InSmram);
typedef EFI_STATUS (EFIAPI *EFI_SMM_GET_SMST_LOCATION2) (IN CONST EFI_SMM_BASE2_PROTOCOL *This,
                                                         IN OUT EFI_SMM_SYSTEM_TABLE2   **Smst);

struct _EFI_SMM_BASE2_PROTOCOL {
  EFI_SMM_INSIDE_OUT2        InSmm;
  EFI_SMM_GET_SMST_LOCATION2 GetSmstLocation;
};

static_assert (sizeof (EFI_SMM_BASE2_PROTOCOL) == 16, "SMM Base2 size");
