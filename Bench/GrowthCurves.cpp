/** @file
  How each ERST step grows with the store: write, read and clear of one
  record, a whole enumeration, discovery and defragmentation (half the
  records obsolete), for stores of 0 to 2,000 records, at the production
  print level, as specified and with record-index. Each point gives
  instructions (callgrind), flash operations and modeled flash time.
**/
#include "BenchRows.h"

#include <cstring>
#include <string>

#include <Host.h>
#include <SpiFlash.h>
#include <VornApeiLoggingSmm.h>

#include "ErstSmi.h"
#include "ErstStores.h"
#include "FlashModel.h"
#include "Measure.h"

namespace Bench {

namespace {

constexpr UINT64 kLargestStore = 2000;
constexpr UINT64 kStep         = 500;

template <typename Fn>
void Point (const std::string &Step, UINT64 Records, bool Indexed, bool HalfObsolete, Fn &&Body) {
  MeasureErstStep ("curve/" + Step + (Indexed ? "-index/" : "/") + std::to_string (Records), StoreImage (Records),
                   BenchBuild{.RecordIndex = Indexed}, HalfObsolete, true, Body);
}

//
// The steps of one store size.
//
void Steps (UINT64 Records, bool Indexed) {
  const UINT64 Middle = Records / 2 + 1;
  Point ("write", Records, Indexed, false, [Records] {
    const std::vector<UINT8> New = Record (Records + 1);
    std::memcpy (reinterpret_cast<void *> (mPrivateDataVornApeiLogging.pErstParameterBlock->ErrorLogAddressRange),
                 New.data (), New.size ());
    ErstPrepare (2, 0);
    Require (ErstRaise () == 0, "the record was not written");
  });
  Point ("read", Records, Indexed, false, [Middle] {
    ErstPrepare (1, Middle);
    ErstRaise ();
  });
  Point ("clear", Records, Indexed, false, [Middle] {
    ErstPrepare (3, Middle);
    ErstRaise ();
  });
  Point ("enumeration", Records, Indexed, false, [Records] { ErstEnumerate (Records); });
  Point ("discovery", Records, Indexed, false, [] { VornApeiLoggingGetErstPersistentStoreData (); });
  Point ("defragmentation", Records, Indexed, true,
         [] { VornApeiLoggingErstDefragment (mPrivateDataVornApeiLogging.SerDbgLevelConstructor); });
}

} // namespace

void GrowthCurves () {
  for (UINT64 Records = 0; Records <= kLargestStore; Records += kStep) {
    for (const bool Indexed : {false, true}) {
      Steps (Records, Indexed);
    }
  }
}

} // namespace Bench
