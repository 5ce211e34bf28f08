/** @file
  The switches that replace a specified rule known to hurt users: one table
  of their vornsim names, and the set a run selects with --fix. Every
  platform vornsim builds carries the selected set.
**/
#pragma once

#include <set>
#include <span>
#include <string>

#include <Host.h>

namespace Sim {

struct FixSwitch {
  const char *Name;    // the --fix name: "erst-read"
  Host::Fix   Which;   // the platform setting (PcdVornFix<Name> in the module)
  const char *Summary; // one line for the help text
};

std::span<const FixSwitch> FixSwitches ();

//
// "all", or names separated by commas. Throws std::invalid_argument naming
// an unknown switch.
//
std::set<Host::Fix> ParseFixes (const std::string &List);

//
// "erst-read,free-space", in table order; "none" for the empty set.
//
std::string FixNames (const std::set<Host::Fix> &Fixes);

//
// The switches the platforms of this run are built with.
//
void                       SelectFixes (const std::set<Host::Fix> &Fixes);
const std::set<Host::Fix> &SelectedFixes ();

} // namespace Sim
