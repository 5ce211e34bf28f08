/** @file
  ERST_PERSISTENT_CLEAR_RECORD: retiring a record by identifier.
**/
#include "VornApeiLoggingSmm.h"
#include "ErstRecordOps.h"

#include <Library/DebugLib.h>
#include <Library/PcdLib.h>

/**
  Looks RecordId up (the oldest copy wins) and asks the search to mark it
  cleared by the OS; on success moves CurRecordID past it and takes one off
  RecordCount. Space comes back only at the next defragmentation.
**/
VOID VornApeiLoggingErstPersistentStoreClear (IN UINT64 RecordId, OUT UINT64 *pPersistentStatus) {
  VORN_ERST_PARAMETER_REGION *pRegion;
  UINT64                      OsRecordPhyAddress;
  UINT64                      OsRecordFlagsPhyAddress;
  UINT64                      NextRecordHeaderPhyAddress;

  if (pPersistentStatus == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pPersistentStatus == NULL, aborting...\n", __func__));
    return;
  }

  *pPersistentStatus = ERST_STATUS_FAILED;
  if (RecordId == 0) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR RecordId is zero, aborting...\n", __func__));
    return;
  }

  pRegion = mPrivateDataVornApeiLogging.pErstParameterBlock;
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: On entry RecordId 0x%016lx\n", __func__, RecordId));
  VornApeiLoggingErstDisplayStoreState (__func__, FALSE);

  OsRecordPhyAddress         = MAX_UINT64;
  OsRecordFlagsPhyAddress    = MAX_UINT64;
  NextRecordHeaderPhyAddress = MAX_UINT64;
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
          "%a: Search ERST pstore for RecordId 0x%016lx with FindNextRecordID = FALSE\n", __func__, RecordId));
  VornApeiLoggingSearchErstPersistentStore (RecordId, FALSE, TRUE, &OsRecordPhyAddress, &OsRecordFlagsPhyAddress,
                                            &NextRecordHeaderPhyAddress, pPersistentStatus);
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
          "%a: Back from searching pstore for RecordId 0x%016lx => *pPersistentStatus 0x%016lx\n", __func__, RecordId,
          *pPersistentStatus));
  DEBUG ((
      mPrivateDataVornApeiLogging.SerDbgLevel,
      "%a: RecordId 0x%016lx => OsRecordDataAddress 0x%016lx ErstErrorRecordFlagsAddress 0x%016lx NextErstErrorRecordHeaderAddress 0x%016lx\n",
      __func__, RecordId, OsRecordPhyAddress, OsRecordFlagsPhyAddress, NextRecordHeaderPhyAddress));

  //
  // With the clear reaching the flash, marking the record has already taken
  // it off RecordCount.
  //
  if (VornApeiLoggingErstAdvanceCurRecordId (__func__, NextRecordHeaderPhyAddress, pPersistentStatus) &&
      !FeaturePcdGet (PcdVornFixErstClear) && (pRegion->RecordCount != 0)) {
    pRegion->RecordCount--;
    DEBUG ((DEBUG_ERROR, "%a: mPrivateDataVornApeiLogging.pErstParameterBlock->RecordCount decremented to %d\n",
            __func__, (UINT32)pRegion->RecordCount));
  }

  VornApeiLoggingErstDisplayStoreState (__func__, TRUE);
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: Exiting successfully\n", __func__));
}
