/** @file
  An arbitrary error-log volume through the module's start-up (discovery,
  its repairs and defragmentation), then through vornsim's store reader as
  'decode flash' reads it.

  Input: the volume from its header on; the rest of its 32 blocks is erased.
**/
#include "Decode/ErstStoreReader.h"
#include "FuzzPlatform.h"

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *Data, size_t Size) {
  Fuzz::Faulted (Host::Contained ([&] { Fuzz::Boot ({Data, Size}); }));
  if (const auto Volume = Sim::FindErrorLogVolume ()) {
    Sim::ReadErstStore (*Volume);
  }

  return 0;
}
