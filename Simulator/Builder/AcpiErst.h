/** @file
  The ERST of the simulated platform, and the memory behind the register
  regions of any ERST placed in simulated memory.
**/
#pragma once

#include <vector>

#include <IndustryStandard/Acpi.h>
#include <VornApeiPlatform.h>

namespace Sim {

inline constexpr UINT32 kErstEntryCount              = VORN_ERST_INSTRUCTION_COUNT;
inline constexpr UINT32 kErstSerializationHeaderSize = sizeof (EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER);

//
// What happened to one instruction entry's register region.
//
struct ErstRegisterPlacement {
  UINT32 Index          = 0;
  UINT8  Action         = 0;
  UINT8  AddressSpaceId = 0;
  UINT64 Address        = 0;     // the register address after placement
  bool   Placed         = false; // true: a system-memory register now in simulated memory
};

//
// Gives every system-memory register region of the ERST at Erst (in
// simulated memory) an 8-byte register in reserved memory; registers in other
// address spaces (the SMI command port) stay. Until the module patches the
// table, these are the addresses an OS would use.
//
std::vector<ErstRegisterPlacement> PlaceErstRegisters (EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER *Erst);

//
// Builds the default ERST in ACPI memory: 16 entries in action order whose
// EXECUTE_OPERATION writes the ERST software SMI to the SMI command port.
// Appends the register placements and returns the table's address.
//
UINT64 BuildDefaultErst (std::vector<ErstRegisterPlacement> &Placements);

} // namespace Sim
