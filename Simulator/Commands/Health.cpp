/** @file
  The health of the machine after a command.
**/
#include "Commands/Health.h"

#include <iostream>

#include <Host.h>
#include <SpiFlash.h>

#include "Common/TextFormat.h"

namespace Sim {

namespace {

const char *Plural (UINT64 Count, const char *One, const char *Many) {
  return Count == 1 ? One : Many;
}

std::string StoreText (const Health &Measured) {
  if (!Measured.Store) {
    return "no error-log volume on the flash";
  }
  const ErstStoreUsage &Usage = *Measured.Store;
  std::string Text = Format ("store %zu record%s (%zu live, %zu cleared by OSPM, %zu obsolete), %llu bytes used "
                             "(%llu reclaimable), %llu bytes free",
                             Usage.Records, Plural (Usage.Records, "", "s"), Usage.Live, Usage.Cleared, Usage.Obsolete,
                             static_cast<unsigned long long> (Usage.UsedBytes),
                             static_cast<unsigned long long> (Usage.ReclaimableBytes),
                             static_cast<unsigned long long> (Usage.FreeBytes));
  if (!Measured.StoreProblem.empty ()) {
    Text += " (" + Measured.StoreProblem + ")";
  }
  return Text;
}

} // namespace

Health MeasureHealth (const SerialLog &Log) {
  Health Measured;
  Measured.LogLines           = Log.Lines ();
  Measured.ErrorLines         = Log.ErrorLines ();
  const Host::SwSmiCount Smis = Host::SwSmis ();
  Measured.SmisRaised         = Smis.Raised;
  Measured.SmisAnswered       = Smis.Answered;
  if (Host::Flash::Attached ()) {
    if (const auto Volume = FindErrorLogVolume ()) {
      const ErstStoreContents Store = ReadErstStore (*Volume);
      Measured.Store                = StoreUsage (*Volume, Store);
      Measured.StoreProblem         = Store.Corruption;
    }
  }
  return Measured;
}

std::string HealthLine (const Health &Measured) {
  const UINT64 Unanswered = Measured.SmisRaised - Measured.SmisAnswered;
  return Format ("vornsim: health: %llu ERROR line%s in %llu serial log lines; %s; %llu software SMI%s, %s\n",
                 static_cast<unsigned long long> (Measured.ErrorLines), Plural (Measured.ErrorLines, "", "s"),
                 static_cast<unsigned long long> (Measured.LogLines), StoreText (Measured).c_str (),
                 static_cast<unsigned long long> (Measured.SmisRaised), Plural (Measured.SmisRaised, "", "s"),
                 Unanswered == 0 ? "all answered"
                                 : Format ("%llu unanswered", static_cast<unsigned long long> (Unanswered)).c_str ());
}

Json HealthJson (const Health &Measured) {
  Json Result = {{"serial_log_lines", Measured.LogLines},
                 {"error_lines", Measured.ErrorLines},
                 {"software_smis", {{"raised", Measured.SmisRaised}, {"answered", Measured.SmisAnswered}}}};
  if (Measured.Store) {
    const ErstStoreUsage &Usage = *Measured.Store;
    Result["store"]             = {{"records", Usage.Records},         {"live", Usage.Live},
                                   {"cleared_by_ospm", Usage.Cleared}, {"obsolete", Usage.Obsolete},
                                   {"used_bytes", Usage.UsedBytes},    {"reclaimable_bytes", Usage.ReclaimableBytes},
                                   {"free_bytes", Usage.FreeBytes}};
    if (!Measured.StoreProblem.empty ()) {
      Result["store"]["problem"] = Measured.StoreProblem;
    }
  } else {
    Result["store"] = nullptr;
  }
  return Result;
}

void ReportHealth (const SerialLog &Log) {
  const Health Measured = MeasureHealth (Log);
  if (Shared ().Json) {
    Document ()["health"] = HealthJson (Measured);
  } else {
    std::cerr << HealthLine (Measured);
  }
}

} // namespace Sim
