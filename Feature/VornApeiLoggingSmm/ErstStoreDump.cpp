/** @file
  Whole-store debug dump of the ERST store as it lies on flash.
**/
#include "VornApeiLoggingSmm.h"
#include "ErstRecordScan.h"
#include "ErstStoreMaintenance.h"

#include <Library/DebugLib.h>
#include <Library/ElogStoreDump.h>
#include <Library/SmmServicesTableLib.h>

MODULE_DATA ERST_STORE_HEADER mErstDumpStoreHeader;

/**
  Prints one record's OS data from flash through a temporary SMM pool
  buffer.
**/
STATIC
EFI_STATUS
VornApeiLoggingErstDumpOsRecord (IN CONST CHAR8 *pCallerName, IN UINTN DebugLevel, IN ERST_RECORD_SCAN *pScan) {
  EFI_STATUS Status;
  UINT8     *pOsRecord;
  UINT32     OsRecordLength;

  OsRecordLength = pScan->pData->Header.OsRecordLength;
  DEBUG ((DebugLevel, "%a: Record %d => OS record @ 0x%016lx Length 0x%08x\n", pCallerName, pScan->RecordIndex,
          pScan->pData->Header.OsRecordAddress, OsRecordLength));
  Status = gSmst->SmmAllocatePool (EfiRuntimeServicesData, OsRecordLength, (VOID **)&pOsRecord);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR,
            "%a: ERROR %r allocating EfiRuntimeServicesData length 0x%08x for Record %d OS record data, aborting...\n",
            pCallerName, Status, OsRecordLength, pScan->RecordIndex));
    return Status;
  }

  Status = VornApeiLoggingReadDataViaSpi (DebugLevel, pScan->pData->Header.OsRecordAddress, OsRecordLength, pOsRecord);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r reading Record %d OS record data @ 0x%016lx, aborting...\n", pCallerName, Status,
            pScan->RecordIndex, pScan->pData->Header.OsRecordAddress));
  } else {
    PrintRawData (pOsRecord, OsRecordLength, DebugLevel);
  }

  gSmst->SmmFreePool (pOsRecord);
  return Status;
}

/**
  Prints the store header and every record (header, flags and OS data) as
  read from flash. Changes nothing.
**/
VOID VornApeiLoggingDumpErstMemoryFromFlash (IN UINTN DebugLevel) {
  ERST_SPI_STORE_INFORMATION *pInfo;
  ERST_RECORD_SCAN            Scan;
  EFI_STATUS                  Status;

  pInfo = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  DEBUG ((DebugLevel, "%a: ERST store header @ 0x%016lx\n", __func__, pInfo->SpiAddressStartErstStoreHeader));
  Status = VornApeiLoggingReadDataViaSpi (DebugLevel, pInfo->SpiAddressStartErstStoreHeader,
                                          sizeof (mErstDumpStoreHeader), &mErstDumpStoreHeader);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r reading ERST store header @ 0x%016lx, aborting...\n", __func__, Status,
            pInfo->SpiAddressStartErstStoreHeader));
    return;
  }

  DisplayErstStoreHeader (&mErstDumpStoreHeader, DebugLevel);
  VornApeiLoggingErstScanBegin (&Scan);
  do {
    if (EFI_ERROR (VornApeiLoggingErstScanRead (__func__, DebugLevel, &Scan)) ||
        !VornApeiLoggingErstScanHoldsRecord (&Scan)) {
      return;
    }

    DEBUG ((DebugLevel, "%a: Record %d => ERST Error Record Header @ 0x%016lx\n", __func__, Scan.RecordIndex,
            Scan.HeaderAddress));
    DisplayErstRecordHeader (&Scan.pData->Header, DebugLevel);
    DEBUG ((DebugLevel, "%a: Record %d => ERST Error Record Flags @ 0x%016lx\n", __func__, Scan.RecordIndex,
            Scan.HeaderAddress + sizeof (ERST_ERROR_RECORD_HEADER)));
    DisplayErstErrorRecordFlags (&Scan.pData->Flags, DebugLevel);
    if (EFI_ERROR (VornApeiLoggingErstDumpOsRecord (__func__, DebugLevel, &Scan))) {
      return;
    }
  } while (VornApeiLoggingErstScanAdvance (&Scan));
}
