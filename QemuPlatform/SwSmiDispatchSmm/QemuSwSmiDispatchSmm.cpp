/** @file
  Software SMI dispatch for QEMU's q35. OVMF has no software-SMI dispatcher,
  so this driver provides EFI_SMM_SW_DISPATCH2_PROTOCOL: a root SMI handler
  reads the SMI command port (0xB2), which holds the value the last software
  SMI was raised with, and calls the handlers registered for that value.

  The save state cannot tell which processor wrote the port, so the handlers
  run on the processor that runs the SMI handlers.
**/
#include <PiSmm.h>

#include <IndustryStandard/Q35MchIch9.h>
#include <Library/DebugLib.h>
#include <Library/IoLib.h>
#include <Library/SmmServicesTableLib.h>
#include <Protocol/SmmSwDispatch2.h>

//
// Enough for the APEI module (three values) and the platform's own.
//
#define QEMU_SW_SMI_MAX_HANDLERS 16

typedef struct {
  BOOLEAN                      InUse;
  EFI_SMM_HANDLER_ENTRY_POINT2 DispatchFunction;
  EFI_SMM_SW_REGISTER_CONTEXT  RegisterContext;
} QEMU_SW_SMI_HANDLER;

STATIC QEMU_SW_SMI_HANDLER mHandlers[QEMU_SW_SMI_MAX_HANDLERS];

/**
  Returns the handler registered for Value, or NULL.
**/
STATIC QEMU_SW_SMI_HANDLER *QemuSwSmiFind (IN UINTN Value) {
  for (UINTN Index = 0; Index < QEMU_SW_SMI_MAX_HANDLERS; Index++) {
    if (mHandlers[Index].InUse && (mHandlers[Index].RegisterContext.SwSmiInputValue == Value)) {
      return &mHandlers[Index];
    }
  }

  return NULL;
}

/**
  Registers DispatchFunction for RegisterContext->SwSmiInputValue; the value
  (UINTN)-1 asks for any free value, which is returned in RegisterContext.
**/
STATIC EFI_STATUS EFIAPI QemuSwSmiRegister (IN CONST EFI_SMM_SW_DISPATCH2_PROTOCOL *This,
                                            IN EFI_SMM_HANDLER_ENTRY_POINT2         DispatchFunction,
                                            IN OUT EFI_SMM_SW_REGISTER_CONTEXT     *RegisterContext,
                                            OUT EFI_HANDLE                         *DispatchHandle) {
  QEMU_SW_SMI_HANDLER *Free;
  UINTN                Value;

  if ((DispatchFunction == NULL) || (RegisterContext == NULL) || (DispatchHandle == NULL)) {
    return EFI_INVALID_PARAMETER;
  }

  Value = RegisterContext->SwSmiInputValue;
  if (Value == (UINTN)-1) {
    //
    // 0 and the CPU hot-plug value are raised by the platform itself.
    //
    for (Value = This->MaximumSwiValue; Value > ICH9_APM_CNT_CPU_HOTPLUG; Value--) {
      if (QemuSwSmiFind (Value) == NULL) {
        break;
      }
    }

    if (Value == ICH9_APM_CNT_CPU_HOTPLUG) {
      return EFI_OUT_OF_RESOURCES;
    }
  } else if ((Value > This->MaximumSwiValue) || (QemuSwSmiFind (Value) != NULL)) {
    return EFI_INVALID_PARAMETER;
  }

  Free = NULL;
  for (UINTN Index = 0; (Index < QEMU_SW_SMI_MAX_HANDLERS) && (Free == NULL); Index++) {
    if (!mHandlers[Index].InUse) {
      Free = &mHandlers[Index];
    }
  }

  if (Free == NULL) {
    return EFI_OUT_OF_RESOURCES;
  }

  Free->InUse                           = TRUE;
  Free->DispatchFunction                = DispatchFunction;
  Free->RegisterContext.SwSmiInputValue = Value;
  RegisterContext->SwSmiInputValue      = Value;
  *DispatchHandle                       = (EFI_HANDLE)Free;
  DEBUG ((DEBUG_INFO, "%a: software SMI 0x%02x registered\n", __func__, (UINT32)Value));
  return EFI_SUCCESS;
}

/**
  Removes the registration behind DispatchHandle.
**/
STATIC EFI_STATUS EFIAPI QemuSwSmiUnRegister (IN CONST EFI_SMM_SW_DISPATCH2_PROTOCOL *This,
                                              IN EFI_HANDLE                           DispatchHandle) {
  QEMU_SW_SMI_HANDLER *Handler;

  (VOID) This;

  Handler = (QEMU_SW_SMI_HANDLER *)DispatchHandle;
  if ((Handler < &mHandlers[0]) || (Handler >= &mHandlers[QEMU_SW_SMI_MAX_HANDLERS]) || !Handler->InUse) {
    return EFI_INVALID_PARAMETER;
  }

  Handler->InUse = FALSE;
  return EFI_SUCCESS;
}

/**
  Root SMI handler: dispatches the value in the command port. Other SMIs
  (OVMF's own communication SMIs write 0 there) find no handler and are left
  to the other root handlers.
**/
STATIC EFI_STATUS EFIAPI QemuSwSmiRootHandler (IN EFI_HANDLE                DispatchHandle,
                                               IN CONST VOID *Context       OPTIONAL,
                                               IN OUT VOID *CommBuffer      OPTIONAL,
                                               IN OUT UINTN *CommBufferSize OPTIONAL) {
  QEMU_SW_SMI_HANDLER *Handler;
  EFI_SMM_SW_CONTEXT   SwContext;
  UINTN                SwContextSize;

  (VOID) DispatchHandle;
  (VOID) Context;
  (VOID) CommBuffer;
  (VOID) CommBufferSize;

  SwContext.CommandPort = IoRead8 (ICH9_APM_CNT);
  Handler               = QemuSwSmiFind (SwContext.CommandPort);
  if (Handler == NULL) {
    return EFI_INTERRUPT_PENDING;
  }

  SwContext.SwSmiCpuIndex = gSmst->CurrentlyExecutingCpu;
  SwContext.DataPort      = IoRead8 (ICH9_APM_STS);
  SwContextSize           = sizeof (SwContext);
  Handler->DispatchFunction ((EFI_HANDLE)Handler, &Handler->RegisterContext, &SwContext, &SwContextSize);
  return EFI_WARN_INTERRUPT_SOURCE_QUIESCED;
}

STATIC EFI_SMM_SW_DISPATCH2_PROTOCOL mSwDispatch = {QemuSwSmiRegister, QemuSwSmiUnRegister, MAX_UINT8};

/**
  Driver entry: registers the root handler and installs the protocol.
**/
EFI_STATUS
EFIAPI
QemuSwSmiDispatchEntry (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable) {
  EFI_STATUS Status;
  EFI_HANDLE RootHandle;
  EFI_HANDLE Handle;

  (VOID) ImageHandle;
  (VOID) SystemTable;

  Status = gSmst->SmiHandlerRegister (QemuSwSmiRootHandler, NULL, &RootHandle);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r registering the root SMI handler\n", __func__, Status));
    return Status;
  }

  Handle = NULL;
  Status =
      gSmst->SmmInstallProtocolInterface (&Handle, &gEfiSmmSwDispatch2ProtocolGuid, EFI_NATIVE_INTERFACE, &mSwDispatch);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r installing gEfiSmmSwDispatch2ProtocolGuid\n", __func__, Status));
    gSmst->SmiHandlerUnRegister (RootHandle);
  }

  return Status;
}
