/** @file
  The OS's GHES reader: HEST sources, status block checks, decoding and
  acknowledgement.
**/
#include "Os/GhesReader.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <set>
#include <span>

#include <Host.h>
#include <IndustryStandard/Acpi.h>
#include <Protocol/VornApeiLoggingSmm.h>

#include "Builder/AcpiCheck.h"
#include "Builder/AcpiHest.h"
#include "Handlers/CperBuilder.h"
#include "Common/TextFormat.h"
#include "Os/ErstRegister.h"

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
// Linux reads no more of a block than this.
constexpr UINT32 kMaxStatusBlockLength = 0x10000;

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

} // namespace

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

const char *CperSeverityText (UINT32 Severity) {
  static const char *const kNames[] = {"recoverable", "fatal", "corrected", "info"};
  return Severity < std::size (kNames) ? kNames[Severity] : "unknown";
}

namespace {

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

  // The block's length as Linux takes it: to the end of the raw data when
  // there is a raw data offset, else to the end of the entries.
  const UINT64 EntriesEnd = UINT64{kStatusHeaderSize} + Status.DataLength;
  const UINT64 Length = Status.RawDataOffset != 0 ? UINT64{Status.RawDataOffset} + Status.RawDataLength : EntriesEnd;
  if (Length < kStatusHeaderSize) {
    Report.Problem = Format ("Truncated error status block! (%llu bytes)", static_cast<unsigned long long> (Length));
    return;
  }
  if (Length > StatusBlockLength) {
    Report.Problem = Format ("Invalid error status block length! (%llu bytes, the HEST block length is %u)",
                             static_cast<unsigned long long> (Length), StatusBlockLength);
    return;
  }
  if (Status.DataLength != 0 && Status.DataLength < kEntryHeaderOld) {
    Report.Problem =
        Format ("Invalid CPER header! (DataLength %u is shorter than a data entry header)", Status.DataLength);
    return;
  }
  if (Status.RawDataLength != 0 && Status.RawDataOffset < EntriesEnd) {
    Report.Problem = Format ("Invalid CPER header! (raw data at offset %u overlaps the entries)", Status.RawDataOffset);
    return;
  }
  if (!ErstOsMemory (Block, Length)) {
    Report.Problem = Format ("the block's %llu bytes at 0x%llx are not memory the OS can map",
                             static_cast<unsigned long long> (Length), static_cast<unsigned long long> (Block));
    return;
  }

  std::vector<GhesEntry> Entries;
  const UINT8           *Entry     = Host::At<UINT8> (Block) + kStatusHeaderSize;
  UINT64                 Remaining = Status.DataLength;
  for (size_t Index = 0; Remaining != 0; Index++) {
    if (Remaining < kEntryHeaderOld) {
      Report.Problem = Format ("Failed to read error status block! (DataLength %u ends inside entry %zu: %llu bytes "
                               "left)",
                               Status.DataLength, Index, static_cast<unsigned long long> (Remaining));
      return;
    }
    GhesEntry    Decoded    = DecodeEntry (Entry);
    const UINT32 HeaderSize = (Decoded.Revision >> 8) >= 3 ? kEntryHeaderV3 : kEntryHeaderOld;
    const UINT64 RecordSize = UINT64{HeaderSize} + Decoded.Length;
    if (RecordSize > Remaining) {
      Report.Problem =
          Format ("Failed to read error status block! (entry %zu, revision 0x%04X, %u-byte header and "
                  "%u bytes of data, runs past DataLength: %llu bytes left)",
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
  ParseHest (HestAddress);
  for (const std::string &Problem : mProblems) {
    mOut << "os: HEST: " << Problem << '\n';
  }
}

//
// hest.c's walk and ghes_probe's checks: any complaint about the table as a
// whole disables HEST, one about a source drops it.
//
void GhesReader::ParseHest (UINT64 HestAddress) {
  const auto                  *Header = Host::At<EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_HEADER> (HestAddress);
  const std::span<const UINT8> Bytes (Host::At<UINT8> (HestAddress), Header->Header.Length);
  std::vector<std::string>     Warnings; // a checksum ACPICA only warns about
  CheckAcpiTable (Bytes, EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE, sizeof (*Header), Warnings);

  const HestWalk Walk = WalkHest (Bytes);
  if (Walk.Stopped != HestStop::None) {
    mDisabled = true;
    mProblems.push_back (Walk.Stopped == HestStop::UnknownType
                             ? Format ("Unknown or unused hardware error source type: %u for hardware error source: "
                                       "%u. HEST disabled: no error source is read",
                                       Walk.StopType, Walk.StopSourceId)
                             : Format ("Table contents overflow for hardware error source: %u. HEST disabled: no "
                                       "error source is read",
                                       Walk.StopSourceId));
    return;
  }

  std::set<UINT16> Ids;
  for (const HestSource &Found : Walk.Sources) {
    if (Found.Type != EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR && Found.Type != kGhesV2Type) {
      continue;
    }
    const auto *Ghes =
        reinterpret_cast<const EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE *> (Bytes.data () + Found.Offset);
    if (Ghes->Enabled == 0) {
      continue;
    }
    if (!Ids.insert (Found.SourceId).second) {
      mDisabled = true;
      mSources.clear ();
      mProblems.push_back (
          Format ("Duplicated hardware error source ID: %u. HEST disabled: no error source is read", Found.SourceId));
      return;
    }
    TakeSource (Bytes.data () + Found.Offset, Found.Type);
  }
}

void GhesReader::TakeSource (const UINT8 *Structure, UINT16 Type) {
  GhesV2Structure Ghes{};
  std::memcpy (&Ghes, Structure, Type == kGhesV2Type ? sizeof (GhesV2Structure) : sizeof (Ghes.Ghes));
  GhesSource Source;
  Source.SourceId          = Ghes.Ghes.SourceId;
  Source.StatusAddress     = Ghes.Ghes.ErrorStatusAddress;
  Source.StatusBlockLength = Ghes.Ghes.ErrorStatusBlockLength;
  Source.Version2          = Type == kGhesV2Type;
  Source.ReadAck           = Ghes.ReadAckRegister;
  Source.ReadAckPreserve   = Ghes.ReadAckPreserve;
  Source.ReadAckWrite      = Ghes.ReadAckWrite;
  if (Ghes.Ghes.NotificationStructure.Type == EFI_ACPI_6_3_HARDWARE_ERROR_NOTIFICATION_SCI) {
    Source.Notify = Notification::Sci;
  } else if (Ghes.Ghes.NotificationStructure.Type == EFI_ACPI_6_3_HARDWARE_ERROR_NOTIFICATION_NMI) {
    Source.Notify = Notification::Nmi;
  }

  const std::string Dropped = Format ("generic hardware error source %u dropped: ", Source.SourceId);
  if (Source.StatusBlockLength < kStatusHeaderSize) {
    mProblems.push_back (Dropped + Format ("Invalid error block length: %u", Source.StatusBlockLength));
    return;
  }
  if (Source.Version2) {
    if (const std::string Problem = ErstRegisterProblem (Source.ReadAck); !Problem.empty ()) {
      mProblems.push_back (Dropped + "Read Ack register: " + Problem);
      return;
    }
  }
  if (const std::string Problem = ErstRegisterProblem (Source.StatusAddress); !Problem.empty ()) {
    mProblems.push_back (Dropped + "Error Status Address: " + Problem);
    return;
  }
  if (Source.StatusBlockLength > kMaxStatusBlockLength) {
    mProblems.push_back (Format ("Error status block length is too long: %u for generic hardware error source: %u; "
                                 "read as %u",
                                 Source.StatusBlockLength, Source.SourceId, kMaxStatusBlockLength));
    Source.StatusBlockLength = kMaxStatusBlockLength;
  }
  mSources.push_back (Source);
}

const std::vector<GhesSource> &GhesReader::Sources () const {
  return mSources;
}

const std::vector<std::string> &GhesReader::TableProblems () const {
  return mProblems;
}

bool GhesReader::Disabled () const {
  return mDisabled;
}

bool GhesReader::Panicked () const {
  return mPanicked;
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
        // Linux reads nothing after its panic.
        if (Reports.back ().Panic) {
          return Reports;
        }
      }
    }
  }
  return Reports;
}

GhesBlockReport GhesReader::Read (const GhesSource &Source) {
  GhesBlockReport Report;
  Report.SourceId = Source.SourceId;
  Report.Address  = ErstRegisterRead (Source.StatusAddress);
  if (Report.Address == 0) {
    Report.Outcome = BlockOutcome::NoBlock;
    return Report;
  }
  if (!ErstOsMemory (Report.Address, kStatusHeaderSize)) {
    Report.Outcome = BlockOutcome::Rejected;
    Report.Problem = "the block address is not memory the OS can map";
    Print (Report, Source.Notify, Source.Version2);
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
  // Fatal, and any severity Linux does not know, is a panic.
  Report.Panic = Report.Outcome == BlockOutcome::Acknowledged && Report.Severity != EFI_GENERIC_ERROR_RECOVERABLE &&
                 Report.Severity != EFI_GENERIC_ERROR_CORRECTED && Report.Severity != EFI_GENERIC_ERROR_INFO;
  Acknowledge (Source, Report.Address);
  Print (Report, Source.Notify, Source.Version2);
  mPanicked = mPanicked || Report.Panic;
  return Report;
}

//
// BlockStatus cleared; then a GHESv2 source's Read Ack register gets its
// preserved bits and the write value, read-modify-write.
//
void GhesReader::Acknowledge (const GhesSource &Source, UINT64 Block) {
  *Host::At<UINT32> (Block + OFFSET_OF (GENERIC_ERROR_STATUS, BlockStatus)) = 0;
  if (!Source.Version2) {
    return;
  }
  const UINT32 Shift = Source.ReadAck.RegisterBitOffset;
  UINT64       Value = ErstRegisterRead (Source.ReadAck);
  Value &= Shift < 64 ? Source.ReadAckPreserve << Shift : 0;
  Value |= Shift < 64 ? Source.ReadAckWrite << Shift : 0;
  ErstRegisterWrite (Source.ReadAck, Value);
}

void GhesReader::Print (const GhesBlockReport &Report, Notification Notify, bool Version2) {
  const std::string Source =
      Format ("os: %s: GHES source 0x%04X", NotificationName (Notify), static_cast<unsigned> (Report.SourceId));
  mOut << Source
       << Format (": status block @ 0x%016llX: BlockStatus 0x%08X (%s), severity %s",
                  static_cast<unsigned long long> (Report.Address), Report.BlockStatus,
                  BlockStatusText (Report.BlockStatus).c_str (), CperSeverityText (Report.Severity))
       << '\n';
  if (Report.Outcome == BlockOutcome::Rejected) {
    mOut << Source << ": block rejected: " << Report.Problem << '\n'
         << Source << ": acknowledged without decoding (BlockStatus cleared)\n";
    return;
  }
  for (size_t Index = 0; Index < Report.Entries.size (); Index++) {
    const GhesEntry &Entry = Report.Entries[Index];
    mOut << Format ("os:   entry %zu: %s (%s), severity %s, revision 0x%04X, %u bytes", Index,
                    Entry.SectionName.c_str (), GuidText (Entry.SectionType).c_str (),
                    CperSeverityText (Entry.Severity), Entry.Revision, Entry.Length)
         << '\n';
    if ((Entry.ValidationBits & kFruIdValid) != 0) {
      mOut << "os:   entry " << Index << ": FRU id " << GuidText (Entry.FruId) << '\n';
    }
    if ((Entry.ValidationBits & kFruTextValid) != 0) {
      mOut << "os:   entry " << Index << ": FRU text \"" << Entry.FruText << "\"\n";
    }
  }
  mOut << Source << ": acknowledged (BlockStatus cleared" << (Version2 ? ", Read Ack written" : "") << ")\n";
  if (Report.Panic) {
    mOut << Source << ": Kernel panic - not syncing: GHES: Fatal hardware error\n";
  }
}

} // namespace Sim
