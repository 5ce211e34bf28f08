/** @file
  Emptying the ERST store: the volume headers survive the erase, a fresh
  store header follows them, and the summary describes an empty store.
**/
#include "VornApeiLoggingSmm.h"
#include "ErstRecordIndex.h"
#include "ErstStoreMaintenance.h"

#include <Library/DebugLib.h>
#include <Library/PcdLib.h>

MODULE_DATA EFI_FIRMWARE_VOLUME_HEADER     mErstMaintenanceFvHeader;
MODULE_DATA EFI_FIRMWARE_VOLUME_EXT_HEADER mErstMaintenanceFvExtHeader;
MODULE_DATA ERST_STORE_HEADER              mErstMaintenanceStoreHeader;

/**
  TRUE when the store summary holds a usable extended header address.
**/
BOOLEAN
VornApeiLoggingErstFvExtHeaderKnown (VOID) {
  UINT64 Address;

  Address = mPrivateDataVornApeiLogging.pErstSpiStoreInformation->SpiAddressFvBlockExtHeader;
  return (Address != 0) && (Address != MAX_UINT64);
}

/**
  Reads the FV header and, when asked, the FV extended header into the
  maintenance copies.
**/
EFI_STATUS
VornApeiLoggingErstSaveFvHeaders (IN CONST CHAR8 *pCallerName, IN UINTN DebugLevel, IN BOOLEAN SaveExtHeader) {
  ERST_SPI_STORE_INFORMATION *pInfo;
  EFI_STATUS                  Status;

  //
  // As specified only the first 64 bytes of the volume header and 20 of the
  // extended header survive an erase, which drops the block-map terminator
  // and any extended-header entries; the switch keeps them all.
  //
  if (FeaturePcdGet (PcdVornFixFvHeader)) {
    return VornApeiLoggingErstSaveVolumeHeaders (pCallerName, DebugLevel);
  }

  pInfo = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  DEBUG ((DebugLevel, "%a: Read SPI flash FV Header data @ 0x%016lx Length 0x%016lx => local var FvHeader @ 0x%016lx\n",
          pCallerName, pInfo->SpiAddressFvBlockHeader, (UINT64)sizeof (mErstMaintenanceFvHeader),
          (UINT64)(UINTN)&mErstMaintenanceFvHeader));
  Status = VornApeiLoggingReadDataViaSpi (DebugLevel, pInfo->SpiAddressFvBlockHeader, sizeof (mErstMaintenanceFvHeader),
                                          &mErstMaintenanceFvHeader);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r from VornApeiLoggingReadDataViaSpi reading FV Header, aborting...\n",
            pCallerName, Status));
    return Status;
  }

  if (SaveExtHeader) {
    Status = VornApeiLoggingReadDataViaSpi (DebugLevel, pInfo->SpiAddressFvBlockExtHeader,
                                            sizeof (mErstMaintenanceFvExtHeader), &mErstMaintenanceFvExtHeader);
    if (EFI_ERROR (Status)) {
      DEBUG ((DEBUG_ERROR, "%a: ERROR %r from VornApeiLoggingReadDataViaSpi reading FV Extended Header, aborting...\n",
              pCallerName, Status));
    }
  }

  return Status;
}

/**
  Writes the saved FV header (and extended header when asked) back to the
  erased volume and lays down a fresh store header.
**/
EFI_STATUS
VornApeiLoggingErstRestoreFvHeadersAndStoreHeader (IN CONST CHAR8 *pCallerName,
                                                   IN UINTN        DebugLevel,
                                                   IN BOOLEAN      RestoreExtHeader) {
  ERST_SPI_STORE_INFORMATION *pInfo;
  EFI_STATUS                  Status;

  pInfo = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  if (FeaturePcdGet (PcdVornFixFvHeader)) {
    Status = VornApeiLoggingErstRestoreVolumeHeaders (DebugLevel);
  } else {
    Status = VornApeiLoggingWriteDataViaSpi (DebugLevel, pInfo->SpiAddressFvBlockHeader,
                                             sizeof (mErstMaintenanceFvHeader), &mErstMaintenanceFvHeader);
  }

  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR,
            "%a: ERROR %r from VornApeiLoggingWriteDataViaSpi writing back (restoring) FV Header, aborting...\n",
            pCallerName, Status));
    return Status;
  }

  if (RestoreExtHeader && !FeaturePcdGet (PcdVornFixFvHeader)) {
    Status = VornApeiLoggingWriteDataViaSpi (DebugLevel, pInfo->SpiAddressFvBlockExtHeader,
                                             sizeof (mErstMaintenanceFvExtHeader), &mErstMaintenanceFvExtHeader);
    if (EFI_ERROR (Status)) {
      DEBUG ((
          DEBUG_ERROR,
          "%a: ERROR %r from VornApeiLoggingWriteDataViaSpi writing back (restoring) FV Extended Header, aborting...\n",
          pCallerName, Status));
      return Status;
    }
  }

  mErstMaintenanceStoreHeader.Signature            = ERST_STORE_HEADER_SIGNATURE;
  mErstMaintenanceStoreHeader.Revision             = ERST_STORE_HEADER_LATEST_REVISION;
  mErstMaintenanceStoreHeader.StoreLengthAvailable = (UINT32)pInfo->LengthErstStoreRegion;
  DEBUG ((DebugLevel, "%a: Write SPI flash ERST Store header @ 0x%016lx Length 0x%016lx from mem buffer @ 0x%016lx\n",
          pCallerName, pInfo->SpiAddressStartErstStoreHeader, (UINT64)sizeof (mErstMaintenanceStoreHeader),
          (UINT64)(UINTN)&mErstMaintenanceStoreHeader));
  Status = VornApeiLoggingWriteDataViaSpi (DebugLevel, pInfo->SpiAddressStartErstStoreHeader,
                                           sizeof (mErstMaintenanceStoreHeader), &mErstMaintenanceStoreHeader);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r from VornApeiLoggingWriteDataViaSpi writing ERST Store Header, aborting...\n",
            pCallerName, Status));
  }

  return Status;
}

/**
  Describes an empty store in the store summary and the parameter region.
**/
VOID VornApeiLoggingErstResetStoreInformation (VOID) {
  ERST_SPI_STORE_INFORMATION *pInfo;

  pInfo                            = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  pInfo->ClearEntireStoreRegion    = FALSE;
  pInfo->SpiAddressLastValidRecord = MAX_UINT64;
  //
  // As specified taken from the extended header's address (20 bytes of it,
  // then the 16-byte store header), not from the record region start: with
  // a longer extended header the next write lands on the store header.
  //
  if (FeaturePcdGet (PcdVornFixFvHeader)) {
    pInfo->SpiAddressStartAvailableStorage = pInfo->SpiAddressStartErstErrorRecordRegion;
  } else {
    pInfo->SpiAddressStartAvailableStorage =
        pInfo->SpiAddressFvBlockExtHeader + sizeof (EFI_FIRMWARE_VOLUME_EXT_HEADER) + sizeof (ERST_STORE_HEADER);
  }
  pInfo->LengthErstStoreRegionErrorRecordAreaAvailable = pInfo->LengthErstStoreRegionErrorRecordArea;
  mErstTornTailEnd                                     = 0;
  pInfo->TotalNumberOfErstRecordsWithClearFlagOspm     = 0;
  pInfo->TotalNumberOfErstRecordsWithClearFlagBios     = 0;
  pInfo->TotalNumberOfErstRecords                      = 0;

  mPrivateDataVornApeiLogging.pErstParameterBlock->RecordCount = 0;
  mPrivateDataVornApeiLogging.pErstParameterBlock->CurRecordID = MAX_UINT64;
  VornApeiLoggingErstIndexDrop ();
}
