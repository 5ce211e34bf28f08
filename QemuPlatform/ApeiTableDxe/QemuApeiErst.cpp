/** @file
  The ERST: 16 instruction entries in serialization-action order (entry N
  holds action N, as the APEI logging module expects). EXECUTE_OPERATION
  writes the module's ERST software SMI value to q35's SMI command port.
**/
#include "QemuApeiTables.h"

#include <IndustryStandard/Q35MchIch9.h>
#include <Library/BaseMemoryLib.h>

#define QEMU_APEI_ERST_SW_SMI 0x9C

//
// Action 0xC has no ACPI meaning; the module still gives it a register.
//
#define QEMU_APEI_ERST_RESERVED_ACTION 0x0C

typedef struct {
  UINT8  Action;
  UINT8  Instruction;
  UINT64 Value;
  UINT64 Mask;
} QEMU_APEI_ERST_ENTRY;

STATIC CONST QEMU_APEI_ERST_ENTRY mEntries[QEMU_APEI_ERST_ENTRY_COUNT] = {
    {EFI_ACPI_6_3_ERST_BEGIN_WRITE_OPERATION, EFI_ACPI_6_3_ERST_WRITE_REGISTER_VALUE, 0x2, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_BEGIN_READ_OPERATION, EFI_ACPI_6_3_ERST_WRITE_REGISTER_VALUE, 0x1, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_BEGIN_CLEAR_OPERATION, EFI_ACPI_6_3_ERST_WRITE_REGISTER_VALUE, 0x3, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_END_OPERATION, EFI_ACPI_6_3_ERST_NOOP, 0, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_SET_RECORD_OFFSET, EFI_ACPI_6_3_ERST_WRITE_REGISTER, 0, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_EXECUTE_OPERATION, EFI_ACPI_6_3_ERST_WRITE_REGISTER_VALUE, QEMU_APEI_ERST_SW_SMI, MAX_UINT8},
    {EFI_ACPI_6_3_ERST_CHECK_BUSY_STATUS, EFI_ACPI_6_3_ERST_READ_REGISTER_VALUE, 0x1, 0x1},
    {EFI_ACPI_6_3_ERST_GET_COMMAND_STATUS, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_GET_RECORD_IDENTIFIER, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_SET_RECORD_IDENTIFIER, EFI_ACPI_6_3_ERST_WRITE_REGISTER, 0, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_GET_RECORD_COUNT, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_BEGIN_DUMMY_WRITE_OPERATION, EFI_ACPI_6_3_ERST_WRITE_REGISTER_VALUE, 0xF, MAX_UINT64},
    {QEMU_APEI_ERST_RESERVED_ACTION, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_GET_ERROR_LOG_ADDRESS_RANGE, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_GET_ERROR_LOG_ADDRESS_RANGE_LENGTH, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, MAX_UINT64},
    {EFI_ACPI_6_3_ERST_GET_ERROR_LOG_ADDRESS_RANGE_ATTRIBUTES, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, MAX_UINT64},
};

VOID QemuApeiBuildErst (OUT QEMU_APEI_ERST *Erst) {
  EFI_ACPI_6_3_ERST_SERIALIZATION_INSTRUCTION_ENTRY *Entry;

  ZeroMem (Erst, sizeof (*Erst));
  QemuApeiFillHeader (&Erst->Header.Header, EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_SIGNATURE, sizeof (*Erst),
                      EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_REVISION);
  Erst->Header.SerializationHeaderSize = sizeof (Erst->Header);
  Erst->Header.InstructionEntryCount   = QEMU_APEI_ERST_ENTRY_COUNT;

  for (UINTN Index = 0; Index < QEMU_APEI_ERST_ENTRY_COUNT; Index++) {
    Entry                      = &Erst->Entry[Index];
    Entry->SerializationAction = mEntries[Index].Action;
    Entry->Instruction         = mEntries[Index].Instruction;
    Entry->Value               = mEntries[Index].Value;
    Entry->Mask                = mEntries[Index].Mask;
    if (mEntries[Index].Action == EFI_ACPI_6_3_ERST_EXECUTE_OPERATION) {
      Entry->RegisterRegion.AddressSpaceId   = EFI_ACPI_6_3_SYSTEM_IO;
      Entry->RegisterRegion.RegisterBitWidth = 8;
      Entry->RegisterRegion.AccessSize       = EFI_ACPI_6_3_BYTE;
      Entry->RegisterRegion.Address          = ICH9_APM_CNT;
    } else {
      Entry->RegisterRegion.AddressSpaceId   = EFI_ACPI_6_3_SYSTEM_MEMORY;
      Entry->RegisterRegion.RegisterBitWidth = 64;
      Entry->RegisterRegion.AccessSize       = EFI_ACPI_6_3_QWORD;
    }
  }
}
