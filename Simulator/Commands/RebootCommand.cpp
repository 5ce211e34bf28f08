/** @file
  vornsim reboot: boots the module again on the flash image the earlier
  commands left, so the log shows what start-up makes of the stored records
  (discovery, defragmentation).
**/
#include <filesystem>
#include <iostream>

#include "Commands/Commands.h"
#include "Commands/OsSession.h"

namespace Sim {

namespace {

int RunReboot (std::span<const std::string> Arguments) {
  const ParsedArguments Parsed = ParseArguments (Arguments, kOsSessionOptions);
  if (!Parsed.Positionals.empty ()) {
    throw UsageError ("unexpected argument '" + Parsed.Positionals.front () + "'");
  }

  const std::filesystem::path Image = FlashImagePath (Parsed);
  if (!std::filesystem::exists (Image)) {
    throw std::runtime_error (Image.string () + ": no flash image to reboot on (any command that boots creates one)");
  }

  OsSession Session (Parsed);
  Session.Finish ();
  return 0;
}

} // namespace

const Command kRebootCommand = {
    "reboot",
    "boot again on the existing flash image",
    "usage: vornsim reboot [options]\n"
    "\n"
    "Boots the module on the flash image earlier commands left behind, which\n"
    "must exist: the log shows the store's discovery and, when records were\n"
    "cleared or marked obsolete, its defragmentation.\n"
    "\n" OS_SESSION_OPTIONS_HELP "\n"
    "Standard output carries the serial log; the module entry's status goes to\n"
    "standard error.\n"
    "\n"
    "Exit status: 0 when the module ran (whatever it returned), 1 when there is\n"
    "no flash image or the platform could not be built, 2 for bad arguments.\n",
    RunReboot,
};

} // namespace Sim
