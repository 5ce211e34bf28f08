/** @file
  CXL component event record identifiers. CXL event records carry their
  identifier as a UUID in big-endian text order, and as specified CPER
  producers put those bytes unchanged into the section type, so they are
  compared as raw bytes and never as EFI GUIDs. An OS compares section types
  as EFI GUIDs and calls such a section unknown; with the switch the section
  type is the identifier laid out as an EFI GUID.
**/
#include <Library/BaseLib.h>
#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/ElogBaseLib.h>
#include <Library/PcdLib.h>

#define VORN_ELOG_UUID_SIZE      16
#define VORN_ELOG_UUID_TEXT_SIZE 37

typedef struct {
  UINT8        Identifier[VORN_ELOG_UUID_SIZE];
  CONST CHAR8 *pName;
} VORN_ELOG_CXL_EVENT_RECORD_IDENTIFIER;

STATIC CONST VORN_ELOG_CXL_EVENT_RECORD_IDENTIFIER mCxlComponentEventRecordIdentifiers[] = {
    {{0xFB, 0xCD, 0x0A, 0x77, 0xC2, 0x60, 0x41, 0x7F, 0x85, 0xA9, 0x08, 0x8B, 0x16, 0x21, 0xEB, 0xA6},
     "General Media Event Record"},
    {{0x60, 0x1D, 0xCB, 0xB3, 0x9C, 0x06, 0x4E, 0xAB, 0xB8, 0xAF, 0x4E, 0x9B, 0xFB, 0x5C, 0x96, 0x24},
     "DRAM Event Record"},
    {{0xFE, 0x92, 0x74, 0x75, 0xDD, 0x59, 0x43, 0x39, 0xA5, 0x86, 0x79, 0xBA, 0xB1, 0x13, 0xB7, 0x74},
     "Memory Module Event Record"},
    {{0xE7, 0x1F, 0x3A, 0x40, 0x2D, 0x29, 0x40, 0x92, 0x8A, 0x39, 0x4D, 0x1C, 0x96, 0x6C, 0x7C, 0x65},
     "Memory Sparing Event Record"},
    {{0x77, 0xCF, 0x92, 0x71, 0x9C, 0x02, 0x47, 0x0B, 0x9F, 0xE4, 0xBC, 0x7B, 0x75, 0xF2, 0xDA, 0x97},
     "Physical Switch Event Record"},
    {{0x40, 0xD2, 0x64, 0x25, 0x33, 0x96, 0x4C, 0x4D, 0xA5, 0xDA, 0x3D, 0x47, 0x26, 0x3A, 0xF4, 0x25},
     "Virtual Switch Event Record"},
    {{0x8D, 0xC4, 0x43, 0x63, 0x0C, 0x96, 0x47, 0x10, 0xB7, 0xBF, 0x04, 0xBB, 0x99, 0x53, 0x4C, 0x3F},
     "MLD Port Event Record"},
    {{0xCA, 0x95, 0xAF, 0xA7, 0xF1, 0x83, 0x40, 0x18, 0x8C, 0x2F, 0x95, 0x26, 0x8E, 0x10, 0x1A, 0x2A},
     "Dynamic Capacity Event Record"},
};

//
// Where each identifier byte sits in a section type read as an EFI GUID.
//
STATIC CONST UINT8 mCxlGuidOrder[VORN_ELOG_UUID_SIZE] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};

/**
  The CXL event record identifier a section type stands for: the section
  type's own bytes, or with the switch the section type read as an EFI GUID
  (first three fields little-endian) and written out in UUID text order.
**/
VOID VornElogCxlSectionTypeToIdentifier (IN CONST UINT8 *pSectionType, OUT UINT8 *pIdentifier) {
  UINTN Index;

  if (!FeaturePcdGet (PcdVornFixCxlGuid)) {
    CopyGuid ((GUID *)pIdentifier, (CONST GUID *)pSectionType);
    return;
  }

  for (Index = 0; Index < VORN_ELOG_UUID_SIZE; Index++) {
    pIdentifier[Index] = pSectionType[mCxlGuidOrder[Index]];
  }
}

/**
  Looks the identifier up; NULL when it names no CXL component event record.
**/
STATIC
CONST VORN_ELOG_CXL_EVENT_RECORD_IDENTIFIER *VornElogCxlFindComponentEventRecordIdentifier (IN UINT8 *pUuid) {
  UINTN Index;

  //
  // The first bytes of the identifiers all differ: most types are told apart
  // without a whole compare.
  //
  for (Index = 0; Index < ARRAY_SIZE (mCxlComponentEventRecordIdentifiers); Index++) {
    if ((pUuid[0] == mCxlComponentEventRecordIdentifiers[Index].Identifier[0]) &&
        (CompareMem (pUuid, mCxlComponentEventRecordIdentifiers[Index].Identifier, VORN_ELOG_UUID_SIZE) == 0)) {
      return &mCxlComponentEventRecordIdentifiers[Index];
    }
  }

  return NULL;
}

/**
  Whether the section type stands for a CXL component event record. Most
  types start with a byte no identifier starts with, and are told apart
  before their identifier is built.
**/
STATIC
BOOLEAN
VornElogCxlIsComponentEventSectionType (IN CONST UINT8 *pSectionType) {
  UINT8 Identifier[VORN_ELOG_UUID_SIZE];
  UINT8 First;
  UINTN Index;

  First = pSectionType[FeaturePcdGet (PcdVornFixCxlGuid) ? mCxlGuidOrder[0] : 0];
  for (Index = 0; Index < ARRAY_SIZE (mCxlComponentEventRecordIdentifiers); Index++) {
    if (mCxlComponentEventRecordIdentifiers[Index].Identifier[0] == First) {
      VornElogCxlSectionTypeToIdentifier (pSectionType, Identifier);
      return (BOOLEAN)(VornElogCxlFindComponentEventRecordIdentifier (Identifier) != NULL);
    }
  }

  return FALSE;
}

/**
  Names the CXL component event record the identifier stands for.
**/
EFI_STATUS
VornElogCxlConvertComponentEventRecordIdentiferUuidToString (IN UINT8  *pEventRecordIdentifierUuid,
                                                             OUT CHAR8 *pBuffer,
                                                             IN UINTN   BufferSize) {
  CONST VORN_ELOG_CXL_EVENT_RECORD_IDENTIFIER *pEntry;

  if (pEventRecordIdentifierUuid == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pEventRecordIdentifierUuid is NULL, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  if (pBuffer == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pBuffer is NULL, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  if (BufferSize == 0) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR BufferSize is zero, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  pEntry = VornElogCxlFindComponentEventRecordIdentifier (pEventRecordIdentifierUuid);
  if (pEntry == NULL) {
    AsciiStrnCpyS (pBuffer, BufferSize, "Unrecognized Event Record Identifer GUID", BufferSize - 1);
    return EFI_UNSUPPORTED;
  }

  AsciiStrnCpyS (pBuffer, BufferSize, pEntry->pName, BufferSize - 1);
  return EFI_SUCCESS;
}

/**
  TRUE when the 16 bytes are a CXL component event record identifier. Logs at
  the library's own run-time level; DebugLevel is kept for the callers'
  interface only.
**/
BOOLEAN
VornElogCxlCheckComponentEventSectionType (IN UINTN DebugLevel, IN UINT8 *pUuid) {
  CHAR8 UuidText[VORN_ELOG_UUID_TEXT_SIZE];
  UINT8 Identifier[VORN_ELOG_UUID_SIZE];

  (VOID) DebugLevel;

  if (pUuid == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pUuid is NULL, aborting...\n", __func__));
    return FALSE;
  }

  //
  // The identifier's text is built only for a line that prints.
  //
  if (DebugPrintEnabled () && DebugPrintLevelEnabled (mPrivateDataVornElogBase.SerDbgLevel)) {
    VornElogCxlSectionTypeToIdentifier (pUuid, Identifier);
    VornElogConvertUuidToAsciiString (Identifier, UuidText);
    DEBUG (
        (mPrivateDataVornElogBase.SerDbgLevel, "%a: Validating UUID %a for CXL Component UUID\n", __func__, UuidText));
  }

  if (!VornElogCxlIsComponentEventSectionType (pUuid)) {
    DEBUG ((mPrivateDataVornElogBase.SerDbgLevel, "%a: UUID is not CXL component event section type\n", __func__));
    return FALSE;
  }

  DEBUG ((mPrivateDataVornElogBase.SerDbgLevel, "%a: UUID is CXL component event section type\n", __func__));
  return TRUE;
}
