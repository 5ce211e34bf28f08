/** @file
  CMOS RAM behind the index and data ports.
**/
#include <array>

#include "HostInternal.h"

namespace Host::Internal {

namespace {

constexpr UINT8 kCmosBaudSelect = 0x6F;

std::array<UINT8, 128> mCmos;
UINT8                  mIndex;

} // namespace

UINT8
CmosRead (UINTN Port) {
  //
  // The index register is write-only.
  //
  return (Port == kCmosData) ? mCmos[mIndex] : 0xFF;
}

void CmosWrite (UINTN Port, UINT8 Value) {
  if (Port == kCmosIndex) {
    mIndex = Value & 0x7F;
  } else {
    mCmos[mIndex] = Value;
  }
}

void ResetCmos () {
  std::lock_guard<std::mutex> Guard (RegisterLock ());
  mCmos.fill (0);
  mCmos[kCmosBaudSelect] = Config ().CmosBaudSelect;
  mIndex                 = 0;
}

} // namespace Host::Internal

namespace Host {

void SetCmos (UINT8 Index, UINT8 Value) {
  std::lock_guard<std::mutex> Guard (Internal::RegisterLock ());
  Internal::mCmos[Index & 0x7F] = Value;
}

} // namespace Host
