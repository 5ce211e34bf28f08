/** @file
  Default HEST and status-block placement.
**/
#include "Builder/AcpiHest.h"

#include <cstring>

#include <Host.h>

#include "Builder/AcpiHeader.h"

namespace Sim {

namespace {

constexpr UINT8  kHestRevision     = 1;
constexpr UINT64 kRegisterSize     = sizeof (UINT64);
constexpr UINT64 kStatusBlockAlign = 0x1000;

//
// A 64-bit register in reserved memory; returns its address.
//
UINT64
AllocateRegister (UINT64 Value) {
  const UINT64 Register        = Host::AllocateReserved (kRegisterSize, kRegisterSize);
  *Host::At<UINT64> (Register) = Value;
  return Register;
}

} // namespace

GhesPlacement PlaceGhesStatusBlock (EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE *Ghes, UINT32 Index) {
  GhesPlacement Placement;
  Placement.Index             = Index;
  Placement.Type              = Ghes->Type;
  Placement.SourceId          = Ghes->SourceId;
  Placement.StatusBlockLength = Ghes->ErrorStatusBlockLength;
  Placement.StatusBlock       = Host::AllocateReserved (Ghes->ErrorStatusBlockLength, kStatusBlockAlign);
  std::memset (Host::At<void> (Placement.StatusBlock), 0, Placement.StatusBlockLength);
  Placement.StatusAddressRegister  = AllocateRegister (Placement.StatusBlock);
  Ghes->ErrorStatusAddress.Address = Placement.StatusAddressRegister;

  if (Ghes->Type == kGhesV2Type) {
    auto *ReadAck = &reinterpret_cast<GhesV2Structure *> (Ghes)->ReadAckRegister;
    if (ReadAck->AddressSpaceId == EFI_ACPI_6_3_SYSTEM_MEMORY) {
      Placement.ReadAckRegister = AllocateRegister (0);
      ReadAck->Address          = Placement.ReadAckRegister;
    }
  }
  return Placement;
}

UINT64
BuildDefaultHest (std::vector<GhesPlacement> &Placements) {
  using Ghes              = EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE;
  constexpr UINT32 Count  = static_cast<UINT32> (std::size (kDefaultGhes));
  constexpr UINT32 Length = sizeof (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_HEADER) + Count * sizeof (Ghes);

  const UINT64 Address = Host::AllocateAcpi (Length, 8);
  auto        *Hest    = Host::At<EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_HEADER> (Address);
  AcpiFillHeader (&Hest->Header, EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE, Length, kHestRevision);
  Hest->ErrorSourceCount = Count;

  auto *Source = reinterpret_cast<Ghes *> (Hest + 1);
  for (UINT32 Index = 0; Index < Count; Index++, Source++) {
    *Source = Ghes{};
    VornApeiFillGhes (Source, kDefaultGhes[Index].SourceId, kDefaultGhes[Index].NotificationType);
    Placements.push_back (PlaceGhesStatusBlock (Source, Index));
  }

  AcpiUpdateChecksum (&Hest->Header);
  return Address;
}

} // namespace Sim
