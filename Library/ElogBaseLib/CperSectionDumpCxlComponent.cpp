/** @file
  Dump of the CXL Component Events section: the section head and the CXL
  component event record it carries.
**/
#include "CperDumpSupport.h"

#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/ElogBaseLib.h>

STATIC CONST CHAR8 *CONST mCxlComponentValidationBitLines[] = {
    "       Bit[00] Device ID\n",
    "       Bit[01] Device Serial Number\n",
    "       Bit[02] Component Event Log\n",
};

//
// Event record flags after the two severity bits.
//
STATIC CONST CHAR8 *CONST mCxlEventFlagBitLines[] = {
    NULL,
    NULL,
    "       Bit[02] Permanent Condition\n",
    "       Bit[03] Maintenance Needed\n",
    "       Bit[04] Performance Degraded\n",
    "       Bit[05] Hardware Replacement Needed\n",
};

STATIC CONST CPER_CODE_TEXT mCxlEventSeverityTexts[] = {
    {0, "Informational"},
    {1, "Warning"},
    {2, "Failure"},
    {3, "Fatal"},
};

STATIC CONST CPER_DUMP_FIELD mCxlComponentHeadFields[] = {
    CPER_DUMP_FIELD_OF (
        CPER_SECTION_CXL_COMPONENT, DeviceId.VendorId, "     Vendor ID                       = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (
        CPER_SECTION_CXL_COMPONENT, DeviceId.DeviceId, "     Device ID                       = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (
        CPER_SECTION_CXL_COMPONENT, DeviceId.Function, "     Function                        = 0x%02x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_CXL_COMPONENT, DeviceId.Device, "     Device                          = 0x%02x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_CXL_COMPONENT, DeviceId.Bus, "     Bus                             = 0x%02x\n"),
    CPER_DUMP_FIELD_OF (
        CPER_SECTION_CXL_COMPONENT, DeviceId.Segment, "     Segment                         = 0x%04x\n"),
};

STATIC CONST CPER_DUMP_FIELD mCxlEventRecordFields[] = {
    CPER_DUMP_FIELD_OF (CPER_CXL_EVENT_RECORD_HEADER, Handle, "     Event Record Handle             = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_CXL_EVENT_RECORD_HEADER, RelatedHandle, "     Related Event Record Handle     = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_CXL_EVENT_RECORD_HEADER, Timestamp, "     Event Record Timestamp          = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (
        CPER_CXL_EVENT_RECORD_HEADER, MaintenanceOperationClass, "     Maintenance Operation Class     = 0x%02x\n"),
};

/**
  Prints the common head of a CXL component event record, then its
  record-specific data as raw words, up to the record's own length.
**/
STATIC
VOID DisplayCperCxlEventRecord (IN UINTN DebugLevel, IN CPER_CXL_EVENT_RECORD_HEADER *pRecord) {
  CHAR8  Name[100];
  CHAR8  UuidText[37];
  UINT32 Flags;
  UINTN  DataLength;

  ZeroMem (Name, sizeof (Name));
  ZeroMem (UuidText, sizeof (UuidText));
  VornElogCxlConvertComponentEventRecordIdentiferUuidToString (pRecord->Identifier, Name, sizeof (Name));
  VornElogConvertUuidToAsciiString (pRecord->Identifier, UuidText);
  DEBUG ((DebugLevel, "     Event Record Identifier         = %a (%a)\n", UuidText, Name));
  DEBUG ((DebugLevel, "     Event Record Length             = 0x%02x (%d)\n", pRecord->Length, pRecord->Length));

  Flags = (UINT32)CperDumpReadValue (pRecord->Flags, 0, sizeof (pRecord->Flags));
  DEBUG ((DebugLevel, "     Event Record Flags              = 0x%06x\n", Flags));
  DEBUG ((DebugLevel, "       Event Record Severity         = 0x%x (%a)\n", CPER_BITS (Flags, 0, 2),
          CperLookupCodeName (mCxlEventSeverityTexts, ARRAY_SIZE (mCxlEventSeverityTexts), CPER_BITS (Flags, 0, 2))));
  CperDumpSetBits (DebugLevel, Flags, mCxlEventFlagBitLines, ARRAY_SIZE (mCxlEventFlagBitLines));
  CperDumpFields (DebugLevel, pRecord, mCxlEventRecordFields, ARRAY_SIZE (mCxlEventRecordFields));

  DataLength = pRecord->Length > sizeof (*pRecord) ? pRecord->Length - sizeof (*pRecord) : 0;
  CperDumpRawData (DebugLevel, "     Event Record Data               = %d bytes\n", pRecord + 1, DataLength);
}

/**
  Prints a CXL Component Events section field by field.
**/
VOID DisplayCperSectionCxlComponent (IN UINTN DebugLevel, IN VOID *pSection) {
  CPER_SECTION_CXL_COMPONENT *pComponent;

  if (CperDumpSectionIsNull (__func__, pSection)) {
    return;
  }

  pComponent = (CPER_SECTION_CXL_COMPONENT *)pSection;
  DEBUG ((DebugLevel, "CPER CXL component event section data\n"));
  DEBUG ((DebugLevel, "     Length                          = 0x%08x (%d)\n", pComponent->Length, pComponent->Length));
  DEBUG ((DebugLevel, "     Validation Bits                 = 0x%016lx\n", pComponent->ValidFields));
  CperDumpSetBits (DebugLevel, pComponent->ValidFields, mCxlComponentValidationBitLines,
                   ARRAY_SIZE (mCxlComponentValidationBitLines));
  CperDumpFields (DebugLevel, pComponent, mCxlComponentHeadFields, ARRAY_SIZE (mCxlComponentHeadFields));
  DEBUG ((DebugLevel, "     Slot Number                     = 0x%04x\n", CPER_BITS (pComponent->DeviceId.Slot, 3, 13)));
  DEBUG ((DebugLevel, "     Device Serial Number            = 0x%016lx\n", pComponent->SerialNumber));
  DisplayCperCxlEventRecord (DebugLevel, &pComponent->EventRecord);
}
