/** @file
  Loading HEST and ERST from files into the simulated platform.
**/
#include "Builder/AcpiLoader.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <Host.h>

#include "Builder/AcpiCheck.h"
#include "Builder/AcpiHeader.h"
#include "Common/TextFormat.h"

namespace Sim {

namespace {

namespace fs = std::filesystem;

// What acpixtract writes, and what iasl compiles a data table to.
constexpr const char *kTableFileExtensions[] = {".dat", ".aml"};

// Status blocks live in the 8 MiB of reserved memory beside the ERST's
// registers and the module's parameter region.
constexpr UINT32 kMaxPlacedBlockLength = 0x100000;

struct TableFile {
  fs::path           Path;
  std::vector<UINT8> Bytes;
};

std::string Lowercase (std::string Text) {
  std::transform (Text.begin (), Text.end (), Text.begin (), [] (unsigned char C) { return std::tolower (C); });
  return Text;
}

//
// The one file in Directory holding the table named Signature.
//
fs::path FindTableFile (const fs::path &Directory, const std::string &Signature) {
  std::error_code Error;
  if (!fs::is_directory (Directory, Error)) {
    throw AcpiTableError (Format ("%s: not a directory", Directory.c_str ()));
  }
  const std::string     Stem = Lowercase (Signature);
  std::vector<fs::path> Matches;
  for (const fs::directory_entry &Entry : fs::directory_iterator (Directory)) {
    const std::string Name = Lowercase (Entry.path ().filename ().string ());
    for (const char *Extension : kTableFileExtensions) {
      if (Name == Stem + Extension) {
        Matches.push_back (Entry.path ());
      }
    }
  }
  if (Matches.empty ()) {
    throw AcpiTableError (Format ("%s: no %s table (expected %s.dat or %s.aml)", Directory.c_str (), Signature.c_str (),
                                  Stem.c_str (), Stem.c_str ()));
  }
  if (Matches.size () > 1) {
    std::sort (Matches.begin (), Matches.end ());
    std::string Names;
    for (const fs::path &Match : Matches) {
      Names += (Names.empty () ? "" : ", ") + Match.filename ().string ();
    }
    throw AcpiTableError (
        Format ("%s: several %s tables (%s); keep one", Directory.c_str (), Signature.c_str (), Names.c_str ()));
  }
  return Matches.front ();
}

TableFile
ReadTableFile (const fs::path &Directory, UINT32 Signature, size_t MinimumLength, std::vector<std::string> &Warnings) {
  TableFile     File{FindTableFile (Directory, AcpiSignatureText (Signature)), {}};
  std::ifstream Stream (File.Path, std::ios::binary);
  if (!Stream) {
    throw AcpiTableError (Format ("%s: cannot open: %s", File.Path.c_str (), std::strerror (errno)));
  }
  try {
    File.Bytes.assign (std::istreambuf_iterator<char> (Stream), std::istreambuf_iterator<char> ());
  } catch (const std::ios_base::failure &) {
    // A directory opens but cannot be read.
    throw AcpiTableError (Format ("%s: cannot read: %s", File.Path.c_str (), std::strerror (errno)));
  }
  try {
    CheckAcpiTable (File.Bytes, Signature, MinimumLength, Warnings);
  } catch (const AcpiTableError &Error) {
    throw AcpiTableError (Format ("%s: %s", File.Path.c_str (), Error.what ()));
  }
  return File;
}

//
// Runs Check on File, naming the file in any error.
//
template <typename Checker> auto CheckFile (const TableFile &File, Checker Check) {
  try {
    return Check (std::span<const UINT8> (File.Bytes));
  } catch (const AcpiTableError &Error) {
    throw AcpiTableError (Format ("%s: %s", File.Path.c_str (), Error.what ()));
  }
}

UINT64
PlaceTable (const TableFile &File) {
  const UINT64 Address = Host::AllocateAcpi (File.Bytes.size (), 8);
  std::memcpy (Host::At<UINT8> (Address), File.Bytes.data (), File.Bytes.size ());
  return Address;
}

//
// What firmware does for a generic hardware error source before handing
// the HEST over: a status block and the register pointing at it. The table
// is kept as given where that is what the module should meet: an Error
// Status Address of 0 stays 0, one outside system memory stays where it
// is, each with a warning.
//
void PlaceGhes (AcpiPlatform &Platform, const HestSource &Source, std::ostream &Report) {
  auto *Ghes = Host::At<EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE> (Platform.Hest + Source.Offset);
  const std::string Name =
      Format ("HEST error source %u (type %u, Source Id 0x%04X)", Source.Index, Source.Type, Source.SourceId);
  if (Ghes->ErrorStatusAddress.Address == 0) {
    Report << "vornsim: warning: " << Name << ": Error Status Address is 0: kept, no status block placed\n";
    return;
  }
  if (Ghes->ErrorStatusAddress.AddressSpaceId != EFI_ACPI_6_3_SYSTEM_MEMORY) {
    Report << Format ("vornsim: warning: %s: Error Status Address is in address space %u: kept as given, no status "
                      "block placed\n",
                      Name.c_str (), Ghes->ErrorStatusAddress.AddressSpaceId);
    return;
  }
  if (Ghes->ErrorStatusBlockLength > kMaxPlacedBlockLength) {
    throw AcpiTableError (Format ("%s: Error Status Block Length 0x%X does not fit the simulated reserved memory "
                                  "(at most 0x%X)",
                                  Name.c_str (), Ghes->ErrorStatusBlockLength, kMaxPlacedBlockLength));
  }
  if (Ghes->ErrorStatusBlockLength < sizeof (EFI_ACPI_6_3_GENERIC_ERROR_STATUS_STRUCTURE)) {
    Report << Format ("vornsim: warning: %s: Error Status Block Length 0x%X cannot hold a status header (0x%zX)\n",
                      Name.c_str (), Ghes->ErrorStatusBlockLength,
                      sizeof (EFI_ACPI_6_3_GENERIC_ERROR_STATUS_STRUCTURE));
  }
  const GhesPlacement &Placed = Platform.StatusBlocks.emplace_back (PlaceGhesStatusBlock (Ghes, Source.Index));
  Report << Format ("vornsim: %s: status block 0x%08llX (0x%X bytes), error status address register 0x%08llX",
                    Name.c_str (), static_cast<unsigned long long> (Placed.StatusBlock), Placed.StatusBlockLength,
                    static_cast<unsigned long long> (Placed.StatusAddressRegister));
  if (Placed.ReadAckRegister != 0) {
    Report << Format (", read ack register 0x%08llX", static_cast<unsigned long long> (Placed.ReadAckRegister));
  }
  Report << '\n';
}

} // namespace

AcpiPlatform LoadAcpiPlatform (const std::filesystem::path &Directory, std::ostream &Report) {
  std::vector<std::string> Warnings;
  const TableFile          Hest = ReadTableFile (Directory, EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE,
                                                 sizeof (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_HEADER), Warnings);
  const TableFile          Erst = ReadTableFile (Directory, EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_SIGNATURE,
                                                 sizeof (EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER), Warnings);
  const HestWalk           Walk = WalkHest (Hest.Bytes);
  if (!Walk.Problem.empty ()) {
    Warnings.push_back (Walk.Problem + "; the table is passed on as it is");
  }
  CheckFile (Erst, [&Warnings] (std::span<const UINT8> Bytes) { CheckErst (Bytes, Warnings); });
  for (const std::string &Warning : Warnings) {
    Report << "vornsim: warning: " << Warning << '\n';
  }

  AcpiPlatform Platform;
  Platform.Hest = PlaceTable (Hest);
  Report << Format ("vornsim: HEST from %s (0x%zX bytes, %zu error sources walked) at 0x%08llX\n", Hest.Path.c_str (),
                    Hest.Bytes.size (), Walk.Sources.size (), static_cast<unsigned long long> (Platform.Hest));
  for (const HestSource &Source : Walk.Sources) {
    if (Source.Type == EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR || Source.Type == kGhesV2Type) {
      PlaceGhes (Platform, Source, Report);
    }
  }
  AcpiUpdateChecksum (Host::At<EFI_ACPI_DESCRIPTION_HEADER> (Platform.Hest));

  Platform.Erst   = PlaceTable (Erst);
  auto *ErstTable = Host::At<EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER> (Platform.Erst);
  Report << Format ("vornsim: ERST from %s (0x%zX bytes, %u instruction entries) at 0x%08llX\n", Erst.Path.c_str (),
                    Erst.Bytes.size (), ErstTable->InstructionEntryCount,
                    static_cast<unsigned long long> (Platform.Erst));
  Platform.ErstRegisters = PlaceErstRegisters (ErstTable);
  for (const ErstRegisterPlacement &Register : Platform.ErstRegisters) {
    const std::string Where = Register.Placed ? std::string ("register in reserved memory")
                                              : Format ("register kept in address space %u", Register.AddressSpaceId);
    Report << Format ("vornsim: ERST entry %u (action 0x%02X): %s at 0x%08llX\n", Register.Index, Register.Action,
                      Where.c_str (), static_cast<unsigned long long> (Register.Address));
  }
  AcpiUpdateChecksum (&ErstTable->Header);

  const UINT64 Tables[] = {Platform.Hest, Platform.Erst};
  Platform.Root         = BuildAcpiRoot (Tables);
  Report << Format (
      "vornsim: RSDP 0x%08llX, XSDT 0x%08llX, RSDT 0x%08llX\n", static_cast<unsigned long long> (Platform.Root.Rsdp),
      static_cast<unsigned long long> (Platform.Root.Xsdt), static_cast<unsigned long long> (Platform.Root.Rsdt));
  return Platform;
}

} // namespace Sim
