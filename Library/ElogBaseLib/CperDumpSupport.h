/** @file
  Helpers shared by the CPER record, section and status-block dumps: code
  and GUID name tables, field tables, bit decodes, raw register data, the
  timestamp and section-type lines, and the section printer dispatch.

  Field lines are a label padded to 32 characters after five blanks, then
  "= " and the value; bit decodes sit under their field with seven blanks.
**/
#pragma once

#include <Uefi.h>
#include <CperSections.h>
#include <Library/ElogCperDump.h>

//
// A code and its name.
//
typedef struct {
  UINT32       Value;
  CONST CHAR8 *pText;
} CPER_CODE_TEXT;

//
// A GUID and its name.
//
typedef struct {
  CONST EFI_GUID *pGuid;
  CONST CHAR8    *pText;
} CPER_GUID_TEXT;

//
// One numeric field of a structure and the line that prints it. The value
// is handed to the line twice, so a line may show it in hex and decimal.
//
typedef struct {
  CONST CHAR8 *pLine;
  UINT16       Offset;
  UINT8        Size;
} CPER_DUMP_FIELD;

#define CPER_DUMP_FIELD_OF(Type, Field, Line) \
  { Line, (UINT16)OFFSET_OF (Type, Field), (UINT8)sizeof (((Type *)0)->Field) }

//
// Bits Start .. Start + Width - 1 of a value.
//
#define CPER_BITS(Value, Start, Width) ((UINT32)(((UINT64)(Value) >> (Start)) & ((1ULL << (Width)) - 1)))

typedef VOID (*CPER_SECTION_PRINTER) (IN UINTN DebugLevel, IN VOID *pSection);

//
// One section printer and the type it handles. A NULL type stands for the
// CXL component event identifiers, which are not EFI GUIDs. FixedLength is
// what the printer reads whatever the section's counts say.
//
typedef struct {
  CONST EFI_GUID      *pSectionType;
  CPER_SECTION_PRINTER Printer;
  CONST CHAR8         *pDetectedLine;
  UINT32               FixedLength;
} CPER_SECTION_DISPATCH;

//
// Decode lines shared by the section descriptor and data entry dumps.
//
#define CPER_DUMP_ENTRY_VALIDATION_BITS 3
#define CPER_DUMP_SECTION_FLAG_BITS     8
extern CONST CHAR8 *CONST mCperDumpEntryValidationBitLines[CPER_DUMP_ENTRY_VALIDATION_BITS];
extern CONST CHAR8 *CONST mCperDumpSectionFlagBitLines[CPER_DUMP_SECTION_FLAG_BITS];

extern CONST EFI_GUID gCperIa32X64CacheCheckGuid;
extern CONST EFI_GUID gCperIa32X64TlbCheckGuid;
extern CONST EFI_GUID gCperIa32X64BusCheckGuid;
extern CONST EFI_GUID gCperIa32X64MsCheckGuid;

CONST CHAR8 *CperLookupCodeText (IN CONST CPER_CODE_TEXT *pTable, IN UINTN Count, IN UINT32 Value);

CONST CHAR8 *CperLookupCodeName (IN CONST CPER_CODE_TEXT *pTable, IN UINTN Count, IN UINT32 Value);

CONST CHAR8 *CperLookupGuidText (IN CONST CPER_GUID_TEXT *pTable, IN UINTN Count, IN CONST EFI_GUID *pGuid);

UINT64
CperDumpReadValue (IN CONST VOID *pBase, IN UINTN Offset, IN UINTN Size);

/**
  TRUE when lines at DebugLevel print. Helpers whose lines are all at that
  level and that cannot log an error test it first, so that a dump at a
  filtered level costs its level tests and no field reads.
**/
BOOLEAN
CperDumpLevelEnabled (IN UINTN DebugLevel);

VOID CperDumpFields (IN UINTN DebugLevel, IN CONST VOID *pBase, IN CONST CPER_DUMP_FIELD *pFields, IN UINTN Count);

VOID CperDumpSetBits (IN UINTN DebugLevel, IN UINT64 Value, IN CONST CHAR8 *CONST *pBitLines, IN UINTN Count);

VOID CperDumpRawData (IN UINTN DebugLevel, IN CONST CHAR8 *pLine, IN CONST VOID *pData, IN UINTN Length);

VOID CperDumpSeverity (IN UINTN DebugLevel, IN CONST CHAR8 *pLine, IN UINT32 Severity);

VOID CperDumpTimestamp (IN UINTN DebugLevel, IN CONST UINT8 *pTimestamp);

VOID CperDumpSectionTypeGuid (IN UINTN DebugLevel, IN EFI_GUID *pSectionType);

VOID CperDumpSectionType (IN UINTN DebugLevel, IN UINT8 *pSectionType);

BOOLEAN
CperDumpSectionIsNull (IN CONST CHAR8 *pFunctionName, IN CONST VOID *pSection);

BOOLEAN
CperDumpDispatchSection (IN UINTN                        DebugLevel,
                         IN CONST CHAR8                 *pFunctionName,
                         IN CONST CPER_SECTION_DISPATCH *pTable,
                         IN UINTN                        Count,
                         IN EFI_GUID                    *pSectionType,
                         IN VOID                        *pSection,
                         IN UINT64                       SectionLength);

//
// As specified the printers trust every count and length a section holds.
// With the switch they stop at the end of the section being dispatched:
// these give how much of Length bytes at pData, or how many of Count items
// of ItemSize bytes, lie inside it (all of them when the switch is off or
// no section is being dispatched).
//
UINTN
CperDumpInsideSection (IN CONST VOID *pData, IN UINTN Length);

UINTN
CperDumpItemsInsideSection (IN CONST CHAR8 *pFunctionName, IN CONST VOID *pFirst, IN UINTN Count, IN UINTN ItemSize);

UINTN
CperDumpIa32X64Context (IN UINTN DebugLevel, IN UINTN Index, IN CPER_IA32_X64_CONTEXT_INFO *pContext);
