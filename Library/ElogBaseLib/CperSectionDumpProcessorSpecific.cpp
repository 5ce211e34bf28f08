/** @file
  Dump of the IA32/X64 Processor Specific error section: the section head,
  each processor error information structure with its check structure, and
  each processor context information structure.
**/
#include "CperDumpSupport.h"

#include <CperSections.h>
#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>

STATIC CONST CHAR8 *CONST mIa32X64ValidationBitLines[] = {
    "       Bit[00] Local APIC ID\n",
    "       Bit[01] CPUID Info\n",
};

STATIC CONST CHAR8 *CONST mErrorInfoValidationBitLines[] = {
    "       Bit[00] Check Info\n",   "       Bit[01] Target Address\n", "       Bit[02] Requestor ID\n",
    "       Bit[03] Responder ID\n", "       Bit[04] Instruction IP\n",
};

STATIC CONST CPER_DUMP_FIELD mIa32X64HeadFields[] = {
    CPER_DUMP_FIELD_OF (CPER_SECTION_IA32_X64, ApicId, "     Local APIC ID                   = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_IA32_X64, CpuIdEax, "     CPUID EAX                       = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_IA32_X64, CpuIdEbx, "     CPUID EBX                       = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_IA32_X64, CpuIdEcx, "     CPUID ECX                       = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_IA32_X64, CpuIdEdx, "     CPUID EDX                       = 0x%016lx\n"),
};

STATIC CONST CPER_DUMP_FIELD mErrorInfoFields[] = {
    CPER_DUMP_FIELD_OF (CPER_IA32_X64_ERROR_INFO, TargetId, "     Target Address                  = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_X64_ERROR_INFO, RequestorId, "     Requestor ID                    = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_X64_ERROR_INFO, ResponderId, "     Responder ID                    = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_X64_ERROR_INFO, InstructionIp, "     Instruction IP                  = 0x%016lx\n"),
};

/**
  Prints the five status bits of a check structure, which start at FirstBit
  (after the type-specific fields).
**/
STATIC
VOID DisplayCperCheckStatusBits (IN UINTN DebugLevel, IN UINT64 CheckInfo, IN UINTN FirstBit) {
  DEBUG ((DebugLevel, "       Context Corrupt               = 0x%x\n", CPER_BITS (CheckInfo, FirstBit, 1)));
  DEBUG ((DebugLevel, "       Error Uncorrected             = 0x%x\n", CPER_BITS (CheckInfo, FirstBit + 1, 1)));
  DEBUG ((DebugLevel, "       Precise IP                    = 0x%x\n", CPER_BITS (CheckInfo, FirstBit + 2, 1)));
  DEBUG ((DebugLevel, "       Restartable IP                = 0x%x\n", CPER_BITS (CheckInfo, FirstBit + 3, 1)));
  DEBUG ((DebugLevel, "       Overflow                      = 0x%x\n", CPER_BITS (CheckInfo, FirstBit + 4, 1)));
}

/**
  Prints a cache or TLB check, which share one layout; a bus check begins
  with the same fields.
**/
STATIC
VOID DisplayCperCacheTlbCheck (IN UINTN DebugLevel, IN UINT64 CheckInfo) {
  CHAR8 Name[100];

  DEBUG ((DebugLevel, "       Check Validation Bits         = 0x%04x\n", CPER_BITS (CheckInfo, 0, 16)));
  ZeroMem (Name, sizeof (Name));
  ConvertTransactionTypeToString ((UINT8)CPER_BITS (CheckInfo, 16, 2), Name, sizeof (Name));
  DEBUG ((DebugLevel, "       Transaction Type              = 0x%x (%a)\n", CPER_BITS (CheckInfo, 16, 2), Name));
  ZeroMem (Name, sizeof (Name));
  ConvertOperationToString ((UINT8)CPER_BITS (CheckInfo, 18, 4), Name, sizeof (Name));
  DEBUG ((DebugLevel, "       Operation                     = 0x%x (%a)\n", CPER_BITS (CheckInfo, 18, 4), Name));
  DEBUG ((DebugLevel, "       Level                         = 0x%x\n", CPER_BITS (CheckInfo, 22, 3)));
  DisplayCperCheckStatusBits (DebugLevel, CheckInfo, 25);
}

/**
  Prints a bus check: the cache check fields, then participation, time-out
  and address space.
**/
STATIC
VOID DisplayCperBusCheck (IN UINTN DebugLevel, IN UINT64 CheckInfo) {
  CHAR8 Name[100];

  DisplayCperCacheTlbCheck (DebugLevel, CheckInfo);
  ZeroMem (Name, sizeof (Name));
  ConvertParticipationTypeToString ((UINT8)CPER_BITS (CheckInfo, 30, 2), Name, sizeof (Name));
  DEBUG ((DebugLevel, "       Participation Type            = 0x%x (%a)\n", CPER_BITS (CheckInfo, 30, 2), Name));
  DEBUG ((DebugLevel, "       Time Out                      = 0x%x\n", CPER_BITS (CheckInfo, 32, 1)));
  ZeroMem (Name, sizeof (Name));
  ConvertAddressSpaceToString ((UINT8)CPER_BITS (CheckInfo, 33, 2), Name, sizeof (Name));
  DEBUG ((DebugLevel, "       Address Space                 = 0x%x (%a)\n", CPER_BITS (CheckInfo, 33, 2), Name));
}

/**
  Prints an MS check.
**/
STATIC
VOID DisplayCperMsCheck (IN UINTN DebugLevel, IN UINT64 CheckInfo) {
  CHAR8 Name[100];

  DEBUG ((DebugLevel, "       Check Validation Bits         = 0x%04x\n", CPER_BITS (CheckInfo, 0, 16)));
  ZeroMem (Name, sizeof (Name));
  ConvertErrorTypeToString ((UINT8)CPER_BITS (CheckInfo, 16, 3), Name, sizeof (Name));
  DEBUG ((DebugLevel, "       Error Type                    = 0x%x (%a)\n", CPER_BITS (CheckInfo, 16, 3), Name));
  DisplayCperCheckStatusBits (DebugLevel, CheckInfo, 19);
}

typedef VOID (*CPER_CHECK_PRINTER) (IN UINTN DebugLevel, IN UINT64 CheckInfo);

typedef struct {
  CONST EFI_GUID    *pErrorType;
  CPER_CHECK_PRINTER Printer;
} CPER_CHECK_DISPATCH;

STATIC CONST CPER_CHECK_DISPATCH mCheckPrinters[] = {
    {&gCperIa32X64CacheCheckGuid, DisplayCperCacheTlbCheck},
    {&gCperIa32X64TlbCheckGuid, DisplayCperCacheTlbCheck},
    {&gCperIa32X64BusCheckGuid, DisplayCperBusCheck},
    {&gCperIa32X64MsCheckGuid, DisplayCperMsCheck},
};

/**
  Prints one processor error information structure; valid check information
  is decoded by the printer of its structure type.
**/
STATIC
VOID DisplayCperIa32X64ErrorInfo (IN UINTN DebugLevel, IN UINTN Index, IN CPER_IA32_X64_ERROR_INFO *pErrorInfo) {
  CHAR8 Name[100];
  UINTN Check;

  DEBUG ((DebugLevel, "CPER IA32/X64 processor error information structure %d\n", (UINT32)Index));
  ZeroMem (Name, sizeof (Name));
  ConvertErrorStructureTypeGuidToString (&pErrorInfo->ErrorType, Name, sizeof (Name));
  DEBUG ((DebugLevel, "     Error Structure Type            = %g (%a)\n", &pErrorInfo->ErrorType, Name));
  DEBUG ((DebugLevel, "     Validation Bits                 = 0x%016lx\n", pErrorInfo->ValidFields));
  CperDumpSetBits (DebugLevel, pErrorInfo->ValidFields, mErrorInfoValidationBitLines,
                   ARRAY_SIZE (mErrorInfoValidationBitLines));
  DEBUG ((DebugLevel, "     Check Info                      = 0x%016lx\n", pErrorInfo->CheckInfo));
  //
  // Check information that is not valid is not decoded: its codes would only
  // raise unrecognized-value errors.
  //
  if ((pErrorInfo->ValidFields & CPER_ERROR_INFO_VALID_CHECK_INFO) != 0) {
    for (Check = 0; Check < ARRAY_SIZE (mCheckPrinters); Check++) {
      if (CompareGuid (mCheckPrinters[Check].pErrorType, &pErrorInfo->ErrorType)) {
        mCheckPrinters[Check].Printer (DebugLevel, pErrorInfo->CheckInfo);
        break;
      }
    }
  }

  CperDumpFields (DebugLevel, pErrorInfo, mErrorInfoFields, ARRAY_SIZE (mErrorInfoFields));
}

/**
  Prints an IA32/X64 Processor Specific error section: the head, then the
  error information structures and the context structures that follow it.
**/
VOID DisplayCperSectionProcessorSpecific (IN UINTN DebugLevel, IN VOID *pSection) {
  CPER_SECTION_IA32_X64    *pHead;
  CPER_IA32_X64_ERROR_INFO *pErrorInfo;
  UINT8                    *pContext;
  UINTN                     ErrorInfoCount;
  UINTN                     ContextCount;
  UINTN                     Index;

  if (CperDumpSectionIsNull (__func__, pSection)) {
    return;
  }

  pHead          = (CPER_SECTION_IA32_X64 *)pSection;
  ErrorInfoCount = CPER_IA32_X64_ERROR_INFO_COUNT (pHead->ValidFields);
  ContextCount   = CPER_IA32_X64_CONTEXT_COUNT (pHead->ValidFields);
  DEBUG ((DebugLevel, "CPER IA32/X64 processor specific error section data\n"));
  DEBUG ((DebugLevel, "     Validation Bits                 = 0x%016lx\n", pHead->ValidFields));
  CperDumpSetBits (DebugLevel, pHead->ValidFields, mIa32X64ValidationBitLines, ARRAY_SIZE (mIa32X64ValidationBitLines));
  DEBUG ((DebugLevel, "     Error Information Count         = 0x%02x (%d)\n", (UINT32)ErrorInfoCount,
          (UINT32)ErrorInfoCount));
  DEBUG (
      (DebugLevel, "     Context Information Count       = 0x%02x (%d)\n", (UINT32)ContextCount, (UINT32)ContextCount));
  CperDumpFields (DebugLevel, pHead, mIa32X64HeadFields, ARRAY_SIZE (mIa32X64HeadFields));

  pErrorInfo     = (CPER_IA32_X64_ERROR_INFO *)(pHead + 1);
  ErrorInfoCount = CperDumpItemsInsideSection (__func__, pErrorInfo, ErrorInfoCount, sizeof (*pErrorInfo));
  for (Index = 0; Index < ErrorInfoCount; Index++, pErrorInfo++) {
    DisplayCperIa32X64ErrorInfo (DebugLevel, Index, pErrorInfo);
  }

  pContext = (UINT8 *)pErrorInfo;
  for (Index = 0; Index < ContextCount; Index++) {
    if (CperDumpItemsInsideSection (__func__, pContext, 1, sizeof (CPER_IA32_X64_CONTEXT_INFO)) == 0) {
      break;
    }

    pContext += CperDumpIa32X64Context (DebugLevel, Index, (CPER_IA32_X64_CONTEXT_INFO *)pContext);
  }
}
