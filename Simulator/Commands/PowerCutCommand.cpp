/** @file
  vornsim powercut: the power-cut campaign over every store operation, and
  its data-loss table.
**/
#include <iostream>

#include "Builder/Fixes.h"
#include "Commands/Commands.h"
#include "Commands/SharedOptions.h"
#include "Common/TextFormat.h"
#include "Powercut/PowerCutSweep.h"

namespace Sim {

namespace {

constexpr const char *kPowerCutOptions[] = {"--stride"};
constexpr const char *kStages[]          = {"operation", "recovery cut", "recovery failed"};

//
// One markdown row per scenario and per scenario's recovery, and a total of
// each kind: cut points, then how many ended in each outcome, and the
// committed records lost.
//
void PrintTable (const std::vector<PowerCut::ScenarioResult> &Results) {
  std::cout << "| Operation cut | Cut points";
  for (size_t Which = 0; Which < static_cast<size_t> (PowerCut::Outcome::Count); Which++) {
    std::cout << " | " << PowerCut::OutcomeName (static_cast<PowerCut::Outcome> (Which));
  }
  std::cout << " | Records lost |\n|---|---:";
  for (size_t Which = 0; Which <= static_cast<size_t> (PowerCut::Outcome::Count); Which++) {
    std::cout << "|---:";
  }
  std::cout << "|\n";

  PowerCut::ScenarioResult Totals[static_cast<size_t> (PowerCut::Stage::Count)];
  Totals[0].Name = "**all operations**";
  Totals[1].Name = "**all recoveries, cut again**";
  Totals[2].Name = "**all recoveries, failed**";
  for (const PowerCut::ScenarioResult &Row : Results) {
    PowerCut::ScenarioResult &Total = Totals[static_cast<size_t> (Row.Cut)];
    Total.CutPoints += Row.CutPoints;
    Total.RecordsLost += Row.RecordsLost;
    for (size_t Which = 0; Which < Row.Outcomes.size (); Which++) {
      Total.Outcomes[Which] += Row.Outcomes[Which];
    }
  }

  auto Print = [] (const PowerCut::ScenarioResult &Row) {
    std::cout << "| " << Row.Name << " | " << Row.CutPoints;
    for (size_t Count : Row.Outcomes) {
      std::cout << " | " << Count;
    }
    std::cout << " | " << Row.RecordsLost << " |\n";
  };
  for (const PowerCut::ScenarioResult &Row : Results) {
    Print (Row);
  }
  for (const PowerCut::ScenarioResult &Total : Totals) {
    Print (Total);
  }
}

int RunPowerCut (std::span<const std::string> Arguments) {
  const ParsedArguments Parsed = ParseArguments (Arguments, kPowerCutOptions);
  if (!Parsed.Positionals.empty ()) {
    throw UsageError ("unexpected argument '" + Parsed.Positionals.front () + "'");
  }

  PowerCut::Options What;
  What.Fixes    = SelectedFixes ();
  What.Progress = &std::cerr;
  if (auto Stride = Parsed.Options.find ("--stride"); Stride != Parsed.Options.end ()) {
    What.Full   = false;
    What.Stride = ParseUnsigned (Stride->second, Stride->first);
    if (What.Stride == 0) {
      throw UsageError ("'--stride' takes 1 or more");
    }
  }

  const auto Results = PowerCut::Sweep (What);
  if (Shared ().Json) {
    Document ()["switches"] = FixNames (What.Fixes);
    for (const PowerCut::ScenarioResult &Row : Results) {
      Json Outcomes = Json::object ();
      for (size_t Which = 0; Which < Row.Outcomes.size (); Which++) {
        Outcomes[PowerCut::OutcomeName (static_cast<PowerCut::Outcome> (Which))] = Row.Outcomes[Which];
      }
      Document ()["operations"].push_back ({{"operation", Row.Name},
                                            {"stage", kStages[static_cast<size_t> (Row.Cut)]},
                                            {"cut_points", Row.CutPoints},
                                            {"outcomes", Outcomes},
                                            {"records_lost", Row.RecordsLost},
                                            {"notes", Row.Notes}});
    }
    return kExitSuccess;
  }
  std::cout << "Switches: " << FixNames (What.Fixes) << "\n\n";
  PrintTable (Results);
  for (const PowerCut::ScenarioResult &Row : Results) {
    for (const std::string &Note : Row.Notes) {
      std::cout << "\n- " << Row.Name << ": " << Note;
    }
  }
  std::cout << '\n';
  return 0;
}

} // namespace

const Command kPowerCutCommand = {
    "powercut",
    "cut every flash operation of every store operation and count what is lost",
    "usage: vornsim powercut [--stride N] [--fix NAME,...]\n"
    "\n"
    "For each store operation (a write into stores of 0, 1 and 20 records, a\n"
    "clear, clear-all on a factory-fresh part, mark-obsolete, defragmentation,\n"
    "and discovery's repair of a record torn in its header or its data), cuts\n"
    "the power at each of its flash operations: at its start, and for programs\n"
    "and erases also after 1 byte, half of it and all but one byte. Each time\n"
    "the machine then boots twice, and the records an OS can still read are\n"
    "compared, byte for byte, with those before the operation and with those\n"
    "the operation leaves when nothing cuts it. When the first of those boots\n"
    "programs or erases flash (a recovery or repair), each of its programs and\n"
    "erases is cut the same way, and the machine boots twice more; and each is\n"
    "failed instead (a device error), the OS writes a record in that boot, and\n"
    "the machine boots twice more.\n"
    "\n"
    "  --stride N  cut only every N-th flash operation of each, and every N-th\n"
    "              program or erase of every N-th recovery (a bounded sweep)\n"
    "\n"
    "Standard output carries a markdown table: per operation, and per operation\n"
    "whose recovery was cut or failed, the cut points and how many ended in each\n"
    "outcome (operation absent, complete, in between, a record with wrong\n"
    "bytes, older records lost, the store wiped, ERST dead, a machine fault),\n"
    "and the committed records lost; then the first cut points that lost\n"
    "something (--json: the same as one JSON document). Progress goes to\n"
    "standard error.\n",
    RunPowerCut,
};

} // namespace Sim
