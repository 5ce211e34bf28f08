/** @file
  Marking every stored ERST record obsolete once the OS has taken over APEI,
  so that the next start-up's defragmentation drops it.
**/
#include "VornApeiLoggingSmm.h"
#include "ErstRecordScan.h"

#include <Library/DebugLib.h>
#include <Library/PcdLib.h>
#include <Library/ElogStoreDump.h>

/**
  Sets the firmware clear mark on every record that lacks it and counts the
  records the OS cleared. Returns the status of the last flash access.
**/
EFI_STATUS
VornApeiLoggingErstMarkObsoleteRecords (IN UINTN DebugLevel) {
  ERST_SPI_STORE_INFORMATION *pInfo;
  ERST_RECORD_SCAN            Scan;
  EFI_STATUS                  Status;
  UINT8                       RecordClearPerBios;

  if (mPrivateDataVornApeiLogging.pErstParameterBlock == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR mPrivateDataVornApeiLogging.pErstParameterBlock is NULL, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  pInfo = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  if (FeaturePcdGet (PcdVornFixNullStore) && (pInfo == NULL)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR mPrivateDataVornApeiLogging.pErstSpiStoreInformation is NULL, aborting...\n",
            __func__));
    return EFI_NOT_READY;
  }

  DEBUG ((DebugLevel, "%a: TotalNumberOfErstRecords %d\n", __func__, pInfo->TotalNumberOfErstRecords));
  if (pInfo->TotalNumberOfErstRecords == 0) {
    DEBUG ((DebugLevel, "%a: No valid OS error records remaining after defragmentation, exiting...\n", __func__));
    return EFI_SUCCESS;
  }

  DEBUG ((DebugLevel, "%a: Set OS Error Record Clear (BIOS) flag on all records\n", __func__));
  VornApeiLoggingErstScanBegin (&Scan);
  do {
    Status = VornApeiLoggingErstScanRead (__func__, DebugLevel, &Scan);
    if (EFI_ERROR (Status)) {
      return Status;
    }

    if (!VornApeiLoggingErstScanHoldsRecord (&Scan)) {
      break;
    }

    if (Scan.pData->Flags.RecordClearPerOspm == ERST_RECORD_CLEAR_FLAG_VALUE) {
      DEBUG ((DebugLevel, "%a: Record %d => RecordClearPerOspm == ERST_RECORD_CLEAR_FLAG_VALUE, increment counter\n",
              __func__, Scan.RecordIndex));
      pInfo->TotalNumberOfErstRecordsWithClearFlagOspm++;
    }

    RecordClearPerBios = Scan.pData->Flags.RecordClearPerBios;
    if (RecordClearPerBios == ERST_RECORD_CLEAR_FLAG_VALUE) {
      DEBUG ((
          DebugLevel,
          "%a: Record %d => Rd RecordClearPerBios == 0x%02x (ERST_RECORD_CLEAR_FLAG_VALUE 0x%02x), flag already set -> skip record\n",
          __func__, Scan.RecordIndex, RecordClearPerBios, ERST_RECORD_CLEAR_FLAG_VALUE));
    } else if (RecordClearPerBios == 0xFF) {
      DEBUG (
          (DebugLevel,
           "%a: Record %d => Rd RecordClearPerBios == 0x%02x, set flag data = 0x%02x (ERST_RECORD_CLEAR_FLAG_VALUE)\n",
           __func__, Scan.RecordIndex, RecordClearPerBios, ERST_RECORD_CLEAR_FLAG_VALUE));
      //
      // Counted even when the flag write fails: the record is meant to go,
      // and the count only decides whether start-up defragments.
      //
      Status = VornApeiLoggingErstSetRecordClearPerBios (Scan.pData->Header.OsRecordFlagsAddress);
      pInfo->TotalNumberOfErstRecordsWithClearFlagBios++;
    } else {
      DEBUG ((DEBUG_ERROR, "%a: Record %d => Rd RecordClearPerBios == 0x%02x (unexpected data/corrupt pstore)\n",
              __func__, Scan.RecordIndex, RecordClearPerBios));
    }
  } while (VornApeiLoggingErstScanAdvance (&Scan));

  DEBUG ((DebugLevel, "%a: Record processing completed\n", __func__));
  DEBUG_CODE_BEGIN ();
  PrintErstSpiStoreInformation (pInfo, mPrivateDataVornApeiLogging.SerDbgLevelConstructor);
  DEBUG_CODE_END ();
  return Status;
}
