/** @file
  Dump of the Processor Generic error section.
**/
#include "CperDumpSupport.h"

#include <CperSections.h>
#include <Library/DebugLib.h>

STATIC CONST CHAR8 *CONST mProcessorValidationBitLines[] = {
    "       Bit[00] Processor Type\n",
    "       Bit[01] Processor ISA\n",
    "       Bit[02] Error Type\n",
    "       Bit[03] Operation\n",
    "       Bit[04] Flags\n",
    "       Bit[05] Level\n",
    "       Bit[06] CPU Version Info\n",
    "       Bit[07] CPU Brand String\n",
    "       Bit[08] Processor ID\n",
    "       Bit[09] Target Address\n",
    "       Bit[10] Requestor ID\n",
    "       Bit[11] Responder ID\n",
    "       Bit[12] Instruction IP\n",
};

STATIC CONST CHAR8 *CONST mProcessorErrorTypeBitLines[] = {
    "       Bit[00] Cache Error\n",
    "       Bit[01] TLB Error\n",
    "       Bit[02] Bus Error\n",
    "       Bit[03] Micro-Architectural Error\n",
};

STATIC CONST CHAR8 *CONST mProcessorFlagBitLines[] = {
    "       Bit[00] Restartable\n",
    "       Bit[01] Precise IP\n",
    "       Bit[02] Overflow\n",
    "       Bit[03] Corrected\n",
};

STATIC CONST CPER_CODE_TEXT mProcessorTypeTexts[] = {
    {0, "IA32/X64"},
    {1, "IA64"},
    {2, "ARM"},
};

STATIC CONST CPER_CODE_TEXT mProcessorIsaTexts[] = {
    {0, "IA32"}, {1, "IA64"}, {2, "X64"}, {3, "ARM A32"}, {4, "ARM A64"},
};

STATIC CONST CPER_CODE_TEXT mProcessorOperationTexts[] = {
    {0, "Unknown or Generic"},
    {1, "Data Read"},
    {2, "Data Write"},
    {3, "Instruction Execution"},
};

STATIC CONST CPER_DUMP_FIELD mProcessorIdentityFields[] = {
    CPER_DUMP_FIELD_OF (CPER_SECTION_PROCESSOR_GENERIC, Level, "     Level                           = 0x%02x\n"),
    CPER_DUMP_FIELD_OF (
        CPER_SECTION_PROCESSOR_GENERIC, VersionInfo, "     CPU Version Info                = 0x%016lx\n"),
};

STATIC CONST CPER_DUMP_FIELD mProcessorAddressFields[] = {
    CPER_DUMP_FIELD_OF (
        CPER_SECTION_PROCESSOR_GENERIC, ProcessorId, "     Processor ID                    = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (
        CPER_SECTION_PROCESSOR_GENERIC, TargetAddress, "     Target Address                  = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (
        CPER_SECTION_PROCESSOR_GENERIC, RequestorId, "     Requestor ID                    = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (
        CPER_SECTION_PROCESSOR_GENERIC, ResponderId, "     Responder ID                    = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (
        CPER_SECTION_PROCESSOR_GENERIC, InstructionIp, "     Instruction IP                  = 0x%016lx\n"),
};

/**
  Prints a Processor Generic error section field by field.
**/
VOID DisplayCperSectionProcessor (IN UINTN DebugLevel, IN VOID *pSection) {
  CPER_SECTION_PROCESSOR_GENERIC *pProcessor;

  if (CperDumpSectionIsNull (__func__, pSection)) {
    return;
  }

  pProcessor = (CPER_SECTION_PROCESSOR_GENERIC *)pSection;
  DEBUG ((DebugLevel, "CPER processor generic error section data\n"));
  DEBUG ((DebugLevel, "     Validation Bits                 = 0x%016lx\n", pProcessor->ValidFields));
  CperDumpSetBits (DebugLevel, pProcessor->ValidFields, mProcessorValidationBitLines,
                   ARRAY_SIZE (mProcessorValidationBitLines));
  DEBUG ((DebugLevel, "     Processor Type                  = 0x%02x (%a)\n", pProcessor->Type,
          CperLookupCodeName (mProcessorTypeTexts, ARRAY_SIZE (mProcessorTypeTexts), pProcessor->Type)));
  DEBUG ((DebugLevel, "     Processor ISA                   = 0x%02x (%a)\n", pProcessor->Isa,
          CperLookupCodeName (mProcessorIsaTexts, ARRAY_SIZE (mProcessorIsaTexts), pProcessor->Isa)));
  DEBUG ((DebugLevel, "     Error Type                      = 0x%02x\n", pProcessor->ErrorType));
  CperDumpSetBits (DebugLevel, pProcessor->ErrorType, mProcessorErrorTypeBitLines,
                   ARRAY_SIZE (mProcessorErrorTypeBitLines));
  DEBUG ((DebugLevel, "     Operation                       = 0x%02x (%a)\n", pProcessor->Operation,
          CperLookupCodeName (mProcessorOperationTexts, ARRAY_SIZE (mProcessorOperationTexts), pProcessor->Operation)));
  DEBUG ((DebugLevel, "     Flags                           = 0x%02x\n", pProcessor->Flags));
  CperDumpSetBits (DebugLevel, pProcessor->Flags, mProcessorFlagBitLines, ARRAY_SIZE (mProcessorFlagBitLines));
  CperDumpFields (DebugLevel, pProcessor, mProcessorIdentityFields, ARRAY_SIZE (mProcessorIdentityFields));
  DEBUG ((DebugLevel, "     CPU Brand String                = %.128a\n", pProcessor->BrandString));
  CperDumpFields (DebugLevel, pProcessor, mProcessorAddressFields, ARRAY_SIZE (mProcessorAddressFields));
}
