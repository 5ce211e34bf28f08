/** @file
  The power-cut campaign, bounded to every third flash operation of each
  store operation. With every switch on no committed record is lost, no
  store dies and nothing an OS reads holds wrong bytes. As specified the
  module loses records (the campaign sees the harm) but never faults or
  hangs.
**/
#include <gtest/gtest.h>

#include "Builder/Fixes.h"
#include "Powercut/PowerCutSweep.h"

namespace {

using Sim::PowerCut::Outcome;

size_t Count (const Sim::PowerCut::ScenarioResult &Row, Outcome Which) {
  return Row.Outcomes[static_cast<size_t> (Which)];
}

TEST (PowerCutSweep, NothingCommittedIsLostWithEverySwitch) {
  for (const bool FixAll : {false, true}) {
    Sim::PowerCut::Options What;
    What.Full   = false;
    What.Stride = 3;
    What.Fixes  = FixAll ? Sim::ParseFixes ("all") : std::set<Host::Fix> ();
    size_t Lost = 0;
    for (const Sim::PowerCut::ScenarioResult &Row : Sim::PowerCut::Sweep (What)) {
      SCOPED_TRACE (Row.Name + (FixAll ? " with every switch" : " as specified"));
      EXPECT_EQ (Count (Row, Outcome::Fault), 0u);
      Lost += Row.RecordsLost;
      if (FixAll) {
        for (const Outcome Bad : {Outcome::WrongBytes, Outcome::OlderLost, Outcome::Wiped, Outcome::Dead}) {
          EXPECT_EQ (Count (Row, Bad), 0u) << Sim::PowerCut::OutcomeName (Bad);
        }
      }
    }
    EXPECT_EQ (Lost != 0, !FixAll);
  }
}

} // namespace
