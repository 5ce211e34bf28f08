/** @file
  Dump of the processor context information structures of an IA32/X64
  Processor Specific error section, with a printer per register context
  type.
**/
#include "CperDumpSupport.h"

#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>

STATIC CONST CPER_DUMP_FIELD mIa32RegisterFields[] = {
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Eax, "       EAX                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Ebx, "       EBX                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Ecx, "       ECX                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Edx, "       EDX                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Esi, "       ESI                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Edi, "       EDI                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Ebp, "       EBP                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Esp, "       ESP                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Cs, "       CS                            = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Ds, "       DS                            = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Ss, "       SS                            = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Es, "       ES                            = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Fs, "       FS                            = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Gs, "       GS                            = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Eflags, "       EFLAGS                        = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Eip, "       EIP                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Cr0, "       CR0                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Cr1, "       CR1                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Cr2, "       CR2                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Cr3, "       CR3                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Cr4, "       CR4                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Gdtr[0], "       GDTR[0]                       = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Gdtr[1], "       GDTR[1]                       = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Idtr[0], "       IDTR[0]                       = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Idtr[1], "       IDTR[1]                       = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Ldtr, "       LDTR                          = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_REGISTER_STATE, Tr, "       TR                            = 0x%04x\n"),
};

STATIC CONST CPER_DUMP_FIELD mX64RegisterFields[] = {
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Rax, "       RAX                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Rbx, "       RBX                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Rcx, "       RCX                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Rdx, "       RDX                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Rsi, "       RSI                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Rdi, "       RDI                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Rbp, "       RBP                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Rsp, "       RSP                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, R8, "       R8                            = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, R9, "       R9                            = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, R10, "       R10                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, R11, "       R11                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, R12, "       R12                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, R13, "       R13                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, R14, "       R14                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, R15, "       R15                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Cs, "       CS                            = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Ds, "       DS                            = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Ss, "       SS                            = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Es, "       ES                            = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Fs, "       FS                            = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Gs, "       GS                            = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Rflags, "       RFLAGS                        = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Rip, "       RIP                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Cr0, "       CR0                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Cr1, "       CR1                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Cr2, "       CR2                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Cr3, "       CR3                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Cr4, "       CR4                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Cr8, "       CR8                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Gdtr[0], "       GDTR[0]                       = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Gdtr[1], "       GDTR[1]                       = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Idtr[0], "       IDTR[0]                       = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Idtr[1], "       IDTR[1]                       = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Ldtr, "       LDTR                          = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_REGISTER_STATE, Tr, "       TR                            = 0x%04x\n"),
};

STATIC CONST CPER_DUMP_FIELD mIa32DebugRegisterFields[] = {
    CPER_DUMP_FIELD_OF (CPER_IA32_DEBUG_REGISTERS, Dr0, "       DR0                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_DEBUG_REGISTERS, Dr1, "       DR1                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_DEBUG_REGISTERS, Dr2, "       DR2                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_DEBUG_REGISTERS, Dr3, "       DR3                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_DEBUG_REGISTERS, Dr6, "       DR6                           = 0x%08x\n"),
    CPER_DUMP_FIELD_OF (CPER_IA32_DEBUG_REGISTERS, Dr7, "       DR7                           = 0x%08x\n"),
};

STATIC CONST CPER_DUMP_FIELD mX64DebugRegisterFields[] = {
    CPER_DUMP_FIELD_OF (CPER_X64_DEBUG_REGISTERS, Dr0, "       DR0                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_DEBUG_REGISTERS, Dr1, "       DR1                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_DEBUG_REGISTERS, Dr2, "       DR2                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_DEBUG_REGISTERS, Dr3, "       DR3                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_DEBUG_REGISTERS, Dr6, "       DR6                           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_X64_DEBUG_REGISTERS, Dr7, "       DR7                           = 0x%016lx\n"),
};

//
// A register context whose layout is known, and the lines that print it.
//
typedef struct {
  UINT16                 RegisterType;
  UINTN                  Size;
  CONST CPER_DUMP_FIELD *pFields;
  UINTN                  FieldCount;
} CPER_REGISTER_CONTEXT_LAYOUT;

STATIC CONST CPER_REGISTER_CONTEXT_LAYOUT mRegisterContextLayouts[] = {
    {CPER_REGISTER_CONTEXT_IA32, sizeof (CPER_IA32_REGISTER_STATE), mIa32RegisterFields,
     ARRAY_SIZE (mIa32RegisterFields)},
    {CPER_REGISTER_CONTEXT_X64, sizeof (CPER_X64_REGISTER_STATE), mX64RegisterFields, ARRAY_SIZE (mX64RegisterFields)},
    {CPER_REGISTER_CONTEXT_IA32_DEBUG, sizeof (CPER_IA32_DEBUG_REGISTERS), mIa32DebugRegisterFields,
     ARRAY_SIZE (mIa32DebugRegisterFields)},
    {CPER_REGISTER_CONTEXT_X64_DEBUG, sizeof (CPER_X64_DEBUG_REGISTERS), mX64DebugRegisterFields,
     ARRAY_SIZE (mX64DebugRegisterFields)},
};

/**
  Prints the register array of a context structure. Register states with a
  known layout print register by register when the array holds them whole;
  FXSAVE images are not decoded; everything else (unclassified data, MSRs
  from MsrAddress on, memory-mapped registers from MmRegisterAddress on)
  prints as raw words.
**/
STATIC
VOID DisplayCperRegisterArray (IN UINTN DebugLevel, IN CPER_IA32_X64_CONTEXT_INFO *pContext, IN UINT8 *pRegisters) {
  UINTN Index;
  UINTN ArraySize;

  if (pContext->RegisterType == CPER_REGISTER_CONTEXT_FXSAVE) {
    DEBUG ((DebugLevel, "       FXSAVE register context is not supported\n"));
    return;
  }

  ArraySize = CperDumpInsideSection (pRegisters, pContext->ArraySize);
  for (Index = 0; Index < ARRAY_SIZE (mRegisterContextLayouts); Index++) {
    if ((mRegisterContextLayouts[Index].RegisterType == pContext->RegisterType) &&
        (mRegisterContextLayouts[Index].Size <= ArraySize)) {
      CperDumpFields (DebugLevel, pRegisters, mRegisterContextLayouts[Index].pFields,
                      mRegisterContextLayouts[Index].FieldCount);
      return;
    }
  }

  CperDumpRawData (DebugLevel, "     Register Array                  = %d bytes\n", pRegisters, pContext->ArraySize);
}

/**
  Prints one processor context information structure and returns its size,
  header and register array, so the caller can step to the next one.
**/
UINTN
CperDumpIa32X64Context (IN UINTN DebugLevel, IN UINTN Index, IN CPER_IA32_X64_CONTEXT_INFO *pContext) {
  CHAR8 Name[100];

  DEBUG ((DebugLevel, "CPER IA32/X64 processor context information structure %d\n", (UINT32)Index));
  ZeroMem (Name, sizeof (Name));
  ConvertRegisterContextTypeToString (pContext->RegisterType, Name, sizeof (Name));
  DEBUG ((DebugLevel, "     Register Context Type           = 0x%04x (%a)\n", pContext->RegisterType, Name));
  DEBUG (
      (DebugLevel, "     Register Array Size             = 0x%04x (%d)\n", pContext->ArraySize, pContext->ArraySize));
  DEBUG ((DebugLevel, "     MSR Address                     = 0x%08x\n", pContext->MsrAddress));
  DEBUG ((DebugLevel, "     MM Register Address             = 0x%016lx\n", pContext->MmRegisterAddress));
  DisplayCperRegisterArray (DebugLevel, pContext, (UINT8 *)(pContext + 1));
  return sizeof (CPER_IA32_X64_CONTEXT_INFO) + pContext->ArraySize;
}
