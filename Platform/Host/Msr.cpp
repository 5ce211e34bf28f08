/** @file
  Model-specific registers: a table preset at power-on.
**/
#include <map>

#include <Library/BaseLib.h>

#include "HostInternal.h"

namespace Host::Internal {

namespace {

std::map<UINT32, UINT64> mMsrs;

} // namespace

void ResetMsrs () {
  std::lock_guard<std::mutex> Guard (RegisterLock ());
  mMsrs.clear ();
  mMsrs[kMsrMmioCfgBaseAddr] = Config ().MsrMmioCfgBaseAddr;
}

} // namespace Host::Internal

UINT64
AsmReadMsr64 (IN UINT32 Index) {
  std::lock_guard<std::mutex> Guard (Host::Internal::RegisterLock ());
  auto                        It    = Host::Internal::mMsrs.find (Index);
  const UINT64                Value = (It == Host::Internal::mMsrs.end ()) ? 0 : It->second;
  Host::Internal::RecordAccess (Host::AccessKind::MsrRead, Index, 8, Value);
  return Value;
}

namespace Host {

void SetMsr (UINT32 Index, UINT64 Value) {
  std::lock_guard<std::mutex> Guard (Internal::RegisterLock ());
  Internal::mMsrs[Index] = Value;
}

} // namespace Host
