/** @file
  Erasing the whole error-log volume and laying down an empty store, for a
  store that discovery found missing or damaged.
**/
#include "VornApeiLoggingSmm.h"
#include "ErstStoreMaintenance.h"

#include <Library/DebugLib.h>
#include <Library/ElogStoreDump.h>
#include <Library/PcdLib.h>

/**
  Erases the error-log volume, restores its headers, writes a fresh store
  header and resets the store summary to an empty store.
**/
EFI_STATUS
VornApeiLoggingClearEntirePStore (IN UINTN DebugLevel) {
  ERST_SPI_STORE_INFORMATION *pInfo;
  EFI_STATUS                  Status;
  BOOLEAN                     ExtHeaderKnown;

  //
  // As specified the volume is erased from its header on; a cut before the
  // headers are back leaves no volume. The switch clears through the spare
  // area, and does not erase an erased store at all.
  //
  if (FeaturePcdGet (PcdVornFixSafeDefrag)) {
    return VornApeiLoggingErstSafeClearEntirePStore (DebugLevel);
  }

  pInfo          = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  ExtHeaderKnown = VornApeiLoggingErstFvExtHeaderKnown ();
  Status         = VornApeiLoggingErstSaveFvHeaders (__func__, DebugLevel, ExtHeaderKnown);
  if (EFI_ERROR (Status)) {
    return Status;
  }

  DEBUG ((DebugLevel, "%a: LengthToEraseInBytes 0x%016lx\n", __func__, pInfo->LengthTotalFv));
  DEBUG ((DebugLevel, "%a: Erase SPI flash @ 0x%016lx Length 0x%016lx to clear the entire FV\n", __func__,
          pInfo->SpiAddressFvBlockHeader, pInfo->LengthTotalFv));
  Status = VornApeiLoggingEraseDataViaSpi (DebugLevel, pInfo->SpiAddressFvBlockHeader, pInfo->LengthTotalFv);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r from VornApeiLoggingEraseDataViaSpi erasing entire FV, aborting...\n", __func__,
            Status));
    return Status;
  }

  Status = VornApeiLoggingErstRestoreFvHeadersAndStoreHeader (__func__, DebugLevel, ExtHeaderKnown);
  if (EFI_ERROR (Status)) {
    return Status;
  }

  DEBUG_CODE_BEGIN ();
  DEBUG ((DebugLevel, "%a: Read back (verify) restored SPI flash FV Header @ 0x%016lx length 0x%016lx\n", __func__,
          pInfo->SpiAddressFvBlockHeader, (UINT64)sizeof (mErstMaintenanceFvHeader)));
  Status = VornApeiLoggingReadDataViaSpi (DebugLevel, pInfo->SpiAddressFvBlockHeader, sizeof (mErstMaintenanceFvHeader),
                                          &mErstMaintenanceFvHeader);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR,
            "%a: ERROR %r from VornApeiLoggingReadDataViaSpi read back (verify) restore FV Header, aborting...\n",
            __func__, Status));
    return Status;
  }

  DisplayFvHeader (&mErstMaintenanceFvHeader, DebugLevel);
  if (ExtHeaderKnown) {
    DEBUG ((DebugLevel, "%a: Read back (verify) restored SPI flash FV Extended Header @ 0x%016lx length 0x%016lx\n",
            __func__, pInfo->SpiAddressFvBlockExtHeader, (UINT64)sizeof (mErstMaintenanceFvExtHeader)));
    Status = VornApeiLoggingReadDataViaSpi (DebugLevel, pInfo->SpiAddressFvBlockExtHeader,
                                            sizeof (mErstMaintenanceFvExtHeader), &mErstMaintenanceFvExtHeader);
    if (EFI_ERROR (Status)) {
      DEBUG ((DEBUG_ERROR,
              "%a: ERROR %r from VornApeiLoggingReadDataViaSpi read back (verify) FV Extended Header, aborting...\n",
              __func__, Status));
      return Status;
    }

    DisplayFvExtHeader (&mErstMaintenanceFvExtHeader, DebugLevel);
  }

  DEBUG ((
      DebugLevel,
      "%a: Reading SPI flash ERST Store header @ PhyAddress 0x%016lx Length 0x%016lx bytes => local var ErstStoreHeader @ 0x%016lx\n",
      __func__, pInfo->SpiAddressStartErstStoreHeader, (UINT64)sizeof (mErstMaintenanceStoreHeader),
      (UINT64)(UINTN)&mErstMaintenanceStoreHeader));
  Status = VornApeiLoggingReadDataViaSpi (DebugLevel, pInfo->SpiAddressStartErstStoreHeader,
                                          sizeof (mErstMaintenanceStoreHeader), &mErstMaintenanceStoreHeader);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR,
            "%a: ERROR %r from VornApeiLoggingReadDataViaSpi searching for ERST Store Header, aborting...\n", __func__,
            Status));
    return Status;
  }

  DisplayErstStoreHeader (&mErstMaintenanceStoreHeader, DebugLevel);
  DEBUG_CODE_END ();

  //
  // The record region is re-derived from the store header so that a
  // summary left partly filled by a failed discovery is whole again.
  //
  pInfo->SpiAddressStartErstErrorRecordRegion = pInfo->SpiAddressStartErstStoreHeader + sizeof (ERST_STORE_HEADER);
  pInfo->LengthErstStoreRegionErrorRecordArea = pInfo->LengthErstStoreRegion - sizeof (ERST_STORE_HEADER);
  VornApeiLoggingErstResetStoreInformation ();
  return EFI_SUCCESS;
}
