/** @file
  The OS's GHES reader: HEST sources, status block checks, decoding and
  acknowledgement.
**/
#include "Os/GhesReader.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <span>

#include <Host.h>
#include <IndustryStandard/Acpi.h>
#include <Protocol/VornApeiLoggingSmm.h>

#include "Builder/AcpiCheck.h"
#include "Handlers/CperBuilder.h"
#include "Common/TextFormat.h"

namespace Sim {

namespace {

constexpr UINT32 kStatusHeaderSize = sizeof (GENERIC_ERROR_STATUS);
// Data entry headers: 72 bytes from revision 3 (0x0300) on, 64 before (no
// Timestamp field).
constexpr UINT32 kEntryHeaderV3  = sizeof (GENERIC_ERROR_DATA_ENTRY);
constexpr UINT32 kEntryHeaderOld = kEntryHeaderV3 - sizeof (UINT64);
constexpr UINT8  kFruIdValid     = 0x01;
constexpr UINT8  kFruTextValid   = 0x02;
constexpr size_t kFruTextLength  = 20;

struct NamedType {
  Cper::Bytes16 Type;
  const char   *Name;
};

//
// The section types an OS names; it compares them as EFI GUIDs, CXL
// component events included.
//
std::vector<NamedType> KnownSectionTypes () {
  using Cper::CxlEvent;
  using Cper::SectionKind;
  return {
      {Cper::SectionTypeBytes (SectionKind::ProcessorGeneric), "Processor Generic"},
      {Cper::SectionTypeBytes (SectionKind::ProcessorSpecific), "IA32/X64 Processor Specific"},
      {Cper::SectionTypeBytes (SectionKind::Memory), "Platform Memory"},
      {Cper::SectionTypeBytes (SectionKind::Pcie), "PCI Express"},
      {Cper::SectionTypeBytes (SectionKind::PciComponent), "PCI Component/Device"},
      {Cper::SectionTypeBytes (SectionKind::CxlProtocol), "CXL Protocol Error"},
      {Cper::CxlEventIdentifierAsEfiGuid (CxlEvent::GeneralMedia), "CXL General Media Event"},
      {Cper::CxlEventIdentifierAsEfiGuid (CxlEvent::Dram), "CXL DRAM Event"},
      {Cper::CxlEventIdentifierAsEfiGuid (CxlEvent::MemoryModule), "CXL Memory Module Event"},
      {Cper::CxlEventIdentifierAsEfiGuid (CxlEvent::MemorySparing), "CXL Memory Sparing Event"},
      {Cper::CxlEventIdentifierAsEfiGuid (CxlEvent::PhysicalSwitch), "CXL Physical Switch Event"},
      {Cper::CxlEventIdentifierAsEfiGuid (CxlEvent::VirtualSwitch), "CXL Virtual Switch Event"},
      {Cper::CxlEventIdentifierAsEfiGuid (CxlEvent::MldPort), "CXL MLD Port Event"},
      {Cper::CxlEventIdentifierAsEfiGuid (CxlEvent::DynamicCapacity), "CXL Dynamic Capacity Event"},
      {Cper::VmwarePageRetireSectionType (), "VMware Page Retire"},
  };
}

//
// The 16 bytes read as an EFI GUID, the way an OS prints a section type.
//
std::string GuidText (const std::array<UINT8, 16> &Bytes) {
  UINT32 Data1;
  UINT16 Data2;
  UINT16 Data3;
  std::memcpy (&Data1, &Bytes[0], sizeof (Data1));
  std::memcpy (&Data2, &Bytes[4], sizeof (Data2));
  std::memcpy (&Data3, &Bytes[6], sizeof (Data3));
  return Format ("%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X", Data1, Data2, Data3, Bytes[8], Bytes[9], Bytes[10],
                 Bytes[11], Bytes[12], Bytes[13], Bytes[14], Bytes[15]);
}

const char *SeverityName (UINT32 Severity) {
  switch (Severity) {
    case EFI_ACPI_6_3_ERROR_SEVERITY_RECOVERABLE:
      return "recoverable";
    case EFI_ACPI_6_3_ERROR_SEVERITY_FATAL:
      return "fatal";
    case EFI_ACPI_6_3_ERROR_SEVERITY_CORRECTED:
      return "corrected";
    case EFI_ACPI_6_3_ERROR_SEVERITY_NONE:
      return "none";
  }
  return "unknown";
}

std::string BlockStatusText (UINT32 BlockStatus) {
  static const char *const kBits[] = {"uncorrectable", "correctable", "multiple uncorrectable", "multiple correctable"};
  std::string              Text;
  for (size_t Bit = 0; Bit < std::size (kBits); Bit++) {
    if ((BlockStatus & (1u << Bit)) != 0) {
      Text += std::string (kBits[Bit]) + ", ";
    }
  }
  const UINT32 Count = (BlockStatus >> 4) & 0x3FF;
  return Text + Format ("%u entr%s", Count, Count == 1 ? "y" : "ies");
}

GhesEntry DecodeEntry (const UINT8 *Entry) {
  GENERIC_ERROR_DATA_ENTRY Header;
  // An entry before revision 3 has no Timestamp: only the first 64 bytes are
  // its own.
  std::memcpy (&Header, Entry, kEntryHeaderOld);
  GhesEntry Decoded;
  std::memcpy (Decoded.SectionType.data (), Header.SectionType, Decoded.SectionType.size ());
  Decoded.SectionName    = SectionTypeName (Decoded.SectionType);
  Decoded.Severity       = Header.ErrorSeverity;
  Decoded.Revision       = Header.Revision;
  Decoded.ValidationBits = Header.ValidationBits;
  Decoded.Length         = Header.ErrorDataLength;
  std::memcpy (Decoded.FruId.data (), Header.FruId, Decoded.FruId.size ());
  const char *Text = reinterpret_cast<const char *> (Header.FruText);
  Decoded.FruText.assign (Text, std::find (Text, Text + kFruTextLength, '\0'));
  return Decoded;
}

} // namespace

std::string SectionTypeName (const std::array<UINT8, 16> &SectionType) {
  for (const NamedType &Known : KnownSectionTypes ()) {
    if (Known.Type == SectionType) {
      return Known.Name;
    }
  }
  return "unknown";
}

void CheckStatusBlock (UINT64 Block, UINT32 StatusBlockLength, GhesBlockReport &Report) {
  GENERIC_ERROR_STATUS Status;
  std::memcpy (&Status, Host::At<void> (Block), sizeof (Status));
  Report.BlockStatus = std::bit_cast<UINT32> (Status.BlockStatus);
  Report.Severity    = Status.ErrorSeverity;

  if (Status.DataLength != 0 && Status.DataLength < kEntryHeaderOld) {
    Report.Problem = Format ("DataLength %u is shorter than a data entry header", Status.DataLength);
    return;
  }
  const UINT64 EntriesEnd = UINT64{kStatusHeaderSize} + Status.DataLength;
  if (Status.RawDataLength != 0 && Status.RawDataOffset < EntriesEnd) {
    Report.Problem = Format ("raw data at offset %u overlaps the entries", Status.RawDataOffset);
    return;
  }
  const UINT64 Length = Status.RawDataLength != 0 ? UINT64{Status.RawDataOffset} + Status.RawDataLength : EntriesEnd;
  if (Length > StatusBlockLength) {
    Report.Problem = Format ("block length %llu exceeds the HEST ErrorStatusBlockLength %u",
                             static_cast<unsigned long long> (Length), StatusBlockLength);
    return;
  }

  std::vector<GhesEntry> Entries;
  const UINT8           *Entry     = Host::At<UINT8> (Block) + kStatusHeaderSize;
  UINT64                 Remaining = Status.DataLength;
  for (size_t Index = 0; Remaining != 0; Index++) {
    if (Remaining < kEntryHeaderOld) {
      Report.Problem = Format ("DataLength %u ends inside entry %zu: %llu bytes left", Status.DataLength, Index,
                               static_cast<unsigned long long> (Remaining));
      return;
    }
    GhesEntry    Decoded    = DecodeEntry (Entry);
    const UINT32 HeaderSize = (Decoded.Revision >> 8) >= 3 ? kEntryHeaderV3 : kEntryHeaderOld;
    if (HeaderSize > Remaining) {
      Report.Problem = Format ("entry %zu (revision 0x%04X, %u-byte header) runs past DataLength: %llu bytes left",
                               Index, Decoded.Revision, HeaderSize, static_cast<unsigned long long> (Remaining));
      return;
    }
    const UINT64 RecordSize = UINT64{HeaderSize} + Decoded.Length;
    if (RecordSize > Remaining) {
      Report.Problem =
          Format ("entry %zu (revision 0x%04X, %u-byte header, %u bytes of data) runs past "
                  "DataLength: %llu bytes left",
                  Index, Decoded.Revision, HeaderSize, Decoded.Length, static_cast<unsigned long long> (Remaining));
      return;
    }
    Entries.push_back (std::move (Decoded));
    Entry += RecordSize;
    Remaining -= RecordSize;
  }
  Report.Entries = std::move (Entries);
}

GhesReader::GhesReader (UINT64 HestAddress, std::ostream &Out)
    : mOut (Out), mSeenSci (Host::SciCount ()), mSeenNmi (Host::NmiCount ()) {
  const auto                  *Header = Host::At<EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_HEADER> (HestAddress);
  const std::span<const UINT8> Bytes (Host::At<UINT8> (HestAddress), Header->Header.Length);
  std::vector<std::string>     Warnings; // a checksum the OS would only warn about
  CheckAcpiTable (Bytes, EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE, sizeof (*Header), Warnings);

  for (const HestSource &Found : WalkHest (Bytes)) {
    if (Found.Type != EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR) {
      continue;
    }
    EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE Ghes;
    std::memcpy (&Ghes, Bytes.data () + Found.Offset, sizeof (Ghes));
    GhesSource Source;
    Source.SourceId          = Ghes.SourceId;
    Source.StatusAddress     = Ghes.ErrorStatusAddress.Address;
    Source.StatusBlockLength = Ghes.ErrorStatusBlockLength;
    if (Ghes.NotificationStructure.Type == EFI_ACPI_6_3_HARDWARE_ERROR_NOTIFICATION_SCI) {
      Source.Notify = Notification::Sci;
    } else if (Ghes.NotificationStructure.Type == EFI_ACPI_6_3_HARDWARE_ERROR_NOTIFICATION_NMI) {
      Source.Notify = Notification::Nmi;
    }
    mSources.push_back (Source);
  }
}

const std::vector<GhesSource> &GhesReader::Sources () const {
  return mSources;
}

std::vector<GhesBlockReport> GhesReader::Poll () {
  const UINT64 Nmi = Host::NmiCount ();
  const UINT64 Sci = Host::SciCount ();
  const struct {
    Notification Kind;
    bool         Raised;
  } Kinds[] = {{Notification::Nmi, Nmi != mSeenNmi}, {Notification::Sci, Sci != mSeenSci}};
  mSeenNmi  = Nmi;
  mSeenSci  = Sci;

  std::vector<GhesBlockReport> Reports;
  for (const auto &Kind : Kinds) {
    if (!Kind.Raised) {
      continue;
    }
    std::string Ids;
    for (const GhesSource &Source : mSources) {
      if (Source.Notify == Kind.Kind) {
        Ids += Format (" 0x%04X", static_cast<unsigned> (Source.SourceId));
      }
    }
    mOut << "os: " << NotificationName (Kind.Kind) << " raised: reading GHES sources:" << (Ids.empty () ? " none" : Ids)
         << '\n';
    for (const GhesSource &Source : mSources) {
      if (Source.Notify == Kind.Kind) {
        Reports.push_back (Read (Source));
      }
    }
  }
  return Reports;
}

GhesBlockReport GhesReader::Read (const GhesSource &Source) {
  GhesBlockReport Report;
  Report.SourceId = Source.SourceId;
  Report.Address  = *Host::At<UINT64> (Source.StatusAddress);
  if (Report.Address == 0) {
    Report.Outcome = BlockOutcome::NoBlock;
    return Report;
  }
  // BlockStatus is read and acknowledged as the one 32-bit word it is to an OS.
  auto *BlockStatus = Host::At<UINT32> (Report.Address + OFFSET_OF (GENERIC_ERROR_STATUS, BlockStatus));
  if (*BlockStatus == 0) {
    Report.Outcome = BlockOutcome::Empty;
    return Report;
  }

  CheckStatusBlock (Report.Address, Source.StatusBlockLength, Report);
  Report.Outcome = Report.Problem.empty () ? BlockOutcome::Acknowledged : BlockOutcome::Rejected;
  Print (Report, Source.Notify);
  *BlockStatus = 0;
  return Report;
}

void GhesReader::Print (const GhesBlockReport &Report, Notification Notify) {
  const std::string Source =
      Format ("os: %s: GHES source 0x%04X", NotificationName (Notify), static_cast<unsigned> (Report.SourceId));
  mOut << Source
       << Format (": status block @ 0x%016llX: BlockStatus 0x%08X (%s), severity %s",
                  static_cast<unsigned long long> (Report.Address), Report.BlockStatus,
                  BlockStatusText (Report.BlockStatus).c_str (), SeverityName (Report.Severity))
       << '\n';
  if (Report.Outcome == BlockOutcome::Rejected) {
    mOut << Source << ": block rejected: " << Report.Problem << '\n'
         << Source << ": acknowledged without decoding (BlockStatus cleared)\n";
    return;
  }
  for (size_t Index = 0; Index < Report.Entries.size (); Index++) {
    const GhesEntry &Entry = Report.Entries[Index];
    mOut << Format ("os:   entry %zu: %s (%s), severity %s, revision 0x%04X, %u bytes", Index,
                    Entry.SectionName.c_str (), GuidText (Entry.SectionType).c_str (), SeverityName (Entry.Severity),
                    Entry.Revision, Entry.Length)
         << '\n';
    if ((Entry.ValidationBits & kFruIdValid) != 0) {
      mOut << "os:   entry " << Index << ": FRU id " << GuidText (Entry.FruId) << '\n';
    }
    if ((Entry.ValidationBits & kFruTextValid) != 0) {
      mOut << "os:   entry " << Index << ": FRU text \"" << Entry.FruText << "\"\n";
    }
  }
  mOut << Source << ": acknowledged (BlockStatus cleared)\n";
}

} // namespace Sim
