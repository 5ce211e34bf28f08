/** @file
  VMware memory page retire requests, appended to the page-retire status
  block in VMware's version 0.73 layout.
**/
#include "VornApeiLoggingSmm.h"
#include "ElogStatusBlock.h"

#include <Guid/Cper.h>
#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/ElogCperDump.h>
#include <VmwarePageRetire.h>

#define VMWARE_PAGE_RETIRE_RECORD_REVISION   1
#define VMWARE_PAGE_RETIRE_COMMAND_RETIRE    1
#define VMWARE_PAGE_RETIRE_ERROR_STATUS_CODE 1
#define VMWARE_PAGE_RETIRE_PAGE_SIZE         0x1000
#define VMWARE_PAGE_RETIRE_PAGE_OFFSET_MASK  0xFFF

/**
  Appends one request to retire the 4 KiB page holding PhysicalAddress. The
  block is not bounded here: callers keep the number of requests between two
  clears within the block length the HEST gives.
**/
EFI_STATUS
EFIAPI
VornApeiLoggingElogRecordMemoryPageRetire (IN EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *pThis,
                                           IN VOID                               *Reserved,
                                           IN CHAR8                              *pFruText,
                                           IN UINT64                              PhysicalAddress,
                                           IN UINT64                              ErrorStatusCount) {
  GENERIC_ERROR_STATUS          *pGesb;
  GENERIC_ERROR_STATUS           Gesb;
  VMWARE_PAGE_RETIRE_DATA_ENTRY *pGede;
  VMWARE_PAGE_RETIRE_DATA_ENTRY  Gede;
  VMWARE_PAGE_RETIRE_RECORD     *pRecord;
  VMWARE_PAGE_RETIRE_RECORD      Record;
  EFI_GUID                       SectionType;

  (VOID) Reserved;

  if (pThis == NULL) {
    DEBUG (
        (DEBUG_ERROR, "%a: ERROR pThis *EFI_VORN_APEI_LOGGING_SMM_PROTOCOL is null on entry, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  if (pFruText == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pFruText is null on entry, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  if (!mPrivateDataVornApeiLogging.IsApeiOsLoaded) {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: ERROR APEI O/S not present, aborting...\n", __func__));
    return EFI_NOT_READY;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
          "%a: Find GHESS (SCI notification - VMWare memory page retire) Error Status Data Block\n", __func__));
  pGesb = (GENERIC_ERROR_STATUS *)(UINTN)mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSciVmwareMemPageRetire;
  if (pGesb == NULL) {
    DEBUG ((
        DEBUG_ERROR,
        "%a: ERROR finding GHESS (SCI notification - VMWare memory page retire) Error Status Data Block, aborting...\n",
        __func__));
    return EFI_NOT_FOUND;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
          "%a: GHESS (SCI notification - VMWare memory page retire) Error Status Data Block @ 0x%016lx size %d\n",
          __func__, (UINT64)(UINTN)pGesb,
          (UINT32)mPrivateDataVornApeiLogging.ApeiHestGhessErrStsDataBlkLengthSciVmwareMemPageRetire));
  //
  // The block lies wherever the Error Status Address register pointed: what
  // is read of it and written to it goes through the checked copy.
  //
  CopyMem (&Gesb, pGesb, sizeof (Gesb));
  DEBUG ((
      mPrivateDataVornApeiLogging.SerDbgLevelDetailed,
      "%a: GENERIC_ERROR_STATUS Length 0x%016lx [GESB/GEDE/GED]DataLength 0x%016lx RawDataLength 0x%016lx RawDataOffset 0x%016lx\n",
      __func__, (UINT64)sizeof (GENERIC_ERROR_STATUS), (UINT64)Gesb.DataLength, (UINT64)Gesb.RawDataLength,
      (UINT64)Gesb.RawDataOffset));

  pGede   = (VMWARE_PAGE_RETIRE_DATA_ENTRY *)((UINT8 *)pGesb + sizeof (GENERIC_ERROR_STATUS) + Gesb.DataLength);
  pRecord = (VMWARE_PAGE_RETIRE_RECORD *)((UINT8 *)pGede + sizeof (VMWARE_PAGE_RETIRE_DATA_ENTRY));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: pGede 0x%016lx length %d\n", __func__,
          (UINT64)(UINTN)pGede, (UINT32)sizeof (VMWARE_PAGE_RETIRE_DATA_ENTRY)));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Populating WHEA data structures\n", __func__));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Updating Generic Error Status Block %d bytes @ 0x%016lx\n",
          __func__, (UINT32)sizeof (GENERIC_ERROR_STATUS), (UINT64)(UINTN)pGesb));

  //
  // Bit 1 reads "unprocessed entry in the work queue" and bit 3 "several"
  // in VMware's reading of BlockStatus.
  //
  if (Gesb.BlockStatus.CorrectableErrorValid) {
    Gesb.BlockStatus.MultipleCorrectableErrors = 1;
  } else {
    Gesb.BlockStatus.CorrectableErrorValid = 1;
  }

  Gesb.BlockStatus.ErrorDataEntryCount++;
  Gesb.RawDataLength = 0;
  Gesb.DataLength += (UINT32)(sizeof (VMWARE_PAGE_RETIRE_DATA_ENTRY) + sizeof (VMWARE_PAGE_RETIRE_RECORD));
  Gesb.ErrorSeverity = EFI_ACPI_6_3_ERROR_SEVERITY_CORRECTED;
  CopyMem (pGesb, &Gesb, sizeof (Gesb));
  DEBUG_CODE (DisplayWheaGenericErrorStatusBlockVmwarePageRetire (mPrivateDataVornApeiLogging.SerDbgLevel, pGesb););

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Updating Generic Error Data Entry %d bytes @ 0x%016lx\n",
          __func__, (UINT32)sizeof (VMWARE_PAGE_RETIRE_DATA_ENTRY), (UINT64)(UINTN)pGede));
  CopyMem (&Gede, pGede, sizeof (Gede));
  CopyMem (Gede.SectionType, &gEfiVmwarePageRetireSectionGuid, sizeof (Gede.SectionType));
  Gede.ErrorSeverity  = Gesb.ErrorSeverity;
  Gede.Revision       = VMWARE_PAGE_RETIRE_DATA_ENTRY_REVISION;
  Gede.ValidationBits = 0;
  if (pFruText[0] != 0) {
    Gede.ValidationBits |= EFI_ERROR_SECTION_FRU_STRING_VALID;
  }

  Gede.Flags           = EFI_ERROR_SECTION_FLAGS_PRIMARY;
  Gede.ErrorDataLength = (UINT32)sizeof (VMWARE_PAGE_RETIRE_RECORD);
  //
  // Only the first FRU id byte is written; the rest keep what the block held.
  //
  Gede.FruId[0] = 0;
  CopyMem (Gede.FruText, pFruText, sizeof (Gede.FruText));
  CopyMem (pGede, &Gede, sizeof (Gede));
  DEBUG_CODE (DisplayWheaGenericErrorDataEntryVmwarePageRetire (mPrivateDataVornApeiLogging.SerDbgLevel, pGede););

  Record.Revision         = VMWARE_PAGE_RETIRE_RECORD_REVISION;
  Record.Command          = VMWARE_PAGE_RETIRE_COMMAND_RETIRE;
  Record.ErrorStatusCode  = VMWARE_PAGE_RETIRE_ERROR_STATUS_CODE;
  Record.Sflags           = 0;
  Record.OsStatus         = 0;
  Record.BeginAdd         = PhysicalAddress & ~(UINT64)VMWARE_PAGE_RETIRE_PAGE_OFFSET_MASK;
  Record.Stride           = VMWARE_PAGE_RETIRE_PAGE_SIZE;
  Record.EndAddr          = PhysicalAddress | VMWARE_PAGE_RETIRE_PAGE_OFFSET_MASK;
  Record.ErrorStatusCount = ErrorStatusCount;
  Record.ExaminedCnt      = 0;
  Record.RetiredCnt       = 0;
  CopyMem (pRecord, &Record, sizeof (Record));
  DEBUG_CODE (CopyMem (&SectionType, Gede.SectionType, sizeof (SectionType));
              DisplayWheaGenericErrorData (mPrivateDataVornApeiLogging.SerDbgLevel, &SectionType, pRecord););
  return EFI_SUCCESS;
}
