/** @file
  Raising the APEI SCI and NMI, and the software SMIs through which the OS
  takes over (0x9E) and gives up (0x9D) APEI.
**/
#include "VornApeiLoggingSmm.h"

#include <Library/DebugLib.h>
#include <Library/PcdLib.h>
#include <Library/WheaSignalLib.h>

/**
  Raises the SCI that makes the OS read the SCI blocks; SciCause bits are
  handed to the OS through the scratch register.
**/
EFI_STATUS
EFIAPI
VornApeiLoggingElogSignalSci (IN EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *pThis, IN UINT32 SciCause) {
  EFI_STATUS Status;

  if (pThis == NULL) {
    DEBUG (
        (DEBUG_ERROR, "%a: ERROR pThis *EFI_VORN_APEI_LOGGING_SMM_PROTOCOL is null on entry, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  if (!mPrivateDataVornApeiLogging.IsApeiOsLoaded) {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: ERROR APEI O/S not present, aborting...\n", __func__));
    return EFI_NOT_READY;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Signaling SCI\n", __func__));
  Status =
      VornTriggerWheaSci (mPrivateDataVornApeiLogging.pSmmBase2Protocol, mPrivateDataVornApeiLogging.pSmst, SciCause);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r returned from VornTriggerWheaSci\n", __func__, Status));
  }

  return Status;
}

/**
  Raises the NMI that makes the OS read the NMI block. Unlike the SCI it does
  not wait for the OS to enable APEI: a fatal error must reach the OS anyway.
**/
EFI_STATUS
EFIAPI
VornApeiLoggingElogSignalNmi (IN EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *pThis) {
  EFI_STATUS Status;

  if (pThis == NULL) {
    DEBUG (
        (DEBUG_ERROR, "%a: ERROR pThis *EFI_VORN_APEI_LOGGING_SMM_PROTOCOL is null on entry, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Signaling NMI\n", __func__));
  Status = VornTriggerWheaNmi (mPrivateDataVornApeiLogging.pSmmBase2Protocol, mPrivateDataVornApeiLogging.pSmst);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r returned from VornTriggerWheaNmi\n", __func__, Status));
  }

  return Status;
}

/**
  APEI enable: the OS now consumes the status blocks, and the ERST records it
  already had are marked obsolete so that the next start-up reclaims them.
**/
EFI_STATUS
EFIAPI
VornApeiLoggingSoftSmiEnable (IN EFI_HANDLE                DispatchHandle,
                              IN CONST VOID *Context       OPTIONAL,
                              IN OUT VOID *CommBuffer      OPTIONAL,
                              IN OUT UINTN *CommBufferSize OPTIONAL) {
  EFI_STATUS Status;

  (VOID) DispatchHandle;
  (VOID) Context;
  (VOID) CommBuffer;
  (VOID) CommBufferSize;

  mPrivateDataVornApeiLogging.IsApeiOsLoaded = TRUE;

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Enabling APEI signaling\n", __func__));
  Status =
      VornProgramWheaSignals (mPrivateDataVornApeiLogging.pSmmBase2Protocol, mPrivateDataVornApeiLogging.pSmst, TRUE);
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Status %r returned\n", __func__, Status));

  //
  // A pstore backend needs its records until it clears them itself.
  //
  if (FeaturePcdGet (PcdVornFixKeepOnEnable)) {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Keeping stored ERST records until the OS clears them\n",
            __func__));
    return EFI_SUCCESS;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
          "%a: Invoking ERST obsolete record mark-up for future defragmentation\n", __func__));
  Status = VornApeiLoggingErstMarkObsoleteRecords (mPrivateDataVornApeiLogging.SerDbgLevel);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r from VornApeiLoggingErstMarkObsoleteRecords\n", __func__, Status));
  } else {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
            "%a: Mark up of obsolete records for future defragmentation completed\n", __func__));
  }

  return Status;
}

/**
  APEI disable: the OS no longer reads the blocks, so the protocol stops
  filling them and stops raising the SCI.
**/
EFI_STATUS
EFIAPI
VornApeiLoggingSoftSmiDisable (IN EFI_HANDLE                DispatchHandle,
                               IN CONST VOID *Context       OPTIONAL,
                               IN OUT VOID *CommBuffer      OPTIONAL,
                               IN OUT UINTN *CommBufferSize OPTIONAL) {
  EFI_STATUS Status;

  (VOID) DispatchHandle;
  (VOID) Context;
  (VOID) CommBuffer;
  (VOID) CommBufferSize;

  mPrivateDataVornApeiLogging.IsApeiOsLoaded = FALSE;

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: APEI signaling disabled\n", __func__));
  Status =
      VornProgramWheaSignals (mPrivateDataVornApeiLogging.pSmmBase2Protocol, mPrivateDataVornApeiLogging.pSmst, FALSE);
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Status %r returned\n", __func__, Status));
  return Status;
}
