/** @file
  Dump of a whole CPER record: its header, every section descriptor and the
  section bodies through their section printers.
**/
#include "CperDumpSupport.h"

#include <Library/PcdLib.h>

#include <Library/DebugLib.h>

#define CPER_DESCRIPTOR_VALIDATION_BITS 2

STATIC CONST CHAR8 *CONST mHeaderValidationBitLines[] = {
    "       Bit[00] Platform ID\n",
    "       Bit[01] Time Stamp\n",
    "       Bit[02] Partition ID\n",
};

STATIC CONST CHAR8 *CONST mHeaderFlagBitLines[] = {
    "       Bit[00] Recovered\n",
    "       Bit[01] Previous Error\n",
    "       Bit[02] Simulated\n",
};

STATIC CONST CPER_GUID_TEXT mNotificationTypeTexts[] = {
    {&gEfiEventNotificationTypeMceGuid, "MCE"},
    {&gEfiEventNotificationTypeCmcGuid, "CMC"},
    {&gEfiEventNotificationTypeNmiGuid, "NMI"},
    {&gEfiEventNotificationTypePcieGuid, "PCIE"},
};

STATIC
VOID DisplayCperRecordPageRetireSection (IN UINTN DebugLevel, IN VOID *pSection) {
  DisplayCperSectionMemoryPageRetire (DebugLevel, (VMWARE_PAGE_RETIRE_RECORD *)pSection);
}

//
// Section printers in the order a descriptor's section type is tested.
//
STATIC CONST CPER_SECTION_DISPATCH mRecordSectionPrinters[] = {
    {&gEfiProcessorGenericErrorSectionGuid, DisplayCperSectionProcessor,
     "%a: CPER section type processor generic error GUID detected\n", sizeof (CPER_SECTION_PROCESSOR_GENERIC)},
    {&gEfiProcessorSpecificErrorSectionGuid, DisplayCperSectionProcessorSpecific,
     "%a: CPER section type processor specific error GUID detected\n", sizeof (CPER_SECTION_IA32_X64)},
    {&gEfiPlatformMemoryErrorSectionGuid, DisplayCperSectionMemory,
     "%a: CPER section type memory error GUID detected\n", sizeof (CPER_SECTION_MEMORY)},
    {&gEfiPcieErrorSectionGuid, DisplayCperSectionPcie, "%a: CPER section type PCIe error GUID detected\n",
     sizeof (CPER_SECTION_PCIE)},
    {&gEfiPciDevErrorSectionGuid, DisplayCperSectionPciComponent,
     "%a: CPER section type PCI component error GUID detected\n", sizeof (CPER_SECTION_PCI_COMPONENT)},
    {&gEfiVmwarePageRetireSectionGuid, DisplayCperRecordPageRetireSection,
     "%a: CPER section type VMWare WHEA page retire record GUID detected\n", sizeof (VMWARE_PAGE_RETIRE_RECORD)},
    {&gEfiCxlProtocolErrorSectionGuid, DisplayCperSectionCxlProtocol,
     "%a: CPER section type CXL protocol error GUID detected\n", sizeof (CPER_SECTION_CXL_PROTOCOL)},
    {NULL, DisplayCperSectionCxlComponent, "%a: CPER section type CXL component event GUID detected\n",
     sizeof (CPER_SECTION_CXL_COMPONENT)},
};

/**
  Prints a CPER record header field by field.
**/
VOID DisplayCperRecordHeader (IN UINTN DebugLevel, IN EFI_COMMON_ERROR_RECORD_HEADER *pCperHeader) {
  CONST CHAR8 *pNotificationName;

  if (pCperHeader == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pCperHeader is NULL, aborting...\n", __func__));
    return;
  }

  DEBUG ((DebugLevel, "CPER Record Header @ 0x%016lx length %d\n", (UINT64)(UINTN)pCperHeader,
          (UINT32)sizeof (EFI_COMMON_ERROR_RECORD_HEADER)));
  DEBUG ((DebugLevel, "     Signature Start                 = 0x%08x\n", pCperHeader->SignatureStart));
  DEBUG ((DebugLevel, "     Revision                        = 0x%04x\n", pCperHeader->Revision));
  DEBUG ((DebugLevel, "     Signature End                   = 0x%08x\n", pCperHeader->SignatureEnd));
  DEBUG ((DebugLevel, "     Section Count                   = 0x%04x (%d)\n", pCperHeader->SectionCount,
          pCperHeader->SectionCount));
  CperDumpSeverity (DebugLevel, "     Error Severity                  = 0x%08x (%a)\n", pCperHeader->ErrorSeverity);
  DEBUG ((DebugLevel, "     Validation Bits                 = 0x%08x\n", pCperHeader->ValidationBits));
  CperDumpSetBits (DebugLevel, pCperHeader->ValidationBits, mHeaderValidationBitLines,
                   ARRAY_SIZE (mHeaderValidationBitLines));
  DEBUG ((DebugLevel, "     Record Length                   = 0x%08x (%d)\n", pCperHeader->RecordLength,
          pCperHeader->RecordLength));
  CperDumpTimestamp (DebugLevel, (CONST UINT8 *)&pCperHeader->TimeStamp);
  DEBUG ((DebugLevel, "     Platform ID                     = %g\n", &pCperHeader->PlatformID));
  DEBUG ((DebugLevel, "     Partition ID                    = %g\n", &pCperHeader->PartitionID));
  DEBUG ((DebugLevel, "     Creator ID                      = %g\n", &pCperHeader->CreatorID));

  pNotificationName =
      CperLookupGuidText (mNotificationTypeTexts, ARRAY_SIZE (mNotificationTypeTexts), &pCperHeader->NotificationType);
  DEBUG ((DebugLevel, "     Notification Type               = %g (%a)\n", &pCperHeader->NotificationType,
          pNotificationName == NULL ? "" : pNotificationName));
  DEBUG ((DebugLevel, "     Record ID                       = 0x%016lx\n", pCperHeader->RecordID));
  DEBUG ((DebugLevel, "     Flags                           = 0x%08x\n", pCperHeader->Flags));
  CperDumpSetBits (DebugLevel, pCperHeader->Flags, mHeaderFlagBitLines, ARRAY_SIZE (mHeaderFlagBitLines));
  DEBUG ((DebugLevel, "     Persistence Information         = 0x%016lx\n", pCperHeader->PersistenceInfo));
}

/**
  Prints a CPER section descriptor field by field.
**/
VOID DisplayCperSectionDescriptor (IN UINTN DebugLevel, IN EFI_ERROR_SECTION_DESCRIPTOR *pCperSectionDescriptor) {
  if (pCperSectionDescriptor == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pCperSectionDescriptor is NULL, aborting...\n", __func__));
    return;
  }

  DEBUG ((DebugLevel, "CPER Section Descriptor @ 0x%016lx length %d\n", (UINT64)(UINTN)pCperSectionDescriptor,
          (UINT32)sizeof (EFI_ERROR_SECTION_DESCRIPTOR)));
  DEBUG ((DebugLevel, "     Section Offset                  = 0x%08x (%d)\n", pCperSectionDescriptor->SectionOffset,
          pCperSectionDescriptor->SectionOffset));
  DEBUG ((DebugLevel, "     Section Length                  = 0x%08x (%d)\n", pCperSectionDescriptor->SectionLength,
          pCperSectionDescriptor->SectionLength));
  DEBUG ((DebugLevel, "     Revision                        = 0x%04x\n", pCperSectionDescriptor->Revision));
  DEBUG ((DebugLevel, "     Validation Bits                 = 0x%02x\n", pCperSectionDescriptor->SecValidMask));
  CperDumpSetBits (DebugLevel, pCperSectionDescriptor->SecValidMask, mCperDumpEntryValidationBitLines,
                   CPER_DESCRIPTOR_VALIDATION_BITS);
  DEBUG ((DebugLevel, "     Reserved                        = 0x%02x\n", pCperSectionDescriptor->Resv1));
  DEBUG ((DebugLevel, "     Flags                           = 0x%08x\n", pCperSectionDescriptor->SectionFlags));
  CperDumpSetBits (DebugLevel, pCperSectionDescriptor->SectionFlags, mCperDumpSectionFlagBitLines,
                   CPER_DUMP_SECTION_FLAG_BITS);
  CperDumpSectionType (DebugLevel, (UINT8 *)&pCperSectionDescriptor->SectionType);
  if ((pCperSectionDescriptor->SecValidMask & EFI_ERROR_SECTION_FRU_ID_VALID) != 0) {
    DEBUG ((DebugLevel, "     FRU ID                          = %g\n", &pCperSectionDescriptor->FruId));
  }

  CperDumpSeverity (DebugLevel, "     Section Severity                = 0x%08x (%a)\n",
                    pCperSectionDescriptor->Severity);
  DEBUG ((DebugLevel, "     FRU Text                        = %.20a\n", pCperSectionDescriptor->FruString));
}

/**
  Prints a CPER record: the header, then each descriptor and its section
  body, found through the descriptor's SectionOffset. A section of unknown
  type is reported and the walk goes on with the next descriptor.
**/
VOID DisplayCperRecord (IN UINTN DebugLevel, IN VOID *pCperRecord) {
  EFI_COMMON_ERROR_RECORD_HEADER *pOsRecordHdr;
  EFI_ERROR_SECTION_DESCRIPTOR   *pDescriptor;
  UINT8                          *pSection;
  UINTN                           Index;

  pOsRecordHdr = (EFI_COMMON_ERROR_RECORD_HEADER *)pCperRecord;
  if (pOsRecordHdr->SignatureStart != EFI_ERROR_RECORD_SIGNATURE_START) {
    DEBUG ((DebugLevel, "%a: ERROR pOsRecordHdr->SignatureStart != CPER, aborting...\n", __func__));
    return;
  }

  DEBUG ((DebugLevel, "%a: pOsRecordHdr->SignatureStart == CPER, Parsing CPER record\n", __func__));
  DEBUG ((DebugLevel, "%a: Section count %d\n", __func__, pOsRecordHdr->SectionCount));
  DisplayCperRecordHeader (DebugLevel, pOsRecordHdr);

  //
  // As specified the counts and offsets are trusted; with the switch nothing
  // is read past RecordLength.
  //
  pDescriptor = (EFI_ERROR_SECTION_DESCRIPTOR *)(pOsRecordHdr + 1);
  for (Index = 0; Index < pOsRecordHdr->SectionCount; Index++, pDescriptor++) {
    if (FeaturePcdGet (PcdVornFixCperBounds) &&
        (sizeof (*pOsRecordHdr) + (Index + 1) * sizeof (*pDescriptor) > pOsRecordHdr->RecordLength)) {
      DEBUG ((DEBUG_ERROR, "%a: ERROR Descriptor %d lies past RecordLength %d, aborting...\n", __func__, (UINT32)Index,
              pOsRecordHdr->RecordLength));
      return;
    }

    DEBUG ((DebugLevel, "%a: Processing Descriptor %d and associated Section data\n", __func__, (UINT32)Index));
    DisplayCperSectionDescriptor (DebugLevel, pDescriptor);

    pSection = (UINT8 *)pCperRecord + pDescriptor->SectionOffset;
    DEBUG ((DebugLevel, "%a: CPER section data @ 0x%016lx length %d\n", __func__, (UINT64)(UINTN)pSection,
            pDescriptor->SectionLength));
    if (FeaturePcdGet (PcdVornFixCperBounds) &&
        ((UINT64)pDescriptor->SectionOffset + pDescriptor->SectionLength > pOsRecordHdr->RecordLength)) {
      DEBUG ((DEBUG_ERROR, "%a: ERROR section %d runs past RecordLength %d, not printed\n", __func__, (UINT32)Index,
              pOsRecordHdr->RecordLength));
      continue;
    }

    if (!CperDumpDispatchSection (DebugLevel, __func__, mRecordSectionPrinters, ARRAY_SIZE (mRecordSectionPrinters),
                                  &pDescriptor->SectionType, pSection, pDescriptor->SectionLength)) {
      DEBUG ((DEBUG_ERROR, "%a: ERROR CPER section type GUID unrecognized, aborting...\n", __func__));
    }
  }
}
