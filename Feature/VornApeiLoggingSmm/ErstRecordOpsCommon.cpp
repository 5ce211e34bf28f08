/** @file
  Store-state display and record-cursor update shared by the ERST record
  read, write and clear.
**/
#include "VornApeiLoggingSmm.h"
#include "ErstRecordOps.h"

#include <Library/DebugLib.h>
#include <Library/ElogStoreDump.h>

/**
  Prints the store summary and the parameter region before or after an ERST
  operation (debug code), and the whole store when extensive output is on.
**/
VOID VornApeiLoggingErstDisplayStoreState (IN CONST CHAR8 *pCallerName, IN BOOLEAN AfterProcessing) {
  DEBUG_CODE_BEGIN ();
  if (AfterProcessing) {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor,
            "%a: After ERST processing, display pstore information\n", pCallerName));
  } else {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor,
            "%a: Before ERST processing, display pstore information\n", pCallerName));
  }

  PrintErstSpiStoreInformation (mPrivateDataVornApeiLogging.pErstSpiStoreInformation,
                                mPrivateDataVornApeiLogging.SerDbgLevel);
  PrintErstParameterRegion (mPrivateDataVornApeiLogging.pErstParameterBlock, mPrivateDataVornApeiLogging.SerDbgLevel);
  DEBUG_CODE_END ();

  if (mPrivateDataVornApeiLogging.DebugOutputExtensive) {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Display ERST pstore region data (debug purposes)\n",
            pCallerName));
    VornApeiLoggingDumpErstMemoryFromFlash (mPrivateDataVornApeiLogging.SerDbgLevel);
  }
}

/**
  Turns the status of a search by identifier into the operation's status and
  moves CurRecordID on: to the record after the found one, or to the first
  live record when the identifier is unknown. TRUE when the record was found.
**/
BOOLEAN
VornApeiLoggingErstAdvanceCurRecordId (IN CONST CHAR8 *pCallerName,
                                       IN UINT64       NextRecordHeaderPhyAddress,
                                       IN OUT UINT64  *pPersistentStatus) {
  VORN_ERST_PARAMETER_REGION *pRegion;
  UINT64                      SearchStatus;

  pRegion      = mPrivateDataVornApeiLogging.pErstParameterBlock;
  SearchStatus = *pPersistentStatus;
  if (SearchStatus == ERST_STATUS_RECORD_STORE_EMPTY) {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: *pPersistentStatus 0x%016lx record store empty, exiting...\n",
            pCallerName, SearchStatus));
    return FALSE;
  }

  if (SearchStatus == ERST_STATUS_RECORD_NOT_FOUND) {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
            "%a: *pPersistentStatus 0x%016lx record not found, get first valid record identifier\n", pCallerName,
            SearchStatus));
    VornApeiLoggingGetFirstOsRecordId (&pRegion->CurRecordID);
    return FALSE;
  }

  if (SearchStatus != ERST_STATUS_SUCCESS) {
    DEBUG ((DEBUG_ERROR, "%a: *pPersistentStatus 0x%016lx other error, return [ERST Status] Failed (0x3)\n",
            pCallerName, SearchStatus));
    *pPersistentStatus = ERST_STATUS_FAILED;
    return FALSE;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
          "%a: *pPersistentStatus 0x%016lx operation successful, get [next] valid record identifier\n", pCallerName,
          SearchStatus));
  if (NextRecordHeaderPhyAddress < MAX_UINT64) {
    VornApeiLoggingGetNextOsRecordId (NextRecordHeaderPhyAddress, &pRegion->CurRecordID);
  } else {
    pRegion->CurRecordID = MAX_UINT64;
  }

  return TRUE;
}
