/** @file
  What a platform and the APEI logging module must agree on: the software
  SMI values the module answers, the ERST instruction entries in the order
  the module patches them, and the generic hardware error sources it looks
  up by source id. Every platform that builds APEI tables for the module
  (vornsim's, the QEMU platform's) builds them from here.
**/
#pragma once

#include <Uefi.h>
#include <IndustryStandard/Acpi.h>

//
// Software SMI command values.
//
#define VORN_APEI_ERST_SW_SMI_VALUE    0x9C
#define VORN_APEI_DISABLE_SW_SMI_VALUE 0x9D
#define VORN_APEI_ENABLE_SW_SMI_VALUE  0x9E

//
// ERST instruction entries: entry N holds serialization action N. Action
// 0xC has no ACPI meaning; the module still gives it a register.
// EXECUTE_OPERATION writes the ERST software SMI value to the platform's SMI
// command port; every other entry reaches a memory register that the module
// points into its parameter region.
//
#define VORN_ERST_INSTRUCTION_COUNT 16
#define VORN_ERST_RESERVED_ACTION   0x0C

typedef struct {
  UINT8  Action;
  UINT8  Instruction;
  UINT64 Value;
  UINT64 Mask;
} VORN_ERST_INSTRUCTION;

STATIC CONST VORN_ERST_INSTRUCTION mVornErstInstructions[VORN_ERST_INSTRUCTION_COUNT] = {
    {EFI_ACPI_6_3_ERST_BEGIN_WRITE_OPERATION, EFI_ACPI_6_3_ERST_WRITE_REGISTER_VALUE, 0x2, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_BEGIN_READ_OPERATION, EFI_ACPI_6_3_ERST_WRITE_REGISTER_VALUE, 0x1, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_BEGIN_CLEAR_OPERATION, EFI_ACPI_6_3_ERST_WRITE_REGISTER_VALUE, 0x3, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_END_OPERATION, EFI_ACPI_6_3_ERST_NOOP, 0, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_SET_RECORD_OFFSET, EFI_ACPI_6_3_ERST_WRITE_REGISTER, 0, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_EXECUTE_OPERATION, EFI_ACPI_6_3_ERST_WRITE_REGISTER_VALUE, VORN_APEI_ERST_SW_SMI_VALUE,
     MAX_UINT8},
    {EFI_ACPI_6_3_ERST_CHECK_BUSY_STATUS, EFI_ACPI_6_3_ERST_READ_REGISTER_VALUE, 0x1, 0x1},
    {EFI_ACPI_6_3_ERST_GET_COMMAND_STATUS, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_GET_RECORD_IDENTIFIER, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_SET_RECORD_IDENTIFIER, EFI_ACPI_6_3_ERST_WRITE_REGISTER, 0, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_GET_RECORD_COUNT, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_BEGIN_DUMMY_WRITE_OPERATION, EFI_ACPI_6_3_ERST_WRITE_REGISTER_VALUE, 0xF, MAX_UINT64},
    {VORN_ERST_RESERVED_ACTION, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_GET_ERROR_LOG_ADDRESS_RANGE, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_GET_ERROR_LOG_ADDRESS_RANGE_LENGTH, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_GET_ERROR_LOG_ADDRESS_RANGE_ATTRIBUTES, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, MAX_UINT64},
};

/**
  Fills a zeroed ERST instruction entry as entry Index: the I/O port
  SmiCommandPort for EXECUTE_OPERATION, a memory register at address 0 (until
  the module places it) for the others.
**/
inline VOID VornApeiFillErstEntry (OUT EFI_ACPI_6_3_ERST_SERIALIZATION_INSTRUCTION_ENTRY *Entry,
                                   IN UINTN                                               Index,
                                   IN UINT16                                              SmiCommandPort) {
  Entry->SerializationAction = mVornErstInstructions[Index].Action;
  Entry->Instruction         = mVornErstInstructions[Index].Instruction;
  Entry->Value               = mVornErstInstructions[Index].Value;
  Entry->Mask                = mVornErstInstructions[Index].Mask;
  if (Entry->SerializationAction == EFI_ACPI_6_3_ERST_EXECUTE_OPERATION) {
    Entry->RegisterRegion.AddressSpaceId   = EFI_ACPI_6_3_SYSTEM_IO;
    Entry->RegisterRegion.RegisterBitWidth = 8;
    Entry->RegisterRegion.AccessSize       = EFI_ACPI_6_3_BYTE;
    Entry->RegisterRegion.Address          = SmiCommandPort;
  } else {
    Entry->RegisterRegion.AddressSpaceId   = EFI_ACPI_6_3_SYSTEM_MEMORY;
    Entry->RegisterRegion.RegisterBitWidth = 64;
    Entry->RegisterRegion.AccessSize       = EFI_ACPI_6_3_QWORD;
  }
}

//
// Generic hardware error sources, which the module finds by source id: 7 for
// the NMI, 8 for the SCI, 0xFFFE for the page-retire SCI. Each status block
// holds one status header and the module's entries, no raw data.
//
#define VORN_APEI_GHESS_SOURCE_ID_NMI                    0x0007
#define VORN_APEI_GHESS_SOURCE_ID_SCI                    0x0008
#define VORN_APEI_GHESS_SOURCE_ID_SCI_VMWARE_PAGE_RETIRE 0xFFFE
#define VORN_APEI_GHESS_RELATED_SOURCE_ID_NONE           0xFFFF
#define VORN_GHES_STATUS_BLOCK_LENGTH                    0x2000
#define VORN_GHES_MAX_SECTIONS_PER_RECORD                5

/**
  Fills a zeroed generic hardware error source; its error status address
  register (a QWORD in system memory) is left for the caller to place.
**/
inline VOID VornApeiFillGhes (OUT EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE *Ghes,
                              IN UINT16                                                 SourceId,
                              IN UINT8                                                  NotificationType) {
  Ghes->Type                                = EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR;
  Ghes->SourceId                            = SourceId;
  Ghes->RelatedSourceId                     = VORN_APEI_GHESS_RELATED_SOURCE_ID_NONE;
  Ghes->Enabled                             = 1;
  Ghes->NumberOfRecordsToPreAllocate        = 1;
  Ghes->MaxSectionsPerRecord                = VORN_GHES_MAX_SECTIONS_PER_RECORD;
  Ghes->ErrorStatusAddress.AddressSpaceId   = EFI_ACPI_6_3_SYSTEM_MEMORY;
  Ghes->ErrorStatusAddress.RegisterBitWidth = 64;
  Ghes->ErrorStatusAddress.AccessSize       = EFI_ACPI_6_3_QWORD;
  Ghes->NotificationStructure.Type          = NotificationType;
  Ghes->NotificationStructure.Length        = sizeof (Ghes->NotificationStructure);
  Ghes->ErrorStatusBlockLength              = VORN_GHES_STATUS_BLOCK_LENGTH;
}
