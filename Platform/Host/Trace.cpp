/** @file
  The ordered trace of register accesses, and the lock that guards it with
  the register models.
**/
#include <cstdio>

#include "HostInternal.h"

namespace Host::Internal {

namespace {

std::vector<Access> mTrace;
bool                mTraceSerial;

} // namespace

std::mutex &RegisterLock () {
  static std::mutex Lock;
  return Lock;
}

void RecordAccess (AccessKind Kind, UINT64 Address, UINT8 Width, UINT64 Value) {
  mTrace.push_back ({Kind, Address, Width, Value});
}

bool SerialPortsTraced () {
  return mTraceSerial;
}

void ResetTrace () {
  std::lock_guard<std::mutex> Guard (RegisterLock ());
  mTrace.clear ();
  mTraceSerial = false;
}

} // namespace Host::Internal

namespace Host {

std::vector<Access> Trace () {
  std::lock_guard<std::mutex> Guard (Internal::RegisterLock ());
  return Internal::mTrace;
}

std::vector<Access> Trace (AccessKind Kind) {
  std::lock_guard<std::mutex> Guard (Internal::RegisterLock ());
  std::vector<Access>         Selected;
  for (const Access &A : Internal::mTrace) {
    if (A.Kind == Kind) {
      Selected.push_back (A);
    }
  }

  return Selected;
}

void ClearTrace () {
  std::lock_guard<std::mutex> Guard (Internal::RegisterLock ());
  Internal::mTrace.clear ();
}

void TraceSerialPorts (bool Enable) {
  std::lock_guard<std::mutex> Guard (Internal::RegisterLock ());
  Internal::mTraceSerial = Enable;
}

std::string ToString (const Access &A) {
  char                     Text[96];
  const unsigned long long Address = A.Address;
  const unsigned long long Value   = A.Value;
  switch (A.Kind) {
    case AccessKind::IoRead:
    case AccessKind::IoWrite:
      std::snprintf (Text, sizeof (Text), "%s8 0x%04llX = 0x%02llX",
                     (A.Kind == AccessKind::IoRead) ? "IoRead" : "IoWrite", Address, Value);
      break;
    case AccessKind::MmioRead:
    case AccessKind::MmioWrite:
      std::snprintf (Text, sizeof (Text), "%s32 0x%08llX = 0x%08llX",
                     (A.Kind == AccessKind::MmioRead) ? "MmioRead" : "MmioWrite", Address, Value);
      break;
    case AccessKind::PciRead:
    case AccessKind::PciWrite:
      std::snprintf (Text, sizeof (Text), "%s32 0x%08llX (%02llX:%02llX.%llX+0x%03llX) = 0x%08llX",
                     (A.Kind == AccessKind::PciRead) ? "PciExpressRead" : "PciExpressWrite", Address,
                     (Address >> 20) & 0xFF, (Address >> 15) & 0x1F, (Address >> 12) & 0x7, Address & 0xFFF, Value);
      break;
    case AccessKind::MsrRead:
      std::snprintf (Text, sizeof (Text), "AsmReadMsr64 0x%08llX = 0x%016llX", Address, Value);
      break;
  }

  return Text;
}

std::ostream &operator<< (std::ostream &Stream, const Access &A) {
  return Stream << ToString (A);
}

} // namespace Host
