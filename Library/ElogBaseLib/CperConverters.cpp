/** @file
  Converters that name CPER codes and GUIDs for the record and status-block
  dumps. Each writes one text into the caller's buffer with a bounded copy.
**/
#include "CperDumpSupport.h"

#include <Library/BaseLib.h>
#include <Library/DebugLib.h>

#define CPER_SEVERITY_UNSET_16 0xFFFF
#define CPER_SEVERITY_UNSET_32 0xFFFFFFFF

STATIC CONST CPER_CODE_TEXT mSeverityTexts[] = {
    {0, "Recoverable"},
    {1, "Fatal"},
    {2, "Corrected"},
    {3, "None"},
};

//
// Processor Generic and PCI component are left out on purpose: their entries
// are named "Unrecognized".
//
STATIC CONST CPER_GUID_TEXT mSectionTypeTexts[] = {
    {&gEfiProcessorSpecificErrorSectionGuid, "ProcSpecific"},
    {&gEfiPlatformMemoryErrorSectionGuid, "Memory"},
    {&gEfiVmwarePageRetireSectionGuid, "Memory Page Retire - Linux/VMWare"},
    {&gEfiPcieErrorSectionGuid, "PCIe"},
    {&gEfiCxlProtocolErrorSectionGuid, "CXL Protocol"},
};

STATIC CONST CPER_GUID_TEXT mErrorStructureTypeTexts[] = {
    {&gCperIa32X64CacheCheckGuid, "IA32/X64 Cache Check Structure"},
    {&gCperIa32X64TlbCheckGuid, "IA32/X64 TLB Check Structure"},
    {&gCperIa32X64BusCheckGuid, "IA32/X64 Bus Check Structure"},
    {&gCperIa32X64MsCheckGuid, "IA32/X64 MS Check Field Description"},
};

STATIC CONST CPER_CODE_TEXT mRegisterContextTypeTexts[] = {
    {0, "Unclassified Data"},
    {1, "MSR Registers"},
    {2, "32 Bit Mode Execution Context"},
    {3, "64 Bit Mode Execution Context"},
    {4, "FXSAVE Context"},
    {5, "32 Bit Mode Debug Registers"},
    {6, "64 Bit Mode Debug Registers"},
    {7, "Memory Mapped Registers"},
};

STATIC CONST CPER_CODE_TEXT mTransactionTypeTexts[] = {
    {0, "Instruction"},
    {1, "Data Access"},
    {2, "Generic"},
};

STATIC CONST CPER_CODE_TEXT mOperationTexts[] = {
    {0, "Generic Error"},     {1, "Generic Read"}, {2, "Generic Write"}, {3, "Data Read"}, {4, "Data Write"},
    {5, "Instruction Fetch"}, {6, "Prefetch"},     {7, "Eviction"},      {8, "Snoop"},
};

STATIC CONST CPER_CODE_TEXT mParticipationTypeTexts[] = {
    {0, "Local Processor Originated Request"},
    {1, "Local Processor Responded to Request"},
    {2, "Local Processor Observed"},
    {3, "Generic"},
};

STATIC CONST CPER_CODE_TEXT mAddressSpaceTexts[] = {
    {0, "Memory Access"},
    {1, "Reserved"},
    {2, "I/O"},
    {3, "Other Transaction"},
};

STATIC CONST CPER_CODE_TEXT mErrorTypeTexts[] = {
    {0, "No Error"},       {1, "Unclassified"}, {2, "Microcode ROM Parity Error"},
    {3, "External Error"}, {4, "FRC Error"},    {5, "Internal Unclassified"},
};

STATIC CONST CPER_CODE_TEXT mErrorStatusTypeTexts[] = {
    {1, "ERR_INTERNAL error detected internal to the component"},
    {4, "ERR_MEM storage error in memory (DRAM)"},
    {5, "ERR_TLB storage error in TLB"},
    {6, "ERR_CACHE storage error in cache"},
    {7, "ERR_FUNCTION in one or more functional units"},
    {8, "ERR_SELFTEST component failed self test"},
    {9, "ERR_FLOW overflow or undervalue of internal queue"},
    {16, "ERR_BUS error detected in the bus"},
    {17, "ERR_MAP Virtual address not found"},
    {18, "ERR_IMPROPER improper access error"},
    {19, "ERR_UNIMPL access to unmapped memory address"},
    {20, "ERR_LOL loss of lockstep"},
    {21, "ERR_RESPONSE response not associated with request"},
    {22, "ERR_PARITY bus parity error"},
    {23, "ERR_PROTOCOL detection of protocol error"},
    {24, "ERR_ERROR detection of a PATH error"},
    {25, "ERR_TIMEOUT bus operation timeout"},
    {26, "ERR_POISONED a read was issued to data that has been poisoned"},
};

/**
  The two checks every converter makes on the caller's buffer.
**/
STATIC
BOOLEAN
CperConverterBufferIsUsable (IN CONST CHAR8 *pFunctionName, IN CHAR8 *pBuffer, IN UINTN BufferSize) {
  if (pBuffer == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pBuffer is NULL, aborting...\n", pFunctionName));
    return FALSE;
  }

  if (BufferSize == 0) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR BufferSize is zero, aborting...\n", pFunctionName));
    return FALSE;
  }

  return TRUE;
}

/**
  Copies as much of the text as the buffer holds, always terminated.
**/
STATIC
VOID CperConverterCopyText (OUT CHAR8 *pBuffer, IN UINTN BufferSize, IN CONST CHAR8 *pText) {
  //
  // A dump at a filtered level asks with room for the terminator only.
  //
  if (BufferSize == 1) {
    pBuffer[0] = '\0';
    return;
  }

  AsciiStrnCpyS (pBuffer, BufferSize, pText, BufferSize - 1);
}

/**
  Names a code from its table. An unknown code logs pUnrecognizedLine (the
  converter's own field name) and writes pFallbackText.
  Returns EFI_INVALID_PARAMETER when the buffer is unusable, EFI_UNSUPPORTED
  for an unknown code, EFI_SUCCESS otherwise.
**/
STATIC
EFI_STATUS
CperConvertCode (IN CONST CHAR8          *pFunctionName,
                 IN CONST CHAR8          *pUnrecognizedLine,
                 IN CONST CHAR8          *pFallbackText,
                 IN CONST CPER_CODE_TEXT *pTable,
                 IN UINTN                 Count,
                 IN UINT32                Value,
                 OUT CHAR8               *pBuffer,
                 IN UINTN                 BufferSize) {
  CONST CHAR8 *pText;

  if (!CperConverterBufferIsUsable (pFunctionName, pBuffer, BufferSize)) {
    return EFI_INVALID_PARAMETER;
  }

  pText = CperLookupCodeText (pTable, Count, Value);
  if (pText == NULL) {
    DEBUG ((DEBUG_ERROR, pUnrecognizedLine, pFunctionName, Value));
    CperConverterCopyText (pBuffer, BufferSize, pFallbackText);
    return EFI_UNSUPPORTED;
  }

  CperConverterCopyText (pBuffer, BufferSize, pText);
  return EFI_SUCCESS;
}

/**
  Names a CPER severity. 0xFFFF and 0xFFFFFFFF mean "no severity" and leave
  the buffer as it is.
**/
EFI_STATUS
ConvertCperSeverityToString (IN UINT32 ErrorSeverity, OUT CHAR8 *pBuffer, IN UINTN BufferSize) {
  if (!CperConverterBufferIsUsable (__func__, pBuffer, BufferSize)) {
    return EFI_INVALID_PARAMETER;
  }

  if ((ErrorSeverity == CPER_SEVERITY_UNSET_16) || (ErrorSeverity == CPER_SEVERITY_UNSET_32)) {
    return EFI_SUCCESS;
  }

  return CperConvertCode (__func__, "%a: ERROR ErrorSeverity %d unrecognized type, aborting...\n", "Unrecognized Type",
                          mSeverityTexts, ARRAY_SIZE (mSeverityTexts), ErrorSeverity, pBuffer, BufferSize);
}

/**
  Whether ConvertCperSeverityToString knows the severity (a name, or no
  severity at all), so that it would log nothing for it.
**/
BOOLEAN
CperSeverityIsKnown (IN UINT32 ErrorSeverity) {
  return (BOOLEAN)((ErrorSeverity == CPER_SEVERITY_UNSET_16) || (ErrorSeverity == CPER_SEVERITY_UNSET_32) ||
                   (CperLookupCodeText (mSeverityTexts, ARRAY_SIZE (mSeverityTexts), ErrorSeverity) != NULL));
}

/**
  Names a CPER section type GUID.
**/
EFI_STATUS
ConvertCperSectionTypeGuidToString (IN EFI_GUID *pSectionType, OUT CHAR8 *pBuffer, IN UINTN BufferSize) {
  CONST CHAR8 *pText;

  if (!CperConverterBufferIsUsable (__func__, pBuffer, BufferSize)) {
    return EFI_INVALID_PARAMETER;
  }

  pText = CperLookupGuidText (mSectionTypeTexts, ARRAY_SIZE (mSectionTypeTexts), pSectionType);
  if (pText == NULL) {
    CperConverterCopyText (pBuffer, BufferSize, "Unrecognized");
    return EFI_UNSUPPORTED;
  }

  CperConverterCopyText (pBuffer, BufferSize, pText);
  return EFI_SUCCESS;
}

/**
  Names an IA32/X64 error structure type; an unknown type leaves the buffer
  as it is.
**/
VOID ConvertErrorStructureTypeGuidToString (IN EFI_GUID *pErrorStructureType, OUT CHAR8 *pBuffer, IN UINTN BufferSize) {
  CONST CHAR8 *pText;

  if (!CperConverterBufferIsUsable (__func__, pBuffer, BufferSize)) {
    return;
  }

  pText = CperLookupGuidText (mErrorStructureTypeTexts, ARRAY_SIZE (mErrorStructureTypeTexts), pErrorStructureType);
  if (pText != NULL) {
    CperConverterCopyText (pBuffer, BufferSize, pText);
  }
}

/**
  Names an IA32/X64 register context type.
**/
VOID ConvertRegisterContextTypeToString (IN UINT16 RegisterContextType, OUT CHAR8 *pBuffer, IN UINTN BufferSize) {
  CperConvertCode (__func__, "%a: ERROR RegisterContextType %d unrecognized, aborting...\n", "Unrecognized Value",
                   mRegisterContextTypeTexts, ARRAY_SIZE (mRegisterContextTypeTexts), RegisterContextType, pBuffer,
                   BufferSize);
}

/**
  Names the transaction type of a cache, TLB or bus check.
**/
VOID ConvertTransactionTypeToString (IN UINT8 TransactionType, OUT CHAR8 *pBuffer, IN UINTN BufferSize) {
  CperConvertCode (__func__, "%a: ERROR TransactionType %d unrecognized, aborting...\n", "Unrecognized Value",
                   mTransactionTypeTexts, ARRAY_SIZE (mTransactionTypeTexts), TransactionType, pBuffer, BufferSize);
}

/**
  Names the operation of a cache, TLB or bus check.
**/
VOID ConvertOperationToString (IN UINT8 Operation, OUT CHAR8 *pBuffer, IN UINTN BufferSize) {
  CperConvertCode (__func__, "%a: ERROR Operation %d unrecognized, aborting...\n", "Unrecognized Value",
                   mOperationTexts, ARRAY_SIZE (mOperationTexts), Operation, pBuffer, BufferSize);
}

/**
  Names the participation type of a bus check.
**/
VOID ConvertParticipationTypeToString (IN UINT8 ParticipationType, OUT CHAR8 *pBuffer, IN UINTN BufferSize) {
  CperConvertCode (__func__, "%a: ERROR ParticipationType %d unrecognized, aborting...\n", "Unrecognized Value",
                   mParticipationTypeTexts, ARRAY_SIZE (mParticipationTypeTexts), ParticipationType, pBuffer,
                   BufferSize);
}

/**
  Names the address space of a bus check.
**/
VOID ConvertAddressSpaceToString (IN UINT8 AddressSpace, OUT CHAR8 *pBuffer, IN UINTN BufferSize) {
  CperConvertCode (__func__, "%a: ERROR AddressSpace %d unrecognized, aborting...\n", "Unrecognized Value",
                   mAddressSpaceTexts, ARRAY_SIZE (mAddressSpaceTexts), AddressSpace, pBuffer, BufferSize);
}

/**
  Names the error type of an MS check.
**/
VOID ConvertErrorTypeToString (IN UINT8 ErrorType, OUT CHAR8 *pBuffer, IN UINTN BufferSize) {
  CperConvertCode (__func__, "%a: ERROR ErrorType %d unrecognized, aborting...\n", "Unrecognized Value",
                   mErrorTypeTexts, ARRAY_SIZE (mErrorTypeTexts), ErrorType, pBuffer, BufferSize);
}

/**
  Names the error type held in bits 15:8 of a CPER Error Status, which may
  sit unaligned inside a packed section.
**/
VOID ConvertErrorStatusTypeToString (IN UINT64 *pUefiCperErrorStatus, OUT CHAR8 *pBuffer, IN UINTN BufferSize) {
  if (pUefiCperErrorStatus == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pUefiCperErrorStatus is NULL, aborting...\n", __func__));
    return;
  }

  CperConvertCode (__func__, "%a: ERROR ErrorType %d unrecognized, aborting...\n", "Unrecognized Value",
                   mErrorStatusTypeTexts, ARRAY_SIZE (mErrorStatusTypeTexts),
                   (UINT32)((CperDumpReadValue (pUefiCperErrorStatus, 0, sizeof (UINT64)) >> 8) & 0xFF), pBuffer,
                   BufferSize);
}
