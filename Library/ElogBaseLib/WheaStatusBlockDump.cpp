/** @file
  Dumps of the generic error status blocks as the OS reads them: the status
  block header in its ACPI and VMware page-retire readings, the two data
  entry layouts, and the section data behind an entry.
**/
#include "CperDumpSupport.h"

#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>

#define GESB_ERROR_DATA_ENTRY_COUNT(BlockStatus) (((BlockStatus) >> 4) & 0x3FF)
#define GESB_OS_TRANSFER_DATA(BlockStatus)       (((BlockStatus) >> 30) & 0x3)

//
// The page-retire entry defines only the FRU id and text validation bits and
// the Primary flag.
//
#define VMWARE_ENTRY_VALIDATION_BITS 2
#define VMWARE_ENTRY_FLAG_BITS       1

static_assert (OFFSET_OF (VMWARE_PAGE_RETIRE_DATA_ENTRY, FruText) == OFFSET_OF (GENERIC_ERROR_DATA_ENTRY, FruText),
               "the page-retire entry is the generic entry without its timestamp");

//
// Status block fields after the block status, the same in both readings.
//
STATIC CONST CPER_DUMP_FIELD mStatusBlockLengthFields[] = {
    CPER_DUMP_FIELD_OF (
        GENERIC_ERROR_STATUS, RawDataOffset, "      Raw Data Offset                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (
        GENERIC_ERROR_STATUS, RawDataLength, "      Raw Data Length                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (GENERIC_ERROR_STATUS, DataLength, "      Data Length                               = 0x%08x\n"),
};

//
// Section printers in the order an entry's section type is tested.
//
STATIC
VOID DisplayWheaPageRetireSection (IN UINTN DebugLevel, IN VOID *pSection) {
  DisplayCperSectionMemoryPageRetire (DebugLevel, (VMWARE_PAGE_RETIRE_RECORD *)pSection);
}

STATIC CONST CPER_SECTION_DISPATCH mDataEntrySectionPrinters[] = {
    {&gEfiProcessorGenericErrorSectionGuid, DisplayCperSectionProcessor, NULL, sizeof (CPER_SECTION_PROCESSOR_GENERIC)},
    {&gEfiProcessorSpecificErrorSectionGuid, DisplayCperSectionProcessorSpecific, NULL, sizeof (CPER_SECTION_IA32_X64)},
    {&gEfiPlatformMemoryErrorSectionGuid, DisplayCperSectionMemory, NULL, sizeof (CPER_SECTION_MEMORY)},
    {&gEfiPcieErrorSectionGuid, DisplayCperSectionPcie, NULL, sizeof (CPER_SECTION_PCIE)},
    {&gEfiPciDevErrorSectionGuid, DisplayCperSectionPciComponent, NULL, sizeof (CPER_SECTION_PCI_COMPONENT)},
    {&gEfiCxlProtocolErrorSectionGuid, DisplayCperSectionCxlProtocol, NULL, sizeof (CPER_SECTION_CXL_PROTOCOL)},
    {NULL, DisplayCperSectionCxlComponent, NULL, sizeof (CPER_SECTION_CXL_COMPONENT)},
    {&gEfiVmwarePageRetireSectionGuid, DisplayWheaPageRetireSection, NULL, sizeof (VMWARE_PAGE_RETIRE_RECORD)},
};

/**
  The block status as one 32-bit word: the page-retire reading gives its own
  meaning to bits the ACPI bit-fields call reserved.
**/
STATIC
UINT32 WheaStatusBlockWord (IN GENERIC_ERROR_STATUS *pGenericErrorStatusBlock) {
  UINT32 BlockStatus;

  CopyMem (&BlockStatus, &pGenericErrorStatusBlock->BlockStatus, sizeof (BlockStatus));
  return BlockStatus;
}

/**
  The whole block status word, first in both readings.
**/
STATIC
VOID DisplayWheaStatusBlockStatus (IN UINTN DebugLevel, IN GENERIC_ERROR_STATUS *pGenericErrorStatusBlock) {
  DEBUG ((DebugLevel, "      Block Status                              = 0x%08x\n",
          WheaStatusBlockWord (pGenericErrorStatusBlock)));
}

/**
  The lengths and severity, last in both readings.
**/
STATIC
VOID DisplayWheaStatusBlockTail (IN UINTN DebugLevel, IN GENERIC_ERROR_STATUS *pGenericErrorStatusBlock) {
  CperDumpFields (DebugLevel, pGenericErrorStatusBlock, mStatusBlockLengthFields,
                  ARRAY_SIZE (mStatusBlockLengthFields));
  CperDumpSeverity (DebugLevel, "      Error Severity                            = 0x%08x (%a)\n",
                    pGenericErrorStatusBlock->ErrorSeverity);
}

/**
  The entry count, bits 4..13 in both readings.
**/
STATIC
VOID DisplayWheaStatusBlockEntryCount (IN UINTN DebugLevel, IN UINT32 BlockStatus) {
  DEBUG ((DebugLevel, "      Block Status.ErrDataEntries               = 0x%03x (%d)\n",
          GESB_ERROR_DATA_ENTRY_COUNT (BlockStatus), GESB_ERROR_DATA_ENTRY_COUNT (BlockStatus)));
}

/**
  Prints a generic error status block header in its ACPI reading.
**/
VOID DisplayWheaGenericErrorStatusBlock (IN UINTN DebugLevel, IN GENERIC_ERROR_STATUS *pGenericErrorStatusBlock) {
  UINT32 BlockStatus;

  if (pGenericErrorStatusBlock == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pGenericErrorStatusBlock is a null pointer, returning.\n", __func__));
    return;
  }

  //
  // At a filtered level only the severity's converter runs, for the error
  // line it logs for an unknown severity.
  //
  if (!CperDumpLevelEnabled (DebugLevel)) {
    DisplayWheaStatusBlockTail (DebugLevel, pGenericErrorStatusBlock);
    return;
  }

  BlockStatus = WheaStatusBlockWord (pGenericErrorStatusBlock);
  DEBUG ((DebugLevel, "WHEA Generic Error Status Block data\n"));
  DisplayWheaStatusBlockStatus (DebugLevel, pGenericErrorStatusBlock);
  DEBUG ((DebugLevel, "      Block Status.UncErrValid                  = 0x%x\n", BlockStatus & BIT0));
  DEBUG ((DebugLevel, "      Block Status.CorErrValid                  = 0x%x\n", (BlockStatus >> 1) & 1));
  DEBUG ((DebugLevel, "      Block Status.MultUncErrs                  = 0x%x\n", (BlockStatus >> 2) & 1));
  DEBUG ((DebugLevel, "      Block Status.MultCorErrs                  = 0x%x\n", (BlockStatus >> 3) & 1));
  DisplayWheaStatusBlockEntryCount (DebugLevel, BlockStatus);
  DisplayWheaStatusBlockTail (DebugLevel, pGenericErrorStatusBlock);
}

/**
  Prints a generic error status block header in the VMware page-retire
  reading, which names bits 1 and 3 and uses bits 30..31.
**/
VOID DisplayWheaGenericErrorStatusBlockVmwarePageRetire (IN UINTN                 DebugLevel,
                                                         IN GENERIC_ERROR_STATUS *pGenericErrorStatusBlock) {
  UINT32 BlockStatus;

  if (pGenericErrorStatusBlock == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pGenericErrorStatusBlock is a null pointer, returning.\n", __func__));
    return;
  }

  BlockStatus = WheaStatusBlockWord (pGenericErrorStatusBlock);
  DEBUG ((DebugLevel, "WHEA Generic Error Status Block VMWare Page Retire v0.73 data\n"));
  DisplayWheaStatusBlockStatus (DebugLevel, pGenericErrorStatusBlock);
  DEBUG ((DebugLevel, "      Block Status.UnprocessedGedeInWq          = 0x%x\n", (BlockStatus >> 1) & 1));
  DEBUG ((DebugLevel, "      Block Status.MultipleUnprocessedGedesInWq = 0x%x\n", (BlockStatus >> 3) & 1));
  DisplayWheaStatusBlockEntryCount (DebugLevel, BlockStatus);
  DEBUG ((DebugLevel, "      Block Status.OsTransferData               = 0x%x\n", GESB_OS_TRANSFER_DATA (BlockStatus)));
  DisplayWheaStatusBlockTail (DebugLevel, pGenericErrorStatusBlock);
}

/**
  The data entry lines both layouts share, after the section type. Each
  layout decodes only the validation and flag bits it defines. The FRU
  fields print whatever the validation bits say; the text is not always
  terminated, so at most its 20 bytes print.
**/
STATIC
VOID DisplayWheaDataEntryFields (IN UINTN  DebugLevel,
                                 IN UINT32 ErrorSeverity,
                                 IN UINT16 Revision,
                                 IN UINT8  ValidationBits,
                                 IN UINTN  ValidationBitCount,
                                 IN UINT8  Flags,
                                 IN UINTN  FlagBitCount,
                                 IN UINT32 ErrorDataLength,
                                 IN UINT8 *pFruId,
                                 IN UINT8 *pFruText) {
  CperDumpSeverity (DebugLevel, "     Error Severity                  = 0x%08x (%a)\n", ErrorSeverity);
  DEBUG ((DebugLevel, "     Revision                        = 0x%04x\n", Revision));
  DEBUG ((DebugLevel, "     Validation Bits                 = 0x%02x\n", ValidationBits));
  CperDumpSetBits (DebugLevel, ValidationBits, mCperDumpEntryValidationBitLines, ValidationBitCount);
  DEBUG ((DebugLevel, "     Flags                           = 0x%02x\n", Flags));
  CperDumpSetBits (DebugLevel, Flags, mCperDumpSectionFlagBitLines, FlagBitCount);
  DEBUG ((DebugLevel, "     Error Data Length               = 0x%08x (%d)\n", ErrorDataLength, ErrorDataLength));
  DEBUG ((DebugLevel, "     FRU ID                          = %g\n", pFruId));
  DEBUG ((DebugLevel, "     FRU Text                        = %.20a\n", pFruText));
}

/**
  Prints an ACPI 6.3 generic error data entry.
**/
VOID DisplayWheaGenericErrorDataEntryv63 (IN UINTN DebugLevel, IN GENERIC_ERROR_DATA_ENTRY *pGenericErrorDataEntry) {
  if (pGenericErrorDataEntry == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pGenericErrorDataEntry is a null pointer, returning.\n", __func__));
    return;
  }

  //
  // At a filtered level only what can log at another level runs: the CXL
  // check of the section type and the severity's converter.
  //
  if (!CperDumpLevelEnabled (DebugLevel)) {
    CperDumpSectionType (DebugLevel, pGenericErrorDataEntry->SectionType);
    CperDumpSeverity (DebugLevel, "     Error Severity                  = 0x%08x (%a)\n",
                      pGenericErrorDataEntry->ErrorSeverity);
    return;
  }

  DEBUG ((DebugLevel, "WHEA Generic Error Data Entry data \n"));
  CperDumpSectionType (DebugLevel, pGenericErrorDataEntry->SectionType);
  DisplayWheaDataEntryFields (DebugLevel, pGenericErrorDataEntry->ErrorSeverity, pGenericErrorDataEntry->Revision,
                              pGenericErrorDataEntry->ValidationBits, CPER_DUMP_ENTRY_VALIDATION_BITS,
                              pGenericErrorDataEntry->Flags, CPER_DUMP_SECTION_FLAG_BITS,
                              pGenericErrorDataEntry->ErrorDataLength, pGenericErrorDataEntry->FruId,
                              pGenericErrorDataEntry->FruText);
  CperDumpTimestamp (DebugLevel, pGenericErrorDataEntry->Timestamp);
}

/**
  Prints a VMware page-retire data entry: FRU id and text are its only
  validation bits and Primary its only flag; it has no timestamp.
**/
VOID DisplayWheaGenericErrorDataEntryVmwarePageRetire (IN UINTN                          DebugLevel,
                                                       IN VMWARE_PAGE_RETIRE_DATA_ENTRY *pGenericErrorDataEntry) {
  if (pGenericErrorDataEntry == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pGenericErrorDataEntry is a null pointer, returning.\n", __func__));
    return;
  }

  DEBUG ((DebugLevel, "WHEA Generic Error Data Entry VMWare Page Retire v0.73 data\n"));
  CperDumpSectionTypeGuid (DebugLevel, (EFI_GUID *)pGenericErrorDataEntry->SectionType);
  DisplayWheaDataEntryFields (DebugLevel, pGenericErrorDataEntry->ErrorSeverity, pGenericErrorDataEntry->Revision,
                              pGenericErrorDataEntry->ValidationBits, VMWARE_ENTRY_VALIDATION_BITS,
                              pGenericErrorDataEntry->Flags, VMWARE_ENTRY_FLAG_BITS,
                              pGenericErrorDataEntry->ErrorDataLength, pGenericErrorDataEntry->FruId,
                              pGenericErrorDataEntry->FruText);
}

/**
  Prints the section data behind a data entry with the printer of its
  section type. The type is the caller's copy and is not checked.
**/
VOID DisplayWheaGenericErrorData (IN UINTN DebugLevel, IN EFI_GUID *pSectionType, IN VOID *pErrorDataPtr) {
  DisplayWheaGenericErrorDataOfLength (DebugLevel, pSectionType, pErrorDataPtr, MAX_UINT64);
}

/**
  The same for section data of a known length, which bounded printers
  stay inside.
**/
VOID DisplayWheaGenericErrorDataOfLength (IN UINTN     DebugLevel,
                                          IN EFI_GUID *pSectionType,
                                          IN VOID     *pErrorDataPtr,
                                          IN UINT64    Length) {
  if (pErrorDataPtr == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pErrorDataPtr is a null pointer, returning.\n", "DisplayWheaGenericErrorData"));
    return;
  }

  if (!CperDumpDispatchSection (DebugLevel, "DisplayWheaGenericErrorData", mDataEntrySectionPrinters,
                                ARRAY_SIZE (mDataEntrySectionPrinters), pSectionType, pErrorDataPtr, Length)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR GUID unrecognized, aborting...\n", "DisplayWheaGenericErrorData"));
  }
}
