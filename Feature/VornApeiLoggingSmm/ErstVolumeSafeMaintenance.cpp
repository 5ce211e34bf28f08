/** @file
  Clear-all and defragmentation that survive a power cut at any point. As
  specified both erase the volume from its first byte, headers included,
  and defragmentation holds the kept records only in memory until it has
  written them back: a cut loses them all, and a cut before the headers are
  back leaves no volume at all. With the switch the new contents of the
  volume are built in memory and rewritten through the spare area, and a
  factory-fresh store, erased already, gets its store header without any
  erase. Without a usable spare area nothing is erased: the store is kept
  as it is.
**/
#include "VornApeiLoggingSmm.h"
#include "ErstRecordScan.h"
#include "ErstStoreMaintenance.h"

#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/PcdLib.h>
#include <Library/UefiBootServicesTableLib.h>

//
// Flash is checked for erased bytes through this buffer, and a fresh store
// header is programmed from the other; the flash routines log their
// addresses.
//
MODULE_DATA UINT8             mErstSafeChunk[0x1000];
MODULE_DATA ERST_STORE_HEADER mErstSafeStoreHeader;

/**
  TRUE when Length bytes of flash from Address all read 0xFF.
**/
STATIC
BOOLEAN
VornApeiLoggingErstFlashErased (IN UINTN DebugLevel, IN UINT64 Address, IN UINT64 Length) {
  UINT64 Offset;
  UINTN  Chunk;
  UINTN  Index;

  for (Offset = 0; Offset < Length; Offset += Chunk) {
    Chunk = (UINTN)((Length - Offset < sizeof (mErstSafeChunk)) ? Length - Offset : sizeof (mErstSafeChunk));
    if (EFI_ERROR (VornApeiLoggingReadDataViaSpi (DebugLevel, Address + Offset, Chunk, mErstSafeChunk))) {
      return FALSE;
    }

    for (Index = 0; Index < Chunk; Index++) {
      if (mErstSafeChunk[Index] != 0xFF) {
        return FALSE;
      }
    }
  }

  return TRUE;
}

/**
  A fresh store header, as clear-all lays it down.
**/
STATIC
VOID VornApeiLoggingErstFreshStoreHeader (OUT ERST_STORE_HEADER *pStoreHeader) {
  pStoreHeader->Signature = ERST_STORE_HEADER_SIGNATURE;
  pStoreHeader->Revision  = ERST_STORE_HEADER_LATEST_REVISION;
  pStoreHeader->StoreLengthAvailable =
      (UINT32)mPrivateDataVornApeiLogging.pErstSpiStoreInformation->LengthErstStoreRegion;
}

/**
  Boot-services pages holding Length bytes of erased flash, for a new
  volume image.
**/
STATIC
UINT8 *VornApeiLoggingErstImageBuffer (IN CONST CHAR8 *pCallerName, IN UINT64 Length) {
  EFI_PHYSICAL_ADDRESS Buffer;

  if (EFI_ERROR (
          gBS->AllocatePages (AllocateAnyPages, EfiBootServicesData, EFI_SIZE_TO_PAGES ((UINTN)Length), &Buffer))) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR no memory for a 0x%016lx-byte volume image, store kept as it is\n", pCallerName,
            Length));
    return NULL;
  }

  SetMem ((VOID *)(UINTN)Buffer, (UINTN)Length, 0xFF);
  return (UINT8 *)(UINTN)Buffer;
}

/**
  The image of the volume's start: everything before the store header as it
  is on flash (volume header, block map, extended header with any entries),
  then a fresh store header. Returns the bytes filled.
**/
STATIC
EFI_STATUS
VornApeiLoggingErstImageHeaders (IN UINTN DebugLevel, IN OUT UINT8 *pImage, OUT UINT64 *pLength) {
  ERST_SPI_STORE_INFORMATION *pInfo;
  UINT64                      HeadersLength;
  EFI_STATUS                  Status;

  pInfo         = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  HeadersLength = pInfo->SpiAddressStartErstStoreHeader - pInfo->SpiAddressFvBlockHeader;
  Status = VornApeiLoggingReadDataViaSpi (DebugLevel, pInfo->SpiAddressFvBlockHeader, (UINTN)HeadersLength, pImage);
  VornApeiLoggingErstFreshStoreHeader (&mErstSafeStoreHeader);
  CopyMem (pImage + HeadersLength, &mErstSafeStoreHeader, sizeof (mErstSafeStoreHeader));
  *pLength = HeadersLength + sizeof (ERST_STORE_HEADER);
  return Status;
}

/**
  The store summary and the parameter region for the store just laid down:
  Count records, the last at LastRecord, the next one going to Next.
**/
STATIC
VOID VornApeiLoggingErstDescribeRewrittenStore (IN UINT32 Count,
                                                IN UINT64 LastRecord,
                                                IN UINT64 Next,
                                                IN UINT64 FirstId) {
  ERST_SPI_STORE_INFORMATION *pInfo;

  pInfo                                       = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  pInfo->SpiAddressStartErstErrorRecordRegion = pInfo->SpiAddressStartErstStoreHeader + sizeof (ERST_STORE_HEADER);
  pInfo->LengthErstStoreRegionErrorRecordArea = pInfo->LengthErstStoreRegion - sizeof (ERST_STORE_HEADER);
  VornApeiLoggingErstResetStoreInformation ();
  pInfo->SpiAddressLastValidRecord       = LastRecord;
  pInfo->SpiAddressStartAvailableStorage = Next;
  pInfo->LengthErstStoreRegionErrorRecordAreaAvailable =
      pInfo->SpiAddressStartErstErrorRecordRegion + pInfo->LengthErstStoreRegionErrorRecordArea - Next;
  pInfo->TotalNumberOfErstRecords                              = Count;
  mPrivateDataVornApeiLogging.pErstParameterBlock->RecordCount = Count;
  mPrivateDataVornApeiLogging.pErstParameterBlock->CurRecordID = FirstId;
}

/**
  Lays down an empty store. A store whose region is erased already (a
  factory-fresh part) only lacks its store header; anything else is erased
  through the spare area, or kept when there is none. While a rewrite is
  unfinished the volume is only a partial copy of the spare's image: it is
  kept too.
**/
EFI_STATUS
VornApeiLoggingErstSafeClearEntirePStore (IN UINTN DebugLevel) {
  ERST_SPI_STORE_INFORMATION *pInfo;
  EFI_STATUS                  Status;
  UINT8                      *pImage;
  UINT64                      ImageLength;

  pInfo = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  if (!VornApeiLoggingErstRewriteUnfinished () &&
      VornApeiLoggingErstFlashErased (DebugLevel, pInfo->SpiAddressStartErstStoreHeader,
                                      pInfo->SpiAddressFvBlockHeader + pInfo->LengthTotalFv -
                                          pInfo->SpiAddressStartErstStoreHeader)) {
    DEBUG ((DebugLevel, "%a: Store region erased, writing the store header @ 0x%016lx only\n", __func__,
            pInfo->SpiAddressStartErstStoreHeader));
    VornApeiLoggingErstFreshStoreHeader (&mErstSafeStoreHeader);
    Status = VornApeiLoggingWriteDataViaSpi (DebugLevel, pInfo->SpiAddressStartErstStoreHeader,
                                             sizeof (mErstSafeStoreHeader), &mErstSafeStoreHeader);
  } else if (!VornApeiLoggingErstSpareUsable (pInfo->LengthTotalFv)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR no usable spare area to clear the store through, store kept as it is\n", __func__));
    return EFI_UNSUPPORTED;
  } else {
    pImage = VornApeiLoggingErstImageBuffer (__func__, pInfo->LengthTotalFv);
    if (pImage == NULL) {
      return EFI_OUT_OF_RESOURCES;
    }

    Status = VornApeiLoggingErstImageHeaders (DebugLevel, pImage, &ImageLength);
    if (!EFI_ERROR (Status)) {
      Status = VornApeiLoggingErstRewriteVolume (DebugLevel, pImage, ImageLength, pInfo->LengthTotalFv);
    }

    gBS->FreePages ((EFI_PHYSICAL_ADDRESS)(UINTN)pImage, EFI_SIZE_TO_PAGES ((UINTN)pInfo->LengthTotalFv));
  }

  if (!EFI_ERROR (Status)) {
    VornApeiLoggingErstDescribeRewrittenStore (
        0, MAX_UINT64, pInfo->SpiAddressStartErstStoreHeader + sizeof (ERST_STORE_HEADER), MAX_UINT64);
  }

  return Status;
}

/**
  Appends the record the scan stands on to the image at *pNext, linked to
  *pLast, with fresh flags; FALSE when it does not fit the image.
**/
STATIC
BOOLEAN
VornApeiLoggingErstImageRecord (IN UINTN                   DebugLevel,
                                IN CONST ERST_RECORD_SCAN *pScan,
                                IN OUT UINT8              *pImage,
                                IN UINT64                  ImageEnd,
                                IN OUT UINT64             *pNext,
                                IN OUT UINT64             *pLast) {
  ERST_SPI_STORE_INFORMATION  *pInfo;
  ERST_RECORD_HEADER_AND_FLAGS Record;
  UINT8                       *pPlace;
  UINT64                       Length;

  pInfo  = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  Length = pScan->pData->Header.OsRecordLength;
  if (Length > ImageEnd - *pNext - ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH) {
    return FALSE;
  }

  //
  // Records lie at any byte in the image: the header is built aside.
  //
  pPlace = pImage + (*pNext - pInfo->SpiAddressFvBlockHeader);
  SetMem (&Record, sizeof (Record), 0xFF);
  CopyMem (&Record.Header, &pScan->pData->Header, sizeof (Record.Header));
  Record.Header.OsRecordFlagsAddress    = *pNext + sizeof (ERST_ERROR_RECORD_HEADER);
  Record.Header.OsRecordAddress         = *pNext + ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH;
  Record.Header.PrevRecordHeaderAddress = *pLast;
  Record.Header.NextRecordHeaderAddress = Record.Header.OsRecordAddress + Length;
  Record.Flags.Revision                 = ERST_ERROR_RECORD_FLAGS_LATEST_REVISION;
  CopyMem (pPlace, &Record, ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH);
  if (EFI_ERROR (VornApeiLoggingReadDataViaSpi (DebugLevel, pScan->pData->Header.OsRecordAddress, (UINTN)Length,
                                                pPlace + ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH))) {
    return FALSE;
  }

  *pLast = *pNext;
  *pNext = Record.Header.NextRecordHeaderAddress;
  return TRUE;
}

/**
  Rebuilds the store without its cleared records: the kept records are laid
  out afresh in a volume image, in their stored order, and the image is
  rewritten through the spare area over the used part of the volume. Without
  a usable spare area, or when the chain cannot be copied, the store is kept
  as it is and start-up goes on with it.
**/
EFI_STATUS
VornApeiLoggingErstSafeDefragment (IN UINTN DebugLevel) {
  ERST_SPI_STORE_INFORMATION *pInfo;
  ERST_RECORD_SCAN            Scan;
  EFI_STATUS                  Status;
  UINT8                      *pImage;
  UINT64                      TargetLength;
  UINT64                      Next;
  UINT64                      Last;
  UINT64                      FirstId;
  UINT32                      Kept;

  pInfo = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  if (pInfo->ClearEntireStoreRegion) {
    return VornApeiLoggingErstSafeClearEntirePStore (DebugLevel);
  }

  TargetLength = VornApeiLoggingErstUsedEnd () - pInfo->SpiAddressFvBlockHeader;
  TargetLength =
      (TargetLength + pInfo->LengthErstBlockSize - 1) / pInfo->LengthErstBlockSize * pInfo->LengthErstBlockSize;
  if (!VornApeiLoggingErstSpareUsable (TargetLength)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR no usable spare area for 0x%016lx bytes, store kept as it is\n", __func__,
            TargetLength));
    return EFI_SUCCESS;
  }

  pImage = VornApeiLoggingErstImageBuffer (__func__, TargetLength);
  if (pImage == NULL) {
    return EFI_SUCCESS;
  }

  Status = VornApeiLoggingErstImageHeaders (DebugLevel, pImage, &Next);
  Next += pInfo->SpiAddressFvBlockHeader;
  Last    = MAX_UINT64;
  FirstId = MAX_UINT64;
  Kept    = 0;
  VornApeiLoggingErstScanBegin (&Scan);
  while (!EFI_ERROR (Status)) {
    Status = VornApeiLoggingErstScanRead (__func__, DebugLevel, &Scan);
    if (EFI_ERROR (Status) || !VornApeiLoggingErstScanHoldsRecord (&Scan)) {
      break;
    }

    if ((Scan.pData->Flags.RecordClearPerOspm != ERST_RECORD_CLEAR_FLAG_VALUE) &&
        (Scan.pData->Flags.RecordClearPerBios != ERST_RECORD_CLEAR_FLAG_VALUE)) {
      if (!VornApeiLoggingErstImageRecord (DebugLevel, &Scan, pImage, pInfo->SpiAddressFvBlockHeader + TargetLength,
                                           &Next, &Last)) {
        DEBUG (
            (DEBUG_ERROR, "%a: ERROR Record %d cannot be copied, store kept as it is\n", __func__, Scan.RecordIndex));
        Status = EFI_COMPROMISED_DATA;
        break;
      }

      FirstId = (Kept == 0) ? Scan.pData->Header.OsRecordID : FirstId;
      Kept++;
    }

    if (!VornApeiLoggingErstScanAdvance (&Scan)) {
      break;
    }
  }

  DEBUG ((DebugLevel, "%a: %d records kept of %d, rewriting the volume\n", __func__, Kept,
          pInfo->TotalNumberOfErstRecords));
  if (!EFI_ERROR (Status)) {
    Status = VornApeiLoggingErstRewriteVolume (DebugLevel, pImage, Next - pInfo->SpiAddressFvBlockHeader, TargetLength);
    if (!EFI_ERROR (Status)) {
      VornApeiLoggingErstDescribeRewrittenStore (Kept, Last, Next, FirstId);
    } else {
      //
      // The spare holds the new contents and the next start-up puts them in
      // place; until then nothing may be appended to the old ones.
      //
      pInfo->LengthErstStoreRegionErrorRecordAreaAvailable = 0;
    }
  }

  gBS->FreePages ((EFI_PHYSICAL_ADDRESS)(UINTN)pImage, EFI_SIZE_TO_PAGES ((UINTN)TargetLength));
  return EFI_SUCCESS;
}
