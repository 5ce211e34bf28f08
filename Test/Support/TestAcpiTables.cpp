/** @file
  Minimal ACPI table builders for the tests.
**/
#include "TestAcpiTables.h"

#include <cstring>

#include <Host.h>
#include <IndustryStandard/Acpi.h>

namespace AcpiTables {

namespace {

constexpr UINT32 kHeaderSize = sizeof (EFI_ACPI_DESCRIPTION_HEADER);

UINT8
Checksum (const UINT8 *Data, std::size_t Size) {
  UINT8 Sum = 0;
  for (std::size_t Index = 0; Index < Size; Index++) {
    Sum = static_cast<UINT8> (Sum + Data[Index]);
  }

  return static_cast<UINT8> (0 - Sum);
}

template <typename T> void Append (Bytes &Out, const T &Value) {
  const auto *Raw = reinterpret_cast<const UINT8 *> (&Value);
  Out.insert (Out.end (), Raw, Raw + sizeof (T));
}

} // namespace

Bytes GhessBytes (const Ghess &Source) {
  EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE Structure{};
  Structure.Type                                 = EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR;
  Structure.SourceId                             = Source.SourceId;
  Structure.RelatedSourceId                      = Source.RelatedSourceId;
  Structure.Enabled                              = 1;
  Structure.NumberOfRecordsToPreAllocate         = 1;
  Structure.MaxSectionsPerRecord                 = 1;
  Structure.MaxRawDataLength                     = Source.MaxRawDataLength;
  Structure.ErrorStatusAddress.AddressSpaceId    = Source.AddressSpaceId;
  Structure.ErrorStatusAddress.RegisterBitWidth  = Source.RegisterBitWidth;
  Structure.ErrorStatusAddress.RegisterBitOffset = Source.RegisterBitOffset;
  Structure.ErrorStatusAddress.AccessSize        = Source.AccessSize;
  Structure.ErrorStatusAddress.Address           = Source.ErrorStatusAddress;
  Structure.NotificationStructure.Type           = EFI_ACPI_6_3_HARDWARE_ERROR_NOTIFICATION_SCI;
  Structure.NotificationStructure.Length         = sizeof (Structure.NotificationStructure);
  Structure.ErrorStatusBlockLength               = Source.ErrorStatusBlockLength;
  Bytes Out;
  Append (Out, Structure);
  return Out;
}

Bytes ErrorSource (UINT16 Type, std::size_t Size) {
  Bytes Out (Size, 0);
  std::memcpy (Out.data (), &Type, sizeof (Type));
  return Out;
}

void Patch8 (Bytes &Structure, std::size_t Offset, UINT8 Value) {
  Structure.at (Offset) = Value;
}

void Patch32 (Bytes &Structure, std::size_t Offset, UINT32 Value) {
  (void)Structure.at (Offset + sizeof (Value) - 1);
  std::memcpy (&Structure[Offset], &Value, sizeof (Value));
}

UINT64
InstallTable (UINT32 Signature, const Bytes &Body, std::optional<UINT32> LengthOverride) {
  EFI_ACPI_DESCRIPTION_HEADER Header{};
  Header.Signature = Signature;
  Header.Length    = static_cast<UINT32> (kHeaderSize + Body.size ());
  Header.Revision  = 1;
  std::memcpy (Header.OemId, "VORN  ", sizeof (Header.OemId));
  Bytes Table;
  Append (Table, Header);
  Table.insert (Table.end (), Body.begin (), Body.end ());
  Table[OFFSET_OF (EFI_ACPI_DESCRIPTION_HEADER, Checksum)] = Checksum (Table.data (), Table.size ());
  if (LengthOverride) {
    std::memcpy (&Table[OFFSET_OF (EFI_ACPI_DESCRIPTION_HEADER, Length)], &*LengthOverride, sizeof (UINT32));
  }

  const UINT64 Address = Host::AllocateAcpi (Table.size ());
  std::memcpy (Host::At<UINT8> (Address), Table.data (), Table.size ());
  return Address;
}

UINT64
InstallHest (const std::vector<Bytes> &Sources, std::optional<UINT32> CountOverride) {
  Bytes Body;
  Append (Body, CountOverride.value_or (static_cast<UINT32> (Sources.size ())));
  for (const Bytes &Source : Sources) {
    Body.insert (Body.end (), Source.begin (), Source.end ());
  }

  return InstallTable (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE, Body);
}

UINT64
InstallXsdt (const std::vector<UINT64> &Entries) {
  Bytes Body;
  for (UINT64 Entry : Entries) {
    Append (Body, Entry);
  }

  return InstallTable (EFI_ACPI_6_3_EXTENDED_SYSTEM_DESCRIPTION_TABLE_SIGNATURE, Body);
}

UINT64
InstallRsdt (const std::vector<UINT32> &Entries) {
  Bytes Body;
  for (UINT32 Entry : Entries) {
    Append (Body, Entry);
  }

  return InstallTable (EFI_ACPI_6_3_ROOT_SYSTEM_DESCRIPTION_TABLE_SIGNATURE, Body);
}

UINT64
InstallRsdp (UINT8 Revision, UINT32 RsdtAddress, UINT64 XsdtAddress) {
  EFI_ACPI_2_0_ROOT_SYSTEM_DESCRIPTION_POINTER Rsdp{};
  Rsdp.Signature = EFI_ACPI_6_3_ROOT_SYSTEM_DESCRIPTION_POINTER_SIGNATURE;
  std::memcpy (Rsdp.OemId, "VORN  ", sizeof (Rsdp.OemId));
  Rsdp.Revision         = Revision;
  Rsdp.RsdtAddress      = RsdtAddress;
  Rsdp.Length           = sizeof (Rsdp);
  Rsdp.XsdtAddress      = XsdtAddress;
  Rsdp.Checksum         = Checksum (reinterpret_cast<const UINT8 *> (&Rsdp), 20);
  Rsdp.ExtendedChecksum = Checksum (reinterpret_cast<const UINT8 *> (&Rsdp), sizeof (Rsdp));
  const UINT64 Address  = Host::AllocateAcpi (sizeof (Rsdp));
  std::memcpy (Host::At<UINT8> (Address), &Rsdp, sizeof (Rsdp));
  return Address;
}

UINT64
AllocateStatusBlock (UINT32 Length) {
  return Host::AllocateReserved (Length, 0x1000);
}

UINT64
InstallStatusRegister (UINT64 Value) {
  const UINT64 Address = Host::AllocateReserved (sizeof (Value), 8);
  std::memcpy (Host::At<UINT8> (Address), &Value, sizeof (Value));
  return Address;
}

ApeiTables InstallApeiTables (const ApeiOptions &Options) {
  ApeiTables           Tables;
  std::vector<UINT64> &Entries = Tables.Entries;
  Entries.push_back (InstallTable (SIGNATURE_32 ('F', 'A', 'C', 'P'), Bytes (8, 0)));
  if (Options.WithHest) {
    auto Source = [&Options] (UINT16 SourceId, UINT32 Length, UINT64 &Block) {
      Block = AllocateStatusBlock (Length);
      return GhessBytes ({.SourceId               = SourceId,
                          .MaxRawDataLength       = Options.MaxRawDataLength,
                          .ErrorStatusBlockLength = Length - Options.MaxRawDataLength,
                          .ErrorStatusAddress     = InstallStatusRegister (Block)});
    };
    std::vector<Bytes> Sources;
    Sources.push_back (Source (0x0007, Options.NmiBlockLength, Tables.NmiBlock));
    Sources.push_back (Source (0x0008, Options.SciBlockLength, Tables.SciBlock));
    if (Options.WithVmwareSource) {
      Sources.push_back (Source (0xFFFE, Options.VmwareBlockLength, Tables.VmwareBlock));
    }

    Tables.Hest = InstallHest (Sources);
    Entries.push_back (Tables.Hest);
  }

  std::vector<UINT32> RsdtEntries (Entries.begin (), Entries.end ());
  Tables.Rsdt = InstallRsdt (RsdtEntries);
  Tables.Xsdt = InstallXsdt (Entries);
  Host::PublishRsdp (InstallRsdp (2, static_cast<UINT32> (Tables.Rsdt), Tables.Xsdt));
  return Tables;
}

} // namespace AcpiTables
