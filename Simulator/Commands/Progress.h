/** @file
  A progress line for long work (start-up over a full store, enumeration,
  large decodes): one line on standard error, rewritten in place, and only
  when standard error is a terminal, so logs, pipes and scripts never see it.
**/
#pragma once

#include <chrono>
#include <string>

namespace Sim {

class Progress {
public:
  //
  // What names the work: "vornsim: <What>: <state>".
  //
  explicit Progress (std::string What);
  ~Progress (); // erases the line

  Progress (const Progress &)            = delete;
  Progress &operator= (const Progress &) = delete;

  //
  // Shows State, at most a few times a second.
  //
  void Show (const std::string &State);

private:
  std::string                           mWhat;
  bool                                  mTerminal;
  bool                                  mShown = false;
  std::chrono::steady_clock::time_point mLast;
};

} // namespace Sim
