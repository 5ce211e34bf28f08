/** @file
  Dump of the Platform Memory error section.
**/
#include "CperDumpSupport.h"

#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>

STATIC CONST CHAR8 *CONST mMemoryValidationBitLines[] = {
    "       Bit[00] Error Status\n",
    "       Bit[01] Physical Address\n",
    "       Bit[02] Physical Address Mask\n",
    "       Bit[03] Node\n",
    "       Bit[04] Card\n",
    "       Bit[05] Module\n",
    "       Bit[06] Bank\n",
    "       Bit[07] Device\n",
    "       Bit[08] Row\n",
    "       Bit[09] Column\n",
    "       Bit[10] Bit Position\n",
    "       Bit[11] Requestor ID\n",
    "       Bit[12] Responder ID\n",
    "       Bit[13] Target ID\n",
    "       Bit[14] Memory Error Type\n",
    "       Bit[15] Rank Number\n",
    "       Bit[16] Card Handle\n",
    "       Bit[17] Module Handle\n",
    "       Bit[18] Extended Row Bits 16-17\n",
    "       Bit[19] Bank Group\n",
    "       Bit[20] Bank Address\n",
    "       Bit[21] Chip Identification\n",
};

STATIC CONST CHAR8 *CONST mMemoryExtendedBitLines[] = {
    "       Bit[00] Row Bit 16\n",
    "       Bit[01] Row Bit 17\n",
};

STATIC CONST CPER_CODE_TEXT mMemoryErrorTypeTexts[] = {
    {0, "Unknown"},
    {1, "No Error"},
    {2, "Single-bit ECC"},
    {3, "Multi-bit ECC"},
    {4, "Single-symbol ChipKill ECC"},
    {5, "Multi-symbol ChipKill ECC"},
    {6, "Master Abort"},
    {7, "Target Abort"},
    {8, "Parity Error"},
    {9, "Watchdog Timeout"},
    {10, "Invalid Address"},
    {11, "Mirror Broken"},
    {12, "Memory Sparing"},
    {13, "Scrub Corrected Error"},
    {14, "Scrub Uncorrected Error"},
    {15, "Physical Memory Map-Out Event"},
};

STATIC CONST CPER_DUMP_FIELD mMemoryLocationFields[] = {
    CPER_DUMP_FIELD_OF (CPER_SECTION_MEMORY, PhysicalAddress, "     Physical Address                = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_MEMORY, PhysicalAddressMask, "     Physical Address Mask           = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_MEMORY, Node, "     Node                            = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_MEMORY, Card, "     Card                            = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_MEMORY, Module, "     Module                          = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_MEMORY, Bank, "     Bank                            = 0x%04x\n"),
};

STATIC CONST CPER_DUMP_FIELD mMemoryDeviceFields[] = {
    CPER_DUMP_FIELD_OF (CPER_SECTION_MEMORY, Device, "     Device                          = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_MEMORY, Row, "     Row                             = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_MEMORY, Column, "     Column                          = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_MEMORY, BitPosition, "     Bit Position                    = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_MEMORY, RequestorId, "     Requestor ID                    = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_MEMORY, ResponderId, "     Responder ID                    = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_MEMORY, TargetId, "     Target ID                       = 0x%016lx\n"),
};

STATIC CONST CPER_DUMP_FIELD mMemoryHandleFields[] = {
    CPER_DUMP_FIELD_OF (CPER_SECTION_MEMORY, RankNumber, "     Rank Number                     = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_MEMORY, CardHandle, "     Card Handle (SMBIOS Type 16)    = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_MEMORY, ModuleHandle, "     Module Handle (SMBIOS Type 17)  = 0x%04x\n"),
};

/**
  Prints a Platform Memory error section field by field. The bank is also
  shown split into bank group (high byte) and bank address (low byte).
**/
VOID DisplayCperSectionMemory (IN UINTN DebugLevel, IN VOID *pSection) {
  CPER_SECTION_MEMORY *pMemory;
  CHAR8                Name[100];

  if (CperDumpSectionIsNull (__func__, pSection)) {
    return;
  }

  pMemory = (CPER_SECTION_MEMORY *)pSection;

  //
  // At a filtered level only the error status converter runs, for its error
  // line, into a buffer with room for the terminator.
  //
  if (!CperDumpLevelEnabled (DebugLevel)) {
    if ((pMemory->ValidFields & CPER_MEMORY_VALID_ERROR_STATUS) != 0) {
      ConvertErrorStatusTypeToString (&pMemory->ErrorStatus, Name, 1);
    }

    return;
  }

  DEBUG ((DebugLevel, "CPER platform memory error section data\n"));
  DEBUG ((DebugLevel, "     Validation Bits                 = 0x%016lx\n", pMemory->ValidFields));
  CperDumpSetBits (DebugLevel, pMemory->ValidFields, mMemoryValidationBitLines, ARRAY_SIZE (mMemoryValidationBitLines));
  //
  // Only a valid error status is named; an unset one would log a spurious
  // unrecognized-type error.
  //
  ZeroMem (Name, sizeof (Name));
  if ((pMemory->ValidFields & CPER_MEMORY_VALID_ERROR_STATUS) != 0) {
    ConvertErrorStatusTypeToString (&pMemory->ErrorStatus, Name, sizeof (Name));
  }

  DEBUG ((DebugLevel, "     Error Status                    = 0x%016lx (%a)\n", pMemory->ErrorStatus, Name));
  CperDumpFields (DebugLevel, pMemory, mMemoryLocationFields, ARRAY_SIZE (mMemoryLocationFields));
  DEBUG ((DebugLevel, "       Bank Group                    = 0x%02x\n", CPER_BITS (pMemory->Bank, 8, 8)));
  DEBUG ((DebugLevel, "       Bank Address                  = 0x%02x\n", CPER_BITS (pMemory->Bank, 0, 8)));
  CperDumpFields (DebugLevel, pMemory, mMemoryDeviceFields, ARRAY_SIZE (mMemoryDeviceFields));
  DEBUG ((DebugLevel, "     Memory Error Type               = 0x%02x (%a)\n", pMemory->ErrorType,
          CperLookupCodeName (mMemoryErrorTypeTexts, ARRAY_SIZE (mMemoryErrorTypeTexts), pMemory->ErrorType)));
  DEBUG ((DebugLevel, "     Extended                        = 0x%02x\n", pMemory->Extended));
  CperDumpSetBits (DebugLevel, pMemory->Extended, mMemoryExtendedBitLines, ARRAY_SIZE (mMemoryExtendedBitLines));
  DEBUG ((DebugLevel, "       Chip Identification           = 0x%x\n", CPER_BITS (pMemory->Extended, 5, 3)));
  CperDumpFields (DebugLevel, pMemory, mMemoryHandleFields, ARRAY_SIZE (mMemoryHandleFields));
}
