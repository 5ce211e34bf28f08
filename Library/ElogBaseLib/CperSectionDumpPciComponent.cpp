/** @file
  Dump of the PCI/PCI-X component error section.
**/
#include "CperDumpSupport.h"

#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>

STATIC CONST CHAR8 *CONST mPciComponentValidationBitLines[] = {
    "       Bit[00] Error Status\n",       "       Bit[01] ID Info\n",
    "       Bit[02] Memory Number\n",      "       Bit[03] IO Number\n",
    "       Bit[04] Register Data Pair\n",
};

STATIC CONST CPER_DUMP_FIELD mPciComponentFields[] = {
    CPER_DUMP_FIELD_OF (CPER_SECTION_PCI_COMPONENT, IdInfo.VendorId, "     Vendor ID                       = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_PCI_COMPONENT, IdInfo.DeviceId, "     Device ID                       = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (
        CPER_SECTION_PCI_COMPONENT, IdInfo.ClassCode, "     Class Code                      = 0x%06x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_PCI_COMPONENT, IdInfo.Function, "     Function                        = 0x%02x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_PCI_COMPONENT, IdInfo.Device, "     Device                          = 0x%02x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_PCI_COMPONENT, IdInfo.Bus, "     Bus                             = 0x%02x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_PCI_COMPONENT, IdInfo.Segment, "     Segment                         = 0x%02x\n"),
    CPER_DUMP_FIELD_OF (
        CPER_SECTION_PCI_COMPONENT, MemoryNumber, "     Memory Number                   = 0x%08x (%d)\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_PCI_COMPONENT, IoNumber, "     IO Number                       = 0x%08x (%d)\n"),
};

/**
  Prints a PCI/PCI-X component error section field by field, then its
  register address/value pairs (memory ones first, then I/O ones).
**/
VOID DisplayCperSectionPciComponent (IN UINTN DebugLevel, IN VOID *pSection) {
  CPER_SECTION_PCI_COMPONENT       *pComponent;
  CPER_PCI_COMPONENT_REGISTER_PAIR *pPair;
  CHAR8                             Name[100];
  UINTN                             PairCount;
  UINTN                             Index;

  if (CperDumpSectionIsNull (__func__, pSection)) {
    return;
  }

  pComponent = (CPER_SECTION_PCI_COMPONENT *)pSection;
  DEBUG ((DebugLevel, "CPER PCI component error section data\n"));
  DEBUG ((DebugLevel, "     Validation Bits                 = 0x%016lx\n", pComponent->ValidFields));
  CperDumpSetBits (DebugLevel, pComponent->ValidFields, mPciComponentValidationBitLines,
                   ARRAY_SIZE (mPciComponentValidationBitLines));
  //
  // Only a valid error status is named; an unset one would log a spurious
  // unrecognized-type error.
  //
  ZeroMem (Name, sizeof (Name));
  if ((pComponent->ValidFields & CPER_PCI_COMPONENT_VALID_ERROR_STATUS) != 0) {
    ConvertErrorStatusTypeToString (&pComponent->ErrorStatus, Name, sizeof (Name));
  }

  DEBUG ((DebugLevel, "     Error Status                    = 0x%016lx (%a)\n", pComponent->ErrorStatus, Name));
  CperDumpFields (DebugLevel, pComponent, mPciComponentFields, ARRAY_SIZE (mPciComponentFields));

  pPair     = (CPER_PCI_COMPONENT_REGISTER_PAIR *)(pComponent + 1);
  PairCount = CperDumpItemsInsideSection (__func__, pPair, (UINTN)pComponent->MemoryNumber + pComponent->IoNumber,
                                          sizeof (*pPair));
  for (Index = 0; Index < PairCount; Index++, pPair++) {
    DEBUG ((DebugLevel, "     Register Pair[%02d] Address       = 0x%016lx\n", (UINT32)Index, pPair->Address));
    DEBUG ((DebugLevel, "     Register Pair[%02d] Value         = 0x%016lx\n", (UINT32)Index, pPair->Value));
  }
}
