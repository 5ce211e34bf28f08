/** @file
  RSDP, XSDT and RSDT construction.
**/
#include "Builder/AcpiRoot.h"

#include <cstring>
#include <stdexcept>

#include <Host.h>
#include <IndustryStandard/Acpi.h>

#include "Builder/AcpiHeader.h"

namespace Sim {

namespace {

constexpr UINT8 kRsdpRevision      = 2;
constexpr UINT8 kRootTableRevision = 1;
// The ACPI 1.0 part of the RSDP that its first checksum covers.
constexpr size_t kRsdpV1Length = 20;

//
// A root table whose body is Tables.size () entries of EntryType.
//
template <typename EntryType> UINT64 BuildRootTable (UINT32 Signature, std::span<const UINT64> Tables) {
  const UINT32 Length =
      static_cast<UINT32> (sizeof (EFI_ACPI_DESCRIPTION_HEADER) + sizeof (EntryType) * Tables.size ());
  const UINT64 Address = Host::AllocateAcpi (Length, 8);
  auto        *Header  = Host::At<EFI_ACPI_DESCRIPTION_HEADER> (Address);
  AcpiFillHeader (Header, Signature, Length, kRootTableRevision);
  UINT8 *Entry = reinterpret_cast<UINT8 *> (Header + 1);
  for (UINT64 Table : Tables) {
    const EntryType Value = static_cast<EntryType> (Table);
    // Entries are unaligned in the packed layout.
    std::memcpy (Entry, &Value, sizeof (Value));
    Entry += sizeof (Value);
  }
  AcpiUpdateChecksum (Header);
  return Address;
}

} // namespace

AcpiRootTables BuildAcpiRoot (std::span<const UINT64> Tables) {
  for (UINT64 Table : Tables) {
    if (Table > MAX_UINT32) {
      throw std::logic_error ("an ACPI table above 4 GiB cannot be listed in the RSDT");
    }
  }

  AcpiRootTables Root;
  Root.Xsdt = BuildRootTable<UINT64> (EFI_ACPI_6_3_EXTENDED_SYSTEM_DESCRIPTION_TABLE_SIGNATURE, Tables);
  Root.Rsdt = BuildRootTable<UINT32> (EFI_ACPI_6_3_ROOT_SYSTEM_DESCRIPTION_TABLE_SIGNATURE, Tables);

  Root.Rsdp       = Host::AllocateAcpi (sizeof (EFI_ACPI_2_0_ROOT_SYSTEM_DESCRIPTION_POINTER), 16);
  auto *Rsdp      = Host::At<EFI_ACPI_2_0_ROOT_SYSTEM_DESCRIPTION_POINTER> (Root.Rsdp);
  Rsdp->Signature = EFI_ACPI_6_3_ROOT_SYSTEM_DESCRIPTION_POINTER_SIGNATURE;
  std::memcpy (Rsdp->OemId, kAcpiOemId, sizeof (Rsdp->OemId));
  Rsdp->Revision         = kRsdpRevision;
  Rsdp->RsdtAddress      = static_cast<UINT32> (Root.Rsdt);
  Rsdp->Length           = sizeof (*Rsdp);
  Rsdp->XsdtAddress      = Root.Xsdt;
  const auto *Bytes      = reinterpret_cast<const UINT8 *> (Rsdp);
  Rsdp->Checksum         = 0;
  Rsdp->ExtendedChecksum = 0;
  Rsdp->Checksum         = AcpiChecksum ({Bytes, kRsdpV1Length});
  Rsdp->ExtendedChecksum = AcpiChecksum ({Bytes, sizeof (*Rsdp)});

  Host::PublishRsdp (Root.Rsdp);
  return Root;
}

} // namespace Sim
