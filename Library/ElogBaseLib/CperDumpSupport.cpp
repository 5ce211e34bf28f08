/** @file
  Line printers and lookups shared by the CPER record, section and
  status-block dumps.
**/
#include "CperDumpSupport.h"

#include <CperSections.h>
#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/ElogBaseLib.h>
#include <Library/PcdLib.h>

//
// The section the dispatch is printing, for the bounded printers; NULL
// between sections.
//
STATIC CONST UINT8 *mCperDumpSection;
STATIC UINT64       mCperDumpSectionLength;

CONST EFI_GUID gCperIa32X64CacheCheckGuid = CPER_IA32_X64_CACHE_CHECK_GUID;
CONST EFI_GUID gCperIa32X64TlbCheckGuid   = CPER_IA32_X64_TLB_CHECK_GUID;
CONST EFI_GUID gCperIa32X64BusCheckGuid   = CPER_IA32_X64_BUS_CHECK_GUID;
CONST EFI_GUID gCperIa32X64MsCheckGuid    = CPER_IA32_X64_MS_CHECK_GUID;

CONST CHAR8 *CONST mCperDumpEntryValidationBitLines[CPER_DUMP_ENTRY_VALIDATION_BITS] = {
    "       Bit[00] FRUId\n",
    "       Bit[01] FRUString\n",
    "       Bit[02] Timestamp\n",
};

CONST CHAR8 *CONST mCperDumpSectionFlagBitLines[CPER_DUMP_SECTION_FLAG_BITS] = {
    "       Bit[00] Primary\n",
    "       Bit[01] Containment Warning\n",
    "       Bit[02] Reset\n",
    "       Bit[03] Error Threshold Exceeded\n",
    "       Bit[04] Resource Not Accessible\n",
    "       Bit[05] Latent Error\n",
    "       Bit[06] Propagated\n",
    "       Bit[07] Overflow\n",
};

/**
  Returns the name of Value in the table, or NULL when it has none.
**/
CONST CHAR8 *CperLookupCodeText (IN CONST CPER_CODE_TEXT *pTable, IN UINTN Count, IN UINT32 Value) {
  UINTN Index;

  //
  // Most tables list the codes from 0 in order: their rows are found at once.
  //
  if ((Value < Count) && (pTable[Value].Value == Value)) {
    return pTable[Value].pText;
  }

  for (Index = 0; Index < Count; Index++) {
    if (pTable[Index].Value == Value) {
      return pTable[Index].pText;
    }
  }

  return NULL;
}

/**
  Returns the name of Value in the table; values the table does not know
  are reserved ones.
**/
CONST CHAR8 *CperLookupCodeName (IN CONST CPER_CODE_TEXT *pTable, IN UINTN Count, IN UINT32 Value) {
  CONST CHAR8 *pText;

  pText = CperLookupCodeText (pTable, Count, Value);
  return pText == NULL ? "Reserved" : pText;
}

/**
  Returns the name of the GUID in the table, or NULL when it has none.
**/
CONST CHAR8 *CperLookupGuidText (IN CONST CPER_GUID_TEXT *pTable, IN UINTN Count, IN CONST EFI_GUID *pGuid) {
  UINTN Index;

  for (Index = 0; Index < Count; Index++) {
    if (CompareGuid (pTable[Index].pGuid, pGuid)) {
      return pTable[Index].pText;
    }
  }

  return NULL;
}

/**
  Reads a little-endian field of 1 to 8 bytes; packed fields may sit at any
  address.
**/
UINT64
CperDumpReadValue (IN CONST VOID *pBase, IN UINTN Offset, IN UINTN Size) {
  UINT64 Value;

  Value = 0;
  CopyMem (&Value, (CONST UINT8 *)pBase + Offset, Size);
  return Value;
}

BOOLEAN
CperDumpLevelEnabled (IN UINTN DebugLevel) {
  return (BOOLEAN)(DebugPrintEnabled () && DebugPrintLevelEnabled (DebugLevel));
}

/**
  Prints one line per field of the table. 64-bit fields are handed over as
  UINT64 for "%lx", narrower ones as UINT32 for "%x" and "%d".
**/
VOID CperDumpFields (IN UINTN DebugLevel, IN CONST VOID *pBase, IN CONST CPER_DUMP_FIELD *pFields, IN UINTN Count) {
  UINTN  Index;
  UINT64 Value;

  if (!CperDumpLevelEnabled (DebugLevel)) {
    return;
  }

  for (Index = 0; Index < Count; Index++) {
    Value = CperDumpReadValue (pBase, pFields[Index].Offset, pFields[Index].Size);
    if (pFields[Index].Size == sizeof (UINT64)) {
      DEBUG ((DebugLevel, pFields[Index].pLine, Value, Value));
    } else {
      DEBUG ((DebugLevel, pFields[Index].pLine, (UINT32)Value, (UINT32)Value));
    }
  }
}

/**
  Prints the decode line of every set bit that has one (NULL entries are
  reserved bits).
**/
VOID CperDumpSetBits (IN UINTN DebugLevel, IN UINT64 Value, IN CONST CHAR8 *CONST *pBitLines, IN UINTN Count) {
  UINTN Bit;

  if (!CperDumpLevelEnabled (DebugLevel)) {
    return;
  }

  for (Bit = 0; Bit < Count; Bit++) {
    if (((Value >> Bit) & 1) != 0 && pBitLines[Bit] != NULL) {
      DEBUG ((DebugLevel, pBitLines[Bit]));
    }
  }
}

/**
  Prints a field of raw register data: its line with the byte count, then
  the data as 32-bit words, four to a line, each line led by the byte offset
  of its first word. The last words print one to a line and a tail shorter
  than a word byte by byte, so nothing past Length is read.
**/
VOID CperDumpRawData (IN UINTN DebugLevel, IN CONST CHAR8 *pLine, IN CONST VOID *pData, IN UINTN Length) {
  UINTN Offset;

  if (!CperDumpLevelEnabled (DebugLevel)) {
    return;
  }

  Length = CperDumpInsideSection (pData, Length);
  DEBUG ((DebugLevel, pLine, (UINT32)Length));
  for (Offset = 0; Offset + 4 * sizeof (UINT32) <= Length; Offset += 4 * sizeof (UINT32)) {
    DEBUG ((DebugLevel, "       +0x%04x = 0x%08x 0x%08x 0x%08x 0x%08x\n", (UINT32)Offset,
            (UINT32)CperDumpReadValue (pData, Offset, sizeof (UINT32)),
            (UINT32)CperDumpReadValue (pData, Offset + 4, sizeof (UINT32)),
            (UINT32)CperDumpReadValue (pData, Offset + 8, sizeof (UINT32)),
            (UINT32)CperDumpReadValue (pData, Offset + 12, sizeof (UINT32))));
  }

  for (; Offset + sizeof (UINT32) <= Length; Offset += sizeof (UINT32)) {
    DEBUG ((DebugLevel, "       +0x%04x = 0x%08x\n", (UINT32)Offset,
            (UINT32)CperDumpReadValue (pData, Offset, sizeof (UINT32))));
  }

  for (; Offset < Length; Offset++) {
    DEBUG ((DebugLevel, "       +0x%04x = 0x%02x\n", (UINT32)Offset, (UINT32)CperDumpReadValue (pData, Offset, 1)));
  }
}

/**
  Prints a severity line with the severity's name in parentheses. Severities
  the converter leaves unnamed print an empty name.
**/
VOID CperDumpSeverity (IN UINTN DebugLevel, IN CONST CHAR8 *pLine, IN UINT32 Severity) {
  CHAR8 Name[100];

  //
  // At a filtered level the name is not wanted; the converter runs only for
  // the error line it logs for an unknown severity, into a buffer with room
  // for the terminator.
  //
  if (!CperDumpLevelEnabled (DebugLevel)) {
    if (!CperSeverityIsKnown (Severity)) {
      ConvertCperSeverityToString (Severity, Name, 1);
    }

    return;
  }

  ZeroMem (Name, sizeof (Name));
  ConvertCperSeverityToString (Severity, Name, sizeof (Name));
  DEBUG ((DebugLevel, pLine, Severity, Name));
}

/**
  Prints a CPER timestamp: the raw 64 bits, then the bytes as stored
  (month, day, century and year, hours, minutes, seconds, no BCD
  conversion) and the precision flag.
**/
VOID CperDumpTimestamp (IN UINTN DebugLevel, IN CONST UINT8 *pTimestamp) {
  UINT64 Raw;

  if (!CperDumpLevelEnabled (DebugLevel)) {
    return;
  }

  CopyMem (&Raw, pTimestamp, sizeof (Raw));
  DEBUG ((DebugLevel, "     Timestamp Raw Data              = 0x0%16lx (%02d/%02d/%02d%02d %02d:%02d:%02d) %a\n", Raw,
          pTimestamp[5], pTimestamp[4], pTimestamp[7], pTimestamp[6], pTimestamp[2], pTimestamp[1], pTimestamp[0],
          (pTimestamp[3] & BIT0) != 0 ? "Precise" : "!Precise"));
}

/**
  Prints a section type as a GUID with its section-type name.
**/
VOID CperDumpSectionTypeGuid (IN UINTN DebugLevel, IN EFI_GUID *pSectionType) {
  CHAR8 Name[100];

  if (!CperDumpLevelEnabled (DebugLevel)) {
    return;
  }

  ZeroMem (Name, sizeof (Name));
  ConvertCperSectionTypeGuidToString (pSectionType, Name, sizeof (Name));
  DEBUG ((DebugLevel, "     Section Type                    = %g (GUID %a)\n", pSectionType, Name));
}

/**
  Prints a section type. CXL component event identifiers are UUIDs in text
  byte order, so they print as UUID text, with the event record name in the
  parentheses; everything else prints as a GUID.
**/
VOID CperDumpSectionType (IN UINTN DebugLevel, IN UINT8 *pSectionType) {
  CHAR8 Name[100];
  CHAR8 UuidText[37];
  UINT8 Identifier[16];

  //
  // The CXL check logs at the library's own level: when neither level
  // prints, nothing here would.
  //
  if ((pSectionType != NULL) && !CperDumpLevelEnabled (DebugLevel) &&
      !CperDumpLevelEnabled (mPrivateDataVornElogBase.SerDbgLevel)) {
    return;
  }

  if (!VornElogCxlCheckComponentEventSectionType (DebugLevel, pSectionType)) {
    CperDumpSectionTypeGuid (DebugLevel, (EFI_GUID *)pSectionType);
    return;
  }

  if (!CperDumpLevelEnabled (DebugLevel)) {
    return;
  }

  ZeroMem (Name, sizeof (Name));
  ZeroMem (UuidText, sizeof (UuidText));
  VornElogCxlSectionTypeToIdentifier (pSectionType, Identifier);
  VornElogCxlConvertComponentEventRecordIdentiferUuidToString (Identifier, Name, sizeof (Name));
  VornElogConvertUuidToAsciiString (Identifier, UuidText);
  DEBUG ((DebugLevel, "     Section Type                    = %a (UUID %a)\n", UuidText, Name));
}

/**
  Section printers refuse a NULL section with the same message.
**/
BOOLEAN
CperDumpSectionIsNull (IN CONST CHAR8 *pFunctionName, IN CONST VOID *pSection) {
  if (pSection == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pSection is NULL, aborting...\n", pFunctionName));
    return TRUE;
  }

  return FALSE;
}

/**
  Hands the section to the first printer of the table whose type matches,
  after its detection line when it has one. Returns FALSE when none matches.
**/
BOOLEAN
CperDumpDispatchSection (IN UINTN                        DebugLevel,
                         IN CONST CHAR8                 *pFunctionName,
                         IN CONST CPER_SECTION_DISPATCH *pTable,
                         IN UINTN                        Count,
                         IN EFI_GUID                    *pSectionType,
                         IN VOID                        *pSection,
                         IN UINT64                       SectionLength) {
  UINTN   Index;
  BOOLEAN Match;

  for (Index = 0; Index < Count; Index++) {
    if (pTable[Index].pSectionType == NULL) {
      Match = VornElogCxlCheckComponentEventSectionType (DebugLevel, (UINT8 *)pSectionType);
    } else {
      Match = CompareGuid (pTable[Index].pSectionType, pSectionType);
    }

    if (Match) {
      if (pTable[Index].pDetectedLine != NULL) {
        DEBUG ((DebugLevel, pTable[Index].pDetectedLine, pFunctionName));
      }

      if (FeaturePcdGet (PcdVornFixCperBounds) && (SectionLength < pTable[Index].FixedLength)) {
        DEBUG ((DEBUG_ERROR, "%a: ERROR section length %ld is shorter than the %d bytes of its layout, not printed\n",
                pFunctionName, SectionLength, pTable[Index].FixedLength));
        return TRUE;
      }

      mCperDumpSection       = (CONST UINT8 *)pSection;
      mCperDumpSectionLength = SectionLength;
      pTable[Index].Printer (DebugLevel, pSection);
      mCperDumpSection = NULL;
      return TRUE;
    }
  }

  return FALSE;
}

UINTN
CperDumpInsideSection (IN CONST VOID *pData, IN UINTN Length) {
  UINTN Offset;

  if (!FeaturePcdGet (PcdVornFixCperBounds) || (mCperDumpSection == NULL)) {
    return Length;
  }

  if ((UINTN)pData < (UINTN)mCperDumpSection) {
    return 0;
  }

  Offset = (UINTN)pData - (UINTN)mCperDumpSection;
  if (Offset >= mCperDumpSectionLength) {
    return 0;
  }

  return ((UINT64)Length < mCperDumpSectionLength - Offset) ? Length : (UINTN)(mCperDumpSectionLength - Offset);
}

UINTN
CperDumpItemsInsideSection (IN CONST CHAR8 *pFunctionName, IN CONST VOID *pFirst, IN UINTN Count, IN UINTN ItemSize) {
  UINTN Fitting;

  Fitting = CperDumpInsideSection (pFirst, Count * ItemSize) / ItemSize;
  if (Fitting < Count) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %ld entries claimed, %ld lie inside the section\n", pFunctionName, (UINT64)Count,
            (UINT64)Fitting));
  }

  return Fitting;
}
