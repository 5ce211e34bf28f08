/** @file
  Writing a platform's ACPI tables as binary files, one table per file and
  named as acpixtract names them (rsdp.dat, xsdt.dat, ...), so iasl -d and
  the --acpi loader read them.
**/
#pragma once

#include <filesystem>
#include <vector>

#include "Builder/AcpiTables.h"

namespace Sim {

//
// Writes rsdp, xsdt, rsdt, hest and erst of Platform into Directory (created
// if missing); returns the files in that order. Throws std::runtime_error
// when a file cannot be written.
//
std::vector<std::filesystem::path> DumpAcpiTables (const AcpiPlatform          &Platform,
                                                   const std::filesystem::path &Directory);

} // namespace Sim
