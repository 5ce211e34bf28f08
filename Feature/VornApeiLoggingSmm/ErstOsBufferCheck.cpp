/** @file
  Checking what the OS hands over in the parameter region before an ERST
  command touches memory through it. The region is OS memory: a careless or
  hostile OS can point the error-log range anywhere, SMRAM included.
**/
#include "VornApeiLoggingSmm.h"

#include <Guid/Cper.h>
#include <Library/DebugLib.h>
#include <Library/SmmMemLib.h>

/**
  TRUE when a read or write may use the record buffer the region describes:
  the error-log range is still the buffer the module published, LogOffset
  lies inside it, a record to write fits behind LogOffset with its whole
  RecordLength, and none of it is SMRAM. Other commands touch no buffer.
**/
BOOLEAN
VornApeiLoggingErstOsBufferValid (IN VORN_ERST_PARAMETER_REGION *pRegion, IN UINT64 Command) {
  UINT64                          BufferSize;
  UINT64                          RecordBuffer;
  UINT64                          Length;
  EFI_COMMON_ERROR_RECORD_HEADER *pOsRecordHdr;

  if ((Command != ERST_PERSISTENT_GET_RECORD) && (Command != ERST_PERSISTENT_SET_RECORD)) {
    return TRUE;
  }

  BufferSize = mPrivateDataVornApeiLogging.OsBufferSize;
  if ((pRegion->ErrorLogAddressRange != (UINT64)(UINTN)mPrivateDataVornApeiLogging.pErstRecordBlock) ||
      (pRegion->ErrorLogAddressLength != BufferSize)) {
    DEBUG ((
        DEBUG_ERROR,
        "%a: ERROR ErrorLogAddressRange 0x%016lx length 0x%016lx is not the error-log buffer @ 0x%016lx length 0x%016lx, aborting...\n",
        __func__, pRegion->ErrorLogAddressRange, pRegion->ErrorLogAddressLength,
        (UINT64)(UINTN)mPrivateDataVornApeiLogging.pErstRecordBlock, BufferSize));
    return FALSE;
  }

  RecordBuffer = pRegion->ErrorLogAddressRange + pRegion->LogOffset;
  Length       = (Command == ERST_PERSISTENT_SET_RECORD) ? sizeof (EFI_COMMON_ERROR_RECORD_HEADER) : 1;
  if ((pRegion->LogOffset > BufferSize) || (Length > BufferSize - pRegion->LogOffset)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR LogOffset 0x%08x leaves no record inside the error-log buffer, aborting...\n",
            __func__, pRegion->LogOffset));
    return FALSE;
  }

  if (Command == ERST_PERSISTENT_SET_RECORD) {
    pOsRecordHdr = (EFI_COMMON_ERROR_RECORD_HEADER *)(UINTN)RecordBuffer;
    Length       = pOsRecordHdr->RecordLength;
    if (Length > BufferSize - pRegion->LogOffset) {
      DEBUG ((DEBUG_ERROR,
              "%a: ERROR RecordLength 0x%08x runs past the error-log buffer behind LogOffset 0x%08x, aborting...\n",
              __func__, (UINT32)Length, pRegion->LogOffset));
      return FALSE;
    }
  }

  if (!SmmIsBufferOutsideSmmValid (RecordBuffer, Length)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR record buffer @ 0x%016lx length 0x%016lx overlaps SMRAM, aborting...\n", __func__,
            RecordBuffer, Length));
    return FALSE;
  }

  return TRUE;
}
