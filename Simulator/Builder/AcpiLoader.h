/** @file
  A platform whose HEST and ERST come from binary files: tables dumped from a
  real server (acpidump + acpixtract: hest.dat, erst.dat) or compiled with
  iasl (hest.aml, erst.aml). File names are matched without regard to case.
**/
#pragma once

#include <filesystem>
#include <ostream>

#include "Builder/AcpiTables.h"

namespace Sim {

//
// After Host::PowerOn: reads DIR's HEST and ERST, validates them (see
// AcpiCheck.h), places them in ACPI memory and, as platform firmware does at
// boot, gives every generic hardware error source a status block of its
// declared length and every system-memory ERST register a register in
// reserved memory; builds XSDT, RSDT and RSDP around them and publishes the
// RSDP. Writes what it placed where, and any warning, to Report. Throws
// AcpiTableError naming the file for a missing, unreadable or malformed table.
//
AcpiPlatform LoadAcpiPlatform (const std::filesystem::path &Directory, std::ostream &Report);

} // namespace Sim
