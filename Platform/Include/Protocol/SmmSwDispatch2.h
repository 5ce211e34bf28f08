/** @file
  EFI_SMM_SW_DISPATCH2_PROTOCOL: registration of software SMI handlers by
  their SMI command value.
**/
#pragma once

#include <Pi/PiSmmCis.h>

extern EFI_GUID gEfiSmmSwDispatch2ProtocolGuid;

typedef struct {
  UINTN SwSmiInputValue;
} EFI_SMM_SW_REGISTER_CONTEXT;

typedef struct {
  UINTN SwSmiCpuIndex;
  UINT8 CommandPort;
  UINT8 DataPort;
} EFI_SMM_SW_CONTEXT;

typedef struct _EFI_SMM_SW_DISPATCH2_PROTOCOL EFI_SMM_SW_DISPATCH2_PROTOCOL;

typedef EFI_STATUS (EFIAPI *EFI_SMM_SW_REGISTER2) (IN CONST EFI_SMM_SW_DISPATCH2_PROTOCOL *This,
                                                   IN EFI_SMM_HANDLER_ENTRY_POINT2         DispatchFunction,
                                                   IN OUT EFI_SMM_SW_REGISTER_CONTEXT     *RegisterContext,
                                                   OUT EFI_HANDLE                         *DispatchHandle);
typedef EFI_STATUS (EFIAPI *EFI_SMM_SW_UNREGISTER2) (IN CONST EFI_SMM_SW_DISPATCH2_PROTOCOL *This,
                                                     IN EFI_HANDLE                           DispatchHandle);

struct _EFI_SMM_SW_DISPATCH2_PROTOCOL {
  EFI_SMM_SW_REGISTER2   Register;
  EFI_SMM_SW_UNREGISTER2 UnRegister;
  UINTN                  MaximumSwiValue;
};

static_assert (sizeof (EFI_SMM_SW_DISPATCH2_PROTOCOL) == 24, "SW dispatch2 size");
static_assert (sizeof (EFI_SMM_SW_CONTEXT) == 16, "SW context size");
