/** @file
  A CPER record file as 'decode cper' takes it: the checks a record must
  pass, then the module's printers over what passed.
**/
#include <memory>
#include <ostream>
#include <vector>

#include "Decode/FirmwarePrinter.h"
#include "FuzzPlatform.h"
#include "Handlers/CperFile.h"

namespace {

std::ostream                          mDiscard (nullptr);
std::unique_ptr<Sim::FirmwarePrinter> mPrinter;

} // namespace

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *Data, size_t Size) {
  const std::vector<UINT8> Record (Data, Data + Size);
  try {
    Sim::CheckRecord (Record, Sim::RecordCheck::Sections);
  } catch (const Sim::CperFileError &) {
    return 0;
  }

  const auto Fault = Host::Contained ([&] {
    if (!mPrinter) {
      mPrinter = std::make_unique<Sim::FirmwarePrinter> (mDiscard);
    }

    Host::ClearSerialOutput ();
    mPrinter->PrintCperRecord (Record);
  });
  if (Fuzz::Faulted (Fault)) {
    mPrinter.reset ();
  }

  return 0;
}
