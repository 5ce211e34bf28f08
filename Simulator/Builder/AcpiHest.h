/** @file
  The HEST of the simulated platform, and the status blocks that back the
  generic hardware error sources of any HEST placed in simulated memory.
**/
#pragma once

#include <vector>

#include <IndustryStandard/Acpi.h>
#include <VornApeiPlatform.h>

namespace Sim {

inline constexpr UINT16 kGhesV2Type = 10; // generic hardware error source, version 2

//
// A version-2 generic hardware error source: version 1 and its Read Ack
// register, which the OS sets after reading the block.
//
#pragma pack(1)
struct GhesV2Structure {
  EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE Ghes;
  EFI_ACPI_6_3_GENERIC_ADDRESS_STRUCTURE               ReadAckRegister;
  UINT64                                               ReadAckPreserve;
  UINT64                                               ReadAckWrite;
};
#pragma pack()

static_assert (sizeof (GhesV2Structure) == 92, "GHESv2 size");
static_assert (OFFSET_OF (GhesV2Structure, ReadAckRegister) == 64, "GHESv2 Read Ack register");
static_assert (OFFSET_OF (GhesV2Structure, ReadAckPreserve) == 76, "GHESv2 Read Ack preserve");
static_assert (OFFSET_OF (GhesV2Structure, ReadAckWrite) == 84, "GHESv2 Read Ack write");

//
// Where a generic hardware error source's status block was put.
//
struct GhesPlacement {
  UINT32 Index                 = 0; // position in the HEST
  UINT16 Type                  = 0; // 9, or 10 for version 2
  UINT16 SourceId              = 0;
  UINT64 StatusAddressRegister = 0; // what the Error Status Address GAS points at
  UINT64 StatusBlock           = 0; // what that register holds
  UINT32 StatusBlockLength     = 0;
  UINT64 ReadAckRegister       = 0; // version 2 with a system-memory Read Ack register; else 0
};

//
// As firmware does at boot: gives the error source at Ghes (type 9 or 10, in
// simulated memory) a zeroed status block of its ErrorStatusBlockLength in
// reserved memory and an error-status-address register holding the block's
// address, and points the GAS at that register. A version-2 source whose Read
// Ack register is in system memory gets an 8-byte register too.
//
GhesPlacement PlaceGhesStatusBlock (EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE *Ghes, UINT32 Index);

//
// The default platform's error sources, in HEST order.
//
struct DefaultGhes {
  UINT16 SourceId;
  UINT8  NotificationType;
};

inline constexpr DefaultGhes kDefaultGhes[] = {
    {VORN_APEI_GHESS_SOURCE_ID_NMI, EFI_ACPI_6_3_HARDWARE_ERROR_NOTIFICATION_NMI},
    {VORN_APEI_GHESS_SOURCE_ID_SCI, EFI_ACPI_6_3_HARDWARE_ERROR_NOTIFICATION_SCI},
    {VORN_APEI_GHESS_SOURCE_ID_SCI_VMWARE_PAGE_RETIRE,
     EFI_ACPI_6_3_HARDWARE_ERROR_NOTIFICATION_SCI}, // VMware memory page retire
};

//
// Builds the default HEST in ACPI memory with its status blocks; appends the
// placements to Placements and returns the table's address.
//
UINT64 BuildDefaultHest (std::vector<GhesPlacement> &Placements);

} // namespace Sim
