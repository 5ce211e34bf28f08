/** @file
  Copying a stored record into the OS error-log buffer, as an OS's ERST
  driver expects a read to do.
**/
#include "VornApeiLoggingSmm.h"
#include "ErstRecordOps.h"

#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>

//
// Header of the record being copied; the flash read logs its address.
//
MODULE_DATA ERST_ERROR_RECORD_HEADER mErstCopyRecordHeader;

/**
  Copies the OS record stored at OsRecordAddress, whose flags lie at
  FlagsAddress, to RecordBuffer. It must fit the error-log buffer behind
  the OS's LogOffset, and it must match its stored checksum: a record torn
  by a power cut is never handed over, the buffer is zeroed instead.
**/
EFI_STATUS
VornApeiLoggingErstCopyRecordToOs (IN UINT64 RecordBuffer, IN UINT64 OsRecordAddress, IN UINT64 FlagsAddress) {
  EFI_STATUS Status;
  UINT64     Level;
  UINT32     LogOffset;
  UINT32     Length;
  UINT8      Checksum;

  Level  = mPrivateDataVornApeiLogging.SerDbgLevel;
  Status = VornApeiLoggingReadDataViaSpi (Level, FlagsAddress - sizeof (ERST_ERROR_RECORD_HEADER),
                                          sizeof (mErstCopyRecordHeader), &mErstCopyRecordHeader);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r reading the record header for flags @ 0x%016lx, aborting...\n", __func__, Status,
            FlagsAddress));
    return Status;
  }

  Length    = mErstCopyRecordHeader.OsRecordLength;
  LogOffset = mPrivateDataVornApeiLogging.pErstParameterBlock->LogOffset;
  if ((LogOffset > mPrivateDataVornApeiLogging.OsBufferSize) ||
      (Length > mPrivateDataVornApeiLogging.OsBufferSize - LogOffset)) {
    DEBUG (
        (DEBUG_ERROR,
         "%a: ERROR OS record length 0x%08x does not fit the error-log buffer behind LogOffset 0x%08x, aborting...\n",
         __func__, Length, LogOffset));
    return EFI_BUFFER_TOO_SMALL;
  }

  Status = VornApeiLoggingReadDataViaSpi (Level, OsRecordAddress, Length, (VOID *)(UINTN)RecordBuffer);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r reading the OS record @ 0x%016lx, aborting...\n", __func__, Status,
            OsRecordAddress));
    return Status;
  }

  Checksum = VornApeiLoggingCalculateChecksum ((UINT8 *)(UINTN)RecordBuffer, Length);
  if (Checksum != (UINT8)mErstCopyRecordHeader.OsRecordChecksum) {
    ZeroMem ((VOID *)(UINTN)RecordBuffer, Length);
    DEBUG ((DEBUG_ERROR, "%a: ERROR OS record checksum 0x%02x != stored checksum 0x%02x, aborting...\n", __func__,
            Checksum, (UINT8)mErstCopyRecordHeader.OsRecordChecksum));
    return EFI_CRC_ERROR;
  }

  DEBUG ((Level, "%a: Copied OS record 0x%016lx (0x%08x bytes) to the error-log buffer @ 0x%016lx\n", __func__,
          mErstCopyRecordHeader.OsRecordID, Length, RecordBuffer));
  return EFI_SUCCESS;
}
