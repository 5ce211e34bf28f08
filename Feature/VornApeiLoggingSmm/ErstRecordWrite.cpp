/** @file
  ERST_PERSISTENT_SET_RECORD: appending an OS CPER record to the store.
**/
#include "VornApeiLoggingSmm.h"
#include "ErstRecordIndex.h"
#include "ErstRecordOps.h"

#include <Guid/Cper.h>
#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/ElogCperDump.h>
#include <Library/ElogStoreDump.h>
#include <Library/PcdLib.h>

MODULE_DATA ERST_ERROR_RECORD_HEADER mErstErrorRecordHeader;
MODULE_DATA UINT32                   mErstFlagsRevision;

/**
  Appends the CPER record at NewRecord behind the last record. Three flash
  writes commit it, in this order: the record header, the flags revision,
  the record itself; a cut anywhere leaves a trace the next discovery
  rejects or a record whose checksum does not match.
**/
VOID VornApeiLoggingErstPersistentStoreWrite (IN UINT64 NewRecord, OUT UINT64 *pPersistentStatus) {
  EFI_COMMON_ERROR_RECORD_HEADER *pOsRecordHdr;
  EFI_COMMON_ERROR_RECORD_HEADER  OsRecordHdr;
  ERST_SPI_STORE_INFORMATION     *pInfo;
  VORN_ERST_PARAMETER_REGION     *pRegion;
  EFI_STATUS                      Status;
  UINT64                          OsRecordPhyAddress;
  UINT64                          OsRecordFlagsPhyAddress;
  UINT64                          NextRecordHeaderPhyAddress;
  UINT64                          RequiredLength;
  UINT64                          HeaderAddress;
  UINT64                          FlagsAddress;
  UINT64                          RecordAddress;
  BOOLEAN                         Supersede;
  BOOLEAN                         Duplicate;

  if (pPersistentStatus == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pPersistentStatus is NULL, aborting...\n", __func__));
    return;
  }

  pOsRecordHdr = (EFI_COMMON_ERROR_RECORD_HEADER *)(UINTN)NewRecord;
  pInfo        = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  pRegion      = mPrivateDataVornApeiLogging.pErstParameterBlock;
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: On entry NewRecord @ 0x%016lx\n", __func__, NewRecord));
  *pPersistentStatus = ERST_STATUS_SUCCESS;
  VornApeiLoggingErstDisplayStoreState (__func__, FALSE);

  OsRecordPhyAddress         = MAX_UINT64;
  OsRecordFlagsPhyAddress    = MAX_UINT64;
  NextRecordHeaderPhyAddress = MAX_UINT64;

  //
  // The record lies where the OS said: its header is read once through the
  // checked copy and trusted only from here.
  //
  CopyMem (&OsRecordHdr, pOsRecordHdr, sizeof (OsRecordHdr));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Checking OS error record for format requirements\n", __func__));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: CPER header RecordId 0x%016lx Signature 0x%08x %08x\n",
          __func__, OsRecordHdr.RecordID, OsRecordHdr.SignatureStart, OsRecordHdr.SignatureEnd));
  if (OsRecordHdr.RecordID == 0) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pOsRecordHdr->RecordID is zero, aborting...\n", __func__));
    *pPersistentStatus = ERST_STATUS_FAILED;
    return;
  }

  if (OsRecordHdr.SignatureStart != EFI_ERROR_RECORD_SIGNATURE_START) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pOsRecordHdr->SignatureStart != CPER, aborting...\n", __func__));
    *pPersistentStatus = ERST_STATUS_FAILED;
    return;
  }

  if (OsRecordHdr.RecordLength == 0) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pOsRecordHdr->RecordLength == 0, aborting...\n", __func__));
    *pPersistentStatus = ERST_STATUS_FAILED;
    return;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: OS error record data @ 0x%016lx Length 0x%016lx\n", __func__,
          NewRecord, (UINT64)OsRecordHdr.RecordLength));
  DEBUG_CODE_BEGIN ();
  PrintRawData ((UINT8 *)pOsRecordHdr, OsRecordHdr.RecordLength, mPrivateDataVornApeiLogging.SerDbgLevel);
  DEBUG_CODE_END ();
  DisplayCperRecord (mPrivateDataVornApeiLogging.SerDbgLevel, pOsRecordHdr);

  //
  // A duplicate identifier is reported but stored all the same: the new
  // copy goes in beside the old one, and reads find the newest. The switch
  // retires the old copies once the new one is stored, never before.
  //
  Supersede = FeaturePcdGet (PcdVornFixDuplicateId);
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Search pstore if existing RecordID 0x%016lx already exists\n",
          __func__, OsRecordHdr.RecordID));
  VornApeiLoggingSearchErstPersistentStore (OsRecordHdr.RecordID, FALSE, !Supersede, &OsRecordPhyAddress,
                                            &OsRecordFlagsPhyAddress, &NextRecordHeaderPhyAddress, pPersistentStatus);
  Duplicate = (*pPersistentStatus == ERST_STATUS_SUCCESS);
  if (Duplicate) {
    DEBUG ((
        mPrivateDataVornApeiLogging.SerDbgLevel,
        "%a: Duplicate RecordID 0x%016lx found => OsRecordPhyAddress 0x%016lx OsRecordFlagPhyAddress 0x%016lx *pPersistentStatus @ 0x%016lx = 0x%016lx. Aborting write action\n",
        __func__, OsRecordHdr.RecordID, OsRecordPhyAddress, OsRecordFlagsPhyAddress, (UINT64)(UINTN)pPersistentStatus,
        *pPersistentStatus));
  }

  RequiredLength = (UINT64)OsRecordHdr.RecordLength + ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH;
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
          "%a: Checking for available SPI flash storage (OS record requires 0x%016lx bytes)\n", __func__,
          RequiredLength));
  if (pInfo->LengthErstStoreRegionErrorRecordAreaAvailable < RequiredLength) {
    DEBUG ((
        DEBUG_ERROR,
        "%a: ERROR mPrivateDataVornApeiLogging.pErstSpiStoreInformation->LengthErstStoreRegionOsRecordAreaAvailable 0x%016lx < pOsRecordHdr->RecordLength 0x%016lx, aborting...\n",
        __func__, pInfo->LengthErstStoreRegionErrorRecordAreaAvailable, (UINT64)OsRecordHdr.RecordLength));
    *pPersistentStatus = ERST_STATUS_NOT_ENOUGH_SPACE;
    return;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Populating ERST Error Record Header data\n", __func__));
  HeaderAddress = pInfo->SpiAddressStartAvailableStorage;
  FlagsAddress  = HeaderAddress + sizeof (ERST_ERROR_RECORD_HEADER);
  RecordAddress = HeaderAddress + ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH;
  ZeroMem (&mErstErrorRecordHeader, sizeof (mErstErrorRecordHeader));
  mErstErrorRecordHeader.Signature               = ERST_ERROR_RECORD_HEADER_SIGNATURE;
  mErstErrorRecordHeader.Revision                = ERST_ERROR_RECORD_HEADER_LATEST_REVISION;
  mErstErrorRecordHeader.OsRecordFlagsAddress    = FlagsAddress;
  mErstErrorRecordHeader.OsRecordAddress         = RecordAddress;
  mErstErrorRecordHeader.PrevRecordHeaderAddress = pInfo->SpiAddressLastValidRecord;
  mErstErrorRecordHeader.NextRecordHeaderAddress = RecordAddress + OsRecordHdr.RecordLength;
  mErstErrorRecordHeader.OsRecordChecksum =
      VornApeiLoggingCalculateChecksum ((UINT8 *)pOsRecordHdr, OsRecordHdr.RecordLength);
  mErstErrorRecordHeader.OsRecordLength = OsRecordHdr.RecordLength;
  mErstErrorRecordHeader.OsRecordID     = OsRecordHdr.RecordID;
  DEBUG ((
      mPrivateDataVornApeiLogging.SerDbgLevel,
      "%a: ErstErrorRecordHeaderAddress @ 0x%016lx ErstErrorRecordFlagsAddress @ 0x%016lx ErstErrorRecordOsRecordAddress @ 0x%016lx\n",
      __func__, HeaderAddress, FlagsAddress, RecordAddress));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Display ERST Error Record Header @ 0x%016lx Length 0x%016lx\n",
          __func__, (UINT64)(UINTN)&mErstErrorRecordHeader, (UINT64)sizeof (mErstErrorRecordHeader)));
  DEBUG_CODE_BEGIN ();
  DisplayErstRecordHeader (&mErstErrorRecordHeader, mPrivateDataVornApeiLogging.SerDbgLevel);
  DEBUG_CODE_END ();
  *pPersistentStatus = ERST_STATUS_SUCCESS;

  DEBUG ((
      mPrivateDataVornApeiLogging.SerDbgLevel,
      "%a: Write SPI flash ERST Error Record header @ 0x%016lx Length 0x%016lx from local var ErstErrorRecordHeader @ 0x%016lx\n",
      __func__, HeaderAddress, (UINT64)sizeof (mErstErrorRecordHeader), (UINT64)(UINTN)&mErstErrorRecordHeader));
  Status = VornApeiLoggingWriteDataViaSpi (mPrivateDataVornApeiLogging.SerDbgLevel, HeaderAddress,
                                           sizeof (mErstErrorRecordHeader), &mErstErrorRecordHeader);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR,
            "%a: ERROR %r writing ERST Error Record Header @ PhyAddress 0x%016lx Length 0x%016lx, aborting...\n",
            __func__, Status, HeaderAddress, (UINT64)sizeof (mErstErrorRecordHeader)));
    *pPersistentStatus = ERST_STATUS_FAILED;
    VornApeiLoggingErstIndexDrop ();
    return;
  }

  //
  // Only the revision is programmed; the clear bytes stay erased so that a
  // later clear can program them without an erase.
  //
  mErstFlagsRevision = ERST_ERROR_RECORD_FLAGS_LATEST_REVISION;
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
          "%a: SPI flash Flags @ PhyAddress 0x%016lx + Offset 0x%016lx => Revision @ 0x%016lx\n", __func__,
          FlagsAddress, (UINT64)OFFSET_OF (ERST_ERROR_RECORD_FLAGS, Revision),
          FlagsAddress + OFFSET_OF (ERST_ERROR_RECORD_FLAGS, Revision)));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
          "%a: Write SPI flash Flags.Revision @ PhyAddress 0x%016lx NumBytes 0x%016lx = 0x%08x\n", __func__,
          FlagsAddress + OFFSET_OF (ERST_ERROR_RECORD_FLAGS, Revision), (UINT64)sizeof (mErstFlagsRevision),
          mErstFlagsRevision));
  Status = VornApeiLoggingWriteDataViaSpi (mPrivateDataVornApeiLogging.SerDbgLevel,
                                           FlagsAddress + OFFSET_OF (ERST_ERROR_RECORD_FLAGS, Revision),
                                           sizeof (mErstFlagsRevision), &mErstFlagsRevision);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r writing SPI flash Flags.Revision @ PhyAddress 0x%016lx NumBytes 0x%016lx...\n",
            __func__, Status, FlagsAddress + OFFSET_OF (ERST_ERROR_RECORD_FLAGS, Revision),
            (UINT64)sizeof (mErstFlagsRevision)));
    *pPersistentStatus = ERST_STATUS_FAILED;
  }

  DEBUG ((
      mPrivateDataVornApeiLogging.SerDbgLevel,
      "%a: Write SPI flash ERST OS Error Record data @ PhyAddress 0x%016lx NumBytes 0x%016lx from mem buffer @ 0x%016lx\n",
      __func__, RecordAddress, (UINT64)OsRecordHdr.RecordLength, NewRecord));
  Status = VornApeiLoggingWriteDataViaSpi (mPrivateDataVornApeiLogging.SerDbgLevel, RecordAddress,
                                           OsRecordHdr.RecordLength, pOsRecordHdr);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r writing SPI flash ERST Error Record data @ 0x%016lx Length 0x%016lx...\n",
            __func__, Status, RecordAddress, (UINT64)OsRecordHdr.RecordLength));
    *pPersistentStatus = ERST_STATUS_FAILED;
    VornApeiLoggingErstIndexDrop ();
  } else {
    //
    // The record counts once its data is on flash, even when the flags
    // revision did not take; discovery rejects such a record next boot.
    //
    pInfo->SpiAddressLastValidRecord = HeaderAddress;
    pInfo->SpiAddressStartAvailableStorage += RequiredLength;
    pInfo->LengthErstStoreRegionErrorRecordAreaAvailable -= RequiredLength;
    pInfo->TotalNumberOfErstRecords++;
    pRegion->RecordCount++;
    VornApeiLoggingErstIndexAppend (HeaderAddress, &mErstErrorRecordHeader);
    if (pRegion->CurRecordID == MAX_UINT64) {
      pRegion->CurRecordID = OsRecordHdr.RecordID;
    }

    *pPersistentStatus = ERST_STATUS_SUCCESS;
    if (Supersede && Duplicate) {
      VornApeiLoggingErstSupersedeRecord (OsRecordHdr.RecordID, HeaderAddress);
    }
  }

  VornApeiLoggingErstDisplayStoreState (__func__, TRUE);
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Exiting => *pPersistentStatus 0x%016lx\n", __func__,
          *pPersistentStatus));
}
