/** @file
  vornsim boot: boots the module and prints its serial log.
**/
#include <fstream>
#include <iostream>

#include "Builder/AcpiCheck.h"
#include "Builder/Boot.h"
#include "Commands/Commands.h"
#include "Commands/OsSession.h"
#include "Common/TextFormat.h"

namespace Sim {

namespace {

constexpr const char *kBootOptions[] = {"--cpu", "--acpi", "--log", "--flash"};

int RunBoot (std::span<const std::string> Arguments) {
  const ParsedArguments Parsed = ParseArguments (Arguments, kBootOptions);
  if (!Parsed.Positionals.empty ()) {
    throw UsageError ("unexpected argument '" + Parsed.Positionals.front () + "'");
  }

  BootOptions Options;
  Options.FlashImage = FlashImagePath (Parsed);
  const UINTN Cpus   = ProcessorCount (Options.Machine.Cpus);
  if (auto Cpu = Parsed.Options.find ("--cpu"); Cpu != Parsed.Options.end ()) {
    Options.Cpu = ParseUnsigned (Cpu->second, Cpu->first);
    if (Options.Cpu >= Cpus) {
      throw UsageError (Format ("processor %s does not exist: the machine has %llu (0 to %llu)", Cpu->second.c_str (),
                                static_cast<unsigned long long> (Cpus), static_cast<unsigned long long> (Cpus - 1)));
    }
  }
  if (auto Acpi = Parsed.Options.find ("--acpi"); Acpi != Parsed.Options.end ()) {
    Options.AcpiDirectory = Acpi->second;
  }
  std::ofstream Log;
  Options.Serial = &std::cout;
  if (auto LogPath = Parsed.Options.find ("--log"); LogPath != Parsed.Options.end ()) {
    Log.open (LogPath->second, std::ios::binary | std::ios::trunc);
    if (!Log) {
      throw std::runtime_error (Format ("%s: cannot open the log file", LogPath->second.c_str ()));
    }
    Options.Serial = &Log;
  }
  Options.Report = &std::cerr;

  // The sink must not outlive the log stream, whatever happens.
  struct SinkDetach {
    ~SinkDetach () {
      Host::SetSerialSink (nullptr);
    }
  } Detach;
  const BootResult Result = Boot (Options);
  Options.Serial->flush ();
  if (!*Options.Serial) {
    throw std::runtime_error ("the serial log could not be written");
  }
  std::cerr << "vornsim: module entry returned " << StatusText (Result.Status) << '\n';
  return 0;
}

} // namespace

const Command kBootCommand = {
    "boot",
    "boot the module on the simulated platform and print its serial log",
    "usage: vornsim boot [--cpu N] [--acpi DIR] [--log FILE] [--flash FILE]\n"
    "\n"
    "Powers on the simulated platform, builds its ACPI tables and runs the module's\n"
    "image entry, as the SMM core does when it dispatches the driver.\n"
    "\n"
    "  --cpu N       processor the entry runs on (default 0)\n"
    "  --acpi DIR    take the HEST and the ERST from binary tables in DIR instead of\n"
    "                the default ones: hest.dat and erst.dat as acpidump and\n"
    "                acpixtract write them, or hest.aml and erst.aml as iasl\n"
    "                compiles them (names in any case). As firmware does at boot,\n"
    "                each generic error source gets a status block of its declared\n"
    "                length and each system-memory ERST register a register in\n"
    "                simulated memory; a wrong table checksum is only a warning.\n"
    "  --log FILE    write the serial log to FILE instead of standard output\n"
    "  --flash FILE  the flash image (default vornsim-flash.img in the current\n"
    "                directory, created from the default image when missing)\n"
    "\n"
    "Standard output carries the serial log alone, byte-identical on every run.\n"
    "What the ACPI loader placed where, warnings, and one summary line with the\n"
    "entry's status go to standard error.\n"
    "\n"
    "Exit status: 0 when the module ran (whatever it returned), 1 when the\n"
    "platform could not be built, 2 for bad arguments.\n",
    RunBoot,
};

} // namespace Sim
