/** @file
  How the bench counts: callgrind collects only inside Count, and each count
  becomes a dump named after its row. Run outside valgrind the requests do
  nothing and the program only checks that every operation succeeds.
**/
#pragma once

#include <cstdio>
#include <string>

#include <valgrind/callgrind.h>

#include <Uefi.h>

namespace Bench {

//
// Runs Body Repeat times with collection on and dumps the counts as Row; the
// table divides by Repeat. Body is inlined, so only the loop adds to it.
// Callgrind instruments nothing else (it starts with instrumentation off),
// so building stores and booting run at near native speed.
//
template <typename Fn> void Count (const std::string &Row, UINTN Repeat, Fn &&Body) {
  std::printf ("{\"row\": \"%s\", \"repeat\": %llu}\n", Row.c_str (), static_cast<unsigned long long> (Repeat));
  std::fflush (stdout);
  CALLGRIND_START_INSTRUMENTATION;
  CALLGRIND_ZERO_STATS;
  CALLGRIND_TOGGLE_COLLECT;
  for (UINTN Index = 0; Index < Repeat; Index++) {
    Body ();
  }
  CALLGRIND_TOGGLE_COLLECT;
  CALLGRIND_DUMP_STATS_AT (Row.c_str ());
  CALLGRIND_STOP_INSTRUMENTATION;
}

//
// One figure of a row besides its instructions, as a line the script reads.
//
void Note (const std::string &Row, const std::string &Name, double Value);

//
// Stops the run with a message when an operation did not do its work: a
// figure of a failed operation would be meaningless.
//
void Require (bool Condition, const char *What);

} // namespace Bench
