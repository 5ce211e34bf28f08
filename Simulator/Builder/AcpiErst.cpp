/** @file
  Default ERST and register placement.
**/
#include "Builder/AcpiErst.h"

#include <Host.h>

#include "Builder/AcpiHeader.h"

namespace Sim {

namespace {

using Entry = EFI_ACPI_6_3_ERST_SERIALIZATION_INSTRUCTION_ENTRY;

constexpr UINT8  kErstRevision   = 1;
constexpr UINT64 kAllOnes        = MAX_UINT64;
constexpr UINT64 kRegisterSize   = sizeof (UINT64);
constexpr UINT8  kReservedAction = 0x0C; // no ACPI action; the module still patches it

struct DefaultEntry {
  UINT8  Action;
  UINT8  Instruction;
  UINT64 Value;
  UINT64 Mask;
};

// In action order, as the module expects: entry N holds action N.
constexpr DefaultEntry kDefaultEntries[kErstEntryCount] = {
    {EFI_ACPI_6_3_ERST_BEGIN_WRITE_OPERATION, EFI_ACPI_6_3_ERST_WRITE_REGISTER_VALUE, 0x2, kAllOnes},
    {EFI_ACPI_6_3_ERST_BEGIN_READ_OPERATION, EFI_ACPI_6_3_ERST_WRITE_REGISTER_VALUE, 0x1, kAllOnes},
    {EFI_ACPI_6_3_ERST_BEGIN_CLEAR_OPERATION, EFI_ACPI_6_3_ERST_WRITE_REGISTER_VALUE, 0x3, kAllOnes},
    {EFI_ACPI_6_3_ERST_END_OPERATION, EFI_ACPI_6_3_ERST_NOOP, 0, kAllOnes},
    {EFI_ACPI_6_3_ERST_SET_RECORD_OFFSET, EFI_ACPI_6_3_ERST_WRITE_REGISTER, 0, kAllOnes},
    {EFI_ACPI_6_3_ERST_EXECUTE_OPERATION, EFI_ACPI_6_3_ERST_WRITE_REGISTER_VALUE, kErstExecuteSwSmi, 0xFF},
    {EFI_ACPI_6_3_ERST_CHECK_BUSY_STATUS, EFI_ACPI_6_3_ERST_READ_REGISTER_VALUE, 0x1, 0x1},
    {EFI_ACPI_6_3_ERST_GET_COMMAND_STATUS, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, kAllOnes},
    {EFI_ACPI_6_3_ERST_GET_RECORD_IDENTIFIER, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, kAllOnes},
    {EFI_ACPI_6_3_ERST_SET_RECORD_IDENTIFIER, EFI_ACPI_6_3_ERST_WRITE_REGISTER, 0, kAllOnes},
    {EFI_ACPI_6_3_ERST_GET_RECORD_COUNT, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, kAllOnes},
    {EFI_ACPI_6_3_ERST_BEGIN_DUMMY_WRITE_OPERATION, EFI_ACPI_6_3_ERST_WRITE_REGISTER_VALUE, 0xF, kAllOnes},
    {kReservedAction, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, kAllOnes},
    {EFI_ACPI_6_3_ERST_GET_ERROR_LOG_ADDRESS_RANGE, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, kAllOnes},
    {EFI_ACPI_6_3_ERST_GET_ERROR_LOG_ADDRESS_RANGE_LENGTH, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, kAllOnes},
    {EFI_ACPI_6_3_ERST_GET_ERROR_LOG_ADDRESS_RANGE_ATTRIBUTES, EFI_ACPI_6_3_ERST_READ_REGISTER, 0, kAllOnes},
};

Entry *Entries (EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER *Erst) {
  return reinterpret_cast<Entry *> (Erst + 1);
}

} // namespace

std::vector<ErstRegisterPlacement> PlaceErstRegisters (EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER *Erst) {
  const UINT32 Count = Erst->InstructionEntryCount;
  // One register bank, one slot per entry: entry N's register is slot N.
  const UINT64 Bank = Host::AllocateReserved (kRegisterSize * Count, kRegisterSize);

  std::vector<ErstRegisterPlacement> Placements;
  for (UINT32 Index = 0; Index < Count; Index++) {
    Entry                &Instruction = Entries (Erst)[Index];
    ErstRegisterPlacement Placement;
    Placement.Index          = Index;
    Placement.Action         = Instruction.SerializationAction;
    Placement.AddressSpaceId = Instruction.RegisterRegion.AddressSpaceId;
    if (Placement.AddressSpaceId == EFI_ACPI_6_3_SYSTEM_MEMORY) {
      Instruction.RegisterRegion.Address = Bank + kRegisterSize * Index;
      Placement.Placed                   = true;
    }
    Placement.Address = Instruction.RegisterRegion.Address;
    Placements.push_back (Placement);
  }
  return Placements;
}

UINT64
BuildDefaultErst (std::vector<ErstRegisterPlacement> &Placements) {
  constexpr UINT32 Length = kErstSerializationHeaderSize + kErstEntryCount * sizeof (Entry);

  const UINT64 Address = Host::AllocateAcpi (Length, 8);
  auto        *Erst    = Host::At<EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER> (Address);
  AcpiFillHeader (&Erst->Header, EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_SIGNATURE, Length, kErstRevision);
  Erst->SerializationHeaderSize = kErstSerializationHeaderSize;
  Erst->InstructionEntryCount   = kErstEntryCount;

  for (UINT32 Index = 0; Index < kErstEntryCount; Index++) {
    const DefaultEntry &Default     = kDefaultEntries[Index];
    Entry              &Instruction = Entries (Erst)[Index];
    Instruction                     = Entry{};
    Instruction.SerializationAction = Default.Action;
    Instruction.Instruction         = Default.Instruction;
    Instruction.Value               = Default.Value;
    Instruction.Mask                = Default.Mask;
    if (Default.Action == EFI_ACPI_6_3_ERST_EXECUTE_OPERATION) {
      Instruction.RegisterRegion = {EFI_ACPI_6_3_SYSTEM_IO, 8, 0, EFI_ACPI_6_3_BYTE, Host::kSmiCommandPort};
    } else {
      Instruction.RegisterRegion = {EFI_ACPI_6_3_SYSTEM_MEMORY, 64, 0, EFI_ACPI_6_3_QWORD, 0};
    }
  }

  const std::vector<ErstRegisterPlacement> Registers = PlaceErstRegisters (Erst);
  Placements.insert (Placements.end (), Registers.begin (), Registers.end ());
  AcpiUpdateChecksum (&Erst->Header);
  return Address;
}

} // namespace Sim
