/** @file
  Two 16550 UARTs. Transmission is instant, so the transmitter always reads
  empty; the primary port's bytes become the serial output.
**/
#include <algorithm>
#include <atomic>
#include <ostream>

#include "HostInternal.h"

namespace Host::Internal {

namespace {

enum : UINTN {
  kRbrThr = 0, // DLL when the divisor latch is open
  kIer    = 1, // DLM when the divisor latch is open
  kIirFcr = 2,
  kLcr    = 3,
  kMcr    = 4,
  kLsr    = 5,
  kMsr    = 6,
  kScr    = 7,
};

constexpr UINT8 kLcrDivisorLatch  = 0x80;
constexpr UINT8 kFcrFifoEnable    = 0x01;
constexpr UINT8 kLsrTransmitEmpty = 0x60;
constexpr UINT8 kIirNoInterrupt   = 0x01;
constexpr UINT8 kIirFifosEnabled  = 0xC0;

struct Uart {
  UINT8  Ier;
  UINT8  Lcr;
  UINT8  Mcr;
  UINT8  Scr;
  UINT8  Dll;
  UINT8  Dlm;
  bool   FifoEnabled;
  UINT64 BytesWritten;
};

Uart                mUarts[2];
std::string         mSerialOutput;
std::ostream       *mSink;
std::atomic<UINT64> mLinesWritten; // never reset: the watchdog counts differences

Uart &UartAt (UINTN Port) {
  return mUarts[(Port & ~UINTN (7)) == kCom1 ? 0 : 1];
}

//
// The primary port's output; a sink sees each line once it is complete.
//
void Transmit (UINTN Port, UINT8 Byte) {
  Uart &Device = UartAt (Port);
  Device.BytesWritten++;
  if (&Device != &mUarts[0]) {
    return;
  }

  if (Byte == '\n') {
    mLinesWritten++;
  }

  mSerialOutput.push_back (static_cast<char> (Byte));
  if (mSink != nullptr) {
    mSink->put (static_cast<char> (Byte));
    if (Byte == '\n') {
      mSink->flush ();
    }
  }
}

} // namespace

bool IsUartPort (UINTN Port) {
  const UINTN Base = Port & ~UINTN (7);
  return (Base == kCom1) || (Base == kCom2);
}

UINT8
UartRead (UINTN Port) {
  const Uart &Device = UartAt (Port);
  const bool  Latch  = (Device.Lcr & kLcrDivisorLatch) != 0;
  switch (Port & 7) {
    case kRbrThr:
      return Latch ? Device.Dll : 0;
    case kIer:
      return Latch ? Device.Dlm : Device.Ier;
    case kIirFcr:
      return Device.FifoEnabled ? (kIirFifosEnabled | kIirNoInterrupt) : kIirNoInterrupt;
    case kLcr:
      return Device.Lcr;
    case kMcr:
      return Device.Mcr;
    case kLsr:
      return kLsrTransmitEmpty;
    case kMsr:
      return 0;
    default:
      return Device.Scr;
  }
}

void UartWrite (UINTN Port, UINT8 Value) {
  Uart      &Device = UartAt (Port);
  const bool Latch  = (Device.Lcr & kLcrDivisorLatch) != 0;
  switch (Port & 7) {
    case kRbrThr:
      if (Latch) {
        Device.Dll = Value;
      } else {
        Transmit (Port, Value);
      }

      break;
    case kIer:
      if (Latch) {
        Device.Dlm = Value;
      } else {
        Device.Ier = Value & 0x0F;
      }

      break;
    case kIirFcr:
      Device.FifoEnabled = (Value & kFcrFifoEnable) != 0;
      break;
    case kLcr:
      Device.Lcr = Value;
      break;
    case kMcr:
      Device.Mcr = Value & 0x1F;
      break;
    case kScr:
      Device.Scr = Value;
      break;
    default:
      //
      // The status registers are read-only.
      //
      break;
  }
}

void UartWriteFifo (UINTN Port, const UINT8 *Bytes, UINTN Count) {
  Uart &Device = UartAt (Port);
  if (((Port & 7) != kRbrThr) || ((Device.Lcr & kLcrDivisorLatch) != 0)) {
    for (UINTN Index = 0; Index < Count; Index++) {
      UartWrite (Port, Bytes[Index]);
    }

    return;
  }

  Device.BytesWritten += Count;
  if (&Device != &mUarts[0]) {
    return;
  }

  //
  // Transmit's effect for the whole string: the sink is flushed after the
  // last complete line, as it would have been after each one.
  //
  const char *Text  = reinterpret_cast<const char *> (Bytes);
  const char *Lines = Text + Count;
  while ((Lines > Text) && (Lines[-1] != '\n')) {
    Lines--;
  }

  mLinesWritten += static_cast<UINT64> (std::count (Text, Lines, '\n'));
  mSerialOutput.append (Text, Count);
  if (mSink != nullptr) {
    mSink->write (Text, Lines - Text);
    if (Lines > Text) {
      mSink->flush ();
    }

    mSink->write (Lines, Text + Count - Lines);
  }
}

UINT64
SerialLinesWritten () {
  return mLinesWritten;
}

void ResetUarts () {
  std::lock_guard<std::mutex> Guard (RegisterLock ());
  for (Uart &Device : mUarts) {
    const UINT64 BytesWritten = Device.BytesWritten;
    Device                    = {};
    Device.BytesWritten       = BytesWritten;
  }
}

} // namespace Host::Internal

namespace Host {

void SetSerialSink (std::ostream *Sink) {
  std::lock_guard<std::mutex> Guard (Internal::RegisterLock ());
  Internal::mSink = Sink;
}

const std::string &SerialOutput () {
  return Internal::mSerialOutput;
}

void ClearSerialOutput () {
  std::lock_guard<std::mutex> Guard (Internal::RegisterLock ());
  Internal::mSerialOutput.clear ();
  for (Internal::Uart &Device : Internal::mUarts) {
    Device.BytesWritten = 0;
  }
}

UINT64
SerialBytesWritten () {
  return SerialBytesWritten (kCom1);
}

UINT64
SerialBytesWritten (UINT16 Port) {
  std::lock_guard<std::mutex> Guard (Internal::RegisterLock ());
  return Internal::UartAt (Port).BytesWritten;
}

} // namespace Host
