/** @file
  Walk over the ERST record chain shared by defragmentation, obsolete
  marking and the store dump.
**/
#include "VornApeiLoggingSmm.h"
#include "ErstRecordScan.h"
#include "ErstStoreMaintenance.h"

#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>

MODULE_DATA ERST_RECORD_HEADER_AND_FLAGS mErstRecordScanData;

/**
  Places the walk on the first record slot of the record region.
**/
VOID VornApeiLoggingErstScanBegin (OUT ERST_RECORD_SCAN *pScan) {
  ZeroMem (pScan, sizeof (*pScan));
  pScan->pData         = &mErstRecordScanData;
  pScan->HeaderAddress = mPrivateDataVornApeiLogging.pErstSpiStoreInformation->SpiAddressStartErstErrorRecordRegion;
}

/**
  Reads the header and flags at the walk's position. A read failure is
  logged under the caller's name and returned.
**/
EFI_STATUS
VornApeiLoggingErstScanRead (IN CONST CHAR8 *pCallerName, IN UINTN DebugLevel, IN OUT ERST_RECORD_SCAN *pScan) {
  EFI_STATUS Status;

  ZeroMem (pScan->pData, sizeof (*pScan->pData));
  Status = VornApeiLoggingReadDataViaSpi (DebugLevel, pScan->HeaderAddress, ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH,
                                          pScan->pData);
  if (EFI_ERROR (Status)) {
    DEBUG ((
        DEBUG_ERROR,
        "%a: ERROR %r from VornApeiLoggingReadDataViaSpi reading Record %d ErstErrorRecordHeaderAddress 0x%016lx RegionLength 0x%016lx, aborting...\n",
        pCallerName, Status, pScan->RecordIndex, pScan->HeaderAddress,
        mPrivateDataVornApeiLogging.pErstSpiStoreInformation->LengthErstStoreRegionErrorRecordArea));
  }

  return Status;
}

/**
  TRUE when the block last read is a record header ("ERST ERR").
**/
BOOLEAN
VornApeiLoggingErstScanHoldsRecord (IN CONST ERST_RECORD_SCAN *pScan) {
  return (pScan->pData->Header.Signature == ERST_ERROR_RECORD_HEADER_SIGNATURE) &&
         !VornApeiLoggingErstPastChainEnd (pScan->HeaderAddress);
}

/**
  Moves to the next record; FALSE when the chain ends (no successor, or the
  successor lies at or past the end of the record region).
**/
BOOLEAN
VornApeiLoggingErstScanAdvance (IN OUT ERST_RECORD_SCAN *pScan) {
  ERST_SPI_STORE_INFORMATION *pInfo;
  UINT64                      Next;

  pInfo = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  Next  = pScan->pData->Header.NextRecordHeaderAddress;
  if ((Next == 0) || (Next == MAX_UINT64)) {
    return FALSE;
  }

  pScan->RecordIndex++;
  pScan->HeaderAddress = Next;
  return (Next < pInfo->SpiAddressStartErstErrorRecordRegion + pInfo->LengthErstStoreRegionErrorRecordArea - 1) &&
         !VornApeiLoggingErstPastChainEnd (Next);
}
