/** @file
  Module private data and the module entry point: debug levels, RAS mode,
  the SMM check, the HEST status blocks, the ERST, the APEI software SMIs
  and the logging protocol.
**/
#include "VornApeiLoggingSmm.h"

#include <IndustryStandard/Acpi.h>
#include <Library/DebugLib.h>
#include <Library/ElogBaseLib.h>
#include <Library/SmmServicesTableLib.h>
#include <Library/UefiBootServicesTableLib.h>

MODULE_DATA VORN_APEI_LOGGING_PRIVATE_DATA mPrivateDataVornApeiLogging;

//
// One HEST generic hardware error source whose status block start-up looks
// up, with the lines that name it and the private-data fields it fills.
//
typedef struct {
  UINT16       SourceId;
  CONST CHAR8 *FindMessage;
  CONST CHAR8 *ErrorMessage;
  CONST CHAR8 *AddressMessage;
  CONST CHAR8 *LengthMessage;
  UINT64      *pAddress;
  UINT64      *pLength;
} VORN_APEI_GHESS_LOOKUP;

static CONST VORN_APEI_GHESS_LOOKUP mGhessLookups[] = {
    {VORN_APEI_GHESS_SOURCE_ID_NMI, "%a: Find GHESS (NMI notification) Error Status Data Block address\n",
     "%a: ERROR %r retrieving GHESS (NMI notification) Error Status Data Block address\n",
     "%a: mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkNmi      = 0x%016lx\n",
     "%a: mPrivateDataVornApeiLogging.ApeiHestGhessErrStsDataBlkLengthNmi = 0x%016lx\n",
     &mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkNmi,
     &mPrivateDataVornApeiLogging.ApeiHestGhessErrStsDataBlkLengthNmi},
    {VORN_APEI_GHESS_SOURCE_ID_SCI, "%a: Find GHESS (SCI notification) Error Status Data Block address\n",
     "%a: ERROR %r retrieving GHESS (SCI notification) Error Status Data Block address\n",
     "%a: mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSci      = 0x%016lx\n",
     "%a: mPrivateDataVornApeiLogging.ApeiHestGhessErrStsDataBlkLengthSci = 0x%016lx\n",
     &mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSci,
     &mPrivateDataVornApeiLogging.ApeiHestGhessErrStsDataBlkLengthSci},
    {VORN_APEI_GHESS_SOURCE_ID_SCI_VMWARE_PAGE_RETIRE,
     "%a: Find GHESS (SCI notification - VMWare memory page retire) Error Status Data Block address\n",
     "%a: ERROR %r retrieving GHESS (SCI notification - VMWare memory page retire) Error Status Data Block address\n",
     "%a: mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSciVmwareMemPageRetire      = 0x%016lx\n",
     "%a: mPrivateDataVornApeiLogging.ApeiHestGhessErrStsDataBlkLengthSciVmwareMemPageRetire = 0x%016lx\n",
     &mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSciVmwareMemPageRetire,
     &mPrivateDataVornApeiLogging.ApeiHestGhessErrStsDataBlkLengthSciVmwareMemPageRetire}};

/**
  Module entry: fills the private data and brings up the module's services.
  Only a missing SMM environment or a missing software-SMI dispatcher stops
  start-up; every other failure is logged and leaves its feature absent.
**/
EFI_STATUS
EFIAPI
VornApeiLoggingSmmConstructor ([[maybe_unused]] IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable) {
  EFI_STATUS                     Status;
  UINT64                         Level;
  BOOLEAN                        InSmm;
  UINT64                         HestAddress;
  UINT64                         ErstAddress;
  UINTN                          Index;
  EFI_SMM_SW_DISPATCH2_PROTOCOL *pSwDispatch2Protocol;
  EFI_SMM_SW_REGISTER_CONTEXT    SwRegisterContext;
  EFI_HANDLE                     SwDispatchHandle;
  EFI_HANDLE                     Handle;

  VornElogGetSerialDebugLevels (&mPrivateDataVornApeiLogging.SerDbgLevelConstructor,
                                &mPrivateDataVornApeiLogging.SerDbgLevel,
                                &mPrivateDataVornApeiLogging.SerDbgLevelDetailed);
  Level = mPrivateDataVornApeiLogging.SerDbgLevelConstructor;

  mPrivateDataVornApeiLogging.RasErrorLoggingMode = VornGetRasErrorLoggingMode (Level);
  DEBUG ((Level, "%a: mPrivateDataVornApeiLogging.RasErrorLoggingMode %d\n", __func__,
          mPrivateDataVornApeiLogging.RasErrorLoggingMode));

  mPrivateDataVornApeiLogging.DebugOutputExtensive = FALSE;
  DEBUG ((Level, "%a: mPrivateDataVornApeiLogging.DebugOutputExtensive %d\n", __func__,
          mPrivateDataVornApeiLogging.DebugOutputExtensive));

  //
  // Only the InSmm answer decides; a missing SMST is reported but does not
  // stop start-up: the SMM services library already holds the SMST, and the
  // SMM services below go through it.
  //
  DEBUG ((Level, "%a: Determine if we are in SMM\n", __func__));
  InSmm = FALSE;
  DEBUG ((Level, "%a: Locating protocol gEfiSmmBase2ProtocolGuid %g\n", __func__, &gEfiSmmBase2ProtocolGuid));
  Status = SystemTable->BootServices->LocateProtocol (&gEfiSmmBase2ProtocolGuid, NULL,
                                                      (VOID **)&mPrivateDataVornApeiLogging.pSmmBase2Protocol);
  if (EFI_ERROR (Status) || (mPrivateDataVornApeiLogging.pSmmBase2Protocol == NULL)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r locating protocol gEfiSmmBase2ProtocolGuid %g\n", __func__, Status,
            &gEfiSmmBase2ProtocolGuid));
  } else {
    Status =
        mPrivateDataVornApeiLogging.pSmmBase2Protocol->InSmm (mPrivateDataVornApeiLogging.pSmmBase2Protocol, &InSmm);
    if (EFI_ERROR (Status)) {
      DEBUG (
          (DEBUG_ERROR, "%a: ERROR %r from mPrivateDataVornApeiLogging.pSmmBase2Protocol->InSmm\n", __func__, Status));
    }

    Status = mPrivateDataVornApeiLogging.pSmmBase2Protocol->GetSmstLocation (
        mPrivateDataVornApeiLogging.pSmmBase2Protocol, &mPrivateDataVornApeiLogging.pSmst);
    if (EFI_ERROR (Status) || (mPrivateDataVornApeiLogging.pSmst == NULL)) {
      DEBUG ((DEBUG_ERROR, "%a: ERROR %r retrieving SMST location\n", __func__, Status));
    }
  }

  DEBUG ((Level, "%a: InSmm %d mPrivateDataVornApeiLogging.pSmst @ 0x%016lx\n", __func__, InSmm,
          (UINT64)(UINTN)mPrivateDataVornApeiLogging.pSmst));
  if (!InSmm) {
    DEBUG ((DEBUG_ERROR, "%a: InSmm %d => Not in SMM, aborting...\n", __func__, InSmm));
    return EFI_NOT_READY;
  }

  DEBUG ((Level, "%a: Retrieving ACPI HEST GHESS Error Status Data Block addresses\n", __func__));
  Status = VornApeiLoggingAcpiLocateTable (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE, &HestAddress);
  if (EFI_ERROR (Status)) {
    DEBUG ((Level, "%a: WARN %r searching for HEST, HEST not found\n", __func__, Status));
  } else {
    DEBUG ((Level, "%a: HEST @ 0x%016lx\n", __func__, HestAddress));
    if (HestAddress != 0) {
      mPrivateDataVornApeiLogging.HestPresent = TRUE;
      for (Index = 0; Index < ARRAY_SIZE (mGhessLookups); Index++) {
        DEBUG ((Level, mGhessLookups[Index].FindMessage, __func__));
        Status = VornApeiLoggingFindHestGhess ((VOID *)(UINTN)HestAddress, VORN_APEI_GHESS_TYPE,
                                               mGhessLookups[Index].SourceId, VORN_APEI_GHESS_RELATED_SOURCE_ID_NONE,
                                               mGhessLookups[Index].pAddress, mGhessLookups[Index].pLength);
        if (EFI_ERROR (Status)) {
          DEBUG ((DEBUG_ERROR, mGhessLookups[Index].ErrorMessage, __func__, Status));
        }

        DEBUG ((Level, mGhessLookups[Index].AddressMessage, __func__, *mGhessLookups[Index].pAddress));
        DEBUG ((Level, mGhessLookups[Index].LengthMessage, __func__, *mGhessLookups[Index].pLength));
      }
    }
  }

  //
  // The dispatcher stays a local: only start-up registers handlers with it.
  //
  DEBUG (
      (Level, "%a: Locating protocol gEfiSmmSwDispatch2ProtocolGuid %g\n", __func__, &gEfiSmmSwDispatch2ProtocolGuid));
  pSwDispatch2Protocol = NULL;
  Status = gSmst->SmmLocateProtocol (&gEfiSmmSwDispatch2ProtocolGuid, NULL, (VOID **)&pSwDispatch2Protocol);
  if (EFI_ERROR (Status) || (pSwDispatch2Protocol == NULL)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r locating protocol gEfiSmmSwDispatch2ProtocolGuid %g, aborting...\n", __func__,
            Status, &gEfiSmmSwDispatch2ProtocolGuid));
    return EFI_NOT_FOUND;
  }

  //
  // ERST: without one the OS simply gets no record store; start-up goes on.
  //
  DEBUG ((Level, "%a: Retrieving ACPI ERST address\n", __func__));
  ErstAddress = 0;
  Status      = VornApeiLoggingAcpiLocateTable (EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_SIGNATURE, &ErstAddress);
  if (EFI_ERROR (Status) || (ErstAddress == 0)) {
    DEBUG ((Level, "%a: WARN %r searching for ERST, ERST not found...\n", __func__, Status));
  } else {
    DEBUG ((Level, "%a: ERST @ 0x%016lx\n", __func__, ErstAddress));
    mPrivateDataVornApeiLogging.ErstPresent = TRUE;
    DEBUG ((Level, "%a: Update ACPI APEI ERST data\n", __func__));
    Status = VornApeiLoggingUpdateErst (pSwDispatch2Protocol, (VOID *)(UINTN)ErstAddress);
    if (EFI_ERROR (Status)) {
      DEBUG ((DEBUG_ERROR, "%a: ERROR %r updating ERST\n", __func__, Status));
    }
  }

  //
  // The OS announces APEI take-over and release by software SMI. One context
  // and one handle variable serve both registrations: the handlers are never
  // unregistered, so the handles are not kept.
  //
  SwRegisterContext.SwSmiInputValue = VORN_APEI_ENABLE_SW_SMI_VALUE;
  DEBUG ((
      Level,
      "%a: Calling SwDispatch->Register to register S/W SMI handler VornApeiLoggingSoftSmiEnable for SwSmiInputValue 0x%016lx\n",
      __func__, (UINT64)SwRegisterContext.SwSmiInputValue));
  Status = pSwDispatch2Protocol->Register (pSwDispatch2Protocol, VornApeiLoggingSoftSmiEnable, &SwRegisterContext,
                                           &SwDispatchHandle);
  if (EFI_ERROR (Status)) {
    DEBUG ((
        DEBUG_ERROR,
        "%a: ERROR %r from SwDispatch->Register to register S/W SMI handler VornApeiLoggingSoftSmiEnable for SwSmiInputValue 0x%016lx\n",
        __func__, Status, (UINT64)SwRegisterContext.SwSmiInputValue));
  }

  SwRegisterContext.SwSmiInputValue = VORN_APEI_DISABLE_SW_SMI_VALUE;
  DEBUG ((
      Level,
      "%a: Calling SwDispatch->Register to register S/W SMI handler VornApeiLoggingSoftSmiDisable for SwSmiInputValue 0x%016lx\n",
      __func__, (UINT64)SwRegisterContext.SwSmiInputValue));
  Status = pSwDispatch2Protocol->Register (pSwDispatch2Protocol, VornApeiLoggingSoftSmiDisable, &SwRegisterContext,
                                           &SwDispatchHandle);
  if (EFI_ERROR (Status)) {
    DEBUG ((
        DEBUG_ERROR,
        "%a: ERROR %r from SwDispatch->Register to register S/W SMI handler VornApeiLoggingSoftSmiDisable for SwSmiInputValue 0x%016lx\n",
        __func__, Status, (UINT64)SwRegisterContext.SwSmiInputValue));
  }

  //
  // The protocol goes in last, so callers find every service already up. Its
  // status is the module's result.
  //
  Handle = NULL;
  DEBUG ((Level, "%a: Installing protocol gEfiVornApeiLoggingSmmProtocolGuid %g\n", __func__,
          &gEfiVornApeiLoggingSmmProtocolGuid));
  Status = gSmst->SmmInstallProtocolInterface (&Handle, &gEfiVornApeiLoggingSmmProtocolGuid, EFI_NATIVE_INTERFACE,
                                               &mVornApeiLoggingSmmProtocol);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r installing protocol gEfiVornApeiLoggingSmmProtocolGuid %g, aborting...\n",
            __func__, Status, &gEfiVornApeiLoggingSmmProtocolGuid));
  }

  return Status;
}
