/** @file
  vornsim boot: boots the module and prints its serial log.
**/
#include "Commands/Commands.h"
#include "Commands/ErrorInjection.h"
#include "Commands/OsSession.h"

namespace Sim {

namespace {

constexpr const char *kBootOptions[] = {"--cpu", "--acpi", "--log", "--flash"};

int RunBoot (std::span<const std::string> Arguments) {
  const ParsedArguments Parsed = ParseArguments (Arguments, kBootOptions);
  if (!Parsed.Positionals.empty ()) {
    throw UsageError ("unexpected argument '" + Parsed.Positionals.front () + "'");
  }

  OsSession Session (Parsed, ParseCpuOption (Parsed));
  Session.Finish ();
  return kExitSuccess;
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
    "                simulated memory. The HEST reaches the module as written: a\n"
    "                count past its structures, an unknown structure type, an\n"
    "                Error Status Address of 0 or outside memory, a block too short\n"
    "                for its header are warnings, and so is a wrong checksum\n"
    "                (recomputed in the placed table). Refused is only what the\n"
    "                simulator cannot place: a missing or truncated\n"
    "                table, a Length the file disagrees with, an ERST whose entry\n"
    "                count disagrees with its length, a status block larger than\n"
    "                the reserved memory.\n"
    "  --log FILE    write the serial log to FILE instead of standard output (with\n"
    "                -q or --json it goes to vornsim-serial.log unless --log says)\n"
    "  --flash FILE  the flash image (default vornsim-flash.img in the current\n"
    "                directory, created from the default image when missing)\n"
    "\n"
    "Standard output carries the serial log alone, byte-identical on every run.\n"
    "What the ACPI loader placed where, warnings, the entry's status and the\n"
    "health line go to standard error.\n"
    "\n"
    "Exit status: 0 when the module ran (whatever it returned), 1 when the\n"
    "platform could not be built, 2 for bad arguments.\n",
    RunBoot,
};

} // namespace Sim
