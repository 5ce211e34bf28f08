/** @file
  The ERST software SMI driven by a hostile OS: arbitrary parameter-region
  contents over a store holding live and cleared records.

  Input: the parameter region's bytes, then the bytes the OS's error-log
  range starts with (the record a write stores). Every input starts from the
  same machine: the store is built once, saved, and put back before each
  input (after a machine fault it is built again), so a finding replays
  alone.
**/
#include <algorithm>
#include <cstring>
#include <memory>

#include <VornApeiLoggingSmm.h>

#include "FuzzPlatform.h"
#include "Handlers/CperBuilder.h"
#include "Os/ErstDriver.h"
#include "Os/OsApei.h"

namespace {

struct Store {
  Fuzz::SavedMachine     Machine;
  Sim::ErstErrorLogRange Log;
};

std::unique_ptr<Store> mStore;

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
  mStore.reset (new Store{{}, Os.ErrorLog ()});
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *Data, size_t Size) {
  const auto Fault = Host::Contained ([&] {
    if (!mStore) {
      BuildStore ();
    } else {
      mStore->Machine.Restore ();
    }

    Host::ClearSerialOutput ();
    Host::ClearTrace ();
    VORN_ERST_PARAMETER_REGION *Region = mPrivateDataVornApeiLogging.pErstParameterBlock;
    const size_t                Head   = std::min (Size, sizeof (*Region));
    std::memcpy (Region, Data, Head);
    std::memcpy (Host::At<void> (mStore->Log.Base), Data + Head, std::min<size_t> (Size - Head, mStore->Log.Length));
    Host::RaiseSwSmi (VORN_APEI_ERST_SW_SMI_VALUE);
  });
  if (Fuzz::Faulted (Fault)) {
    mStore.reset ();
  }

  return 0;
}
