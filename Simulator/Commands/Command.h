/** @file
  vornsim commands: each command is a table row (name, help, run routine),
  so a new command is a new file plus one row in the command table.
**/
#pragma once

#include <map>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include <Uefi.h>

namespace Sim {

//
// A bad command line; vornsim prints it with a pointer to the command's help
// and exits with status 2.
//
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Command {
  const char *Name;                                    // words separated by one blank: "boot", "acpi dump"
  const char *Summary;                                 // one line for 'vornsim --help'
  const char *Help;                                    // the text of 'vornsim <name> --help'
  int (*Run) (std::span<const std::string> Arguments); // the arguments after the name; returns the exit status
};

//
// A command's arguments split into "--name value" (or "--name=value")
// options and positional arguments.
//
struct ParsedArguments {
  std::map<std::string, std::string> Options;
  std::vector<std::string>           Positionals;
};

//
// Accepts only the options in ValueOptions (each taking one value, each at
// most once); anything else starting with '-' is a UsageError.
//
ParsedArguments ParseArguments (std::span<const std::string> Arguments, std::span<const char *const> ValueOptions);

//
// A decimal or 0x-prefixed hexadecimal number; anything else is a UsageError.
//
UINT64 ParseUnsigned (const std::string &Text, const std::string &Option);

//
// A record identifier: hexadecimal, as vornsim and the firmware print them,
// with or without 0x ("0000000100000001", "0x100000001"); anything else is a
// UsageError.
//
UINT64 ParseRecordId (const std::string &Text, const std::string &Option);

//
// vornsim's exit statuses. The ERST ones follow the errno Linux makes of
// the firmware's command status.
//
enum ExitStatus : int {
  kExitSuccess  = 0,
  kExitFailure  = 1, // a runtime failure: a file, a table, a machine fault
  kExitUsage    = 2, // a bad command line
  kExitNotFound = 3, // -ENOENT: record not found, record store empty
  kExitIo       = 4, // -EIO: the firmware did not respond in time, or pstore could not read a record
  kExitNoSpace  = 5, // -ENOSPC
  kExitNoDevice = 6, // -ENODEV: hardware not available
  kExitInvalid  = 7, // -EINVAL: failed, an unknown status, or a record Linux refuses
};

} // namespace Sim
