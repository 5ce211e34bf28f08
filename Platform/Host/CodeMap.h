/** @file
  Which part of the source tree an instruction address belongs to, read
  once from the executable's debug information: the fault handlers decide
  with it whether a fault is the module's (contained) or the host's (a
  crash), and where in the module it happened.
**/
#pragma once

#include <Firmware.h>

namespace Host::Internal {

enum class CodeOwner {
  Module,   // Feature/, Library/
  Platform, // Platform/: the services and libraries the module calls
  Host,     // Simulator/, Test/, Fuzz/, Bench/: code that plays the machine's users
  Unknown,  // the C and C++ runtimes, sanitizers, anything without debug information
};

//
// Reads the map; call it outside signal handlers before OwnerOf is needed
// there. Later calls do nothing.
//
void LoadCodeMap ();

//
// Safe in a signal handler once the map is loaded; Unknown before.
//
CodeOwner OwnerOf (UINT64 Address);

} // namespace Host::Internal
