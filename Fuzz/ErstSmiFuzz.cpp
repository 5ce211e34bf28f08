/** @file
  The ERST software SMI driven by a hostile OS: arbitrary parameter-region
  contents over a store holding live and cleared records.

  Input: the parameter region's bytes, then the bytes the OS's error-log
  range starts with (the record a write stores). The store is built again
  every kInputsPerStore inputs and after a machine fault, so a finding
  replays from the inputs run since the last build.
**/
#include <algorithm>
#include <cstring>

#include <VornApeiLoggingSmm.h>

#include "FuzzPlatform.h"
#include "Handlers/CperBuilder.h"
#include "Os/ErstDriver.h"
#include "Os/OsApei.h"

namespace {

constexpr size_t kInputsPerStore = 256;

size_t                 mInputs;
Sim::ErstErrorLogRange mLog;

//
// Four records written as the OS writes them, the second one cleared.
//
void BuildStore () {
  const Sim::BootResult Booted = Fuzz::Boot ();
  Sim::OsEnableApei ();
  Sim::ErstDriver Os (Booted.Platform.Erst);
  for (UINT64 Id = 1; Id <= 4; Id++) {
    Cper::RecordSpec Spec;
    Spec.Kind     = (Id % 2 == 0) ? Cper::SectionKind::Pcie : Cper::SectionKind::Memory;
    Spec.RecordId = Id;
    Os.Write (Cper::BuildRecord (Spec));
  }
  Os.Clear (2);
  mLog = Os.ErrorLog ();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *Data, size_t Size) {
  const auto Fault = Host::Contained ([&] {
    if (mInputs++ % kInputsPerStore == 0) {
      BuildStore ();
    }

    Host::ClearSerialOutput ();
    VORN_ERST_PARAMETER_REGION *Region = mPrivateDataVornApeiLogging.pErstParameterBlock;
    const size_t                Head   = std::min (Size, sizeof (*Region));
    std::memcpy (Region, Data, Head);
    std::memcpy (Host::At<void> (mLog.Base), Data + Head, std::min<size_t> (Size - Head, mLog.Length));
    Host::RaiseSwSmi (VORN_APEI_ERST_SW_SMI_VALUE);
  });
  if (Fuzz::Faulted (Fault)) {
    mInputs = 0;
  }

  return 0;
}
