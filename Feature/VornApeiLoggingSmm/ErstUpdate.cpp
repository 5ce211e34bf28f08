/** @file
  ERST set-up at start-up: the OS-shared parameter region, the ERST table's
  register addresses and checksum, a usable flash store, and the ERST
  software-SMI handler.
**/
#include "VornApeiLoggingSmm.h"

#include <IndustryStandard/Acpi.h>
#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/SmmMemLib.h>
#include <Library/UefiBootServicesTableLib.h>

#define VORN_ERST_INSTRUCTION_ENTRY_COUNT 16

//
// Marks the instruction entry whose register the platform keeps (the
// EXECUTE_OPERATION software-SMI trigger).
//
#define VORN_ERST_REGISTER_KEPT MAX_UINT32

//
// Parameter-region field each instruction entry's register points at, by
// entry index (the table's entries are in serialization-action order).
//
STATIC CONST UINT32 mErstRegisterOffsets[VORN_ERST_INSTRUCTION_ENTRY_COUNT] = {
    OFFSET_OF (VORN_ERST_PARAMETER_REGION, Command),                   // BEGIN_WRITE_OPERATION
    OFFSET_OF (VORN_ERST_PARAMETER_REGION, Command),                   // BEGIN_READ_OPERATION
    OFFSET_OF (VORN_ERST_PARAMETER_REGION, Command),                   // BEGIN_CLEAR_OPERATION
    OFFSET_OF (VORN_ERST_PARAMETER_REGION, Command),                   // END_OPERATION
    OFFSET_OF (VORN_ERST_PARAMETER_REGION, LogOffset),                 // SET_RECORD_OFFSET
    VORN_ERST_REGISTER_KEPT,                                           // EXECUTE_OPERATION
    OFFSET_OF (VORN_ERST_PARAMETER_REGION, BusyFlag),                  // CHECK_BUSY_STATUS
    OFFSET_OF (VORN_ERST_PARAMETER_REGION, Status),                    // GET_COMMAND_STATUS
    OFFSET_OF (VORN_ERST_PARAMETER_REGION, CurRecordID),               // GET_RECORD_IDENTIFIER
    OFFSET_OF (VORN_ERST_PARAMETER_REGION, RecordID),                  // SET_RECORD_IDENTIFIER
    OFFSET_OF (VORN_ERST_PARAMETER_REGION, RecordCount),               // GET_RECORD_COUNT
    OFFSET_OF (VORN_ERST_PARAMETER_REGION, Command),                   // BEGIN_DUMMY_WRITE_OPERATION
    OFFSET_OF (VORN_ERST_PARAMETER_REGION, NextRecordID),              // reserved action 0xC
    OFFSET_OF (VORN_ERST_PARAMETER_REGION, ErrorLogAddressRange),      // GET_ERROR_LOG_ADDRESS_RANGE
    OFFSET_OF (VORN_ERST_PARAMETER_REGION, ErrorLogAddressLength),     // GET_ERROR_LOG_ADDRESS_RANGE_LENGTH
    OFFSET_OF (VORN_ERST_PARAMETER_REGION, ErrorLogAddressAttributes), // GET_ERROR_LOG_ADDRESS_RANGE_ATTRIBUTES
};

/**
  Allocates and fills the parameter region, points the ERST table at it,
  prepares the flash store and registers the ERST command handler.
**/
EFI_STATUS
VornApeiLoggingUpdateErst (IN EFI_SMM_SW_DISPATCH2_PROTOCOL *pSwDispatch2Protocol, IN VOID *pApeiErstTable) {
  EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER *pApeiErstTableHeader;
  EFI_ACPI_6_3_ERST_SERIALIZATION_INSTRUCTION_ENTRY    *pTempErstInstructionEntry;
  VORN_ERST_PARAMETER_REGION                           *pRegion;
  ERST_SPI_STORE_INFORMATION                           *pInfo;
  EFI_SMM_SW_REGISTER_CONTEXT                           SwContext;
  EFI_HANDLE                                            SwHandle;
  EFI_STATUS                                            Status;
  UINTN                                                 Index;

  if (pSwDispatch2Protocol == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pSwDispatch2Protocol is NULL, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  if (pApeiErstTable == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pApeiErstTable is NULL, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor, "%a: ERST @ 0x%016lx\n", __func__,
          (UINT64)(UINTN)pApeiErstTable));

  //
  // Parameter region and OS error-log buffer
  //
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor,
          "%a: Allocating EfiReservedMemoryType %d for ERST length 0x%016lx bytes\n", __func__, EfiReservedMemoryType,
          (UINT64)MAX_ERST_PARAMETER_REGION_SIZE));
  Status = gBS->AllocatePool (EfiReservedMemoryType, MAX_ERST_PARAMETER_REGION_SIZE,
                              (VOID **)&mPrivateDataVornApeiLogging.pErstParameterBlock);
  if (EFI_ERROR (Status)) {
    DEBUG ((
        DEBUG_ERROR,
        "%a: ERROR %r allocating EfiReservedMemoryType %d length 0x%016lx bytes for mPrivateDataVornApeiLogging.pErstParameterBlock, aborting...\n",
        __func__, Status, EfiReservedMemoryType, (UINT64)MAX_ERST_PARAMETER_REGION_SIZE));
    mPrivateDataVornApeiLogging.pErstParameterBlock = NULL;
    return Status;
  }

  pRegion = mPrivateDataVornApeiLogging.pErstParameterBlock;
  DEBUG ((
      mPrivateDataVornApeiLogging.SerDbgLevelConstructor,
      "%a: Successfully allocated EfiReservedMemoryType %d for mPrivateDataVornApeiLogging.pErstParameterBlock @ 0x%016lx length 0x%016lx bytes\n",
      __func__, EfiReservedMemoryType, (UINT64)(UINTN)pRegion, (UINT64)MAX_ERST_PARAMETER_REGION_SIZE));

  mPrivateDataVornApeiLogging.pErstRecordBlock = (UINT8 *)pRegion + sizeof (VORN_ERST_PARAMETER_REGION);
  mPrivateDataVornApeiLogging.OsBufferSize     = MAX_ERST_PARAMETER_REGION_SIZE - sizeof (VORN_ERST_PARAMETER_REGION);
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor,
          "%a: MAX_ERST_PARAMETER_REGION_SIZE                   0x%016lx\n", __func__,
          (UINT64)MAX_ERST_PARAMETER_REGION_SIZE));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor,
          "%a: sizeof(VORN_ERST_PARAMETER_REGION)               0x%016lx\n", __func__,
          (UINT64)sizeof (VORN_ERST_PARAMETER_REGION)));
  //
  // This line has always printed the record block under the region's label;
  // log readers depend on it as it is.
  //
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor,
          "%a: mPrivateDataVornApeiLogging.pErstParameterBlock  0x%016lx\n", __func__,
          (UINT64)(UINTN)mPrivateDataVornApeiLogging.pErstRecordBlock));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor,
          "%a: mPrivateDataVornApeiLogging.pErstRecordBlock     0x%016lx\n", __func__,
          (UINT64)(UINTN)mPrivateDataVornApeiLogging.pErstRecordBlock));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor,
          "%a: ErrorLogAllocatedRangeSize                       0x%016lx\n", __func__,
          mPrivateDataVornApeiLogging.OsBufferSize));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor,
          "%a: mPrivateDataVornApeiLogging.OsBufferSize         0x%016lx\n", __func__,
          mPrivateDataVornApeiLogging.OsBufferSize));

  //
  // The OS writes commands and records here; neither may reach into SMRAM.
  //
  if (!SmmIsBufferOutsideSmmValid ((EFI_PHYSICAL_ADDRESS)(UINTN)pRegion, sizeof (VORN_ERST_PARAMETER_REGION))) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR mPrivateDataVornApeiLogging.pErstParameterBlock overlap with SMRAM, aborting...\n",
            __func__));
    return EFI_INVALID_PARAMETER;
  }

  if (!SmmIsBufferOutsideSmmValid ((EFI_PHYSICAL_ADDRESS)(UINTN)mPrivateDataVornApeiLogging.pErstRecordBlock,
                                   mPrivateDataVornApeiLogging.OsBufferSize)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR mPrivateDataVornApeiLogging.pErstRecordBlock overlap with SMRAM, aborting...\n",
            __func__));
    return EFI_INVALID_PARAMETER;
  }

  ZeroMem (pRegion, sizeof (VORN_ERST_PARAMETER_REGION));
  pRegion->ErrorLogAddressRange  = (UINT64)(UINTN)mPrivateDataVornApeiLogging.pErstRecordBlock;
  pRegion->ErrorLogAddressLength = mPrivateDataVornApeiLogging.OsBufferSize;
  pRegion->CurRecordID           = MAX_UINT64;
  pRegion->BusyFlag              = 0;

  //
  // ERST register addresses and checksum
  //
  pApeiErstTableHeader      = (EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER *)pApeiErstTable;
  pTempErstInstructionEntry = (EFI_ACPI_6_3_ERST_SERIALIZATION_INSTRUCTION_ENTRY *)(pApeiErstTableHeader + 1);
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor, "%a: pApeiErstTableHeader @ 0x%016lx\n", __func__,
          (UINT64)(UINTN)pApeiErstTableHeader));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor, "%a: ErstInstructionEntriesLength = 0x%08x\n", __func__,
          (UINT32)(VORN_ERST_INSTRUCTION_ENTRY_COUNT * sizeof (EFI_ACPI_6_3_ERST_SERIALIZATION_INSTRUCTION_ENTRY))));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor,
          "%a: Instruction Entries pTempErstInstructionEntry @ 0x%016lx\n", __func__,
          (UINT64)(UINTN)pTempErstInstructionEntry));
  for (Index = 0; Index < VORN_ERST_INSTRUCTION_ENTRY_COUNT; Index++) {
    if (mErstRegisterOffsets[Index] != VORN_ERST_REGISTER_KEPT) {
      pTempErstInstructionEntry[Index].RegisterRegion.Address = (UINT64)(UINTN)pRegion + mErstRegisterOffsets[Index];
    }
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor, "%a: pApeiErstTableHeader->Header.Length = 0x%08x (%d)\n",
          __func__, pApeiErstTableHeader->Header.Length, pApeiErstTableHeader->Header.Length));
  pApeiErstTableHeader->Header.Checksum = 0;
  pApeiErstTableHeader->Header.Checksum =
      VornApeiLoggingCalculateChecksum ((UINT8 *)pApeiErstTableHeader, pApeiErstTableHeader->Header.Length);
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor, "%a: pApeiErstTableHeader->Header.Checksum = 0x%02x\n",
          __func__, pApeiErstTableHeader->Header.Checksum));

  //
  // Flash store
  //
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor, "%a: Calling VornApeiLoggingGetErstPersistentStoreData\n",
          __func__));
  Status = VornApeiLoggingGetErstPersistentStoreData ();
  pInfo  = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r from VornApeiLoggingGetErstPersistentStoreData\n", __func__, Status));
    if ((Status != EFI_VOLUME_CORRUPTED) || (pInfo == NULL) || !pInfo->ClearEntireStoreRegion) {
      return Status;
    }

    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor,
            "%a: PStore FV corrupted or obsolete revision, clear and re-initialize the pstore region\n", __func__));
  }

  if (pInfo->ClearEntireStoreRegion) {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor, "%a: Clear and re-initialize entire pstore region\n",
            __func__));
    Status = VornApeiLoggingClearEntirePStore (mPrivateDataVornApeiLogging.SerDbgLevelConstructor);
    if (EFI_ERROR (Status)) {
      DEBUG ((DEBUG_ERROR, "%a: ERROR %r clearing and re-initializing entire pstore region\n", __func__, Status));
      return Status;
    }
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor, "%a: Checking for defragmentation\n", __func__));
  if (pInfo->ClearEntireStoreRegion || (pInfo->TotalNumberOfErstRecordsWithClearFlagOspm > 0) ||
      (pInfo->TotalNumberOfErstRecordsWithClearFlagBios > 0)) {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor, "%a: Invoking defragmentation\n", __func__));
    Status = VornApeiLoggingErstDefragment (mPrivateDataVornApeiLogging.SerDbgLevelConstructor);
    if (EFI_ERROR (Status)) {
      DEBUG ((DEBUG_ERROR, "%a: ERROR %r from VornApeiLoggingErstDefragment, aborting...\n", __func__, Status));
      return Status;
    }

    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor, "%a: Defragmentation completed\n", __func__));
  } else {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor, "%a: Skipping defragmentation (not required)\n",
            __func__));
  }

  //
  // ERST command handler
  //
  SwContext.SwSmiInputValue = VORN_APEI_ERST_SW_SMI_VALUE;
  DEBUG ((
      mPrivateDataVornApeiLogging.SerDbgLevelConstructor,
      "%a: Calling SwDispatch->Register to register S/W SMI handler VornApeiLoggingErstElogSwSmiCallback for SwSmiInputValue 0x%016lx\n",
      __func__, (UINT64)SwContext.SwSmiInputValue));
  Status = pSwDispatch2Protocol->Register (pSwDispatch2Protocol, VornApeiLoggingErstElogSwSmiCallback, &SwContext,
                                           &SwHandle);
  if (EFI_ERROR (Status)) {
    DEBUG ((
        DEBUG_ERROR,
        "%a: ERROR %r from SwDispatch->Register to register S/W SMI handler VornApeiLoggingErstElogSwSmiCallback for SwSmiInputValue 0x%016lx\n",
        __func__, Status, (UINT64)SwContext.SwSmiInputValue));
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: Exiting with status %r\n", __func__, Status));
  return Status;
}
