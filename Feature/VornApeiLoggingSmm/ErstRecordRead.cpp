/** @file
  ERST_PERSISTENT_GET_RECORD: locating a record by identifier and moving the
  OS's record cursor on.
**/
#include "VornApeiLoggingSmm.h"
#include "ErstRecordOps.h"

#include <Library/DebugLib.h>
#include <Library/PcdLib.h>

/**
  Looks RecordId up (the newest copy wins), sets the ERST status and moves
  CurRecordID to the next live record. As specified no record bytes are
  copied into RecordBuffer; its address is only logged.
**/
VOID VornApeiLoggingErstPersistentStoreRead (IN UINT64   RecordBuffer,
                                             IN UINT64   RecordId,
                                             OUT UINT64 *pPersistentStatus) {
  UINT64 OsRecordPhyAddress;
  UINT64 OsRecordFlagsPhyAddress;
  UINT64 NextRecordHeaderPhyAddress;

  if (pPersistentStatus == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pPersistentStatus == NULL, aborting...\n", __func__));
    return;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: RecordBuffer @ 0x%016lx RecordId 0x%016lx\n", __func__,
          RecordBuffer, RecordId));
  VornApeiLoggingErstDisplayStoreState (__func__, FALSE);

  OsRecordPhyAddress         = MAX_UINT64;
  OsRecordFlagsPhyAddress    = MAX_UINT64;
  NextRecordHeaderPhyAddress = MAX_UINT64;
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
          "%a: Search ERST pstore for RecordId 0x%016lx with FindNextRecordID = TRUE\n", __func__, RecordId));
  VornApeiLoggingSearchErstPersistentStore (RecordId, TRUE, FALSE, &OsRecordPhyAddress, &OsRecordFlagsPhyAddress,
                                            &NextRecordHeaderPhyAddress, pPersistentStatus);
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
          "%a: Back from searching pstore for RecordId 0x%016lx => *pPersistentStatus 0x%016lx\n", __func__, RecordId,
          *pPersistentStatus));
  DEBUG ((
      mPrivateDataVornApeiLogging.SerDbgLevel,
      "%a: RecordId 0x%016lx => PhyAddress 0x%016lx ErstErrorRecordFlagsAddress 0x%016lx NextErstErrorRecordHeaderAddress 0x%016lx\n",
      __func__, RecordId, OsRecordPhyAddress, OsRecordFlagsPhyAddress, NextRecordHeaderPhyAddress));

  //
  // As specified the read only locates the record; an OS driver then finds
  // nothing in its buffer. The switch hands the record over.
  //
  if (FeaturePcdGet (PcdVornFixErstRead) && (*pPersistentStatus == ERST_STATUS_SUCCESS) &&
      EFI_ERROR (VornApeiLoggingErstCopyRecordToOs (RecordBuffer, OsRecordPhyAddress, OsRecordFlagsPhyAddress))) {
    *pPersistentStatus = ERST_STATUS_FAILED;
  }

  VornApeiLoggingErstAdvanceCurRecordId (__func__, NextRecordHeaderPhyAddress, pPersistentStatus);

  VornApeiLoggingErstDisplayStoreState (__func__, TRUE);
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: Exiting\n", __func__));
}
