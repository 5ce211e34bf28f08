/** @file
  Command-line parsing shared by the vornsim commands.
**/
#include "Commands/Command.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace Sim {

ParsedArguments ParseArguments (std::span<const std::string> Arguments, std::span<const char *const> ValueOptions) {
  ParsedArguments Parsed;
  for (size_t Index = 0; Index < Arguments.size (); Index++) {
    const std::string &Argument = Arguments[Index];
    if (Argument.size () < 2 || Argument[0] != '-') {
      Parsed.Positionals.push_back (Argument);
      continue;
    }
    const size_t      Equals = Argument.find ('=');
    const std::string Name   = Argument.substr (0, Equals);
    const bool        Known  = std::any_of (ValueOptions.begin (), ValueOptions.end (),
                                            [&Name] (const char *Option) { return Name == Option; });
    if (!Known) {
      throw UsageError ("unknown option '" + Name + "'");
    }
    std::string Value;
    if (Equals != std::string::npos) {
      Value = Argument.substr (Equals + 1);
    } else if (Index + 1 < Arguments.size ()) {
      Value = Arguments[++Index];
    } else {
      throw UsageError ("option '" + Name + "' needs a value");
    }
    if (!Parsed.Options.emplace (Name, Value).second) {
      throw UsageError ("option '" + Name + "' given twice");
    }
  }
  return Parsed;
}

namespace {

//
// Text as a number: hexadecimal after 0x, in Base otherwise; nullopt when
// it is not one or does not fit.
//
std::optional<UINT64> ParseNumber (const std::string &Text, int Base) {
  const bool  Prefixed    = Text.starts_with ("0x") || Text.starts_with ("0X");
  const char *First       = Text.data () + (Prefixed ? 2 : 0);
  const char *Last        = Text.data () + Text.size ();
  UINT64      Value       = 0;
  const auto [End, Error] = std::from_chars (First, Last, Value, Prefixed ? 16 : Base);
  if (First == Last || Error != std::errc () || End != Last) {
    return std::nullopt;
  }
  return Value;
}

} // namespace

UINT64
ParseUnsigned (const std::string &Text, const std::string &Option) {
  const auto Value = ParseNumber (Text, 10);
  if (!Value) {
    throw UsageError ("invalid number '" + Text + "' for '" + Option + "'");
  }
  return *Value;
}

// Identifiers are printed in hexadecimal, so they are read back that way.
UINT64
ParseRecordId (const std::string &Text, const std::string &Option) {
  const auto Value = ParseNumber (Text, 16);
  if (!Value) {
    throw UsageError ("invalid record identifier '" + Text + "' for '" + Option +
                      "' (hexadecimal, with or without 0x)");
  }
  return *Value;
}

} // namespace Sim
