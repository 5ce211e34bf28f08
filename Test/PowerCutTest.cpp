/** @file
  The power-cut sweep, bounded (every fourth cut, and every fourth of the next boot's recovery cut or failed): with
  every switch on nothing committed is lost, no store dies and nothing an OS reads holds wrong bytes; as
  specified records are lost by both cuts, but nothing faults.
**/
#include <gtest/gtest.h>

#include "Builder/Fixes.h"
#include "Powercut/PowerCutSweep.h"

TEST (PowerCutSweep, NothingCommittedIsLostWithEverySwitch) {
  using Sim::PowerCut::Outcome;
  for (const bool FixAll : {false, true}) {
    const Sim::PowerCut::Options What{FixAll ? Sim::ParseFixes ("all") : std::set<Host::Fix> (), false, 4};
    std::array<size_t, 2>        Lost{};
    for (const Sim::PowerCut::ScenarioResult &Row : Sim::PowerCut::Sweep (What)) {
      SCOPED_TRACE (Row.Name + (FixAll ? " with every switch" : " as specified"));
      Lost[Row.Cut != Sim::PowerCut::Stage::Operation] += Row.RecordsLost;
      for (const Outcome Bad :
           {Outcome::WrongBytes, Outcome::OlderLost, Outcome::Wiped, Outcome::Dead, Outcome::Fault}) {
        EXPECT_TRUE ((Row.Outcomes[static_cast<size_t> (Bad)] == 0) || (!FixAll && (Bad != Outcome::Fault)))
            << Sim::PowerCut::OutcomeName (Bad);
      }
    }
    EXPECT_EQ ((Lost[0] != 0) + (Lost[1] != 0), FixAll ? 0 : 2);
  }
}
