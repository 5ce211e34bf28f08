/** @file
  Retiring a stored record by programming one of its clear bytes from
  erased (0xFF) to ERST_RECORD_CLEAR_FLAG_VALUE; NOR flash allows that
  without an erase.
**/
#include "VornApeiLoggingSmm.h"

#include "ErstRecordIndex.h"
#include "ErstRecordOps.h"

#include <Library/DebugLib.h>

MODULE_DATA UINT8 mErstClearFlagValue;

/**
  Programs the clear byte at FlagAddress. pProgressFormat names the flag in
  the progress line; a failure is reported in the one wording both flags
  share.
**/
STATIC
EFI_STATUS
VornApeiLoggingErstProgramClearFlag (IN CONST CHAR8 *pCallerName,
                                     IN CONST CHAR8 *pProgressFormat,
                                     IN UINT64       FlagAddress) {
  EFI_STATUS Status;

  mErstClearFlagValue = ERST_RECORD_CLEAR_FLAG_VALUE;
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, pProgressFormat, pCallerName, FlagAddress,
          (UINT64)sizeof (mErstClearFlagValue), mErstClearFlagValue));
  Status = VornApeiLoggingWriteDataViaSpi (mPrivateDataVornApeiLogging.SerDbgLevel, FlagAddress,
                                           sizeof (mErstClearFlagValue), &mErstClearFlagValue);
  if (EFI_ERROR (Status)) {
    DEBUG ((
        DEBUG_ERROR,
        "%a: ERROR %r from VornApeiLoggingWriteDataViaSpi @ PhyAddress 0x%016lx NumBytes 0x%016lx (attempt to set Record Clear OS flag), aborting...\n",
        pCallerName, Status, FlagAddress, (UINT64)sizeof (mErstClearFlagValue)));
  }

  return Status;
}

/**
  Marks the record whose flags lie at FlagsAddress as cleared by the OS and
  takes it off the record counts.
**/
EFI_STATUS
VornApeiLoggingErstSetRecordClearPerOspm (IN UINT64 FlagsAddress) {
  EFI_STATUS Status;

  Status = VornApeiLoggingErstProgramClearFlag (
      __func__, "%a: Write SPI flash Record Clear (OS) flag @ PhyAddress 0x%016lx NumBytes 0x%016lx = 0x%02x\n",
      FlagsAddress + OFFSET_OF (ERST_ERROR_RECORD_FLAGS, RecordClearPerOspm));
  VornApeiLoggingErstIndexNoteClear (FlagsAddress, mErstClearFlagValue, Status);
  if (EFI_ERROR (Status)) {
    return Status;
  }

  if (mPrivateDataVornApeiLogging.pErstParameterBlock->RecordCount != 0) {
    mPrivateDataVornApeiLogging.pErstParameterBlock->RecordCount--;
  }

  if (mPrivateDataVornApeiLogging.pErstSpiStoreInformation->TotalNumberOfErstRecords != 0) {
    mPrivateDataVornApeiLogging.pErstSpiStoreInformation->TotalNumberOfErstRecords--;
  }

  return Status;
}

/**
  Marks the record whose flags lie at FlagsAddress as obsolete for firmware;
  the counts are left to the caller.
**/
EFI_STATUS
VornApeiLoggingErstSetRecordClearPerBios (IN UINT64 FlagsAddress) {
  return VornApeiLoggingErstProgramClearFlag (
      __func__, "%a: Write SPI flash Record Clear (BIOS) flag @ PhyAddress 0x%016lx NumBytes 0x%016lx = 0x%02x\n",
      FlagsAddress + OFFSET_OF (ERST_ERROR_RECORD_FLAGS, RecordClearPerBios));
}
