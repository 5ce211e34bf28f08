/** @file
  Command-line parsing shared by the vornsim commands.
**/
#include "Commands/Command.h"

#include <algorithm>
#include <charconv>

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

UINT64
ParseUnsigned (const std::string &Text, const std::string &Option) {
  const bool  Hex         = Text.starts_with ("0x") || Text.starts_with ("0X");
  const char *First       = Text.data () + (Hex ? 2 : 0);
  const char *Last        = Text.data () + Text.size ();
  UINT64      Value       = 0;
  const auto [End, Error] = std::from_chars (First, Last, Value, Hex ? 16 : 10);
  if (First == Last || Error != std::errc () || End != Last) {
    throw UsageError ("invalid number '" + Text + "' for '" + Option + "'");
  }
  return Value;
}

} // namespace Sim
