/** @file
  ACPI tables to binary files.
**/
#include "Builder/AcpiDump.h"

#include <stdexcept>

#include <Host.h>

#include "Common/TextFormat.h"

namespace Sim {

namespace {

namespace fs = std::filesystem;

fs::path WriteTable (const fs::path &Directory, const char *Name, UINT64 Address, UINT32 Length) {
  const fs::path Path = Directory / (std::string (Name) + ".dat");
  WriteBinaryFile (Path, std::span<const UINT8> (Host::At<const UINT8> (Address), Length));
  return Path;
}

UINT32
TableLength (UINT64 Address) {
  return Host::At<EFI_ACPI_DESCRIPTION_HEADER> (Address)->Length;
}

} // namespace

std::vector<fs::path> DumpAcpiTables (const AcpiPlatform &Platform, const fs::path &Directory) {
  std::error_code Error;
  fs::create_directories (Directory, Error);
  if (Error) {
    throw std::runtime_error (
        Format ("%s: cannot create directory: %s", Directory.c_str (), Error.message ().c_str ()));
  }
  const UINT32 RsdpLength = Host::At<EFI_ACPI_2_0_ROOT_SYSTEM_DESCRIPTION_POINTER> (Platform.Root.Rsdp)->Length;
  return {
      WriteTable (Directory, "rsdp", Platform.Root.Rsdp, RsdpLength),
      WriteTable (Directory, "xsdt", Platform.Root.Xsdt, TableLength (Platform.Root.Xsdt)),
      WriteTable (Directory, "rsdt", Platform.Root.Rsdt, TableLength (Platform.Root.Rsdt)),
      WriteTable (Directory, "hest", Platform.Hest, TableLength (Platform.Hest)),
      WriteTable (Directory, "erst", Platform.Erst, TableLength (Platform.Erst)),
  };
}

} // namespace Sim
