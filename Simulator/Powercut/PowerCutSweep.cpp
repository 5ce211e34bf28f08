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

//
// The record the OS writes in a boot whose recovery failed.
//
constexpr UINT64 kWrittenAfterError = 0xBEEF;

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

//
// Each operation (every Stride-th in a bounded sweep, from the Phase-th on)
// cut at its start, and programs and erases also part-way. A recovery's
// reads are not cut: flash then holds what a cut at the next program or
// erase leaves.
//
std::vector<CutPoint>
CutPoints (const std::vector<Host::Flash::Operation> &Operations, size_t Stride, bool WritesOnly, size_t Phase = 0) {
  std::vector<CutPoint> Points;
  size_t                Taken = 0;
  for (size_t Index = 0; Index < Operations.size (); Index++) {
    const Host::Flash::Operation &Op = Operations[Index];
    if ((WritesOnly && (Op.Kind == Host::Flash::Op::Read)) || (((Taken++ + Stride - Phase % Stride) % Stride) != 0)) {
      continue;
    }

    std::set<UINT32> Landings = {0};
    if ((Op.Kind != Host::Flash::Op::Read) && (Op.Length > 1)) {
      Landings.insert ({1, Op.Length / 2, Op.Length - 1});
    }

    for (UINT32 Landed : Landings) {
      Points.push_back ({Index, Op, Landed});
    }
  }

  return Points;
}

std::string Describe (const CutPoint &Point, const char *How = "cut") {
  static const char *const kKinds[] = {"read", "program", "erase"};
  return Format ("operation %zu (%s of %u bytes @ 0x%llX) %s after %u bytes", Point.Index,
                 kKinds[static_cast<size_t> (Point.Operation.Kind)], Point.Operation.Length,
                 static_cast<unsigned long long> (Point.Operation.Address), How, Point.Landed);
}

//
// The power going at Point, or (PowerOff FALSE) the operation failing there.
//
Host::Flash::Failure FailureAt (const CutPoint &Point, BOOLEAN PowerOff = TRUE) {
  return {std::nullopt, Point.Index + 1, Host::Flash::Cut::Partial, Point.Landed, PowerOff};
}

void Count (ScenarioResult &Result, Outcome Left, size_t Lost, const std::string &Where) {
  Result.CutPoints++;
  Result.Outcomes[static_cast<size_t> (Left)]++;
  Result.RecordsLost += Lost;
  if ((Left >= Outcome::WrongBytes) && (Result.Notes.size () < 3)) {
    Result.Notes.push_back (Where + ": " + OutcomeName (Left) +
                            (Lost != 0 ? Format (", %zu lost", Lost) : std::string ()));
  }
}

class ScenarioRun {
public:
  ScenarioRun (const Scenario &Which, const Options &What) : mScenario (Which), mMachine (What.Fixes) {
    Host::Flash::AttachMemory (FlashImage::BuildDefault ());
    Host::AddPowerOnHook ("PowerCut", ArmAtPowerOn);
    mScenario.Prepare (mMachine);
    mImage = Snapshot ();
  }

  //
  // The operation's cut points, then each program and erase of the boot
  // after each of them (the recovery) cut in turn.
  //
  std::array<ScenarioResult, 3> Run (const Options &What) {
    std::array<ScenarioResult, 3> Result;
    Result[0].Name = mScenario.Name;
    Result[1].Name = std::string (mScenario.Name) + ", then the next boot's recovery";
    Result[1].Cut  = Stage::RecoveryCut;
    Result[2].Name = std::string (mScenario.Name) + ", then a flash error in that recovery";
    Result[2].Cut  = Stage::RecoveryError;

    // Before: the store as an OS finds it without the operation.
    Restore (mImage);
    if (mScenario.BootFirst) {
      mMachine.Boot ();
      mMachine.Boot ();
    } else {
      mMachine.PowerOn ();
    }
    mBefore = LiveRecords ().value_or (Records ());

    // After: the operation uncut, then two boots; its flash operations.
    Restore (mImage);
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
    mAfter     = LiveRecords ().value_or (Records ());
    mCommitted = Common (Common (mBefore, mAfter), mMachine.Written ());

    // A cut that leaves the flash as the one before it (as before the
    // operation, for the first) leaves the same recovery: it is cut once.
    std::vector<UINT8> Swept        = mImage;
    size_t             WithRecovery = 0;
    for (const CutPoint &Point : CutPoints (Operations, What.Full ? 1 : What.Stride, false)) {
      size_t                              Lost = 0;
      std::vector<Host::Flash::Operation> Recovery;
      const Outcome                       Left = CutOperation (Point, Recovery, Lost);
      Count (Result[0], Left, Lost, Describe (Point));
      if (Recovery.empty () || (mCut == Swept)) {
        continue;
      }

      // A bounded sweep cuts every Stride-th program or erase of the
      // recovery of every Stride-th such point, starting one further on
      // each time.
      Swept.swap (mCut);
      const size_t Sampled = WithRecovery++;
      if (!What.Full && (Sampled % What.Stride) != 0) {
        continue;
      }

      for (const CutPoint &Again : CutPoints (Recovery, What.Full ? 1 : What.Stride, true, Sampled / What.Stride)) {
        for (const BOOLEAN PowerOff : {TRUE, FALSE}) {
          Lost = 0;
          Restore (Swept);
          const Outcome Twice = CutRecovery (Again, PowerOff, Lost);
          Count (Result[PowerOff ? 1 : 2], Twice, Lost,
                 Describe (Point) + ", recovery " + Describe (Again, PowerOff ? "cut" : "failed"));
        }
      }
    }

    return Result;
  }

private:
  static std::vector<UINT8> Snapshot () {
    const auto Image = Host::Flash::Image ();
    return std::vector<UINT8> (Image.begin (), Image.end ());
  }

  static void Restore (const std::vector<UINT8> &Image) {
    std::copy (Image.begin (), Image.end (), Host::Flash::Image ().begin ());
  }

  //
  // Cuts the operation at Point, then boots twice. Recovery gets the flash
  // operations of the first boot when it programs or erases anything, and
  // mCut the flash as the cut left it.
  //
  Outcome CutOperation (const CutPoint &Point, std::vector<Host::Flash::Operation> &Recovery, size_t &Lost) {
    Restore (mImage);
    try {
      if (mScenario.BootFirst) {
        mMachine.Boot ();
        Host::Flash::InjectFailure (FailureAt (Point));
      } else {
        mArmAtPowerOn = FailureAt (Point);
      }

      try {
        mScenario.Operate (mMachine);
      } catch (const Host::Flash::PowerLost &) {
      }

      mCut = Snapshot ();
      mMachine.Boot ();
      Recovery = Host::Flash::Operations ();
      if (std::all_of (Recovery.begin (), Recovery.end (),
                       [] (const auto &Op) { return Op.Kind == Host::Flash::Op::Read; })) {
        Recovery.clear ();
      }

      mMachine.Boot ();
      return Judge (Lost);
    } catch (const Host::MachineFault &) {
      return Outcome::Fault;
    }
  }

  //
  // Cuts the boot after a cut at Point, or fails its operation there and
  // lets the OS write a record in it; then boots twice more.
  //
  Outcome CutRecovery (const CutPoint &Point, BOOLEAN PowerOff, size_t &Lost) {
    try {
      mArmAtPowerOn = FailureAt (Point, PowerOff);
      Records Taken;
      try {
        mMachine.Boot ();
        if (!PowerOff && (mMachine.Write (kWrittenAfterError) == ErstResult::Success)) {
          Taken.insert (ErstDriver::AsSerialised (Machine::Record (kWrittenAfterError)));
        }
      } catch (const Host::Flash::PowerLost &) {
      } catch (const ErstExecutionError &) {
      }

      mMachine.Boot ();
      mMachine.Boot ();
      return Judge (Lost, Taken);
    } catch (const Host::MachineFault &) {
      return Outcome::Fault;
    }
  }

  //
  // What the store holds now, against what it held before the operation and
  // what the operation leaves uncut; a usable store also takes a write. A
  // record the store took since (Taken) is committed too.
  //
  Outcome Judge (size_t &Lost, const Records &Taken = Records ()) {
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
    }

    Records Committed = mCommitted;
    Committed.insert (Taken.begin (), Taken.end ());
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

    const Records Seen = Missing (*Found, Taken);
    return (Seen == mAfter) ? Outcome::Complete : (Seen == mBefore) ? Outcome::Absent : Outcome::Partial;
  }

  Scenario           mScenario;
  Machine            mMachine;
  std::vector<UINT8> mImage;
  std::vector<UINT8> mCut;
  Records            mBefore;
  Records            mAfter;
  Records            mCommitted;
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
    for (ScenarioResult &Row : Run.Run (What)) {
      if (What.Progress != nullptr) {
        *What.Progress << "powercut: " << Row.Name << ": " << Row.CutPoints << " cut points\n";
      }
      Results.push_back (std::move (Row));
    }
  }

  return Results;
}

} // namespace Sim::PowerCut
