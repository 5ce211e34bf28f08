/** @file
  The power-cut campaign: scenarios, cut points, two boots, and the record
  sets compared.
**/
#include "Powercut/PowerCutSweep.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include <Firmware.h>
#include <Library/DebugLib.h>
#include <SpiFlash.h>

#include "Builder/Boot.h"
#include "Builder/FlashImage.h"
#include "Common/TextFormat.h"
#include "Decode/ErstStoreReader.h"
#include "Handlers/CperBuilder.h"
#include "Os/ErstDriver.h"
#include "Os/OsApei.h"

namespace Sim::PowerCut {

namespace {

using Records = std::multiset<std::vector<UINT8>>;

//
// The platform the campaign boots: the default one with the chosen
// switches, printing errors only (the log is not kept).
//
class Machine {
public:
  explicit Machine (const std::set<Host::Fix> &Fixes) {
    mOptions.Machine.Fixes                = Fixes;
    mOptions.Machine.DebugPrintErrorLevel = DEBUG_ERROR;
    // A boot takes well under a second: a cut that leaves the module
    // spinning is a hang long before the default budget.
    mOptions.Machine.WatchdogSeconds = 10;
  }

  void Boot () {
    mBooted.reset ();
    mBooted = Sim::Boot (mOptions);
    Host::ClearSerialOutput ();
  }

  ErstResult Write (UINT64 RecordId) {
    mWritten.insert (ErstDriver::AsSerialised (Record (RecordId)));
    const ErstResult Result = Os ().Write (Record (RecordId));
    Host::ClearSerialOutput ();
    return Result;
  }

  void Clear (UINT64 RecordId) {
    Os ().Clear (RecordId);
    Host::ClearSerialOutput ();
  }

  void EnableApei () {
    OsEnableApei ();
    Host::ClearSerialOutput ();
  }

  void PowerOn () {
    Host::PowerOn (mOptions.Machine);
  }

  //
  // Every record the OS ever handed over, whole.
  //
  const Records &Written () const {
    return mWritten;
  }

  static std::vector<UINT8> Record (UINT64 RecordId) {
    Cper::RecordSpec Spec;
    Spec.RecordId        = RecordId;
    Spec.PhysicalAddress = 0x10000000ULL * RecordId;
    return Cper::BuildRecord (Spec);
  }

private:
  ErstDriver Os () {
    return ErstDriver (mBooted->Platform.Erst);
  }

  BootOptions               mOptions;
  std::optional<BootResult> mBooted;
  Records                   mWritten;
};

struct Scenario {
  const char                     *Name;
  std::function<void (Machine &)> Prepare;   // from a factory image to the state before the operation
  bool                            BootFirst; // the operation is an OS request to a booted machine
  std::function<void (Machine &)> Operate;   // the operation whose flash operations are cut
};

void WriteRecords (Machine &M, UINT64 First, UINT64 Count) {
  for (UINT64 Id = First; Id < First + Count; Id++) {
    M.Write (Id);
  }
}

//
// A failure to arm at the next power-on, once the flash is up and before
// the module runs; a boot's own flash operations are cut this way.
//
std::optional<Host::Flash::Failure> mArmAtPowerOn;

void ArmAtPowerOn () {
  if (mArmAtPowerOn) {
    Host::Flash::InjectFailure (*mArmAtPowerOn);
    mArmAtPowerOn.reset ();
  }
}

//
// A write cut in its record header (TornHeader) or in its data: the state
// a power cut leaves for discovery to repair.
//
void TornWrite (Machine &M, bool TornHeader) {
  M.Boot ();
  WriteRecords (M, 1, 20);
  Host::Flash::InjectFailure (
      {Host::Flash::Op::Program, TornHeader ? 1u : 3u, Host::Flash::Cut::Partial, TornHeader ? 30u : 40u, TRUE});
  try {
    M.Write (21);
  } catch (const Host::Flash::PowerLost &) {
  }
}

std::vector<Scenario> Scenarios () {
  return {
      {"write into an empty store", [] (Machine &M) { M.Boot (); }, true, [] (Machine &M) { M.Write (100); }},
      {"write into a store of 1 record",
       [] (Machine &M) {
         M.Boot ();
         WriteRecords (M, 1, 1);
       },
       true, [] (Machine &M) { M.Write (100); }},
      {"write into a store of 20 records",
       [] (Machine &M) {
         M.Boot ();
         WriteRecords (M, 1, 20);
       },
       true, [] (Machine &M) { M.Write (100); }},
      {"clear",
       [] (Machine &M) {
         M.Boot ();
         WriteRecords (M, 1, 20);
       },
       true, [] (Machine &M) { M.Clear (7); }},
      {"clear-all (first boot of a factory-fresh part)", [] (Machine &) {}, false, [] (Machine &M) { M.Boot (); }},
      {"mark-obsolete (APEI enable)",
       [] (Machine &M) {
         M.Boot ();
         WriteRecords (M, 1, 20);
       },
       true, [] (Machine &M) { M.EnableApei (); }},
      {"defragmentation",
       [] (Machine &M) {
         M.Boot ();
         WriteRecords (M, 1, 20);
         M.EnableApei ();
         WriteRecords (M, 21, 10);
         for (UINT64 Id : {3, 8, 13, 22, 27}) {
           M.Clear (Id);
         }
       },
       false, [] (Machine &M) { M.Boot (); }},
      {"repair of a record torn in its header", [] (Machine &M) { TornWrite (M, true); }, false,
       [] (Machine &M) { M.Boot (); }},
      {"repair of a record torn in its data", [] (Machine &M) { TornWrite (M, false); }, false,
       [] (Machine &M) { M.Boot (); }},
  };
}

//
// The records an OS can still get from the store, by content: those in the
// chain that carry no clear mark. Nullopt when the store cannot be read.
//
std::optional<Records> LiveRecords () {
  const auto Volume = FindErrorLogVolume ();
  if (!Volume) {
    return std::nullopt;
  }

  const ErstStoreContents Store = ReadErstStore (*Volume);
  if (!Store.Corruption.empty ()) {
    return std::nullopt;
  }

  Records Live;
  for (const ErstStoredRecord &Stored : Store.Records) {
    if ((Stored.Flags.RecordClearPerOspm != ERST_RECORD_CLEAR_FLAG_VALUE) &&
        (Stored.Flags.RecordClearPerBios != ERST_RECORD_CLEAR_FLAG_VALUE)) {
      Live.insert (Stored.OsRecord);
    }
  }

  return Live;
}

Records Common (const Records &Left, const Records &Right) {
  Records Result;
  std::set_intersection (Left.begin (), Left.end (), Right.begin (), Right.end (),
                         std::inserter (Result, Result.begin ()));
  return Result;
}

Records Missing (const Records &Expected, const Records &Found) {
  Records Result;
  std::set_difference (Expected.begin (), Expected.end (), Found.begin (), Found.end (),
                       std::inserter (Result, Result.begin ()));
  return Result;
}

//
// One cut point: operation Index of the operation (counted from the moment
// it starts), with Landed of its bytes on flash.
//
struct CutPoint {
  size_t                 Index;
  Host::Flash::Operation Operation;
  UINT32                 Landed;
};

std::vector<CutPoint> CutPoints (const std::vector<Host::Flash::Operation> &Operations, const Options &What) {
  std::vector<CutPoint> Points;
  for (size_t Index = 0; Index < Operations.size (); Index++) {
    if (!What.Full && (Index % What.Stride) != 0) {
      continue;
    }

    const Host::Flash::Operation &Op       = Operations[Index];
    std::set<UINT32>              Landings = {0};
    if ((Op.Kind != Host::Flash::Op::Read) && (Op.Length > 1)) {
      Landings.insert ({1, Op.Length / 2, Op.Length - 1});
    }

    for (UINT32 Landed : Landings) {
      Points.push_back ({Index, Op, Landed});
    }
  }

  return Points;
}

std::string Describe (const CutPoint &Point) {
  static const char *const kKinds[] = {"read", "program", "erase"};
  return Format ("operation %zu (%s of %u bytes @ 0x%llX) cut after %u bytes", Point.Index,
                 kKinds[static_cast<size_t> (Point.Operation.Kind)], Point.Operation.Length,
                 static_cast<unsigned long long> (Point.Operation.Address), Point.Landed);
}

class ScenarioRun {
public:
  ScenarioRun (const Scenario &Which, const Options &What) : mScenario (Which), mMachine (What.Fixes) {
    Host::Flash::AttachMemory (FlashImage::BuildDefault ());
    Host::AddPowerOnHook ("PowerCut", ArmAtPowerOn);
    mScenario.Prepare (mMachine);
    const auto Image = Host::Flash::Image ();
    mImage.assign (Image.begin (), Image.end ());
  }

  ScenarioResult Run (const Options &What) {
    ScenarioResult Result;
    Result.Name = mScenario.Name;

    // Before: the store as an OS finds it without the operation.
    Restore ();
    if (mScenario.BootFirst) {
      mMachine.Boot ();
      mMachine.Boot ();
    } else {
      mMachine.PowerOn ();
    }
    const Records Before = LiveRecords ().value_or (Records ());

    // After: the operation uncut, then two boots; its flash operations.
    Restore ();
    if (mScenario.BootFirst) {
      mMachine.Boot ();
    }
    const size_t First = Host::Flash::Operations ().size ();
    mScenario.Operate (mMachine);
    const auto &All = Host::Flash::Operations ();
    const auto  Operations =
        std::vector<Host::Flash::Operation> (All.begin () + (mScenario.BootFirst ? First : 0), All.end ());
    mMachine.Boot ();
    mMachine.Boot ();
    const Records After     = LiveRecords ().value_or (Records ());
    const Records Committed = Common (Common (Before, After), mMachine.Written ());

    for (const CutPoint &Point : CutPoints (Operations, What)) {
      size_t        Lost = 0;
      const Outcome Left = Cut (Point, Before, After, Committed, Lost);
      Result.CutPoints++;
      Result.Outcomes[static_cast<size_t> (Left)]++;
      Result.RecordsLost += Lost;
      if ((Left >= Outcome::WrongBytes) && (Result.Notes.size () < 3)) {
        Result.Notes.push_back (Describe (Point) + ": " + OutcomeName (Left) +
                                (Lost != 0 ? Format (", %zu lost", Lost) : std::string ()));
      }
    }

    return Result;
  }

private:
  void Restore () {
    std::copy (mImage.begin (), mImage.end (), Host::Flash::Image ().begin ());
  }

  Outcome
  Cut (const CutPoint &Point, const Records &Before, const Records &After, const Records &Committed, size_t &Lost) {
    const Host::Flash::Failure Failure{std::nullopt, Point.Index + 1, Host::Flash::Cut::Partial, Point.Landed, TRUE};

    Restore ();
    try {
      if (mScenario.BootFirst) {
        mMachine.Boot ();
        Host::Flash::InjectFailure (Failure);
      } else {
        mArmAtPowerOn = Failure;
      }

      try {
        mScenario.Operate (mMachine);
      } catch (const Host::Flash::PowerLost &) {
      }

      mMachine.Boot ();
      mMachine.Boot ();
    } catch (const Host::MachineFault &) {
      return Outcome::Fault;
    }

    const std::optional<Records> Found = LiveRecords ();
    if (!Found) {
      return Outcome::Dead;
    }

    try {
      if (mMachine.Write (0xC0FFEE) != ErstResult::Success) {
        return Outcome::Dead;
      }
    } catch (const ErstExecutionError &) {
      return Outcome::Dead;
    } catch (const Host::MachineFault &) {
      return Outcome::Fault;
    }

    Lost = Missing (Committed, *Found).size ();
    if ((Lost != 0) && (Lost == Committed.size ())) {
      return Outcome::Wiped;
    }

    if (Lost != 0) {
      return Outcome::OlderLost;
    }

    // A record nobody wrote whole has wrong bytes.
    for (const std::vector<UINT8> &Record : *Found) {
      if (!mMachine.Written ().contains (Record)) {
        return Outcome::WrongBytes;
      }
    }

    return (*Found == After) ? Outcome::Complete : (*Found == Before) ? Outcome::Absent : Outcome::Partial;
  }

  Scenario           mScenario;
  Machine            mMachine;
  std::vector<UINT8> mImage;
};

} // namespace

const char *OutcomeName (Outcome Which) {
  static const char *const kNames[] = {
      "operation absent",   "operation complete", "in between", "record with wrong bytes",
      "older records lost", "store wiped",        "ERST dead",  "machine fault"};
  return kNames[static_cast<size_t> (Which)];
}

std::vector<std::string> ScenarioNames () {
  std::vector<std::string> Names;
  for (const Scenario &Each : Scenarios ()) {
    Names.push_back (Each.Name);
  }

  return Names;
}

std::vector<ScenarioResult> Sweep (const Options &What) {
  std::vector<ScenarioResult> Results;
  for (const Scenario &Each : Scenarios ()) {
    ScenarioRun Run (Each, What);
    Results.push_back (Run.Run (What));
    if (What.Progress != nullptr) {
      *What.Progress << "powercut: " << Each.Name << ": " << Results.back ().CutPoints << " cut points\n";
    }
  }

  return Results;
}

} // namespace Sim::PowerCut
