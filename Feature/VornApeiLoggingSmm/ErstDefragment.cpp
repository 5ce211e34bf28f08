/** @file
  Start-up defragmentation of the ERST store: the records nobody cleared are
  copied to memory, the used part of the volume is erased, and the records
  are stored again through the ordinary write path.
**/
#include "VornApeiLoggingSmm.h"
#include "ErstRecordScan.h"
#include "ErstStoreMaintenance.h"

#include <Guid/Cper.h>
#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/ElogCperDump.h>
#include <Library/ElogStoreDump.h>
#include <Library/PcdLib.h>
#include <Library/UefiBootServicesTableLib.h>

MODULE_DATA UINT64 mErstDefragmentPersistentStatus;

/**
  TRUE when a record cleared by the OS or marked obsolete by firmware.
**/
STATIC
BOOLEAN
VornApeiLoggingErstRecordCleared (IN CONST ERST_ERROR_RECORD_FLAGS *pFlags) {
  return (pFlags->RecordClearPerBios == ERST_RECORD_CLEAR_FLAG_VALUE) ||
         (pFlags->RecordClearPerOspm == ERST_RECORD_CLEAR_FLAG_VALUE);
}

/**
  Copies the OS records of all records without a clear mark, back to back,
  into pBuffer.
**/
STATIC
EFI_STATUS
VornApeiLoggingErstDefragmentSaveRecords (IN CONST CHAR8 *pCallerName,
                                          IN UINTN        DebugLevel,
                                          IN UINT8       *pBuffer,
                                          IN UINT64       BufferSize,
                                          OUT UINT32     *pAvailableCperRecords,
                                          OUT UINT64     *pBufferOsRecordLength) {
  ERST_RECORD_SCAN Scan;
  EFI_STATUS       Status;
  UINT32           OsRecordLength;

  DEBUG ((DebugLevel, "%a: Copy active OS error records from SPI flash to local memory buffer\n", pCallerName));
  VornApeiLoggingErstScanBegin (&Scan);
  do {
    Status = VornApeiLoggingErstScanRead (pCallerName, DebugLevel, &Scan);
    if (EFI_ERROR (Status)) {
      return Status;
    }

    if (!VornApeiLoggingErstScanHoldsRecord (&Scan)) {
      break;
    }

    if (VornApeiLoggingErstRecordCleared (&Scan.pData->Flags)) {
      DEBUG ((DebugLevel,
              "%a: Record %d => Clear record from pstore, skip saving this OS record data to temporary buffer\n",
              pCallerName, Scan.RecordIndex));
      continue;
    }

    DEBUG ((DebugLevel, "%a: Record %d => Record still in use, saving this OS record data to temporary buffer\n",
            pCallerName, Scan.RecordIndex));
    //
    // The buffer covers the used part of the volume, so a sound chain always
    // fits; a length that does not fit means the chain lies about itself.
    //
    OsRecordLength = Scan.pData->Header.OsRecordLength;
    if (OsRecordLength > BufferSize - *pBufferOsRecordLength) {
      DEBUG ((DEBUG_ERROR, "%a: ERROR Record %d OsRecordLength 0x%08x exceeds the temporary buffer, exiting...\n",
              pCallerName, Scan.RecordIndex, OsRecordLength));
      return EFI_BAD_BUFFER_SIZE;
    }

    Status = VornApeiLoggingReadDataViaSpi (DebugLevel, Scan.pData->Header.OsRecordAddress, OsRecordLength,
                                            pBuffer + *pBufferOsRecordLength);
    if (EFI_ERROR (Status)) {
      DEBUG ((
          DEBUG_ERROR,
          "%a: ERROR %r from VornApeiLoggingReadDataViaSpi reading Record %d ERST OS error record data failed, exiting...\n",
          pCallerName, Status, Scan.RecordIndex));
      return Status;
    }

    *pAvailableCperRecords += 1;
    *pBufferOsRecordLength += OsRecordLength;
  } while (VornApeiLoggingErstScanAdvance (&Scan));

  DEBUG ((DebugLevel, "%a: OS record data scan completed: AvailableCperRecords %d BufferOsRecordLength 0x%016lx\n",
          pCallerName, *pAvailableCperRecords, *pBufferOsRecordLength));
  return Status;
}

/**
  TRUE when a whole CPER record starts at Offset within the saved data.
**/
STATIC
BOOLEAN
VornApeiLoggingErstBufferHoldsCperRecord (IN UINT8 *pBuffer, IN UINT64 Offset, IN UINT64 BufferOsRecordLength) {
  EFI_COMMON_ERROR_RECORD_HEADER *pOsRecordHdr;

  if (Offset + OFFSET_OF (EFI_COMMON_ERROR_RECORD_HEADER, TimeStamp) > BufferOsRecordLength) {
    return FALSE;
  }

  pOsRecordHdr = (EFI_COMMON_ERROR_RECORD_HEADER *)(pBuffer + Offset);
  return (pOsRecordHdr->SignatureStart == EFI_ERROR_RECORD_SIGNATURE_START) && (pOsRecordHdr->RecordLength != 0) &&
         (pOsRecordHdr->RecordLength <= BufferOsRecordLength - Offset);
}

/**
  Stores the saved OS records again, in their old order, through the
  ordinary write path, which rebuilds headers, counts and CurRecordID.
**/
STATIC
VOID VornApeiLoggingErstDefragmentRestoreRecords (IN CONST CHAR8 *pCallerName,
                                                  IN UINTN        DebugLevel,
                                                  IN UINT8       *pBuffer,
                                                  IN UINT64       BufferOsRecordLength) {
  EFI_COMMON_ERROR_RECORD_HEADER *pOsRecordHdr;
  UINT64                          Offset;

  DEBUG ((DebugLevel, "%a: Copy remaining CPER records from temporary mem buffer back to SPI pstore\n", pCallerName));
  for (Offset = 0; VornApeiLoggingErstBufferHoldsCperRecord (pBuffer, Offset, BufferOsRecordLength);
       Offset += pOsRecordHdr->RecordLength) {
    pOsRecordHdr = (EFI_COMMON_ERROR_RECORD_HEADER *)(pBuffer + Offset);
    DEBUG ((DebugLevel,
            "%a: pOsRecordHdr->SignatureStart == CPER, restore this OS error record to the ERST pstore region\n",
            pCallerName));
    DEBUG_CODE_BEGIN ();
    DEBUG ((DebugLevel, "%a: Display CPER record in buffer @ 0x%016lx\n", pCallerName, (UINT64)(UINTN)pOsRecordHdr));
    DisplayCperRecord (DebugLevel, pOsRecordHdr);
    DEBUG_CODE_END ();
    DEBUG ((DebugLevel, "%a: Write OS error record in mem buffer @ 0x%016lx to SPI flash\n", pCallerName,
            (UINT64)(UINTN)pOsRecordHdr));
    VornApeiLoggingErstPersistentStoreWrite ((UINT64)(UINTN)pOsRecordHdr, &mErstDefragmentPersistentStatus);
    if (mErstDefragmentPersistentStatus != ERST_STATUS_SUCCESS) {
      DEBUG ((DEBUG_ERROR, "%a: ERROR PersistentStatus != 0, Unable to write CPER record to FV\n", pCallerName));
    }
  }

  DEBUG ((DEBUG_ERROR,
          "%a: ERROR pOsRecordHdr->SignatureStart != CPER, we've reached end of OS records to restore...\n",
          pCallerName));
}

/**
  Rebuilds the store without the records that carry a clear mark. Only the
  blocks covering the used part of the volume are erased.
**/
EFI_STATUS
VornApeiLoggingErstDefragment (IN UINTN DebugLevel) {
  ERST_SPI_STORE_INFORMATION *pInfo;
  EFI_STATUS                  Status;
  EFI_PHYSICAL_ADDRESS        Buffer;
  UINTN                       BufferLengthInPages;
  UINT64                      LengthFvUsed;
  UINT64                      NumSectorsUsed;
  UINT64                      NumBytesToErase;
  UINT32                      AvailableCperRecords;
  UINT64                      BufferOsRecordLength;

  if (mPrivateDataVornApeiLogging.pErstParameterBlock == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR mPrivateDataVornApeiLogging.pErstParameterBlock is NULL, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  //
  // As specified a cut after the erase loses every kept record; the switch
  // rebuilds the store through the spare area instead.
  //
  if (FeaturePcdGet (PcdVornFixSafeDefrag)) {
    return VornApeiLoggingErstSafeDefragment (DebugLevel);
  }

  pInfo  = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  Status = VornApeiLoggingErstSaveFvHeaders (__func__, DebugLevel, TRUE);
  if (EFI_ERROR (Status)) {
    return Status;
  }

  Buffer               = 0;
  BufferLengthInPages  = 0;
  AvailableCperRecords = 0;
  BufferOsRecordLength = 0;
  if (pInfo->ClearEntireStoreRegion) {
    DEBUG ((DebugLevel, "%a: ClearEntireStoreRegion is TRUE, clearing entire pstore region\n", __func__));
    NumBytesToErase = pInfo->LengthTotalFv;
  } else {
    LengthFvUsed   = VornApeiLoggingErstUsedEnd () - pInfo->SpiAddressFvBlockHeader;
    NumSectorsUsed = LengthFvUsed / pInfo->LengthErstBlockSize;
    if ((LengthFvUsed % pInfo->LengthErstBlockSize) != 0) {
      NumSectorsUsed++;
    }

    NumBytesToErase = NumSectorsUsed * pInfo->LengthErstBlockSize;
    if (NumBytesToErase > pInfo->LengthTotalFv) {
      DEBUG ((DEBUG_ERROR, "%a: NumBytesToErase 0x%016lx > LengthTotalFv 0x%016lx, assigning LengthTotalFv default\n",
              __func__, NumBytesToErase, pInfo->LengthTotalFv));
      NumBytesToErase = pInfo->LengthTotalFv;
    }

    DEBUG ((
        DebugLevel,
        "%a: LengthFvUsed 0x%016lx LengthTotalFv 0x%016lx LengthErstBlockSize 0x%016lx NumSectorsUsed 0x%016lx NumBytesToErase 0x%016lx\n",
        __func__, LengthFvUsed, pInfo->LengthTotalFv, pInfo->LengthErstBlockSize, NumSectorsUsed, NumBytesToErase));

    BufferLengthInPages = EFI_SIZE_TO_PAGES (LengthFvUsed);
    DEBUG ((DebugLevel,
            "%a: Allocating EfiBootServicesData memory for temporary buffer length 0x%016lx pages for 0x%016lx bytes\n",
            __func__, (UINT64)BufferLengthInPages, LengthFvUsed));
    Status = gBS->AllocatePages (AllocateAnyPages, EfiBootServicesData, BufferLengthInPages, &Buffer);
    if (EFI_ERROR (Status)) {
      //
      // Without a buffer nothing can be kept; the store is emptied anyway.
      //
      DEBUG ((
          DEBUG_ERROR,
          "%a: ERROR %r allocating EfiBootServicesData memory for temporary buffer length 0x%016lx pages for 0x%016lx bytes, aborting...\n",
          __func__, Status, (UINT64)BufferLengthInPages, LengthFvUsed));
      Buffer = 0;
    } else {
      ZeroMem ((VOID *)(UINTN)Buffer, EFI_PAGES_TO_SIZE (BufferLengthInPages));
      Status = VornApeiLoggingErstDefragmentSaveRecords (__func__, DebugLevel, (UINT8 *)(UINTN)Buffer,
                                                         EFI_PAGES_TO_SIZE (BufferLengthInPages), &AvailableCperRecords,
                                                         &BufferOsRecordLength);
    }
  }

  //
  // A failed copy leaves the flash as it is: erasing now would lose the
  // records that could not be saved.
  //
  if ((Buffer == 0) || !EFI_ERROR (Status)) {
    DEBUG ((DebugLevel, "%a: Erase SPI flash @ 0x%016lx Length 0x%016lx to prepare for defragmentation\n", __func__,
            pInfo->SpiAddressFvBlockHeader, NumBytesToErase));
    Status = VornApeiLoggingEraseDataViaSpi (DebugLevel, pInfo->SpiAddressFvBlockHeader, NumBytesToErase);
    if (EFI_ERROR (Status)) {
      DEBUG ((DEBUG_ERROR,
              "%a: ERROR %r from VornApeiLoggingEraseDataViaSpi erasing FV block for defragmentation, aborting...\n",
              __func__, Status));
    } else {
      Status = VornApeiLoggingErstRestoreFvHeadersAndStoreHeader (__func__, DebugLevel, TRUE);
    }

    if (!EFI_ERROR (Status)) {
      VornApeiLoggingErstResetStoreInformation ();
      DEBUG ((DebugLevel, "%a: AvailableCperRecords %d\n", __func__, AvailableCperRecords));
      if (AvailableCperRecords != 0) {
        VornApeiLoggingErstDefragmentRestoreRecords (__func__, DebugLevel, (UINT8 *)(UINTN)Buffer,
                                                     BufferOsRecordLength);
      }
    }
  }

  DEBUG_CODE_BEGIN ();
  DEBUG ((DebugLevel, "%a: ERST processing completed, display pstore information\n", __func__));
  PrintErstSpiStoreInformation (pInfo, mPrivateDataVornApeiLogging.SerDbgLevelConstructor);
  PrintErstParameterRegion (mPrivateDataVornApeiLogging.pErstParameterBlock,
                            mPrivateDataVornApeiLogging.SerDbgLevelConstructor);
  DEBUG_CODE_END ();

  //
  // With a buffer the caller learns only whether it could be given back.
  //
  if (Buffer != 0) {
    DEBUG ((DebugLevel,
            "%a: Call FreePages for EfiBootServicesData memory temporary buffer @ 0x%016lx length 0x%016lx pages\n",
            __func__, (UINT64)Buffer, (UINT64)BufferLengthInPages));
    Status = gBS->FreePages (Buffer, BufferLengthInPages);
    if (EFI_ERROR (Status)) {
      DEBUG ((DEBUG_ERROR, "%a: ERROR %r from FreePages for pBuffer @ 0x%016lx BufferLengthInPages %d\n", __func__,
              Status, (UINT64)Buffer, (UINT32)BufferLengthInPages));
    }
  }

  return Status;
}
