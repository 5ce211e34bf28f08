/** @file
  The power-cut campaign: each flash operation of a store operation (a write,
  a clear, clear-all, mark-obsolete, defragmentation, discovery's repairs) is
  cut, at its start and part-way, as a power cut would stop it; the machine
  then boots twice, and what the store holds is compared, record by record
  and byte for byte, with what it held before the operation and with what
  the operation leaves when nothing cuts it. The recovery the boot after a
  cut performs is cut, and failed, the same way.
**/
#pragma once

#include <array>
#include <functional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include <Host.h>

namespace Sim::PowerCut {

//
// What a cut left after two boots, from the best to the worst.
//
enum class Outcome {
  Absent,     // the store holds what it held before the operation
  Complete,   // the store holds what the operation leaves
  Partial,    // something in between, and nothing lost
  WrongBytes, // a record the OS can read holds bytes nobody wrote
  OlderLost,  // a record committed before the operation is gone
  Wiped,      // every record committed before the operation is gone
  Dead,       // no usable store: it cannot be read, or a write fails
  Fault,      // the module faulted or hung
  Count
};

const char *OutcomeName (Outcome Which);

//
// What a row counts: cuts of the operation, or, in the boot after each of
// them, cuts of its recovery, or flash errors in its recovery (that boot
// then goes on and the OS writes a record).
//
enum class Stage { Operation, RecoveryCut, RecoveryError, Count };

struct ScenarioResult {
  std::string                                              Name;
  Stage                                                    Cut       = Stage::Operation;
  size_t                                                   CutPoints = 0;
  std::array<size_t, static_cast<size_t> (Outcome::Count)> Outcomes{};
  size_t                   RecordsLost = 0; // committed records gone, over all cut points
  std::vector<std::string> Notes;           // the first cut points that lost something
};

struct Options {
  std::set<Host::Fix> Fixes;
  bool                Full     = true; // every cut point; otherwise every Stride-th operation
  size_t              Stride   = 7;
  std::ostream       *Progress = nullptr; // one line per scenario
};

//
// Runs every scenario with the switches in Options.
//
std::vector<ScenarioResult> Sweep (const Options &What);

//
// The scenarios' names, in the order Sweep runs them.
//
std::vector<std::string> ScenarioNames ();

} // namespace Sim::PowerCut
