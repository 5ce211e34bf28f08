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
// After Host::PowerOn: reads DIR's HEST and ERST, places them in ACPI memory
// and, as platform firmware does at boot, gives every generic hardware error
// source the walk reaches a status block of its declared length (unless its
// Error Status Address is 0 or outside system memory) and every
// system-memory ERST register a register in reserved memory; builds XSDT,
// RSDT and RSDP around them and publishes the RSDP. The tables are passed on
// as given: what the module's own lookup must meet (a count beyond the
// structures, an unknown structure type, a zero address, a wrong checksum)
// is only warned about. Writes what it placed where, and the warnings, to
// Report. Throws AcpiTableError naming the file for a missing or unreadable
// table, one that is not the table it is named for or shorter than its
// header, and a status block too large for the simulated memory.
//
AcpiPlatform LoadAcpiPlatform (const std::filesystem::path &Directory, std::ostream &Report);

} // namespace Sim
