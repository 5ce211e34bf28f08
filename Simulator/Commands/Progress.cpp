/** @file
  The progress line.
**/
#include "Commands/Progress.h"

#include <unistd.h>

#include <cstdio>

namespace Sim {

namespace {

constexpr std::chrono::milliseconds kInterval (250);

} // namespace

Progress::Progress (std::string What)
    : mWhat (std::move (What)), mTerminal (isatty (STDERR_FILENO) != 0), mLast (std::chrono::steady_clock::now ()) {}

Progress::~Progress () {
  if (mShown) {
    std::fputs ("\r\033[K", stderr);
  }
}

void Progress::Show (const std::string &State) {
  const auto Now = std::chrono::steady_clock::now ();
  if (!mTerminal || Now - mLast < kInterval) {
    return;
  }
  mLast  = Now;
  mShown = true;
  std::fprintf (stderr, "\r\033[Kvornsim: %s: %s", mWhat.c_str (), State.c_str ());
  std::fflush (stderr);
}

} // namespace Sim
