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

} // namespace Sim
