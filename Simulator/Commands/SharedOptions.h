/** @file
  What every vornsim command shares: the options that apply to any command
  (-q, --json, --print-level, --fix), where the story lines go, and the JSON
  document a command fills for scripts.
**/
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <Uefi.h>

namespace Sim {

// Members keep the order they were added in, so a document prints the same
// bytes on every run.
using Json = nlohmann::ordered_json;

struct SharedOptions {
  bool                  Json  = false; // one JSON document on standard output
  bool                  Quiet = false; // the serial log to a file, the story to the terminal
  std::optional<UINT32> PrintLevel;    // the platform's run-time debug print level
};

//
// The shared options this run was given.
//
const SharedOptions &Shared ();

//
// Takes -q (--quiet), --json, --print-level MASK and --fix LIST (or
// --name=value) out of Arguments, wherever they stand, and applies the print
// level and the switches to the platforms this run builds. Throws UsageError
// for a bad value.
//
void TakeSharedOptions (std::vector<std::string> &Arguments);

//
// Where the lines starting "os: ", "handler: ", "platform: " and "decode: "
// go: standard output, or nowhere under --json (the document carries them).
//
std::ostream &Story ();

//
// The document the command fills; vornsim prints it under --json.
//
Json &Document ();

} // namespace Sim
