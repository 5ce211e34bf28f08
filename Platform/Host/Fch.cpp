/** @file
  Memory-mapped registers: the FCH SMI block with its SCI and NMI
  generation, and whatever other registers a test defines.
**/
#include <map>

#include <Library/IoLib.h>

#include "HostInternal.h"

namespace Host::Internal {

namespace {

constexpr UINT64 kFchSmiBase        = 0xFED80000;
constexpr UINT64 kFchSmiSize        = 0x1000;
constexpr UINT64 kSoftwareSciData   = 0xFED8021C;
constexpr UINT64 kSmiStatus1        = 0xFED80284;
constexpr UINT64 kSmiTrig0          = 0xFED80298;
constexpr UINT64 kSmiControl8       = 0xFED802C0;
constexpr UINT32 kEventStatus22     = 1u << 22;
constexpr UINT32 kFakeSts0Trigger   = 1u << 25;
constexpr UINT32 kFakeSts0RouteMask = 3u << 20;
constexpr UINT32 kFakeSts0RouteNmi  = 2u << 20;

std::map<UINT64, UINT32> mRegisters;
UINT64                   mSciCount;
UINT64                   mNmiCount;
std::function<void ()>   mOnSci;
std::function<void ()>   mOnNmi;

bool InFchSmiBlock (UINT64 Address) {
  return (Address >= kFchSmiBase) && (Address - kFchSmiBase < kFchSmiSize);
}

//
// Registers of the SMI block read 0 until written; elsewhere only registers
// a test defined exist.
//
std::optional<UINT32> Register (UINT64 Address) {
  auto It = mRegisters.find (Address);
  if (It != mRegisters.end ()) {
    return It->second;
  }

  return InFchSmiBlock (Address) ? std::optional<UINT32> (0) : std::nullopt;
}

bool RisingEdge (UINT32 Old, UINT32 New, UINT32 Bit) {
  return ((Old & Bit) == 0) && ((New & Bit) != 0);
}

} // namespace

void ResetFch () {
  std::lock_guard<std::mutex> Guard (RegisterLock ());
  mRegisters.clear ();
  mSciCount = 0;
  mNmiCount = 0;
  mOnSci    = nullptr;
  mOnNmi    = nullptr;
}

FchState SaveFch () {
  std::lock_guard<std::mutex> Guard (RegisterLock ());
  return {mRegisters, mSciCount, mNmiCount};
}

void RestoreFch (const FchState &State) {
  std::lock_guard<std::mutex> Guard (RegisterLock ());
  mRegisters = State.Registers;
  mSciCount  = State.SciCount;
  mNmiCount  = State.NmiCount;
}

} // namespace Host::Internal

using namespace Host;
using namespace Host::Internal;

UINT32
MmioRead32 (IN UINTN Address) {
  std::lock_guard<std::mutex> Guard (RegisterLock ());
  const UINT32                Value = Register (Address).value_or (0xFFFFFFFF);
  RecordAccess (AccessKind::MmioRead, Address, 4, Value);
  return Value;
}

UINT32
MmioWrite32 (IN UINTN Address, IN UINT32 Value) {
  std::function<void ()> Notify;
  {
    std::lock_guard<std::mutex> Guard (RegisterLock ());
    RecordAccess (AccessKind::MmioWrite, Address, 4, Value);
    auto Old = Register (Address);
    if (!Old) {
      return Value;
    }

    UINT32 New = Value;
    if (Address == kSmiStatus1) {
      New = *Old & ~Value;
    }

    mRegisters[Address] = New;
    if ((Address == kSoftwareSciData) && RisingEdge (*Old, New, kEventStatus22)) {
      mSciCount++;
      Notify = mOnSci;
    }

    const bool RoutedToNmi = (Register (kSmiControl8).value_or (0) & kFakeSts0RouteMask) == kFakeSts0RouteNmi;
    if ((Address == kSmiTrig0) && RoutedToNmi && RisingEdge (*Old, New, kFakeSts0Trigger)) {
      mNmiCount++;
      Notify = mOnNmi;
    }
  }

  if (Notify) {
    Notify ();
  }

  return Value;
}

namespace Host {

void SetMmio32 (UINT64 Address, UINT32 Value) {
  std::lock_guard<std::mutex> Guard (Internal::RegisterLock ());
  Internal::mRegisters[Address] = Value;
}

UINT32
GetMmio32 (UINT64 Address) {
  std::lock_guard<std::mutex> Guard (Internal::RegisterLock ());
  return Internal::Register (Address).value_or (0xFFFFFFFF);
}

UINT64
SciCount () {
  std::lock_guard<std::mutex> Guard (Internal::RegisterLock ());
  return Internal::mSciCount;
}

UINT64
NmiCount () {
  std::lock_guard<std::mutex> Guard (Internal::RegisterLock ());
  return Internal::mNmiCount;
}

void OnSci (std::function<void ()> Callback) {
  std::lock_guard<std::mutex> Guard (Internal::RegisterLock ());
  Internal::mOnSci = std::move (Callback);
}

void OnNmi (std::function<void ()> Callback) {
  std::lock_guard<std::mutex> Guard (Internal::RegisterLock ());
  Internal::mOnNmi = std::move (Callback);
}

} // namespace Host
