/** @file
  vornsim acpi dump: writes the platform's ACPI tables as files, as the
  platform hands them to the module or, with --after-boot, as the module
  left them.
**/
#include <Host.h>

#include "Builder/AcpiDump.h"
#include "Commands/Commands.h"
#include "Commands/OsSession.h"
#include "Commands/SharedOptions.h"

namespace Sim {

namespace {

constexpr const char *kAcpiDumpOptions[] = {"--flash", "--log", "--acpi"};

int RunAcpiDump (std::span<const std::string> Arguments) {
  std::vector<std::string> Rest (Arguments.begin (), Arguments.end ());
  const bool               AfterBoot = std::erase (Rest, std::string ("--after-boot")) != 0;
  const ParsedArguments    Parsed    = ParseArguments (Rest, kAcpiDumpOptions);
  if (Parsed.Positionals.empty ()) {
    throw UsageError ("missing the directory to write the tables to");
  }
  if (Parsed.Positionals.size () > 1) {
    throw UsageError ("unexpected argument '" + Parsed.Positionals[1] + "'");
  }
  if (!AfterBoot && !Parsed.Options.empty ()) {
    throw UsageError ("'" + Parsed.Options.begin ()->first + "' goes with '--after-boot'");
  }

  std::optional<OsSession> Session;
  AcpiPlatform             Platform;
  if (AfterBoot) {
    Session.emplace (Parsed);
    Platform = Session->Booted ().Platform;
  } else {
    Host::PowerOn ();
    Platform = BuildDefaultAcpiPlatform ();
  }
  Json Files = Json::array ();
  for (const std::filesystem::path &File : DumpAcpiTables (Platform, Parsed.Positionals.front ())) {
    Story () << "vornsim: wrote " << File.string () << '\n';
    Files.push_back (File.string ());
  }
  Document ()["files"] = Files;
  if (Session) {
    Session->Finish ();
  }
  return kExitSuccess;
}

} // namespace

const Command kAcpiDumpCommand = {
    "acpi dump",
    "write the platform's ACPI tables as binary files",
    "usage: vornsim acpi dump DIR\n"
    "       vornsim acpi dump DIR --after-boot [--flash FILE] [--acpi DIR] [--log FILE]\n"
    "\n"
    "Writes the platform's ACPI tables into DIR (created if missing), one binary\n"
    "table per file, named as acpixtract names them: rsdp.dat, xsdt.dat,\n"
    "rsdt.dat, hest.dat and erst.dat. 'iasl -d' disassembles them, and 'vornsim\n"
    "boot --acpi DIR' boots on the HEST and ERST among them.\n"
    "\n"
    "Without --after-boot the tables are the default platform's, as the platform\n"
    "hands them to the module: the ERST's registers still point at the\n"
    "platform's placeholders. With --after-boot the module boots first (on the\n"
    "flash image and, with --acpi, on tables from DIR) and the tables are\n"
    "written as the module left them: the ERST patched to point at its\n"
    "parameter region, with its new checksum.\n"
    "\n" OS_SESSION_OPTIONS_HELP "\n"
    "Exit status: 0 when the tables were written, 1 when a file could not be\n"
    "written or the platform could not be built, 2 for bad arguments.\n",
    RunAcpiDump,
};

} // namespace Sim
