/** @file
  Records torn by a power cut. A write programs a record in three steps
  (header, flags revision, data), so a cut leaves a header torn part-way, a
  flags revision still erased, or data that does not match its checksum. As
  specified discovery erases the whole store for the first two and keeps the
  third, wrong bytes and all. With the switch a record whose header is whole
  but whose flags or data are torn is marked cleared and dropped by the
  defragmentation that follows, and a torn header ends the store before it:
  the records before it are kept, and nothing is written until the torn
  bytes are erased.
**/
#include "VornApeiLoggingSmm.h"
#include "ErstStoreMaintenance.h"

#include <Library/DebugLib.h>
#include <Library/PcdLib.h>

//
// Where flash a torn header may have programmed ends; 0 when there is none.
//
MODULE_DATA UINT64 mErstTornTailEnd;

//
// Record data is summed through this buffer; the flash read logs its
// address. The clear mark programmed on a dropped record.
//
MODULE_DATA UINT8 mErstTornTailData[0x100];
MODULE_DATA UINT8 mErstTornTailClearFlag;

/**
  TRUE when the header is laid out as the write path lays it out: its own
  flags and data right behind it, linked to the last record, and its data
  inside the record region.
**/
STATIC
BOOLEAN
VornApeiLoggingErstHeaderWhole (IN CONST ERST_ERROR_RECORD_HEADER *pHeader,
                                IN UINT64                          RecordAddress,
                                IN UINT64                          LastRecordAddress) {
  ERST_SPI_STORE_INFORMATION *pInfo;
  UINT64                      DataAddress;
  UINT64                      RegionEnd;

  pInfo       = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  DataAddress = RecordAddress + ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH;
  RegionEnd   = pInfo->SpiAddressStartErstErrorRecordRegion + pInfo->LengthErstStoreRegionErrorRecordArea;
  return (pHeader->Signature == ERST_ERROR_RECORD_HEADER_SIGNATURE) &&
         (pHeader->Revision == ERST_ERROR_RECORD_HEADER_LATEST_REVISION) &&
         (pHeader->OsRecordFlagsAddress == RecordAddress + sizeof (ERST_ERROR_RECORD_HEADER)) &&
         (pHeader->OsRecordAddress == DataAddress) && (pHeader->PrevRecordHeaderAddress == LastRecordAddress) &&
         (pHeader->OsRecordLength != 0) && (DataAddress <= RegionEnd) &&
         (pHeader->OsRecordLength <= RegionEnd - DataAddress) &&
         (pHeader->NextRecordHeaderAddress == DataAddress + pHeader->OsRecordLength);
}

/**
  TRUE when the record's data on flash matches its stored checksum.
**/
STATIC
BOOLEAN
VornApeiLoggingErstDataWhole (IN CONST ERST_ERROR_RECORD_HEADER *pHeader) {
  UINT64 Offset;
  UINTN  Length;
  UINTN  Index;
  UINT8  Sum;

  Sum = 0;
  for (Offset = 0; Offset < pHeader->OsRecordLength; Offset += Length) {
    Length = (UINTN)((pHeader->OsRecordLength - Offset < sizeof (mErstTornTailData)) ? pHeader->OsRecordLength - Offset
                                                                                     : sizeof (mErstTornTailData));
    if (EFI_ERROR (VornApeiLoggingReadDataViaSpi (mPrivateDataVornApeiLogging.SerDbgLevelConstructor,
                                                  pHeader->OsRecordAddress + Offset, Length, mErstTornTailData))) {
      return FALSE;
    }

    for (Index = 0; Index < Length; Index++) {
      Sum = (UINT8)(Sum + mErstTornTailData[Index]);
    }
  }

  return (UINT8)(Sum + (UINT8)pHeader->OsRecordChecksum) == 0;
}

/**
  Judges the record discovery just read. A whole record is kept as it is. A
  record with a whole header but torn flags or data gets the OS clear mark,
  on flash and in pRecord, so that it is counted as cleared and dropped. A
  torn header (or a record that cannot be marked) ends the store: the
  caller stops before it.
**/
ERST_TORN_TAIL_VERDICT
VornApeiLoggingErstCheckTornRecord (IN CONST CHAR8                      *pCaller,
                                    IN UINT32                            RecordIndex,
                                    IN UINT64                            RecordAddress,
                                    IN UINT64                            LastRecordAddress,
                                    IN OUT ERST_RECORD_HEADER_AND_FLAGS *pRecord) {
  UINT64 Level;

  Level = mPrivateDataVornApeiLogging.SerDbgLevelConstructor;
  if (!VornApeiLoggingErstHeaderWhole (&pRecord->Header, RecordAddress, LastRecordAddress)) {
    mErstTornTailEnd = RecordAddress + ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH;
    DEBUG ((Level, "%a: Record %d => torn or damaged record header @ 0x%016lx, the store ends before it\n", pCaller,
            RecordIndex, RecordAddress));
    return ErstTornTailCut;
  }

  if ((pRecord->Flags.Revision == ERST_ERROR_RECORD_FLAGS_LATEST_REVISION) &&
      VornApeiLoggingErstDataWhole (&pRecord->Header)) {
    return ErstTornTailWhole;
  }

  DEBUG ((Level,
          "%a: Record %d => RecordID 0x%016lx torn (flags revision 0x%08x or data checksum), marking it cleared\n",
          pCaller, RecordIndex, pRecord->Header.OsRecordID, pRecord->Flags.Revision));
  if (pRecord->Flags.RecordClearPerOspm != ERST_RECORD_CLEAR_FLAG_VALUE) {
    mErstTornTailClearFlag = ERST_RECORD_CLEAR_FLAG_VALUE;
    if ((pRecord->Flags.RecordClearPerOspm != 0xFF) ||
        EFI_ERROR (VornApeiLoggingWriteDataViaSpi (
            Level, pRecord->Header.OsRecordFlagsAddress + OFFSET_OF (ERST_ERROR_RECORD_FLAGS, RecordClearPerOspm),
            sizeof (mErstTornTailClearFlag), &mErstTornTailClearFlag))) {
      mErstTornTailEnd = pRecord->Header.NextRecordHeaderAddress;
      DEBUG ((Level, "%a: Record %d => cannot mark it, the store ends before it\n", pCaller, RecordIndex));
      return ErstTornTailCut;
    }

    pRecord->Flags.RecordClearPerOspm = ERST_RECORD_CLEAR_FLAG_VALUE;
  }

  return ErstTornTailDropped;
}

/**
  Where the used part of the store ends: the next record's place, or past
  the bytes a torn header left, which must be erased before anything is
  written there.
**/
UINT64
VornApeiLoggingErstUsedEnd (VOID) {
  UINT64 Next;

  Next = mPrivateDataVornApeiLogging.pErstSpiStoreInformation->SpiAddressStartAvailableStorage;
  return (mErstTornTailEnd > Next) ? mErstTornTailEnd : Next;
}

/**
  TRUE when a walk of the record chain must stop before the header at
  RecordAddress: with the switch nothing at or past the next record's
  place belongs to the chain, whatever a torn tail holds there.
**/
BOOLEAN
VornApeiLoggingErstPastChainEnd (IN UINT64 RecordAddress) {
  return FeaturePcdGet (PcdVornFixTornTail) &&
         (RecordAddress >= mPrivateDataVornApeiLogging.pErstSpiStoreInformation->SpiAddressStartAvailableStorage);
}
