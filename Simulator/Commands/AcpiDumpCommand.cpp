/** @file
  vornsim acpi dump: writes the default platform's ACPI tables as files.
**/
#include <iostream>

#include <Host.h>

#include "Builder/AcpiDump.h"
#include "Commands/Commands.h"

namespace Sim {

namespace {

int RunAcpiDump (std::span<const std::string> Arguments) {
  const ParsedArguments Parsed = ParseArguments (Arguments, {});
  if (Parsed.Positionals.empty ()) {
    throw UsageError ("missing the directory to write the tables to");
  }
  if (Parsed.Positionals.size () > 1) {
    throw UsageError ("unexpected argument '" + Parsed.Positionals[1] + "'");
  }

  Host::PowerOn ();
  const AcpiPlatform Platform = BuildDefaultAcpiPlatform ();
  for (const std::filesystem::path &File : DumpAcpiTables (Platform, Parsed.Positionals.front ())) {
    std::cout << "vornsim: wrote " << File.string () << '\n';
  }
  return 0;
}

} // namespace

const Command kAcpiDumpCommand = {
    "acpi dump",
    "write the default platform's ACPI tables as binary files",
    "usage: vornsim acpi dump DIR\n"
    "\n"
    "Builds the default platform and writes its ACPI tables into DIR (created if\n"
    "missing), one binary table per file, named as acpixtract names them:\n"
    "rsdp.dat, xsdt.dat, rsdt.dat, hest.dat and erst.dat. 'iasl -d' disassembles\n"
    "them, and 'vornsim boot --acpi DIR' boots on the HEST and ERST among them.\n"
    "The tables are as the platform hands them to the module, before the module\n"
    "patches the ERST.\n",
    RunAcpiDump,
};

} // namespace Sim
