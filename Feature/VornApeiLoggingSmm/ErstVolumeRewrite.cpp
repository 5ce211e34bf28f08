/** @file
  Rewriting the error-log volume so that a power cut at any point loses
  nothing: the new contents go to a spare area outside the volume first,
  with a journal whose states only clear bits; only once the spare holds
  them whole is the volume erased and programmed, and a rewrite that a cut
  stopped after that point is finished from the spare at the next start-up.
  The spare area is the platform's (PcdVornErstSpareBase and
  PcdVornErstSpareSize) and is not a firmware volume.
**/
#include "VornApeiLoggingSmm.h"
#include "ErstStoreMaintenance.h"

#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/PcdLib.h>
#include <Library/UefiBootServicesTableLib.h>

//
// The journal as read or about to be programmed, and the byte a state is
// programmed with; the flash routines log their addresses.
//
MODULE_DATA ERST_SPARE_JOURNAL mErstSpareJournal;
MODULE_DATA UINT8              mErstSpareState;

//
// What this start-up found in the spare area: nothing to finish, a rewrite
// it finished (of the volume the journal names), or one it could not finish.
//
typedef enum { ErstSpareIdle, ErstSpareRecovered, ErstSpareUnfinished } ERST_SPARE_OUTCOME;

MODULE_DATA UINT8 mErstSpareOutcome;

/**
  TRUE when the platform's spare area is whole blocks, lies outside the
  volume, and holds the journal block and TargetLength bytes of image.
**/
BOOLEAN
VornApeiLoggingErstSpareUsable (IN UINT64 TargetLength) {
  ERST_SPI_STORE_INFORMATION *pInfo;
  UINT64                      Base;
  UINT64                      Size;
  UINT64                      Block;

  pInfo = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  Base  = PcdGet64 (PcdVornErstSpareBase);
  Size  = PcdGet32 (PcdVornErstSpareSize);
  Block = pInfo->LengthErstBlockSize;
  return (mErstSpareOutcome != ErstSpareUnfinished) && (Block != 0) && (Size != 0) && ((Base % Block) == 0) &&
         ((Size % Block) == 0) && (Size - Block >= TargetLength) &&
         ((Base + Size <= pInfo->SpiAddressFvBlockHeader) ||
          (Base >= pInfo->SpiAddressFvBlockHeader + pInfo->LengthTotalFv));
}

/**
  Programs one journal state.
**/
STATIC
EFI_STATUS
VornApeiLoggingErstSetSpareState (IN UINTN DebugLevel, IN UINTN StateOffset) {
  mErstSpareState = ERST_SPARE_STATE_SET;
  return VornApeiLoggingWriteDataViaSpi (DebugLevel, PcdGet64 (PcdVornErstSpareBase) + StateOffset,
                                         sizeof (mErstSpareState), &mErstSpareState);
}

/**
  The last step of a rewrite: the volume's blocks erased, the image
  programmed, and the journal told.
**/
STATIC
EFI_STATUS
VornApeiLoggingErstCopyImageToVolume (IN UINTN DebugLevel, IN UINT8 *pImage) {
  EFI_STATUS Status;

  DEBUG ((DebugLevel, "%a: Rewrite SPI flash @ 0x%016lx Length 0x%016lx with 0x%016lx bytes of image\n", __func__,
          mErstSpareJournal.TargetAddress, mErstSpareJournal.TargetLength, mErstSpareJournal.ImageLength));
  Status = VornApeiLoggingEraseDataViaSpi (DebugLevel, mErstSpareJournal.TargetAddress,
                                           (UINTN)mErstSpareJournal.TargetLength);
  if (!EFI_ERROR (Status)) {
    Status = VornApeiLoggingWriteDataViaSpi (DebugLevel, mErstSpareJournal.TargetAddress,
                                             (UINTN)mErstSpareJournal.ImageLength, pImage);
  }

  if (!EFI_ERROR (Status)) {
    Status = VornApeiLoggingErstSetSpareState (DebugLevel, OFFSET_OF (ERST_SPARE_JOURNAL, TargetDone));
  }

  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r rewriting SPI flash @ 0x%016lx, the spare area keeps the image\n", __func__,
            Status, mErstSpareJournal.TargetAddress));
  }

  return Status;
}

/**
  Replaces the first TargetLength bytes of the volume (whole blocks) with
  the ImageLength bytes at pImage and erased flash, through the spare area.
  A cut before the journal's ImageValid leaves the volume as it was; one
  after it is finished at the next start-up.
**/
EFI_STATUS
VornApeiLoggingErstRewriteVolume (IN UINTN  DebugLevel,
                                  IN UINT8 *pImage,
                                  IN UINT64 ImageLength,
                                  IN UINT64 TargetLength) {
  ERST_SPI_STORE_INFORMATION *pInfo;
  EFI_STATUS                  Status;
  UINT64                      Spare;
  UINT64                      Block;

  pInfo = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  Spare = PcdGet64 (PcdVornErstSpareBase);
  Block = pInfo->LengthErstBlockSize;
  DEBUG ((DebugLevel, "%a: Rewrite 0x%016lx bytes @ 0x%016lx through the spare area @ 0x%016lx\n", __func__,
          TargetLength, pInfo->SpiAddressFvBlockHeader, Spare));
  Status = VornApeiLoggingEraseDataViaSpi (DebugLevel, Spare, (UINTN)(Block + TargetLength));
  if (!EFI_ERROR (Status)) {
    Status = VornApeiLoggingWriteDataViaSpi (DebugLevel, Spare + Block, (UINTN)ImageLength, pImage);
  }

  if (!EFI_ERROR (Status)) {
    SetMem (&mErstSpareJournal, sizeof (mErstSpareJournal), 0xFF);
    mErstSpareJournal.Signature     = ERST_SPARE_JOURNAL_SIGNATURE;
    mErstSpareJournal.TargetAddress = pInfo->SpiAddressFvBlockHeader;
    mErstSpareJournal.TargetLength  = TargetLength;
    mErstSpareJournal.ImageLength   = ImageLength;
    mErstSpareJournal.BlockSize     = Block;
    Status = VornApeiLoggingWriteDataViaSpi (DebugLevel, Spare, OFFSET_OF (ERST_SPARE_JOURNAL, ImageValid),
                                             &mErstSpareJournal);
  }

  if (!EFI_ERROR (Status)) {
    Status = VornApeiLoggingErstSetSpareState (DebugLevel, OFFSET_OF (ERST_SPARE_JOURNAL, ImageValid));
  }

  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r preparing the spare area, volume left as it was\n", __func__, Status));
    return Status;
  }

  return VornApeiLoggingErstCopyImageToVolume (DebugLevel, pImage);
}

/**
  Finishes a rewrite that a power cut stopped once the spare held its image:
  the image is read back from the spare and copied over the volume again.
  A rewrite that cannot be finished now (or a journal that cannot be read)
  leaves the spare area as the only whole copy: it is kept for a later
  start-up, and nothing may be appended to the volume meanwhile, since that
  start-up overwrites it.
**/
VOID VornApeiLoggingErstRecoverVolume (IN UINTN DebugLevel) {
  UINT64               Spare;
  EFI_PHYSICAL_ADDRESS Buffer;
  UINTN                Pages;
  EFI_STATUS           Status;

  Spare = PcdGet64 (PcdVornErstSpareBase);
  if (PcdGet32 (PcdVornErstSpareSize) < sizeof (mErstSpareJournal)) {
    return;
  }

  Status = VornApeiLoggingReadDataViaSpi (DebugLevel, Spare, sizeof (mErstSpareJournal), &mErstSpareJournal);
  if (!EFI_ERROR (Status) && ((mErstSpareJournal.Signature != ERST_SPARE_JOURNAL_SIGNATURE) ||
                              (mErstSpareJournal.ImageValid != ERST_SPARE_STATE_SET) ||
                              (mErstSpareJournal.TargetDone == ERST_SPARE_STATE_SET) ||
                              (mErstSpareJournal.ImageLength > mErstSpareJournal.TargetLength))) {
    return;
  }

  mErstSpareOutcome = ErstSpareUnfinished;
  if (EFI_ERROR (Status)) {
    DEBUG (
        (DEBUG_ERROR, "%a: ERROR %r reading the spare area's journal, the store stays read-only\n", __func__, Status));
    return;
  }

  DEBUG ((DebugLevel, "%a: A rewrite of SPI flash @ 0x%016lx was cut short, finishing it from the spare area\n",
          __func__, mErstSpareJournal.TargetAddress));
  Pages  = EFI_SIZE_TO_PAGES ((UINTN)mErstSpareJournal.ImageLength);
  Status = gBS->AllocatePages (AllocateAnyPages, EfiBootServicesData, Pages, &Buffer);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r allocating %d pages for the spare image, the store stays read-only\n", __func__,
            Status, (UINT32)Pages));
    return;
  }

  //
  // The erase routine checks alignment against the store's block size,
  // which discovery has not read yet.
  //
  mPrivateDataVornApeiLogging.pErstSpiStoreInformation->LengthErstBlockSize = mErstSpareJournal.BlockSize;
  Status = VornApeiLoggingReadDataViaSpi (DebugLevel, Spare + mErstSpareJournal.BlockSize,
                                          (UINTN)mErstSpareJournal.ImageLength, (VOID *)(UINTN)Buffer);
  if (!EFI_ERROR (Status)) {
    Status = VornApeiLoggingErstCopyImageToVolume (DebugLevel, (UINT8 *)(UINTN)Buffer);
  }

  mErstSpareOutcome = EFI_ERROR (Status) ? ErstSpareUnfinished : ErstSpareRecovered;
  gBS->FreePages (Buffer, Pages);
}

/**
  TRUE when this start-up left a rewrite unfinished: the store then takes
  no writes and no maintenance until a later start-up finishes it.
**/
BOOLEAN
VornApeiLoggingErstRewriteUnfinished (VOID) {
  return mErstSpareOutcome == ErstSpareUnfinished;
}

/**
  TRUE, with its address and block size, when this start-up finished a
  rewrite of the volume from the spare area.
**/
BOOLEAN
VornApeiLoggingErstRecoveredVolume (OUT UINT64 *pVolumeAddress, OUT UINTN *pBlockSize) {
  *pVolumeAddress = mErstSpareJournal.TargetAddress;
  *pBlockSize     = (UINTN)mErstSpareJournal.BlockSize;
  return mErstSpareOutcome == ErstSpareRecovered;
}
