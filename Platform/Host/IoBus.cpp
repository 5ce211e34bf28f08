/** @file
  The I/O port bus: IoRead8/IoWrite8 routed to the port models, and the SMI
  command and data ports.
**/
#include <Library/IoLib.h>

#include "FirmwareInternal.h"
#include "HostInternal.h"

namespace Host::Internal {

namespace {

constexpr UINTN kSmiDataPort = 0xB1;

UINT8 mSmiCommand;
UINT8 mSmiData;

} // namespace

UINT8
SmiDataPort () {
  return mSmiData;
}

void ResetSmiPorts () {
  std::lock_guard<std::mutex> Guard (RegisterLock ());
  mSmiCommand = 0;
  mSmiData    = 0;
}

} // namespace Host::Internal

using namespace Host;
using namespace Host::Internal;

UINT8
IoRead8 (IN UINTN Port) {
  std::lock_guard<std::mutex> Guard (RegisterLock ());
  UINT8                       Value;
  if (IsUartPort (Port)) {
    Value = UartRead (Port);
  } else if ((Port == kCmosIndex) || (Port == kCmosData)) {
    Value = CmosRead (Port);
  } else if (Port == kSmiCommandPort) {
    Value = mSmiCommand;
  } else if (Port == kSmiDataPort) {
    Value = mSmiData;
  } else {
    Value = 0xFF;
  }

  if (!IsUartPort (Port) || SerialPortsTraced ()) {
    RecordAccess (AccessKind::IoRead, Port, 1, Value);
  }

  return Value;
}

//
// One byte to a port model; the caller holds RegisterLock.
//
static void WritePort (UINTN Port, UINT8 Value) {
  if (!IsUartPort (Port) || SerialPortsTraced ()) {
    RecordAccess (AccessKind::IoWrite, Port, 1, Value);
  }

  if (IsUartPort (Port)) {
    UartWrite (Port, Value);
  } else if ((Port == kCmosIndex) || (Port == kCmosData)) {
    CmosWrite (Port, Value);
  } else if (Port == kSmiCommandPort) {
    mSmiCommand = Value;
  } else if (Port == kSmiDataPort) {
    mSmiData = Value;
  }
}

UINT8
IoWrite8 (IN UINTN Port, IN UINT8 Value) {
  {
    std::lock_guard<std::mutex> Guard (RegisterLock ());
    WritePort (Port, Value);
  }

  //
  // The handler runs as firmware does, free to touch every register.
  //
  if (Port == kSmiCommandPort) {
    DispatchSwSmi (Value);
  }

  //
  // No register lock is held here: a runaway entry can be stopped.
  //
  FirmwareCheckpoint ();
  return Value;
}

//
// A string write to one port (a UART's FIFO takes it at once). Each byte
// written to the SMI command port raises its own SMI.
//
VOID IoWriteFifo8 (IN UINTN Port, IN UINTN Count, IN VOID *Buffer) {
  const UINT8 *Bytes = static_cast<const UINT8 *> (Buffer);
  if (Port == kSmiCommandPort) {
    for (UINTN Index = 0; Index < Count; Index++) {
      IoWrite8 (Port, Bytes[Index]);
    }

    return;
  }

  {
    std::lock_guard<std::mutex> Guard (RegisterLock ());
    if (IsUartPort (Port) && !SerialPortsTraced ()) {
      UartWriteFifo (Port, Bytes, Count);
    } else {
      for (UINTN Index = 0; Index < Count; Index++) {
        WritePort (Port, Bytes[Index]);
      }
    }
  }

  FirmwareCheckpoint ();
}
