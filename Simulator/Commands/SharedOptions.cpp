/** @file
  The options every command shares, the story stream and the JSON document.
**/
#include "Commands/SharedOptions.h"

#include <iostream>

#include "Builder/Boot.h"
#include "Builder/Fixes.h"
#include "Commands/Command.h"

namespace Sim {

namespace {

SharedOptions mShared;

//
// Takes Name's value out of Arguments at Index ("--name value" or
// "--name=value"); nullopt when Arguments[Index] is not Name.
//
std::optional<std::string> TakeValue (std::vector<std::string> &Arguments, size_t Index, const std::string &Name) {
  const std::string Argument = Arguments[Index];
  if (Argument.starts_with (Name + "=")) {
    Arguments.erase (Arguments.begin () + static_cast<std::ptrdiff_t> (Index));
    return Argument.substr (Name.size () + 1);
  }
  if (Argument != Name) {
    return std::nullopt;
  }
  if (Index + 1 == Arguments.size ()) {
    throw UsageError ("option '" + Name + "' needs a value");
  }
  std::string Value = Arguments[Index + 1];
  Arguments.erase (Arguments.begin () + static_cast<std::ptrdiff_t> (Index),
                   Arguments.begin () + static_cast<std::ptrdiff_t> (Index) + 2);
  return Value;
}

} // namespace

const SharedOptions &Shared () {
  return mShared;
}

void TakeSharedOptions (std::vector<std::string> &Arguments) {
  std::set<Host::Fix> Fixes;
  for (size_t Index = 0; Index < Arguments.size ();) {
    const std::string &Argument = Arguments[Index];
    if (const auto List = TakeValue (Arguments, Index, "--fix")) {
      try {
        Fixes.merge (ParseFixes (*List));
      } catch (const std::invalid_argument &Error) {
        throw UsageError (Error.what ());
      }
    } else if (Argument == "-q" || Argument == "--quiet" || Argument == "--json") {
      (Argument == "--json" ? mShared.Json : mShared.Quiet) = true;
      Arguments.erase (Arguments.begin () + static_cast<std::ptrdiff_t> (Index));
    } else if (const auto Level = TakeValue (Arguments, Index, "--print-level")) {
      const UINT64 Mask = ParseUnsigned (*Level, "--print-level");
      if (Mask > MAX_UINT32) {
        throw UsageError ("print level '" + *Level + "' is wider than 32 bits");
      }
      mShared.PrintLevel = static_cast<UINT32> (Mask);
      SelectPrintLevel (*mShared.PrintLevel);
    } else {
      Index++;
    }
  }
  SelectFixes (Fixes);
}

std::ostream &Story () {
  static std::ostream Nowhere (nullptr);
  return mShared.Json ? Nowhere : std::cout;
}

Json &Document () {
  static Json Root = Json::object ();
  return Root;
}

} // namespace Sim
