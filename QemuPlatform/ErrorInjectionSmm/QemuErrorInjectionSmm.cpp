/** @file
  Error injection for tests in the guest: a software SMI (the value of
  PcdVornQemuErrorInjectionSwSmi) plays a platform error handler. The SMI
  data port (0xB3) selects the error: its low nibble the section kind (the
  VORN_CPER_SECTION_KIND value), its high nibble the CPER severity. The
  handler builds the record with the same builder the simulator's handlers
  use, hands it to the APEI logging module and raises the signal the
  module's routing asks for.
**/
#include <PiSmm.h>

#include <Library/DebugLib.h>
#include <Library/PcdLib.h>
#include <Library/SmmServicesTableLib.h>
#include <Library/VornCperBuilderLib.h>
#include <Protocol/SmmSwDispatch2.h>
#include <Protocol/VornApeiLoggingSmm.h>

//
// Room for the longest record the builder makes.
//
#define QEMU_INJECTION_RECORD_SIZE 1024

//
// Records stay in SMRAM, as a platform handler keeps them.
//
STATIC UINT8 mRecord[QEMU_INJECTION_RECORD_SIZE];

/**
  Builds, records and signals one error.
**/
STATIC EFI_STATUS QemuInjectError (IN VORN_CPER_SECTION_KIND Kind, IN UINT32 Severity) {
  EFI_STATUS                          Status;
  EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *Logging;
  VORN_CPER_RECORD_SPEC               Spec;
  BOOLEAN                             OsLoaded;
  BOOLEAN                             Nmi;

  Status = gSmst->SmmLocateProtocol (&gEfiVornApeiLoggingSmmProtocolGuid, NULL, (VOID **)&Logging);
  if (EFI_ERROR (Status)) {
    return Status;
  }

  OsLoaded = FALSE;
  Logging->ElogIsApeiOsLoaded (&OsLoaded);
  if (!OsLoaded) {
    return EFI_NOT_READY;
  }

  VornCperDefaultSpec (&Spec, Kind);
  Spec.HeaderSeverity  = Severity;
  Spec.SectionSeverity = Severity;
  Status               = VornCperBuildRecord (&Spec, mRecord, sizeof (mRecord));
  if (EFI_ERROR (Status)) {
    return Status;
  }

  Status = Logging->ElogRecord (Logging, (CPER_RECORD *)mRecord, Severity);
  if (EFI_ERROR (Status)) {
    return Status;
  }

  Nmi = VornCperSignalsNmi ((CPER_RECORD *)mRecord, Severity);
  DEBUG ((DEBUG_INFO, "%a: recorded, raising the %a\n", __func__, Nmi ? "NMI" : "SCI"));
  return Nmi ? Logging->ElogSignalNmi (Logging) : Logging->ElogSignalSci (Logging, 0);
}

/**
  The injection SMI: decodes the data port and injects.
**/
STATIC EFI_STATUS EFIAPI QemuErrorInjectionHandler (IN EFI_HANDLE                DispatchHandle,
                                                    IN CONST VOID *Context       OPTIONAL,
                                                    IN OUT VOID *CommBuffer      OPTIONAL,
                                                    IN OUT UINTN *CommBufferSize OPTIONAL) {
  EFI_SMM_SW_CONTEXT *SwContext;
  UINTN               Kind;
  UINT32              Severity;
  EFI_STATUS          Status;

  (VOID) DispatchHandle;
  (VOID) Context;
  (VOID) CommBufferSize;

  SwContext = (EFI_SMM_SW_CONTEXT *)CommBuffer;
  if (SwContext == NULL) {
    return EFI_SUCCESS;
  }

  Kind     = SwContext->DataPort & 0xF;
  Severity = SwContext->DataPort >> 4;
  if ((Kind >= VornCperSectionKindCount) || (Severity > EFI_GENERIC_ERROR_INFO)) {
    Status = EFI_INVALID_PARAMETER;
  } else {
    Status = QemuInjectError ((VORN_CPER_SECTION_KIND)Kind, Severity);
  }

  DEBUG ((EFI_ERROR (Status) ? DEBUG_ERROR : DEBUG_INFO, "%a: data 0x%02x (kind %d, severity %d): %r\n", __func__,
          SwContext->DataPort, (UINT32)Kind, Severity, Status));
  return EFI_SUCCESS;
}

EFI_STATUS
EFIAPI
QemuErrorInjectionEntry (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable) {
  EFI_STATUS                     Status;
  EFI_SMM_SW_DISPATCH2_PROTOCOL *SwDispatch;
  EFI_SMM_SW_REGISTER_CONTEXT    RegisterContext;
  EFI_HANDLE                     DispatchHandle;

  (VOID) ImageHandle;
  (VOID) SystemTable;

  Status = gSmst->SmmLocateProtocol (&gEfiSmmSwDispatch2ProtocolGuid, NULL, (VOID **)&SwDispatch);
  if (EFI_ERROR (Status)) {
    return Status;
  }

  RegisterContext.SwSmiInputValue = PcdGet8 (PcdVornQemuErrorInjectionSwSmi);
  return SwDispatch->Register (SwDispatch, QemuErrorInjectionHandler, &RegisterContext, &DispatchHandle);
}
