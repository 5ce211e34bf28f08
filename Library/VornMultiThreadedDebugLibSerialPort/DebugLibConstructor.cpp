/** @file
  Sink start-up: serial ports, SMM services and the shared record that every
  SMM module printing through this library finds under one GUID.
**/
#include "VornMultiThreadedDebugLibInternal.h"

#include <Library/BaseMemoryLib.h>
#include <Library/SerialPortLib.h>

MODULE_DATA EFI_SMM_BASE2_PROTOCOL       *mVornMtDebugSmmBase2;
MODULE_DATA EFI_SMM_SYSTEM_TABLE2        *mVornMtDebugSmst;
MODULE_DATA EFI_SMM_CPU_SERVICE_PROTOCOL *mVornMtDebugSmmCpuService;
MODULE_DATA VORN_MT_DEBUG_SHARED_DATA    *mVornMtDebugSharedData;

/**
  Allocates the shared record with its processor table and publishes it.
  Nothing is left allocated on failure.
**/
STATIC EFI_STATUS VornMtDebugCreateSharedData (IN EFI_SMM_SYSTEM_TABLE2        *Smst,
                                               IN EFI_SMM_CPU_SERVICE_PROTOCOL *CpuService,
                                               OUT VORN_MT_DEBUG_SHARED_DATA  **SharedData) {
  EFI_STATUS                 Status;
  VORN_MT_DEBUG_SHARED_DATA *Shared;
  EFI_PROCESSOR_INFORMATION *Table;
  EFI_PROCESSOR_INFORMATION  Entry;
  UINTN                      Count;
  EFI_HANDLE                 Handle;

  Status = Smst->SmmAllocatePool (EfiRuntimeServicesData, sizeof (*Shared), (VOID **)&Shared);
  if (EFI_ERROR (Status) || Shared == NULL) {
    return EFI_OUT_OF_RESOURCES;
  }

  ZeroMem (Shared, sizeof (*Shared));
  InitializeSpinLock (&Shared->Lock);

  //
  // The table is built once here so that printing costs a WhoAmI call only.
  //
  Count = Smst->NumberOfCpus;
  if (Count != 0) {
    Status = Smst->SmmAllocatePool (EfiRuntimeServicesData, Count * sizeof (*Table), (VOID **)&Table);
    if (EFI_ERROR (Status) || Table == NULL) {
      Smst->SmmFreePool (Shared);
      return EFI_OUT_OF_RESOURCES;
    }

    ZeroMem (Table, Count * sizeof (*Table));
    for (UINTN Index = 0; Index < Count; Index++) {
      ZeroMem (&Entry, sizeof (Entry));
      if (!EFI_ERROR (CpuService->GetProcessorInfo (CpuService, Index, &Entry))) {
        CopyMem (&Table[Index], &Entry, sizeof (Entry));
      }
    }

    Shared->ProcessorInfo = Table;
  }

  Handle = NULL;
  Status = Smst->SmmInstallProtocolInterface (&Handle, &gVornMtDebugSharedDataGuid, EFI_NATIVE_INTERFACE, Shared);
  if (EFI_ERROR (Status)) {
    if (Shared->ProcessorInfo != NULL) {
      Smst->SmmFreePool (Shared->ProcessorInfo);
    }

    Smst->SmmFreePool (Shared);
    return EFI_ABORTED;
  }

  *SharedData = Shared;
  return EFI_SUCCESS;
}

/**
  Library constructor. Runs before the service-table libraries, so the boot
  services come from SystemTable. Outside SMM it succeeds without a shared
  record.
**/
EFI_STATUS
EFIAPI
VornMultiThreadedDebugLibConstructor (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable) {
  EFI_STATUS                    Status;
  EFI_SMM_BASE2_PROTOCOL       *SmmBase2;
  EFI_SMM_SYSTEM_TABLE2        *Smst;
  EFI_SMM_CPU_SERVICE_PROTOCOL *CpuService;
  VORN_MT_DEBUG_SHARED_DATA    *Shared;
  BOOLEAN                       InSmram;

  (VOID) ImageHandle;

  if (RETURN_ERROR (SerialPortInitialize ())) {
    return EFI_ABORTED;
  }

  //
  // The run-time level is read here, before any processor prints, so that
  // the level tests read a value that no longer changes.
  //
  (VOID) VornMtDebugRunTimeLevel ();

  if (mVornMtDebugSmmBase2 == NULL) {
    SmmBase2 = NULL;
    Status   = SystemTable->BootServices->LocateProtocol (&gEfiSmmBase2ProtocolGuid, NULL, (VOID **)&SmmBase2);
    if (EFI_ERROR (Status) || SmmBase2 == NULL) {
      return EFI_NOT_FOUND;
    }

    mVornMtDebugSmmBase2 = SmmBase2;
  }

  InSmram = FALSE;
  Status  = mVornMtDebugSmmBase2->InSmm (mVornMtDebugSmmBase2, &InSmram);
  if (EFI_ERROR (Status)) {
    return EFI_NOT_FOUND;
  }

  if (!InSmram) {
    return EFI_SUCCESS;
  }

  Smst   = NULL;
  Status = mVornMtDebugSmmBase2->GetSmstLocation (mVornMtDebugSmmBase2, &Smst);
  if (EFI_ERROR (Status) || Smst == NULL) {
    return EFI_NOT_FOUND;
  }

  mVornMtDebugSmst = Smst;

  CpuService = NULL;
  Status     = Smst->SmmLocateProtocol (&gEfiSmmCpuServiceProtocolGuid, NULL, (VOID **)&CpuService);
  if (EFI_ERROR (Status) || CpuService == NULL) {
    return EFI_NOT_FOUND;
  }

  mVornMtDebugSmmCpuService = CpuService;

  //
  // An earlier SMM module may already have published the record: share its
  // lock so that lines of both modules never interleave.
  //
  Shared = NULL;
  Status = Smst->SmmLocateProtocol (&gVornMtDebugSharedDataGuid, NULL, (VOID **)&Shared);
  if (Status == EFI_NOT_FOUND) {
    Status = VornMtDebugCreateSharedData (Smst, CpuService, &Shared);
  }

  if (EFI_ERROR (Status)) {
    return Status;
  }

  mVornMtDebugSharedData = Shared;
  return EFI_SUCCESS;
}
