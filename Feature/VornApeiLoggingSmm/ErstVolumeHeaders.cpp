/** @file
  Keeping everything before the ERST store header across an erase of the
  error-log volume: the whole volume header with its block map and
  terminator, and the whole extended header with any entries.
**/
#include "VornApeiLoggingSmm.h"
#include "ErstStoreMaintenance.h"

#include <Library/DebugLib.h>

//
// Up to one block of headers is kept; the log prints the copy's address.
//
#define VORN_ERST_KEPT_VOLUME_HEADERS_MAX 0x1000

MODULE_DATA UINT8 mErstMaintenanceVolumeHeaders[VORN_ERST_KEPT_VOLUME_HEADERS_MAX];

/**
  Bytes from the volume's start to the store header.
**/
STATIC
UINT64
VornApeiLoggingErstVolumeHeadersLength (VOID) {
  ERST_SPI_STORE_INFORMATION *pInfo;

  pInfo = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  return pInfo->SpiAddressStartErstStoreHeader - pInfo->SpiAddressFvBlockHeader;
}

/**
  Reads everything before the store header into the kept copy.
**/
EFI_STATUS
VornApeiLoggingErstSaveVolumeHeaders (IN CONST CHAR8 *pCallerName, IN UINTN DebugLevel) {
  ERST_SPI_STORE_INFORMATION *pInfo;
  EFI_STATUS                  Status;
  UINT64                      Length;

  pInfo  = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  Length = VornApeiLoggingErstVolumeHeadersLength ();
  if (Length > sizeof (mErstMaintenanceVolumeHeaders)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR volume headers of 0x%016lx bytes exceed the 0x%x bytes kept, aborting...\n",
            pCallerName, Length, (UINT32)sizeof (mErstMaintenanceVolumeHeaders)));
    return EFI_BAD_BUFFER_SIZE;
  }

  DEBUG ((DebugLevel, "%a: Read SPI flash volume headers @ 0x%016lx Length 0x%016lx => mem buffer @ 0x%016lx\n",
          pCallerName, pInfo->SpiAddressFvBlockHeader, Length, (UINT64)(UINTN)mErstMaintenanceVolumeHeaders));
  Status = VornApeiLoggingReadDataViaSpi (DebugLevel, pInfo->SpiAddressFvBlockHeader, (UINTN)Length,
                                          mErstMaintenanceVolumeHeaders);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r from VornApeiLoggingReadDataViaSpi reading FV Header, aborting...\n",
            pCallerName, Status));
  }

  return Status;
}

/**
  Programs the kept copy back in front of the store header.
**/
EFI_STATUS
VornApeiLoggingErstRestoreVolumeHeaders (IN UINTN DebugLevel) {
  return VornApeiLoggingWriteDataViaSpi (
      DebugLevel, mPrivateDataVornApeiLogging.pErstSpiStoreInformation->SpiAddressFvBlockHeader,
      (UINTN)VornApeiLoggingErstVolumeHeadersLength (), mErstMaintenanceVolumeHeaders);
}
