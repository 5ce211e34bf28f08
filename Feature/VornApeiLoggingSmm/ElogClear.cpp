/** @file
  Release of the generic error status blocks once the OS has consumed them.
**/
#include "VornApeiLoggingSmm.h"
#include "ElogStatusBlock.h"

#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>

/**
  Empties one status block unless the OS still owns it (a valid bit set).
**/
EFI_STATUS
EFIAPI
VornApeiLoggingElogClear (IN EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *pThis,
                          IN GENERIC_ERROR_STATUS               *pGesb,
                          IN UINTN                               GesbLength) {
  GENERIC_ERROR_STATUS Gesb;

  if (pThis == NULL) {
    DEBUG (
        (DEBUG_ERROR, "%a: ERROR pThis *EFI_VORN_APEI_LOGGING_SMM_PROTOCOL is null on entry, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  if (pGesb == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pGesb is null on entry, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  if (!mPrivateDataVornApeiLogging.IsApeiOsLoaded) {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: ERROR APEI O/S not present, aborting...\n", __func__));
    return EFI_NOT_READY;
  }

  //
  // The block lies wherever the Error Status Address register pointed: its
  // header is read and written through the checked copy.
  //
  CopyMem (&Gesb, pGesb, sizeof (Gesb));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed,
          "%a: On entry GHESS Error Status Data Block GESB UncorrectableErrorValid %d CorrectableErrorValid %d\n",
          __func__, Gesb.BlockStatus.UncorrectableErrorValid, Gesb.BlockStatus.CorrectableErrorValid));

  //
  // The OS acknowledges a block by clearing both valid bits; until then the
  // block and whatever was appended to it stay as they are.
  //
  if (Gesb.BlockStatus.UncorrectableErrorValid || Gesb.BlockStatus.CorrectableErrorValid) {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
            "%a: GHESS Error Status Data Block (GESB/GEDE/GED/Raw Data) @ 0x%016lx still in use, skip clearing\n",
            __func__, (UINT64)(UINTN)pGesb));
    return EFI_ALREADY_STARTED;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
          "%a: Clearing GHESS Error Status Data Block (GESB/GEDE/GED/Raw Data) @ 0x%016lx for length 0x%016lx\n",
          __func__, (UINT64)(UINTN)pGesb, (UINT64)GesbLength));
  ZeroMem (pGesb, GesbLength);
  Gesb.RawDataOffset = VORN_APEI_GESB_MAX_REGION_LENGTH;
  Gesb.ErrorSeverity = EFI_ACPI_6_3_ERROR_SEVERITY_NONE;
  CopyMem (&pGesb->RawDataOffset, &Gesb.RawDataOffset, sizeof (Gesb.RawDataOffset));
  CopyMem (&pGesb->ErrorSeverity, &Gesb.ErrorSeverity, sizeof (Gesb.ErrorSeverity));
  return EFI_SUCCESS;
}

//
// The blocks ElogClearAll releases, in order, with what it logs for each.
//
typedef struct {
  CONST UINT64 *pBlock;
  CONST UINT64 *pBlockLength;
  CONST CHAR8  *pClearingMessage;
  CONST CHAR8  *pErrorMessage;
} VORN_APEI_LOGGING_CLEAR_ALL_BLOCK;

STATIC CONST VORN_APEI_LOGGING_CLEAR_ALL_BLOCK mClearAllBlocks[] = {
    {&mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkNmi,
     &mPrivateDataVornApeiLogging.ApeiHestGhessErrStsDataBlkLengthNmi,
     "%a: Clear APEI HEST GHESS error status data block for NMI notification\n",
     "%a: ERROR %r from ElogClear for GHESS (NMI notification) Error Status Data Block\n"},
    {&mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSci,
     &mPrivateDataVornApeiLogging.ApeiHestGhessErrStsDataBlkLengthSci,
     "%a: Clear APEI HEST GHESS error status data block for SCI notification\n",
     "%a: ERROR %r from ElogClear for GHESS (SCI notification) Error Status Data Block\n"},
    {&mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSciVmwareMemPageRetire,
     &mPrivateDataVornApeiLogging.ApeiHestGhessErrStsDataBlkLengthSciVmwareMemPageRetire,
     "%a: Clear APEI HEST GHESS error status data block for SCI notification (VMWare memory page retirement)\n",
     "%a: ERROR %r from ElogClear for for GHESS (SCI notification for VMWare memory page retire) Error Status Data Block\n"},
};

/**
  Releases the NMI, SCI and page-retire blocks in that order. Goes through
  the instance's own ElogClear slot and carries on past any failure: a block
  still owned by the OS must not keep the others from being released.
**/
EFI_STATUS
EFIAPI
VornApeiLoggingElogClearAll (IN EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *pThis) {
  EFI_STATUS Status;
  UINTN      Index;

  if (pThis == NULL) {
    DEBUG (
        (DEBUG_ERROR, "%a: ERROR pThis *EFI_VORN_APEI_LOGGING_SMM_PROTOCOL is null on entry, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  if (!mPrivateDataVornApeiLogging.IsApeiOsLoaded) {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: ERROR APEI O/S not present, aborting...\n", __func__));
    return EFI_NOT_READY;
  }

  for (Index = 0; Index < ARRAY_SIZE (mClearAllBlocks); Index++) {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, mClearAllBlocks[Index].pClearingMessage, __func__));
    Status = pThis->ElogClear (pThis, (GENERIC_ERROR_STATUS *)(UINTN)*mClearAllBlocks[Index].pBlock,
                               (UINTN)*mClearAllBlocks[Index].pBlockLength);
    if (EFI_ERROR (Status)) {
      DEBUG ((DEBUG_ERROR, mClearAllBlocks[Index].pErrorMessage, __func__, Status));
    }
  }

  return EFI_SUCCESS;
}
