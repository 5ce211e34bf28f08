/** @file
  ERST record search by identifier and enumeration of the identifiers of
  records the OS has not cleared. All three follow the record chain the same
  way and trust what discovery accepted.
**/
#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/ElogStoreDump.h>
#include <Library/PcdLib.h>

#include "ErstRecordIndex.h"
#include "ErstStoreMaintenance.h"
#include "ErstStoreScanBuffers.h"
#include "VornApeiLoggingSmm.h"

MODULE_DATA ERST_RECORD_HEADER_AND_FLAGS mErstSearchRecordData;

//
// What a walk's visitor asks for after a record.
//
typedef enum { ErstWalkContinue, ErstWalkStop } ERST_WALK_ACTION;

//
// Why a walk ended.
//
typedef enum {
  ErstWalkReadFailed,
  ErstWalkErased,
  ErstWalkForeign,
  ErstWalkEndOfChain,
  ErstWalkRegionEnd,
  ErstWalkStopped
} ERST_WALK_END;

//
// Called for each record with an "ERST ERR" header; the record's header and
// flags are in mErstSearchRecordData.
//
typedef ERST_WALK_ACTION (*ERST_WALK_VISITOR) (IN CONST CHAR8 *pCaller,
                                               IN UINT32       RecordIndex,
                                               IN UINT64       RecordAddress,
                                               IN OUT VOID    *pContext);

/**
  TRUE, after logging it, when no record was ever written since the store
  was last initialised.
**/
static BOOLEAN VornApeiLoggingErstStoreIsEmpty (IN CONST CHAR8 *pCaller) {
  ERST_SPI_STORE_INFORMATION *pInfo;

  pInfo = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  if (pInfo->SpiAddressStartAvailableStorage != pInfo->SpiAddressStartErstStoreHeader + sizeof (ERST_STORE_HEADER)) {
    return FALSE;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Pstore is empty, aborting...\n", pCaller));
  return TRUE;
}

/**
  Follows the record chain from StartAddress, handing each record to
  Visitor, until the chain or the record region ends, a header is erased or
  foreign, a read fails, or the visitor stops. Relative walks (those that
  start after a given record) number their records "+n" in the log.
**/
static ERST_WALK_END VornApeiLoggingErstWalkRecords (IN CONST CHAR8      *pCaller,
                                                     IN BOOLEAN           Relative,
                                                     IN UINT64            StartAddress,
                                                     IN ERST_WALK_VISITOR Visitor,
                                                     IN OUT VOID         *pContext) {
  EFI_STATUS                  Status;
  UINT64                      Level;
  ERST_SPI_STORE_INFORMATION *pInfo;
  ERST_ERROR_RECORD_HEADER   *pHeader;
  UINT64                      RegionEnd;
  UINT64                      RecordAddress;
  UINT32                      RecordIndex;

  Level         = mPrivateDataVornApeiLogging.SerDbgLevel;
  pInfo         = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  pHeader       = &mErstSearchRecordData.Header;
  RegionEnd     = pInfo->SpiAddressStartErstErrorRecordRegion + pInfo->LengthErstStoreRegionErrorRecordArea - 1;
  RecordAddress = StartAddress;
  RecordIndex   = 0;
  for (;;) {
    DEBUG ((
        Level,
        Relative
            ? "%a: Record +%d => Reading SPI flash ERST error record header & flags @ PhyAddress 0x%016lx Length 0x%016lx bytes => local var ErstErrorRecordHeaderAndFlagsData @ 0x%016lx\n"
            : "%a: Record %d => Reading SPI flash ERST error record header & flags @ PhyAddress 0x%016lx Length 0x%016lx bytes => local var ErstErrorRecordHeaderAndFlagsData @ 0x%016lx\n",
        pCaller, RecordIndex, RecordAddress, (UINT64)ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH,
        (UINT64)(UINTN)&mErstSearchRecordData));
    ZeroMem (&mErstSearchRecordData, ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH);
    Status = VornApeiLoggingReadDataViaSpi (Level, RecordAddress, ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH,
                                            &mErstSearchRecordData);
    if (EFI_ERROR (Status)) {
      DEBUG ((
          DEBUG_ERROR,
          Relative
              ? "%a: ERROR %r from VornApeiLoggingReadDataViaSpi reading Record +%d @ ErstErrorRecordHeaderAddress 0x%016lx RegionLength 0x%016lx, aborting...\n"
              : "%a: ERROR %r from VornApeiLoggingReadDataViaSpi reading Record %d @ ErstErrorRecordHeaderAddress 0x%016lx RegionLength 0x%016lx, aborting...\n",
          pCaller, Status, RecordIndex, RecordAddress, pInfo->LengthErstStoreRegionErrorRecordArea));
      return ErstWalkReadFailed;
    }

    //
    // Both dumps print at Level only: a walk at a filtered level skips them
    // whole, as it skips every other line of this loop.
    //
    DEBUG_CODE_BEGIN ();
    if (DebugPrintEnabled () && DebugPrintLevelEnabled (Level)) {
      DEBUG ((Level,
              Relative ? "%a: Record +%d => Display ERST Error Record Header @ 0x%016lx Length 0x%016lx\n"
                       : "%a: Record %d => Display ERST Error Record Header @ 0x%016lx Length 0x%016lx\n",
              pCaller, RecordIndex, RecordAddress, (UINT64)sizeof (ERST_ERROR_RECORD_HEADER)));
      DisplayErstRecordHeader (pHeader, Level);
      DEBUG ((Level,
              Relative ? "%a: Record +%d => Display ERST Error Record Flags @ 0x%016lx Length 0x%016lx\n"
                       : "%a: Record %d => Display ERST Error Record Flags @ 0x%016lx Length 0x%016lx\n",
              pCaller, RecordIndex, RecordAddress + sizeof (ERST_ERROR_RECORD_HEADER),
              (UINT64)sizeof (ERST_ERROR_RECORD_FLAGS)));
      DisplayErstErrorRecordFlags (&mErstSearchRecordData.Flags, Level);
    }

    DEBUG_CODE_END ();

    if (pHeader->Signature == MAX_UINT64) {
      DEBUG ((
          Level,
          Relative
              ? "%a: Record +%d => ERST Error Record Header -> Signature 0x%016lx == 0xFF data (record not valid/end of pstore data)\n"
              : "%a: Record %d => ERST Error Record Header -> Signature 0x%016lx == 0xFF data (record not valid/end of pstore data)\n",
          pCaller, RecordIndex, pHeader->Signature));
      return ErstWalkErased;
    }

    if (pHeader->Signature != ERST_ERROR_RECORD_HEADER_SIGNATURE) {
      DEBUG ((
          Level,
          Relative
              ? "%a: Record +%d => ErstErrordRecordHeader.Signature 0x%016lx != SIGNATURE_64('E','R','S','T',' ','E','R','R'), unexpected/corrupted pstore data\n"
              : "%a: Record %d => ErstErrordRecordHeader.Signature 0x%016lx != SIGNATURE_64('E','R','S','T',' ','E','R','R'), unexpected/corrupted pstore data\n",
          pCaller, RecordIndex, pHeader->Signature));
      return ErstWalkForeign;
    }

    if (Visitor (pCaller, RecordIndex, RecordAddress, pContext) == ErstWalkStop) {
      return ErstWalkStopped;
    }

    if ((pHeader->NextRecordHeaderAddress == 0) || (pHeader->NextRecordHeaderAddress == MAX_UINT64)) {
      DEBUG ((
          Level,
          Relative
              ? "%a: Record +%d => ErstErrordRecordHeader.NextRecordHeaderAddress 0x%016lx, end of pstore data reached\n"
              : "%a: Record %d => ErstErrordRecordHeader.NextRecordHeaderAddress 0x%016lx, end of pstore data reached\n",
          pCaller, RecordIndex, pHeader->NextRecordHeaderAddress));
      return ErstWalkEndOfChain;
    }

    DEBUG ((Level,
            Relative ? "%a: Record +%d => Move to next record @ 0x%016lx\n"
                     : "%a: Record %d => Move to next record @ 0x%016lx\n",
            pCaller, RecordIndex, pHeader->NextRecordHeaderAddress));
    RecordIndex++;
    RecordAddress = pHeader->NextRecordHeaderAddress;
    if ((RecordAddress >= RegionEnd) || VornApeiLoggingErstPastChainEnd (RecordAddress)) {
      return ErstWalkRegionEnd;
    }
  }
}

//
// State of a search by identifier.
//
typedef struct {
  UINT64  RecordId;
  BOOLEAN FindNextRecordID;
  BOOLEAN MarkClearedPerOspm;
  UINT64 *pOsRecordPhyAddress;
  UINT64 *pOsRecordFlagsPhyAddress;
  UINT64 *pNextRecordHeaderPhyAddress;
  UINT64 *pPersistentStatus;
  BOOLEAN Found;
} ERST_SEARCH_CONTEXT;

/**
  A record the search looks at: records a match, marks it cleared for the
  OS when asked and its flag byte reads 0x00, and stops at the first match
  unless the newest copy is wanted.
**/
static ERST_WALK_ACTION VornApeiLoggingErstSearchTake (IN CONST CHAR8 *pCaller,
                                                       IN UINT32       RecordIndex,
                                                       IN UINT64       RecordAddress,
                                                       IN OUT VOID    *pContext) {
  EFI_STATUS                Status;
  UINT64                    Level;
  ERST_SEARCH_CONTEXT      *pSearch;
  ERST_ERROR_RECORD_HEADER *pHeader;
  ERST_ERROR_RECORD_FLAGS  *pFlags;

  Level   = mPrivateDataVornApeiLogging.SerDbgLevel;
  pSearch = (ERST_SEARCH_CONTEXT *)pContext;
  pHeader = &mErstSearchRecordData.Header;
  pFlags  = &mErstSearchRecordData.Flags;

  //
  // A record the OS cleared still matches; only the enumerators skip it.
  //
  if (pFlags->RecordClearPerOspm == ERST_RECORD_CLEAR_FLAG_VALUE) {
    DEBUG ((Level, "%a: Record %d => Record previously marked for clearance by OSPM\n", pCaller, RecordIndex));
  }

  if (pHeader->OsRecordID != pSearch->RecordId) {
    return ErstWalkContinue;
  }

  DEBUG ((Level,
          "%a: Record %d => Matching RecordID 0x%016lx found @ ERST Error Record Header 0x%016lx OS Record 0x%016lx\n",
          pCaller, RecordIndex, pHeader->OsRecordID, RecordAddress, pHeader->OsRecordAddress));
  *pSearch->pOsRecordPhyAddress         = pHeader->OsRecordAddress;
  *pSearch->pOsRecordFlagsPhyAddress    = pHeader->OsRecordFlagsAddress;
  *pSearch->pNextRecordHeaderPhyAddress = pHeader->NextRecordHeaderAddress;
  *pSearch->pPersistentStatus           = ERST_STATUS_SUCCESS;
  pSearch->Found                        = TRUE;

  //
  // Records are stored with the flag erased (0xFF); as specified only a byte
  // reading 0x00 is marked here, so a clear never reaches the flash. The
  // switch marks any record not yet marked, and a clear that could not mark
  // it fails.
  //
  if (pSearch->MarkClearedPerOspm &&
      ((pFlags->RecordClearPerOspm == 0x00) ||
       (FeaturePcdGet (PcdVornFixErstClear) && (pFlags->RecordClearPerOspm != ERST_RECORD_CLEAR_FLAG_VALUE)))) {
    Status = VornApeiLoggingErstSetRecordClearPerOspm (pHeader->OsRecordFlagsAddress);
    if (EFI_ERROR (Status)) {
      DEBUG (
          (DEBUG_ERROR, "%a: ERROR %r clearing Record %d Record Clear Per OSPM flag\n", pCaller, Status, RecordIndex));
      if (FeaturePcdGet (PcdVornFixErstClear)) {
        *pSearch->pPersistentStatus = ERST_STATUS_FAILED;
      }
    }
  }

  if (!pSearch->FindNextRecordID) {
    DEBUG ((Level, "%a: Record %d => First RecordID match found & FindNextRecordID = FALSE, returning to caller...\n",
            pCaller, RecordIndex));
    return ErstWalkStop;
  }

  DEBUG ((Level, "%a: Record %d => RecordID match found & FindNextRecordID = TRUE, continuing search...\n", pCaller,
          RecordIndex));
  return ErstWalkContinue;
}

/**
  Search visitor. Most records of a chain neither match nor carry the OS
  clear mark, and the search logs nothing for them: they leave here, with
  no frame set up for the lines of the others.
**/
static ERST_WALK_ACTION VornApeiLoggingErstSearchVisit (IN CONST CHAR8 *pCaller,
                                                        IN UINT32       RecordIndex,
                                                        IN UINT64       RecordAddress,
                                                        IN OUT VOID    *pContext) {
  if ((mErstSearchRecordData.Header.OsRecordID != ((ERST_SEARCH_CONTEXT *)pContext)->RecordId) &&
      (mErstSearchRecordData.Flags.RecordClearPerOspm != ERST_RECORD_CLEAR_FLAG_VALUE)) {
    return ErstWalkContinue;
  }

  return VornApeiLoggingErstSearchTake (pCaller, RecordIndex, RecordAddress, pContext);
}

/**
  The search through the record index: only the records with the wanted
  identifier are read, in chain order, and of those only the newest when
  that is all the search reports. FALSE when the flash does not hold what
  the index says; the index is dropped and the caller walks the chain.
**/
static BOOLEAN VornApeiLoggingErstSearchIndexed (IN CONST CHAR8             *pCaller,
                                                 IN OUT ERST_SEARCH_CONTEXT *pSearch,
                                                 OUT ERST_WALK_END          *pEnd) {
  EFI_STATUS               Status;
  UINT32                   Position;
  ERST_RECORD_INDEX_ENTRY *pEntry;

  *pEnd = ErstWalkEndOfChain;
  for (Position = VornApeiLoggingErstIndexFind (pSearch->RecordId); Position != 0; Position = pEntry->NextCopy) {
    pEntry = VornApeiLoggingErstIndexEntry (Position);
    if (pSearch->FindNextRecordID && !pSearch->MarkClearedPerOspm && (pEntry->NextCopy != 0)) {
      continue;
    }

    ZeroMem (&mErstSearchRecordData, ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH);
    Status = VornApeiLoggingReadDataViaSpi (mPrivateDataVornApeiLogging.SerDbgLevel, pEntry->HeaderAddress,
                                            ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH, &mErstSearchRecordData);
    if (EFI_ERROR (Status)) {
      DEBUG ((
          DEBUG_ERROR,
          "%a: ERROR %r from VornApeiLoggingReadDataViaSpi reading Record %d @ ErstErrorRecordHeaderAddress 0x%016lx RegionLength 0x%016lx, aborting...\n",
          pCaller, Status, Position - 1, pEntry->HeaderAddress,
          mPrivateDataVornApeiLogging.pErstSpiStoreInformation->LengthErstStoreRegionErrorRecordArea));
      *pEnd = ErstWalkReadFailed;
      return TRUE;
    }

    if ((mErstSearchRecordData.Header.Signature != ERST_ERROR_RECORD_HEADER_SIGNATURE) ||
        (mErstSearchRecordData.Header.OsRecordID != pSearch->RecordId) ||
        (mErstSearchRecordData.Flags.RecordClearPerOspm != pEntry->RecordClearPerOspm)) {
      VornApeiLoggingErstIndexDrop ();
      return FALSE;
    }

    if (VornApeiLoggingErstSearchTake (pCaller, Position - 1, pEntry->HeaderAddress, pSearch) == ErstWalkStop) {
      *pEnd = ErstWalkStopped;
      return TRUE;
    }
  }

  return TRUE;
}

/**
  Finds the record with identifier RecordId: the oldest copy when
  FindNextRecordID is FALSE, the newest when TRUE. Reports its data, flags
  and successor addresses and an ERST status (0 found, 4 store empty, 5 not
  found).
**/
VOID VornApeiLoggingSearchErstPersistentStore (IN UINT64   RecordId,
                                               IN BOOLEAN  FindNextRecordID,
                                               IN BOOLEAN  MarkClearedPerOspm,
                                               OUT UINT64 *pOsRecordPhyAddress,
                                               OUT UINT64 *pOsRecordFlagsPhyAddress,
                                               OUT UINT64 *pNextRecordHeaderPhyAddress,
                                               OUT UINT64 *pPersistentStatus) {
  UINT64              Level;
  ERST_SEARCH_CONTEXT Search;
  ERST_WALK_END       End;

  if ((pOsRecordPhyAddress == NULL) || (pOsRecordFlagsPhyAddress == NULL) || (pNextRecordHeaderPhyAddress == NULL) ||
      (pPersistentStatus == NULL)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR one or more input pointers are NULL, aborting...\n", __func__));
    return;
  }

  Level = mPrivateDataVornApeiLogging.SerDbgLevel;
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: Entering\n", __func__));
  *pOsRecordPhyAddress         = 0;
  *pOsRecordFlagsPhyAddress    = 0;
  *pPersistentStatus           = ERST_STATUS_RECORD_NOT_FOUND;
  *pNextRecordHeaderPhyAddress = MAX_UINT64;

  if (VornApeiLoggingErstStoreIsEmpty (__func__)) {
    *pPersistentStatus = ERST_STATUS_RECORD_STORE_EMPTY;
    return;
  }

  Search.RecordId                    = RecordId;
  Search.FindNextRecordID            = FindNextRecordID;
  Search.MarkClearedPerOspm          = MarkClearedPerOspm;
  Search.pOsRecordPhyAddress         = pOsRecordPhyAddress;
  Search.pOsRecordFlagsPhyAddress    = pOsRecordFlagsPhyAddress;
  Search.pNextRecordHeaderPhyAddress = pNextRecordHeaderPhyAddress;
  Search.pPersistentStatus           = pPersistentStatus;
  Search.Found                       = FALSE;
  if (!VornApeiLoggingErstIndexUsable () || !VornApeiLoggingErstSearchIndexed (__func__, &Search, &End)) {
    End = VornApeiLoggingErstWalkRecords (
        __func__, FALSE, mPrivateDataVornApeiLogging.pErstSpiStoreInformation->SpiAddressStartErstErrorRecordRegion,
        VornApeiLoggingErstSearchVisit, &Search);
  }

  if (End == ErstWalkReadFailed) {
    return;
  }

  DEBUG ((Level, "%a: Scan completed => OS Record ID 0x%016lx OsErrorRecordFound %d *pPersistentStatus 0x%016lx\n",
          __func__, RecordId, (UINT32)Search.Found, *pPersistentStatus));
  if (Search.Found) {
    DEBUG ((
        Level,
        "%a: Scan completed => *pOsRecordPhyAddress 0x%016lx *pOsRecordFlagsPhyAddress 0x%016lx *pNextRecordHeaderPhyAddress 0x%016lx\n",
        __func__, *pOsRecordPhyAddress, *pOsRecordFlagsPhyAddress, *pNextRecordHeaderPhyAddress));
  }
}

//
// State of an enumeration: where the identifier goes, and whether the walk
// starts after a given record (its lines then number records "+n").
//
typedef struct {
  UINT64 *pRecordId;
  BOOLEAN Relative;
} ERST_ENUMERATE_CONTEXT;

/**
  Enumerator visitor: skips records the OS cleared and takes the identifier
  of the first other one.
**/
static ERST_WALK_ACTION
VornApeiLoggingErstEnumerateVisit (IN CONST CHAR8 *pCaller, IN UINT32 RecordIndex, IN UINT64, IN OUT VOID *pContext) {
  UINT64                  Level;
  ERST_ENUMERATE_CONTEXT *pEnumerate;

  Level      = mPrivateDataVornApeiLogging.SerDbgLevel;
  pEnumerate = (ERST_ENUMERATE_CONTEXT *)pContext;
  if (mErstSearchRecordData.Flags.RecordClearPerOspm == ERST_RECORD_CLEAR_FLAG_VALUE) {
    DEBUG ((Level,
            pEnumerate->Relative ? "%a: Record +%d => Record previously marked for clearance by OSPM, skipping...\n"
                                 : "%a: Record %d => Record previously marked for clearance by OSPM, skipping...\n",
            pCaller, RecordIndex));
    return ErstWalkContinue;
  }

  *pEnumerate->pRecordId = mErstSearchRecordData.Header.OsRecordID;
  DEBUG ((Level,
          pEnumerate->Relative ? "%a: Record +%d => Next RecordID 0x%016lx\n"
                               : "%a: Record +%d => First RecordID 0x%016lx\n",
          pCaller, RecordIndex, *pEnumerate->pRecordId));
  return ErstWalkStop;
}

/**
  Returns the identifier of the first record the OS has not cleared, or
  MAX_UINT64 when there is none.
**/
VOID VornApeiLoggingGetFirstOsRecordId (OUT UINT64 *pFirstRecordId) {
  ERST_WALK_END          End;
  UINT64                 WalkFrom;
  ERST_ENUMERATE_CONTEXT Enumerate;

  if (pFirstRecordId == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pFirstRecordId == NULL, aborting...\n", __func__));
    return;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: Entering\n", __func__));
  *pFirstRecordId = MAX_UINT64;
  if (VornApeiLoggingErstStoreIsEmpty (__func__)) {
    return;
  }

  Enumerate.pRecordId = pFirstRecordId;
  Enumerate.Relative  = FALSE;
  WalkFrom            = mPrivateDataVornApeiLogging.pErstSpiStoreInformation->SpiAddressStartErstErrorRecordRegion;
  if (VornApeiLoggingErstIndexUsable () && VornApeiLoggingErstIndexNextLive (1, pFirstRecordId, &WalkFrom)) {
    End = ErstWalkStopped;
  } else {
    End = VornApeiLoggingErstWalkRecords (__func__, FALSE, WalkFrom, VornApeiLoggingErstEnumerateVisit, &Enumerate);
  }

  if ((End == ErstWalkReadFailed) || (End == ErstWalkErased) || (End == ErstWalkForeign)) {
    return;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Scan completed => First Valid OS Record ID 0x%016lx\n",
          __func__, *pFirstRecordId));
}

/**
  Returns the identifier of the first record the OS has not cleared,
  starting with the record whose header is at RecordHeaderPhyAddress, or
  MAX_UINT64 when there is none.
**/
VOID VornApeiLoggingGetNextOsRecordId (IN UINT64 RecordHeaderPhyAddress, OUT UINT64 *pNextRecordId) {
  ERST_ENUMERATE_CONTEXT Enumerate;
  UINT32                 Position;

  if (pNextRecordId == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pNextRecordId == NULL, aborting...\n", __func__));
    return;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: Entering\n", __func__));
  *pNextRecordId = MAX_UINT64;
  if (VornApeiLoggingErstStoreIsEmpty (__func__)) {
    return;
  }

  if (RecordHeaderPhyAddress == MAX_UINT64) {
    DEBUG (
        (mPrivateDataVornApeiLogging.SerDbgLevel, "%a: RecordHeaderPhyAddress == MAX_UINT64, aborting...\n", __func__));
    return;
  }

  Enumerate.pRecordId = pNextRecordId;
  Enumerate.Relative  = TRUE;
  //
  // From a record the index knows, the index answers up to where the chain
  // goes on past it; anywhere else the walk does.
  //
  if (!VornApeiLoggingErstIndexUsable () || ((Position = VornApeiLoggingErstIndexAt (RecordHeaderPhyAddress)) == 0) ||
      !VornApeiLoggingErstIndexNextLive (Position, pNextRecordId, &RecordHeaderPhyAddress)) {
    if (VornApeiLoggingErstWalkRecords (__func__, TRUE, RecordHeaderPhyAddress, VornApeiLoggingErstEnumerateVisit,
                                        &Enumerate) == ErstWalkReadFailed) {
      return;
    }
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Scan completed => Next OS Record ID 0x%016lx\n", __func__,
          *pNextRecordId));
}
