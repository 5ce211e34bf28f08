/** @file
  ERST store discovery: finds the error-log firmware volume, derives the
  store geometry and validates the whole record chain once per boot.
**/
#include <Guid/WheaElogFv.h>
#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/ElogStoreDump.h>
#include <Library/PcdLib.h>
#include <Library/SmmServicesTableLib.h>
#include <Library/UefiBootServicesTableLib.h>
#include <Protocol/SmmFirmwareVolumeBlock.h>

#include "ErstRecordIndex.h"
#include "ErstStoreMaintenance.h"
#include "ErstStoreScanBuffers.h"
#include "VornApeiLoggingSmm.h"

MODULE_DATA EFI_FIRMWARE_VOLUME_HEADER     mErstDiscoveryFvHeader;
MODULE_DATA EFI_FIRMWARE_VOLUME_EXT_HEADER mErstDiscoveryFvExtHeader;
MODULE_DATA ERST_STORE_HEADER              mErstDiscoveryStoreHeader;
MODULE_DATA ERST_RECORD_HEADER_AND_FLAGS   mErstDiscoveryRecordData;

/**
  Flags the store for erasure and re-initialisation by the caller.
**/
static EFI_STATUS VornApeiLoggingErstStoreCorrupted (VOID) {
  mPrivateDataVornApeiLogging.pErstSpiStoreInformation->ClearEntireStoreRegion = TRUE;
  return EFI_VOLUME_CORRUPTED;
}

/**
  Checks one record's header and flags, in the order the chain is trusted;
  a failing record marks the store for clearing.
**/
static EFI_STATUS VornApeiLoggingErstValidateRecord (IN CONST CHAR8 *pCaller,
                                                     IN UINT32       RecordIndex,
                                                     IN UINT64       RecordAddress,
                                                     IN UINT64       LastRecordAddress) {
  UINT64                    Level;
  ERST_ERROR_RECORD_HEADER *pHeader;

  Level   = mPrivateDataVornApeiLogging.SerDbgLevelConstructor;
  pHeader = &mErstDiscoveryRecordData.Header;
  if (pHeader->Signature != ERST_ERROR_RECORD_HEADER_SIGNATURE) {
    DEBUG ((
        Level,
        "%a: Record %d => ERST Error Record Header -> Signature 0x%016lx != SIGNATURE_64('E','R','S','T',' ','E','R','R')\n",
        pCaller, RecordIndex, pHeader->Signature));
    DEBUG ((Level, "%a: Record %d => PStore data corrupted, set flag to clear pstore\n", pCaller, RecordIndex));
    return VornApeiLoggingErstStoreCorrupted ();
  }

  if (pHeader->Revision != ERST_ERROR_RECORD_HEADER_LATEST_REVISION) {
    DEBUG ((
        Level,
        "%a: Record %d => ERST Error Record Header -> Revision 0x%08x != Latest Revision 0x%08x, set flag to clear pstore\n",
        pCaller, RecordIndex, pHeader->Revision, ERST_ERROR_RECORD_HEADER_LATEST_REVISION));
    return VornApeiLoggingErstStoreCorrupted ();
  }

  if ((pHeader->OsRecordFlagsAddress == 0) || (pHeader->OsRecordFlagsAddress == MAX_UINT64)) {
    DEBUG ((Level, "%a: Record %d =>ERST Error Record Flags Address 0x%016lx not valid, set flag to clear pstore\n",
            pCaller, RecordIndex, pHeader->OsRecordFlagsAddress));
    return VornApeiLoggingErstStoreCorrupted ();
  }

  if (pHeader->PrevRecordHeaderAddress != LastRecordAddress) {
    DEBUG ((
        Level,
        "%a: Record %d => ERST Error Record Previous Record Address 0x%016lx != Last Record Address 0x%016lx, set flag to clear pstore\n",
        pCaller, RecordIndex, pHeader->PrevRecordHeaderAddress, LastRecordAddress));
    return VornApeiLoggingErstStoreCorrupted ();
  }

  if ((pHeader->OsRecordAddress == 0) || (pHeader->OsRecordAddress == MAX_UINT64)) {
    DEBUG ((Level,
            "%a: Record %d => ERST Error Record OS Record Address 0x%016lx not valid, set flag to clear pstore\n",
            pCaller, RecordIndex, pHeader->OsRecordAddress));
    return VornApeiLoggingErstStoreCorrupted ();
  }

  if ((pHeader->OsRecordLength == 0) || (pHeader->OsRecordLength == MAX_UINT32)) {
    DEBUG ((Level, "%a: Record %d => ERST Error Record OS Record Length 0x%08x not valid, set flag to clear pstore\n",
            pCaller, RecordIndex, pHeader->OsRecordLength));
    return VornApeiLoggingErstStoreCorrupted ();
  }

  DEBUG_CODE_BEGIN ();
  DEBUG ((Level, "%a: Record %d => Display ERST Error Record Flags @ 0x%016lx Length 0x%016lx\n", pCaller, RecordIndex,
          RecordAddress + sizeof (ERST_ERROR_RECORD_HEADER), (UINT64)sizeof (ERST_ERROR_RECORD_FLAGS)));
  PrintRawData ((UINT8 *)&mErstDiscoveryRecordData.Flags, sizeof (ERST_ERROR_RECORD_FLAGS), Level);
  DisplayErstErrorRecordFlags (&mErstDiscoveryRecordData.Flags, Level);
  DEBUG_CODE_END ();

  //
  // A write cut short after its header leaves the flags revision erased.
  //
  if (mErstDiscoveryRecordData.Flags.Revision != ERST_ERROR_RECORD_FLAGS_LATEST_REVISION) {
    DEBUG ((
        Level,
        "%a: Record %d => ERST Error Record Flags -> Revision 0x%08x != Latest Revision 0x%08x, set flag to clear pstore\n",
        pCaller, RecordIndex, mErstDiscoveryRecordData.Flags.Revision, ERST_ERROR_RECORD_FLAGS_LATEST_REVISION));
    return VornApeiLoggingErstStoreCorrupted ();
  }

  return EFI_SUCCESS;
}

/**
  Counts an accepted record, its clear marks, and primes the parameter
  region's record count and first identifier.
**/
static VOID VornApeiLoggingErstCountRecord (IN CONST CHAR8 *pCaller, IN UINT32 RecordIndex) {
  UINT64                      Level;
  ERST_SPI_STORE_INFORMATION *pInfo;
  VORN_ERST_PARAMETER_REGION *pParameters;
  ERST_ERROR_RECORD_FLAGS    *pFlags;

  Level       = mPrivateDataVornApeiLogging.SerDbgLevelConstructor;
  pInfo       = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  pParameters = mPrivateDataVornApeiLogging.pErstParameterBlock;
  pFlags      = &mErstDiscoveryRecordData.Flags;

  DEBUG ((Level, "%a: Record %d => pErstErrorRecordFlags->RecordClearPerOspm = 0x%02x\n", pCaller, RecordIndex,
          pFlags->RecordClearPerOspm));
  DEBUG ((Level, "%a: Record %d => pErstErrorRecordFlags->RecordClearPerBios = 0x%02x\n", pCaller, RecordIndex,
          pFlags->RecordClearPerBios));
  if (pFlags->RecordClearPerOspm == ERST_RECORD_CLEAR_FLAG_VALUE) {
    pInfo->TotalNumberOfErstRecordsWithClearFlagOspm++;
    DEBUG ((Level,
            "%a: Record %d => Incremented pErstSpiStoreInformation->TotalNumberOfErstRecordsWithClearFlagOspm -> %d\n",
            pCaller, RecordIndex, pInfo->TotalNumberOfErstRecordsWithClearFlagOspm));
  }

  if (pFlags->RecordClearPerBios == ERST_RECORD_CLEAR_FLAG_VALUE) {
    pInfo->TotalNumberOfErstRecordsWithClearFlagBios++;
    DEBUG ((Level,
            "%a: Record %d => Incremented pErstSpiStoreInformation->TotalNumberOfErstRecordsWithClearFlagBios -> %d\n",
            pCaller, RecordIndex, pInfo->TotalNumberOfErstRecordsWithClearFlagBios));
  }

  pParameters->RecordCount++;
  if (pParameters->CurRecordID == MAX_UINT64) {
    pParameters->CurRecordID = mErstDiscoveryRecordData.Header.OsRecordID;
  }
}

/**
  Takes the space the records found occupy off the free length, so that
  writes after a reboot stop at the end of the volume.
**/
static VOID VornApeiLoggingErstAccountUsedSpace (IN CONST CHAR8 *pCaller) {
  ERST_SPI_STORE_INFORMATION *pInfo;
  UINT64                      RegionEnd;

  pInfo     = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  RegionEnd = pInfo->SpiAddressStartErstErrorRecordRegion + pInfo->LengthErstStoreRegionErrorRecordArea;
  pInfo->LengthErstStoreRegionErrorRecordAreaAvailable =
      (pInfo->SpiAddressStartAvailableStorage < RegionEnd) ? RegionEnd - pInfo->SpiAddressStartAvailableStorage : 0;
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor, "%a: 0x%016lx bytes free after the stored records\n",
          pCaller, pInfo->LengthErstStoreRegionErrorRecordAreaAvailable));
}

/**
  Reads the store header of the volume described by the store information
  and walks the record chain, validating and counting every record.
**/
static EFI_STATUS VornApeiLoggingErstScanStore (IN CONST CHAR8 *pCaller) {
  EFI_STATUS                  Status;
  UINT64                      Level;
  ERST_SPI_STORE_INFORMATION *pInfo;
  UINT32                      RecordIndex;
  UINT64                      RecordAddress;
  UINT64                      LastRecordAddress;
  UINT64                      RegionEnd;
  UINT32                      RecordCount;
  UINT32                      UsedBytes;
  ERST_ERROR_RECORD_HEADER   *pHeader;

  Level = mPrivateDataVornApeiLogging.SerDbgLevelConstructor;
  pInfo = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;

  DEBUG ((
      Level,
      "%a: Reading SPI flash ERST Store header @ PhyAddress 0x%016lx Length 0x%016lx bytes => local var ErstStoreHeader @ 0x%016lx\n",
      pCaller, pInfo->SpiAddressStartErstStoreHeader, (UINT64)sizeof (ERST_STORE_HEADER),
      (UINT64)(UINTN)&mErstDiscoveryStoreHeader));
  Status = VornApeiLoggingReadDataViaSpi (Level, pInfo->SpiAddressStartErstStoreHeader, sizeof (ERST_STORE_HEADER),
                                          &mErstDiscoveryStoreHeader);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR,
            "%a: ERROR %r from VornApeiLoggingReadDataViaSpi searching for ERST Store Header, aborting...\n", pCaller,
            Status));
    return Status;
  }

  DEBUG ((Level, "%a: Display ERST PStore Header data\n", pCaller));
  PrintRawData ((UINT8 *)&mErstDiscoveryStoreHeader, sizeof (ERST_STORE_HEADER), Level);
  DisplayErstStoreHeader (&mErstDiscoveryStoreHeader, Level);

  if (mErstDiscoveryStoreHeader.Signature != ERST_STORE_HEADER_SIGNATURE) {
    DEBUG ((Level, "%a: ERST Store Header Signature not found, initialize ERST Store Header\n", pCaller));
    return VornApeiLoggingErstStoreCorrupted ();
  }

  if (mErstDiscoveryStoreHeader.Revision != ERST_STORE_HEADER_LATEST_REVISION) {
    DEBUG ((Level,
            "%a: ERST PStore Record Header -> Revision 0x%08x != Latest Revision 0x%08x, set flag to clear pstore\n",
            pCaller, mErstDiscoveryStoreHeader.Revision, ERST_STORE_HEADER_LATEST_REVISION));
    return VornApeiLoggingErstStoreCorrupted ();
  }

  RecordIndex       = 0;
  RecordAddress     = pInfo->SpiAddressStartErstErrorRecordRegion;
  LastRecordAddress = MAX_UINT64;
  RegionEnd         = pInfo->SpiAddressStartErstErrorRecordRegion + pInfo->LengthErstStoreRegionErrorRecordArea - 1;
  RecordCount       = 0;
  UsedBytes         = 0;
  pHeader           = &mErstDiscoveryRecordData.Header;
  DEBUG ((Level, "%a: Scan existing error records\n", pCaller));
  for (;;) {
    DEBUG ((Level, "%a: Record %d => LastValidRecordAddress @ 0x%016lx\n", pCaller, RecordIndex, LastRecordAddress));
    DEBUG ((
        Level,
        "%a: Record %d => Reading SPI flash ERST error record header & flags @ PhyAddress 0x%016lx Length 0x%016lx bytes => local var ErstErrorRecordHeaderAndFlagsData @ 0x%016lx\n",
        pCaller, RecordIndex, RecordAddress, (UINT64)ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH,
        (UINT64)(UINTN)&mErstDiscoveryRecordData));
    ZeroMem (&mErstDiscoveryRecordData, ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH);
    Status = VornApeiLoggingReadDataViaSpi (Level, RecordAddress, ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH,
                                            &mErstDiscoveryRecordData);
    if (EFI_ERROR (Status)) {
      DEBUG ((
          DEBUG_ERROR,
          "%a: ERROR %r from VornApeiLoggingReadDataViaSpi reading Record %d ErstErrorRecordHeaderAddress 0x%016lx RegionLength 0x%016lx, aborting...\n",
          pCaller, Status, RecordIndex, RecordAddress, pInfo->LengthErstStoreRegionErrorRecordArea));
      return Status;
    }

    DEBUG_CODE_BEGIN ();
    DEBUG ((Level, "%a: Record %d => Display ERST Error Record Header @ 0x%016lx Length 0x%016lx\n", pCaller,
            RecordIndex, RecordAddress, (UINT64)sizeof (ERST_ERROR_RECORD_HEADER)));
    PrintRawData ((UINT8 *)pHeader, sizeof (ERST_ERROR_RECORD_HEADER), Level);
    DisplayErstRecordHeader (pHeader, Level);
    DEBUG_CODE_END ();

    if (pHeader->Signature == MAX_UINT64) {
      DEBUG ((
          Level,
          "%a: Record %d => ERST Error Record Header -> Signature 0x%016lx == 0xFF data (record not valid/end of pstore data), exiting error record scan\n",
          pCaller, RecordIndex, pHeader->Signature));
      break;
    }

    //
    // As specified any damaged record has the whole store erased. With the
    // switch a torn record is dropped, or ends the store, and the records
    // before it stay; the torn tail counts as an obsolete record, so that
    // start-up compacts it away.
    //
    if (!FeaturePcdGet (PcdVornFixTornTail)) {
      Status = VornApeiLoggingErstValidateRecord (pCaller, RecordIndex, RecordAddress, LastRecordAddress);
      if (EFI_ERROR (Status)) {
        return Status;
      }
    } else if (VornApeiLoggingErstCheckTornRecord (pCaller, RecordIndex, RecordAddress, LastRecordAddress,
                                                   &mErstDiscoveryRecordData) == ErstTornTailCut) {
      pInfo->TotalNumberOfErstRecordsWithClearFlagBios++;
      break;
    }

    VornApeiLoggingErstCountRecord (pCaller, RecordIndex);
    VornApeiLoggingErstIndexAdd (RecordAddress, &mErstDiscoveryRecordData);
    UsedBytes += pHeader->OsRecordLength + ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH;
    RecordCount++;

    if ((pHeader->NextRecordHeaderAddress == 0) || (pHeader->NextRecordHeaderAddress == MAX_UINT64)) {
      DEBUG ((Level,
              "%a: Record %d => pErstErrorRecordHeader->NextRecordHeaderAddress 0x%016lx, end of pstore data reached\n",
              pCaller, RecordIndex, pHeader->NextRecordHeaderAddress));
      break;
    }

    DEBUG ((Level, "%a: Record %d => Move to next record @ 0x%016lx\n", pCaller, RecordIndex,
            pHeader->NextRecordHeaderAddress));
    RecordIndex++;
    LastRecordAddress = RecordAddress;
    RecordAddress     = pHeader->NextRecordHeaderAddress;
    if (RecordAddress >= RegionEnd) {
      break;
    }
  }

  //
  // The free length is left whole on purpose: only writes and store
  // maintenance account for used space.
  //
  pInfo->TotalNumberOfErstRecords        = RecordCount;
  pInfo->SpiAddressStartAvailableStorage = pInfo->SpiAddressStartErstErrorRecordRegion + UsedBytes;
  pInfo->SpiAddressLastValidRecord       = LastRecordAddress;
  if (FeaturePcdGet (PcdVornFixFreeSpace)) {
    VornApeiLoggingErstAccountUsedSpace (pCaller);
  }

  if (FeaturePcdGet (PcdVornFixTornTail) && (VornApeiLoggingErstUsedEnd () > pInfo->SpiAddressStartAvailableStorage)) {
    pInfo->LengthErstStoreRegionErrorRecordAreaAvailable = 0;
    DEBUG ((Level, "%a: Torn bytes up to 0x%016lx must be erased before the next write\n", pCaller,
            VornApeiLoggingErstUsedEnd ()));
  }

  if (FeaturePcdGet (PcdVornFixSafeDefrag) && VornApeiLoggingErstRewriteUnfinished ()) {
    pInfo->LengthErstStoreRegionErrorRecordAreaAvailable = 0;
    DEBUG (
        (DEBUG_ERROR, "%a: ERROR the store's rewrite is unfinished, no write until a start-up finishes it\n", pCaller));
  }

  VornApeiLoggingErstIndexFinish ();

  DEBUG_CODE_BEGIN ();
  DEBUG ((Level, "%a: After ERST processing, display pstore information\n", pCaller));
  PrintErstSpiStoreInformation (pInfo, Level);
  PrintErstParameterRegion (mPrivateDataVornApeiLogging.pErstParameterBlock, Level);
  DEBUG_CODE_END ();
  return Status;
}

/**
  Fills the store information with the geometry of the error-log volume at
  VolumeAddress and resets the scan results.
**/
static VOID VornApeiLoggingErstSetStoreGeometry (IN UINT64 VolumeAddress, IN UINTN BlockSize, IN UINTN NumberOfBlocks) {
  ERST_SPI_STORE_INFORMATION *pInfo;
  UINT64                      HeadersLength;

  pInfo         = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  HeadersLength = (UINT64)mErstDiscoveryFvHeader.ExtHeaderOffset + mErstDiscoveryFvExtHeader.ExtHeaderSize;

  pInfo->ClearEntireStoreRegion               = FALSE;
  pInfo->SpiAddressFvBlockHeader              = VolumeAddress;
  pInfo->SpiAddressFvBlockExtHeader           = VolumeAddress + mErstDiscoveryFvHeader.ExtHeaderOffset;
  pInfo->LengthTotalFv                        = (UINT64)BlockSize * NumberOfBlocks;
  pInfo->LengthErstBlockSize                  = BlockSize;
  pInfo->SpiAddressStartErstStoreHeader       = VolumeAddress + HeadersLength;
  pInfo->LengthErstStoreRegion                = pInfo->LengthTotalFv - HeadersLength;
  pInfo->SpiAddressStartErstErrorRecordRegion = pInfo->SpiAddressStartErstStoreHeader + sizeof (ERST_STORE_HEADER);
  pInfo->LengthErstStoreRegionErrorRecordArea = pInfo->LengthErstStoreRegion - sizeof (ERST_STORE_HEADER);
  pInfo->SpiAddressLastValidRecord            = MAX_UINT64;
  pInfo->SpiAddressStartAvailableStorage      = pInfo->SpiAddressStartErstErrorRecordRegion;
  pInfo->LengthErstStoreRegionErrorRecordAreaAvailable = pInfo->LengthErstStoreRegionErrorRecordArea;
  pInfo->TotalNumberOfErstRecordsWithClearFlagOspm     = 0;
  pInfo->TotalNumberOfErstRecordsWithClearFlagBios     = 0;
  pInfo->TotalNumberOfErstRecords                      = 0;

  mPrivateDataVornApeiLogging.pErstParameterBlock->RecordCount = 0;
  mPrivateDataVornApeiLogging.pErstParameterBlock->CurRecordID = MAX_UINT64;
  VornApeiLoggingErstIndexStart ();
}

/**
  Reads the headers of the volume at VolumeAddress and, when it is the
  error-log volume, takes its geometry (from its block protocol, or without
  one from BlockSize and the volume's length) and scans its store. Other
  volumes are passed over with EFI_SUCCESS.
**/
static EFI_STATUS VornApeiLoggingErstExamineVolume (IN CONST CHAR8                            *pCaller,
                                                    IN EFI_SMM_FIRMWARE_VOLUME_BLOCK_PROTOCOL *pFvBlockProtocol,
                                                    IN UINT64                                  VolumeAddress,
                                                    IN UINTN                                   BlockSize) {
  EFI_STATUS Status;
  UINT64     Level;
  UINTN      NumberOfBlocks;

  Level  = mPrivateDataVornApeiLogging.SerDbgLevelConstructor;
  Status = EFI_SUCCESS;
  DEBUG (
      (Level,
       "%a: Reading SPI flash FV Header @ PhyAddress 0x%016lx Length 0x%016lx bytes => local var FvHeader @ 0x%016lx\n",
       pCaller, VolumeAddress, (UINT64)sizeof (EFI_FIRMWARE_VOLUME_HEADER), (UINT64)(UINTN)&mErstDiscoveryFvHeader));
  Status = VornApeiLoggingReadDataViaSpi (Level, VolumeAddress, sizeof (EFI_FIRMWARE_VOLUME_HEADER),
                                          &mErstDiscoveryFvHeader);
  if (EFI_ERROR (Status)) {
    DEBUG ((
        DEBUG_ERROR,
        "%a: ERROR %r from VornApeiLoggingReadDataViaSpi reading FV Header @ PhyAddress 0x%016lx NumBytes 0x%016lx, aborting...\n",
        pCaller, Status, VolumeAddress, (UINT64)sizeof (EFI_FIRMWARE_VOLUME_HEADER)));
    return Status;
  }

  if (mErstDiscoveryFvHeader.ExtHeaderOffset == 0) {
    DEBUG ((Level, "%a: FvHeader.ExtHeaderOffset = 0, continue to next handle...\n", pCaller));
    return EFI_SUCCESS;
  }

  DEBUG ((
      Level,
      "%a: Reading SPI flash FV Extended Header @ PhyAddress 0x%016lx Length 0x%016lx bytes => local var FvExtHeader @ 0x%016lx\n",
      pCaller, VolumeAddress + mErstDiscoveryFvHeader.ExtHeaderOffset, (UINT64)sizeof (EFI_FIRMWARE_VOLUME_EXT_HEADER),
      (UINT64)(UINTN)&mErstDiscoveryFvExtHeader));
  Status = VornApeiLoggingReadDataViaSpi (Level, VolumeAddress + mErstDiscoveryFvHeader.ExtHeaderOffset,
                                          sizeof (EFI_FIRMWARE_VOLUME_EXT_HEADER), &mErstDiscoveryFvExtHeader);
  if (EFI_ERROR (Status)) {
    DEBUG ((
        DEBUG_ERROR,
        "%a: ERROR %r from VornApeiLoggingReadDataViaSpi reading FV extended header @ PhyAddress 0x%016lx NumBytes 0x%016lx, aborting...\n",
        pCaller, Status, VolumeAddress + mErstDiscoveryFvHeader.ExtHeaderOffset,
        (UINT64)sizeof (EFI_FIRMWARE_VOLUME_EXT_HEADER)));
    return Status;
  }

  DEBUG ((Level, "%a: Determine if FvExtHeader.FvName contains gEfiWheaElogFvGuid %g\n", pCaller, &gEfiWheaElogFvGuid));
  if (!CompareGuid (&mErstDiscoveryFvExtHeader.FvName, &gEfiWheaElogFvGuid)) {
    return EFI_SUCCESS;
  }

  DEBUG ((Level, "%a: WHEA ELOG FV GUID %g found @ 0x%016lx\n", pCaller, &gEfiWheaElogFvGuid, VolumeAddress));
  DEBUG_CODE_BEGIN ();
  DisplayFvHeader (&mErstDiscoveryFvHeader, Level);
  DisplayFvExtHeader (&mErstDiscoveryFvExtHeader, Level);
  DEBUG_CODE_END ();

  DEBUG ((Level, "%a: Retrieve FV block size\n", pCaller));
  NumberOfBlocks = 0;
  if (pFvBlockProtocol != NULL) {
    BlockSize = 0;
    Status    = pFvBlockProtocol->GetBlockSize (pFvBlockProtocol, 0, &BlockSize, &NumberOfBlocks);
  } else {
    NumberOfBlocks = (UINTN)(mErstDiscoveryFvHeader.FvLength / BlockSize);
  }

  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r from GetBlockSize (gEfiWheaElogFvGuid %g), aborting...\n", pCaller, Status,
            &gEfiWheaElogFvGuid));
    return Status;
  }

  DEBUG ((Level, "%a: WHEA Firmware BlockSize 0x%016lx bytes BlockCount %d\n", pCaller, (UINT64)BlockSize,
          (UINT32)NumberOfBlocks));
  VornApeiLoggingErstSetStoreGeometry (VolumeAddress, BlockSize, NumberOfBlocks);

  return VornApeiLoggingErstScanStore (pCaller);
}

/**
  Allocates the store information on first use. The two lines that report
  it print the parameter region's address, as they always have.
**/
static EFI_STATUS VornApeiLoggingErstAllocateStoreInformation (IN CONST CHAR8 *pCaller) {
  EFI_STATUS Status;
  UINT64     Level;
  UINT64     Length;

  Level  = mPrivateDataVornApeiLogging.SerDbgLevelConstructor;
  Length = sizeof (ERST_SPI_STORE_INFORMATION);
  Status = EFI_SUCCESS;
  if (mPrivateDataVornApeiLogging.pErstSpiStoreInformation == NULL) {
    DEBUG ((Level, "%a: Allocating EfiReservedMemoryType %d pErstSpiStoreInformation for length 0x%016lx bytes\n",
            pCaller, EfiReservedMemoryType, Length));
    Status = gBS->AllocatePool (EfiReservedMemoryType, Length,
                                (VOID **)&mPrivateDataVornApeiLogging.pErstSpiStoreInformation);
    if (mPrivateDataVornApeiLogging.pErstSpiStoreInformation == NULL) {
      DEBUG ((
          DEBUG_ERROR,
          "%a: ERROR mPrivateDataVornApeiLogging.pErstSpiStoreInformation is NULL after AllocatePool for length 0x%016lx bytes, aborting...\n",
          pCaller, Length));
      return EFI_UNSUPPORTED;
    }

    if (EFI_ERROR (Status)) {
      DEBUG ((
          DEBUG_ERROR,
          "%a: ERROR %r allocating EfiReservedMemoryType %d length 0x%016lx bytes for mPrivateDataVornApeiLogging.pErstSpiStoreInformation, aborting...\n",
          pCaller, Status, EfiReservedMemoryType, Length));
      mPrivateDataVornApeiLogging.pErstSpiStoreInformation = NULL;
      return Status;
    }

    DEBUG ((
        Level,
        "%a: Successfully allocated EfiReservedMemoryType %d for mPrivateDataVornApeiLogging.pErstSpiStoreInformation @ 0x%016lx length 0x%016lx bytes\n",
        pCaller, EfiReservedMemoryType, (UINT64)(UINTN)mPrivateDataVornApeiLogging.pErstParameterBlock, Length));
    ZeroMem (mPrivateDataVornApeiLogging.pErstSpiStoreInformation, Length);
  }

  DEBUG ((Level, "%a: mPrivateDataVornApeiLogging.pErstSpiStoreInformation @ 0x%016lx length 0x%016lx bytes\n", pCaller,
          (UINT64)(UINTN)mPrivateDataVornApeiLogging.pErstParameterBlock, Length));
  return Status;
}

/**
  Finds the error-log volume among the SMM firmware volume block handles,
  fills the store information and validates the store. Returns
  EFI_VOLUME_CORRUPTED when the store must be rebuilt, a platform error when
  the flash could not be examined, otherwise the status of the last
  operation performed.
**/
EFI_STATUS
VornApeiLoggingGetErstPersistentStoreData (VOID) {
  EFI_STATUS                              Status;
  UINT64                                  Level;
  UINTN                                   HandleCount;
  EFI_HANDLE                             *pHandleList;
  UINTN                                   HandleIndex;
  EFI_SMM_FIRMWARE_VOLUME_BLOCK_PROTOCOL *pFvBlockProtocol;
  EFI_PHYSICAL_ADDRESS                    VolumeAddress;
  UINT64                                  SpareVolume;
  UINTN                                   SpareBlockSize;

  Level = mPrivateDataVornApeiLogging.SerDbgLevelConstructor;
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: Entering\n", __func__));
  DEBUG ((Level, "%a: Calling VornApeiLoggingGetFvbCountAndBuffer\n", __func__));
  Status = VornApeiLoggingGetFvbCountAndBuffer (&HandleCount, &pHandleList);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r from VornApeiLoggingGetFvbCountAndBuffer, aborting...\n", __func__, Status));
    return Status;
  }

  DEBUG ((Level, "%a: gEfiSmmFirmwareVolumeBlockProtocolGuid HandleCount 0x%016lx (%d)\n", __func__,
          (UINT64)HandleCount, (UINT32)HandleCount));
  Status = VornApeiLoggingErstAllocateStoreInformation (__func__);
  if (EFI_ERROR (Status)) {
    return Status;
  }

  //
  // With the switch a rewrite of the store that a power cut stopped is
  // finished first, from the spare area.
  //
  if (FeaturePcdGet (PcdVornFixSafeDefrag)) {
    VornApeiLoggingErstRecoverVolume (Level);
  }

  DEBUG ((Level, "%a: Searching all handles for gEfiSmmFirmwareVolumeBlockProtocolGuid %g\n", __func__,
          &gEfiSmmFirmwareVolumeBlockProtocolGuid));
  for (HandleIndex = 0; HandleIndex < HandleCount; HandleIndex++) {
    if (pHandleList[HandleIndex] == NULL) {
      DEBUG ((DEBUG_ERROR, "%a: pHandleList[%d] is NULL, break...\n", __func__, (UINT32)HandleIndex));
      break;
    }

    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: HandleIndex %d Calling SmmHandleProtocol\n", __func__,
            (UINT32)HandleIndex));
    pFvBlockProtocol = NULL;
    Status           = gSmst->SmmHandleProtocol (pHandleList[HandleIndex], &gEfiSmmFirmwareVolumeBlockProtocolGuid,
                                                 (VOID **)&pFvBlockProtocol);
    if (EFI_ERROR (Status)) {
      DEBUG ((
          mPrivateDataVornApeiLogging.SerDbgLevelDetailed,
          "%a: ERROR %r from SmmHandleProtocol for gEfiSmmFirmwareVolumeBlockProtocolGuid %g HandleIndex %d, skipping to next handle...\n",
          __func__, Status, &gEfiSmmFirmwareVolumeBlockProtocolGuid, (UINT32)HandleIndex));
      continue;
    }

    DEBUG ((Level, "%a: gEfiSmmFirmwareVolumeBlockProtocolGuid %g HandleIndex %d\n", __func__,
            &gEfiSmmFirmwareVolumeBlockProtocolGuid, (UINT32)HandleIndex));
    if (pFvBlockProtocol == NULL) {
      DEBUG ((DEBUG_ERROR,
              "%a: gEfiSmmFirmwareVolumeBlockProtocolGuid %g HandleIndex %d pFvBlockProtocol is NULL, aborting...\n",
              __func__, &gEfiSmmFirmwareVolumeBlockProtocolGuid, (UINT32)HandleIndex));
      return EFI_UNSUPPORTED;
    }

    DEBUG ((Level, "%a: Retrieving physical address of FvBlock\n", __func__));
    VolumeAddress = 0;
    Status        = pFvBlockProtocol->GetPhysicalAddress (pFvBlockProtocol, &VolumeAddress);
    if (EFI_ERROR (Status)) {
      DEBUG ((DEBUG_ERROR, "%a: ERROR %r from FvBlock GetPhysicalAddress, aborting...\n", __func__, Status));
      return EFI_UNSUPPORTED;
    }

    DEBUG ((Level, "%a: FvBlock PhyAddress = %016lx\n", __func__, VolumeAddress));
    if (VolumeAddress == 0) {
      DEBUG ((DEBUG_ERROR, "%a: FV Block physical address is zero, aborting...\n", __func__));
      return EFI_UNSUPPORTED;
    }

    //
    // The search goes on through the remaining handles after the store.
    //
    Status = VornApeiLoggingErstExamineVolume (__func__, pFvBlockProtocol, VolumeAddress, 0);
    if (EFI_ERROR (Status)) {
      return Status;
    }
  }

  //
  // A volume whose header the cut had erased has no block protocol until the
  // platform finds it again at the next power-on; the spare names it.
  //
  if (FeaturePcdGet (PcdVornFixSafeDefrag) &&
      (mPrivateDataVornApeiLogging.pErstSpiStoreInformation->SpiAddressFvBlockHeader == 0) &&
      VornApeiLoggingErstRecoveredVolume (&SpareVolume, &SpareBlockSize)) {
    DEBUG ((Level, "%a: Volume @ 0x%016lx restored from the spare area has no block protocol yet\n", __func__,
            SpareVolume));
    Status = VornApeiLoggingErstExamineVolume (__func__, NULL, SpareVolume, SpareBlockSize);
    if (EFI_ERROR (Status)) {
      return Status;
    }
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: Exiting with status %r\n", __func__, Status));
  return Status;
}
