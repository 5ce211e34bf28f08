/** @file
  Default ERST and register placement.
**/
#include "Builder/AcpiErst.h"

#include <Host.h>

#include "Builder/AcpiHeader.h"

namespace Sim {

namespace {

using Entry = EFI_ACPI_6_3_ERST_SERIALIZATION_INSTRUCTION_ENTRY;

constexpr UINT8  kErstRevision = 1;
constexpr UINT64 kRegisterSize = sizeof (UINT64);

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
    Entries (Erst)[Index] = Entry{};
    VornApeiFillErstEntry (&Entries (Erst)[Index], Index, Host::kSmiCommandPort);
  }

  const std::vector<ErstRegisterPlacement> Registers = PlaceErstRegisters (Erst);
  Placements.insert (Placements.end (), Registers.begin (), Registers.end ());
  AcpiUpdateChecksum (&Erst->Header);
  return Address;
}

} // namespace Sim
