/** @file
  Booting for the commands that then act as the operating system: the
  options they share, the persistent flash image, the serial log (see
  SerialLog.h) from the first boot line to the last line the module prints
  for the OS, and the health line at the end.
**/
#pragma once

#include <filesystem>

#include "Builder/Boot.h"
#include "Commands/Command.h"
#include "Commands/SerialLog.h"

namespace Sim {

//
// Where every booting command keeps the flash, unless --flash names a file.
//
inline constexpr char kDefaultFlashImage[] = "vornsim-flash.img";

//
// The options OsSession reads.
//
inline constexpr const char *kOsSessionOptions[] = {"--flash", "--log", "--acpi"};

//
// The help text of those options, for the commands' help texts.
//
#define OS_SESSION_OPTIONS_HELP                                                     \
  "  --flash FILE  the flash image (default vornsim-flash.img in the current\n"     \
  "                directory, created from the default image when missing)\n"       \
  "  --acpi DIR    take the HEST and the ERST from binary tables in DIR (see\n"     \
  "                'vornsim boot --help')\n"                                        \
  "  --log FILE    write the serial log to FILE instead of standard output (with\n" \
  "                -q or --json it goes to vornsim-serial.log unless --log says)\n"

std::filesystem::path FlashImagePath (const ParsedArguments &Parsed);

class OsSession {
public:
  //
  // Boots the module on processor Cpu on the flash image (created from the
  // default image when missing) and reports the entry's status on standard
  // error (or in the document). The serial log stays attached for what the
  // OS does next.
  //
  explicit OsSession (const ParsedArguments &Parsed, UINTN Cpu = 0);

  OsSession (const OsSession &)            = delete;
  OsSession &operator= (const OsSession &) = delete;

  const BootResult &Booted () const;

  //
  // Detaches and flushes the log (throws when it could not be written), then
  // reports the machine's health.
  //
  void Finish ();

private:
  SerialLog  mLog;
  BootResult mBooted;
};

} // namespace Sim
