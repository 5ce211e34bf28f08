/** @file
  The health line every booting command ends with: ERROR lines in the
  serial log, how full the ERST store is, and whether every software SMI
  found a handler.
**/
#pragma once

#include <optional>
#include <string>

#include "Commands/SerialLog.h"
#include "Commands/SharedOptions.h"
#include "Decode/ErstStoreReader.h"

namespace Sim {

struct Health {
  UINT64                        LogLines     = 0;
  UINT64                        ErrorLines   = 0;
  UINT64                        SmisRaised   = 0;
  UINT64                        SmisAnswered = 0;
  std::optional<ErstStoreUsage> Store;        // none when the flash holds no error-log volume
  std::string                   StoreProblem; // why the store could not be followed to its end
};

//
// Measures the machine as the command leaves it.
//
Health MeasureHealth (const SerialLog &Log);

//
// "vornsim: health: ..." on one line.
//
std::string HealthLine (const Health &Measured);
Json        HealthJson (const Health &Measured);

//
// The health line on standard error, or "health" in the document.
//
void ReportHealth (const SerialLog &Log);

} // namespace Sim
