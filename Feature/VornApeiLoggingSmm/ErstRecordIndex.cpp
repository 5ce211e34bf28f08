/** @file
  The record index: the chain's records in chain order (which is address
  order), and a hash table from identifier to the first record carrying it.
  Both live in SMRAM pool and grow by doubling. The index only ever answers
  what a walk of the chain would find: anything it cannot follow drops it,
  and a chain it cannot describe (records out of address order, flags not
  right behind their header, no memory) leaves every lookup to the walk.
**/
#include "VornApeiLoggingSmm.h"
#include "ErstRecordIndex.h"
#include "ErstStoreMaintenance.h"

#include <Library/BaseMemoryLib.h>
#include <Library/PcdLib.h>
#include <Library/SmmServicesTableLib.h>

#define ERST_RECORD_INDEX_FIRST_CAPACITY 256
#define ERST_RECORD_INDEX_MAX_CAPACITY   0x1000000

typedef enum { ErstIndexStale, ErstIndexBuilding, ErstIndexValid, ErstIndexUnusable } ERST_RECORD_INDEX_STATE;

struct _ERST_RECORD_INDEX {
  ERST_RECORD_INDEX_STATE  State;
  UINT32                   Count;
  UINT32                   Capacity;    // entries; the slot table has twice as many
  UINT64                   NextAddress; // where the chain goes on after the last record
  ERST_RECORD_INDEX_ENTRY *pEntries;
  UINT32                  *pSlots; // position of the first record of an identifier
};

/**
  TRUE when a walk that reached a record whose successor is at Next goes on
  to read it.
**/
STATIC
BOOLEAN
VornApeiLoggingErstIndexChainGoesOn (IN UINT64 Next) {
  ERST_SPI_STORE_INFORMATION *pInfo;

  pInfo = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  return (Next != 0) && (Next != MAX_UINT64) &&
         (Next < pInfo->SpiAddressStartErstErrorRecordRegion + pInfo->LengthErstStoreRegionErrorRecordArea - 1) &&
         !VornApeiLoggingErstPastChainEnd (Next);
}

/**
  The slot table position where the search for RecordId starts.
**/
STATIC
UINT32
VornApeiLoggingErstIndexHash (IN CONST ERST_RECORD_INDEX *pIndex, IN UINT64 RecordId) {
  return (UINT32)((RecordId * 0x9E3779B97F4A7C15ULL) >> 32) & (2 * pIndex->Capacity - 1);
}

/**
  Enters the record at Position as the first record of its identifier.
**/
STATIC
VOID VornApeiLoggingErstIndexPlace (IN ERST_RECORD_INDEX *pIndex, IN UINT32 Position) {
  UINT32 Slot;

  Slot = VornApeiLoggingErstIndexHash (pIndex, pIndex->pEntries[Position - 1].RecordId);
  while (pIndex->pSlots[Slot] != 0) {
    Slot = (Slot + 1) & (2 * pIndex->Capacity - 1);
  }

  pIndex->pSlots[Slot] = Position;
}

/**
  Doubles the room for entries; FALSE when there is no more memory.
**/
STATIC
BOOLEAN
VornApeiLoggingErstIndexGrow (IN ERST_RECORD_INDEX *pIndex) {
  ERST_RECORD_INDEX_ENTRY *pEntries;
  UINT32                  *pSlots;
  UINT32                   Capacity;
  UINT32                   Position;

  Capacity = (pIndex->Capacity == 0) ? ERST_RECORD_INDEX_FIRST_CAPACITY : 2 * pIndex->Capacity;
  if ((Capacity > ERST_RECORD_INDEX_MAX_CAPACITY) ||
      EFI_ERROR (gSmst->SmmAllocatePool (EfiRuntimeServicesData, Capacity * sizeof (ERST_RECORD_INDEX_ENTRY),
                                         (VOID **)&pEntries))) {
    return FALSE;
  }

  if (EFI_ERROR (gSmst->SmmAllocatePool (EfiRuntimeServicesData, 2 * Capacity * sizeof (UINT32), (VOID **)&pSlots))) {
    gSmst->SmmFreePool (pEntries);
    return FALSE;
  }

  ZeroMem (pSlots, 2 * Capacity * sizeof (UINT32));
  if (pIndex->pEntries != NULL) {
    CopyMem (pEntries, pIndex->pEntries, pIndex->Count * sizeof (ERST_RECORD_INDEX_ENTRY));
    gSmst->SmmFreePool (pIndex->pEntries);
    gSmst->SmmFreePool (pIndex->pSlots);
  }

  pIndex->pEntries = pEntries;
  pIndex->pSlots   = pSlots;
  pIndex->Capacity = Capacity;
  for (Position = 1; Position <= pIndex->Count; Position++) {
    if (pEntries[Position - 1].LastCopy != 0) {
      VornApeiLoggingErstIndexPlace (pIndex, Position);
    }
  }

  return TRUE;
}

/**
  Adds a record behind the last one; FALSE when the index cannot take it.
**/
STATIC
BOOLEAN
VornApeiLoggingErstIndexPut (IN ERST_RECORD_INDEX              *pIndex,
                             IN UINT64                          HeaderAddress,
                             IN CONST ERST_ERROR_RECORD_HEADER *pHeader,
                             IN UINT8                           RecordClearPerOspm) {
  ERST_RECORD_INDEX_ENTRY *pEntry;
  UINT32                   First;

  if ((pIndex->Count == pIndex->Capacity) && !VornApeiLoggingErstIndexGrow (pIndex)) {
    return FALSE;
  }

  First                      = VornApeiLoggingErstIndexFind (pHeader->OsRecordID);
  pEntry                     = &pIndex->pEntries[pIndex->Count++];
  pEntry->HeaderAddress      = HeaderAddress;
  pEntry->RecordId           = pHeader->OsRecordID;
  pEntry->NextCopy           = 0;
  pEntry->LastCopy           = 0;
  pEntry->RecordClearPerOspm = RecordClearPerOspm;
  if (First == 0) {
    pEntry->LastCopy = pIndex->Count;
    VornApeiLoggingErstIndexPlace (pIndex, pIndex->Count);
  } else {
    pIndex->pEntries[pIndex->pEntries[First - 1].LastCopy - 1].NextCopy = pIndex->Count;
    pIndex->pEntries[First - 1].LastCopy                                = pIndex->Count;
  }

  pIndex->NextAddress = pHeader->NextRecordHeaderAddress;
  return TRUE;
}

VOID VornApeiLoggingErstIndexStart (VOID) {
  ERST_RECORD_INDEX *pIndex;

  if (!FeaturePcdGet (PcdVornFixRecordIndex)) {
    return;
  }

  pIndex = mPrivateDataVornApeiLogging.pErstRecordIndex;
  if (pIndex == NULL) {
    if (EFI_ERROR (gSmst->SmmAllocatePool (EfiRuntimeServicesData, sizeof (*pIndex), (VOID **)&pIndex))) {
      return;
    }

    ZeroMem (pIndex, sizeof (*pIndex));
    mPrivateDataVornApeiLogging.pErstRecordIndex = pIndex;
  }

  pIndex->State       = ErstIndexBuilding;
  pIndex->Count       = 0;
  pIndex->NextAddress = mPrivateDataVornApeiLogging.pErstSpiStoreInformation->SpiAddressStartErstErrorRecordRegion;
  if (pIndex->pSlots != NULL) {
    ZeroMem (pIndex->pSlots, 2 * pIndex->Capacity * sizeof (UINT32));
  }
}

VOID VornApeiLoggingErstIndexAdd (IN UINT64 HeaderAddress, IN CONST ERST_RECORD_HEADER_AND_FLAGS *pRecord) {
  ERST_RECORD_INDEX *pIndex;

  pIndex = mPrivateDataVornApeiLogging.pErstRecordIndex;
  if ((pIndex == NULL) || (pIndex->State != ErstIndexBuilding)) {
    return;
  }

  //
  // Lookups by flags address need the records in address order, each with
  // its flags right behind its header, as the write path lays them out.
  //
  if (((pIndex->Count != 0) && (HeaderAddress <= pIndex->pEntries[pIndex->Count - 1].HeaderAddress)) ||
      (pRecord->Header.OsRecordFlagsAddress != HeaderAddress + sizeof (ERST_ERROR_RECORD_HEADER)) ||
      !VornApeiLoggingErstIndexPut (pIndex, HeaderAddress, &pRecord->Header, pRecord->Flags.RecordClearPerOspm)) {
    pIndex->State = ErstIndexUnusable;
  }
}

VOID VornApeiLoggingErstIndexFinish (VOID) {
  ERST_RECORD_INDEX *pIndex;

  pIndex = mPrivateDataVornApeiLogging.pErstRecordIndex;
  if ((pIndex != NULL) && (pIndex->State == ErstIndexBuilding)) {
    pIndex->State = ErstIndexValid;
  }
}

VOID VornApeiLoggingErstIndexDrop (VOID) {
  if (mPrivateDataVornApeiLogging.pErstRecordIndex != NULL) {
    mPrivateDataVornApeiLogging.pErstRecordIndex->State = ErstIndexStale;
  }
}

VOID VornApeiLoggingErstIndexAppend (IN UINT64 HeaderAddress, IN CONST ERST_ERROR_RECORD_HEADER *pHeader) {
  ERST_RECORD_INDEX *pIndex;

  pIndex = mPrivateDataVornApeiLogging.pErstRecordIndex;
  if ((pIndex == NULL) || (pIndex->State != ErstIndexValid)) {
    return;
  }

  //
  // A walk reaches the new record only from the last one. One that lies
  // where the walk stops (past the record region) stays out of the chain,
  // and so does everything written after it.
  //
  if (HeaderAddress != pIndex->NextAddress) {
    VornApeiLoggingErstIndexDrop ();
  } else if ((pIndex->Count == 0) || VornApeiLoggingErstIndexChainGoesOn (HeaderAddress)) {
    //
    // A record is stored with its clear bytes erased.
    //
    if (!VornApeiLoggingErstIndexPut (pIndex, HeaderAddress, pHeader, 0xFF)) {
      pIndex->State = ErstIndexUnusable;
    }
  }
}

VOID VornApeiLoggingErstIndexNoteClear (IN UINT64 FlagsAddress, IN UINT8 Value, IN EFI_STATUS Status) {
  ERST_RECORD_INDEX *pIndex;
  UINT32             Position;

  pIndex = mPrivateDataVornApeiLogging.pErstRecordIndex;
  if ((pIndex == NULL) || (pIndex->State != ErstIndexValid)) {
    return;
  }

  Position = VornApeiLoggingErstIndexAt (FlagsAddress - sizeof (ERST_ERROR_RECORD_HEADER));
  if (EFI_ERROR (Status) || (Position == 0)) {
    VornApeiLoggingErstIndexDrop ();
    return;
  }

  //
  // Programming only pulls bits low.
  //
  pIndex->pEntries[Position - 1].RecordClearPerOspm &= Value;
}

BOOLEAN
VornApeiLoggingErstIndexUsable (VOID) {
  ERST_RECORD_INDEX *pIndex;
  ERST_RECORD_SCAN   Scan;

  if (!FeaturePcdGet (PcdVornFixRecordIndex)) {
    return FALSE;
  }

  pIndex = mPrivateDataVornApeiLogging.pErstRecordIndex;
  if ((pIndex != NULL) && ((pIndex->State == ErstIndexValid) || (pIndex->State == ErstIndexUnusable))) {
    return pIndex->State == ErstIndexValid;
  }

  //
  // Rebuilt with one walk of the chain, as a search would walk it.
  //
  VornApeiLoggingErstIndexStart ();
  pIndex = mPrivateDataVornApeiLogging.pErstRecordIndex;
  if (pIndex == NULL) {
    return FALSE;
  }

  VornApeiLoggingErstScanBegin (&Scan);
  for (;;) {
    if (EFI_ERROR (VornApeiLoggingErstScanRead (__func__, mPrivateDataVornApeiLogging.SerDbgLevel, &Scan))) {
      return FALSE;
    }

    if (!VornApeiLoggingErstScanHoldsRecord (&Scan)) {
      break;
    }

    VornApeiLoggingErstIndexAdd (Scan.HeaderAddress, Scan.pData);
    if (!VornApeiLoggingErstScanAdvance (&Scan)) {
      break;
    }
  }

  VornApeiLoggingErstIndexFinish ();
  return pIndex->State == ErstIndexValid;
}

UINT32
VornApeiLoggingErstIndexFind (IN UINT64 RecordId) {
  ERST_RECORD_INDEX *pIndex;
  UINT32             Slot;

  pIndex = mPrivateDataVornApeiLogging.pErstRecordIndex;
  if (pIndex->Capacity == 0) {
    return 0;
  }

  for (Slot = VornApeiLoggingErstIndexHash (pIndex, RecordId); pIndex->pSlots[Slot] != 0;
       Slot = (Slot + 1) & (2 * pIndex->Capacity - 1)) {
    if (pIndex->pEntries[pIndex->pSlots[Slot] - 1].RecordId == RecordId) {
      return pIndex->pSlots[Slot];
    }
  }

  return 0;
}

UINT32
VornApeiLoggingErstIndexAt (IN UINT64 HeaderAddress) {
  ERST_RECORD_INDEX *pIndex;
  UINT32             Low;
  UINT32             High;
  UINT32             Middle;

  pIndex = mPrivateDataVornApeiLogging.pErstRecordIndex;
  Low    = 0;
  High   = pIndex->Count;
  while (Low < High) {
    Middle = Low + (High - Low) / 2;
    if (pIndex->pEntries[Middle].HeaderAddress < HeaderAddress) {
      Low = Middle + 1;
    } else {
      High = Middle;
    }
  }

  return ((Low < pIndex->Count) && (pIndex->pEntries[Low].HeaderAddress == HeaderAddress)) ? Low + 1 : 0;
}

ERST_RECORD_INDEX_ENTRY *VornApeiLoggingErstIndexEntry (IN UINT32 Position) {
  return &mPrivateDataVornApeiLogging.pErstRecordIndex->pEntries[Position - 1];
}

BOOLEAN
VornApeiLoggingErstIndexNextLive (IN UINT32 Position, OUT UINT64 *pRecordId, OUT UINT64 *pWalkFrom) {
  ERST_RECORD_INDEX *pIndex;

  pIndex = mPrivateDataVornApeiLogging.pErstRecordIndex;
  for (; Position <= pIndex->Count; Position++) {
    if (pIndex->pEntries[Position - 1].RecordClearPerOspm != ERST_RECORD_CLEAR_FLAG_VALUE) {
      *pRecordId = pIndex->pEntries[Position - 1].RecordId;
      return TRUE;
    }
  }

  *pRecordId = MAX_UINT64;
  if ((pIndex->Count != 0) && !VornApeiLoggingErstIndexChainGoesOn (pIndex->NextAddress)) {
    return TRUE;
  }

  *pWalkFrom = pIndex->NextAddress;
  return FALSE;
}
