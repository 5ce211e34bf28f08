/** @file
  The ERST software-SMI handler: the OS's way into the record store.
**/
#include "VornApeiLoggingSmm.h"

#include <Guid/Cper.h>
#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/PcdLib.h>

/**
  Runs the command the OS left in the parameter region and leaves its ERST
  status there. BusyFlag is set for the whole command. All input comes from
  the region; the SMI arguments are not used.
**/
EFI_STATUS
EFIAPI
VornApeiLoggingErstElogSwSmiCallback (IN EFI_HANDLE                DispatchHandle,
                                      IN CONST VOID *Context       OPTIONAL,
                                      IN OUT VOID *CommBuffer      OPTIONAL,
                                      IN OUT UINTN *CommBufferSize OPTIONAL) {
  VORN_ERST_PARAMETER_REGION     *pRegion;
  EFI_COMMON_ERROR_RECORD_HEADER *pOsRecordHdr;
  UINT64                          Command;
  UINT64                          RecordBuffer;
  UINT64                          OsRecordId;

  (VOID) DispatchHandle;
  (VOID) Context;
  (VOID) CommBuffer;
  (VOID) CommBufferSize;

  pRegion = mPrivateDataVornApeiLogging.pErstParameterBlock;
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: Entering\n", __func__));
  pRegion->BusyFlag = 1;
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
          "%a: Set mPrivateDataVornApeiLogging.pErstParameterBlock->BusyFlag = TRUE\n", __func__));

  Command = pRegion->Command;
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
          "%a: Rd mPrivateDataVornApeiLogging.pErstParameterBlock->Command (from OS 0x%016lx)\n", __func__, Command));
  RecordBuffer = pRegion->ErrorLogAddressRange + pRegion->LogOffset;
  //
  // As specified the OS's addresses and lengths are used as they stand; the
  // switch refuses a command whose record buffer is not wholly the module's.
  //
  if (FeaturePcdGet (PcdVornFixOsBuffer) && !VornApeiLoggingErstOsBufferValid (pRegion, Command)) {
    pRegion->Status = ERST_STATUS_FAILED;
  } else if (Command == ERST_PERSISTENT_GET_RECORD) {
    DEBUG ((
        mPrivateDataVornApeiLogging.SerDbgLevel,
        "%a: Processing ERST Action Value 0x%016lx ERST_PERSISTENT_GET_RECORD for @ ErrorLogAddressRange 0x%016lx + LogOffset 0x%08x RecordId 0x%016lx\n",
        __func__, Command, pRegion->ErrorLogAddressRange, pRegion->LogOffset, pRegion->RecordID));
    VornApeiLoggingErstPersistentStoreRead (RecordBuffer, pRegion->RecordID, &pRegion->Status);
    if (pRegion->Status != ERST_STATUS_SUCCESS) {
      DEBUG ((
          DEBUG_ERROR,
          "%a: ERROR ACPI ERST Operation Status 0x%016lx processing ERST Action Value ERST_PERSISTENT_GET_RECORD 0x%016lx via VornApeiLoggingErstPersistentStoreRead\n",
          __func__, pRegion->Status, Command));
    }
  } else if (Command == ERST_PERSISTENT_SET_RECORD) {
    //
    // The record lies where the OS said: read through the checked copy.
    //
    pOsRecordHdr = (EFI_COMMON_ERROR_RECORD_HEADER *)(UINTN)RecordBuffer;
    CopyMem (&OsRecordId, &pOsRecordHdr->RecordID, sizeof (OsRecordId));
    DEBUG ((
        mPrivateDataVornApeiLogging.SerDbgLevel,
        "%a: Processing ERST Action Value 0x%016lx ERST_PERSISTENT_SET_RECORD for @ ErrorLogAddressRange 0x%016lx + LogOffset 0x%08x => OS Record ID 0x%016lx\n",
        __func__, Command, pRegion->ErrorLogAddressRange, pRegion->LogOffset, OsRecordId));
    VornApeiLoggingErstPersistentStoreWrite (RecordBuffer, &pRegion->Status);
    if (pRegion->Status != ERST_STATUS_SUCCESS) {
      DEBUG ((
          DEBUG_ERROR,
          "%a: ERROR ACPI ERST Operation Status 0x%016lx processing ERST Action Value ERST_PERSISTENT_SET_RECORD 0x%016lx via VornApeiLoggingErstPersistentStoreWrite for OS Record ID 0x%016lx\n",
          __func__, pRegion->Status, Command, OsRecordId));
    }
  } else if (Command == ERST_PERSISTENT_CLEAR_RECORD) {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
            "%a: Processing ERST Action Value 0x%016lx ERST_PERSISTENT_CLEAR_RECORD for RecordId 0x%016lx\n", __func__,
            Command, pRegion->RecordID));
    VornApeiLoggingErstPersistentStoreClear (pRegion->RecordID, &pRegion->Status);
    if (pRegion->Status != ERST_STATUS_SUCCESS) {
      DEBUG ((
          DEBUG_ERROR,
          "%a: ERROR ACPI ERST Operation Status 0x%016lx processing ERST Action Value 0x%016lx via VornApeiLoggingErstPersistentStoreClear\n",
          __func__, pRegion->Status, Command));
    }
  } else if (Command == ERST_PERSISTENT_DUMMY_WRITE) {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
            "%a: Processing ERST Action Value 0x%016lx ERST_PERSISTENT_DUMMY_WRITE (noop)\n", __func__, Command));
  } else {
    DEBUG ((DEBUG_ERROR, "%a: ERROR ERST Action Value 0x%016lx is unrecognized/unsupported action, aborting...\n",
            __func__, Command));
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
          "%a: Set mPrivateDataVornApeiLogging.pErstParameterBlock->BusyFlag = FALSE\n", __func__));
  pRegion->BusyFlag = 0;
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: Exiting\n", __func__));
  return EFI_SUCCESS;
}
