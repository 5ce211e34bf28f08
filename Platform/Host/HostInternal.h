/** @file
  Pieces of the simulated machine shared between its parts. Not for tests or
  the simulator: they use Host.h.
**/
#pragma once

#include <map>
#include <mutex>
#include <optional>

#include "Host.h"
#include "SpiFlash.h"

namespace Host::Internal {

//
// Guards every register model and the trace. Never held while firmware code
// runs (SMI handlers, notification callbacks), so those may access registers.
//
std::mutex &RegisterLock ();

//
// Appends to the trace; the caller holds RegisterLock.
//
void RecordAccess (AccessKind Kind, UINT64 Address, UINT8 Width, UINT64 Value);
bool SerialPortsTraced ();

//
// First-fit allocator over one fixed range. Blocks are found in address
// order, so the same sequence of calls always gives the same addresses.
//
class RangeAllocator {
public:
  //
  // What a block was taken for: a block is only released as what it is.
  //
  enum class Use { Fixed, Pool, Pages };

  RangeAllocator (UINT64 Base, UINT64 Size);

  void                  Reset ();
  std::optional<UINT64> Allocate (UINT64 Size, UINT64 Align, Use For);
  bool                  Free (UINT64 Address, UINT64 Size, Use For);
  bool                  Contains (UINT64 Address) const;
  std::optional<UINT64> BlockSize (UINT64 Address, Use For) const;

  UINT64 Base () const {
    return mBase;
  }
  UINT64 Size () const {
    return mSize;
  }

private:
  UINT64                   mBase;
  UINT64                   mSize;
  std::map<UINT64, UINT64> mFree; // start -> size
  struct Block {
    UINT64 Size;
    Use    For;
  };

  std::map<UINT64, Block> mUsed; // start -> block
};

RangeAllocator &AcpiMemory ();
RangeAllocator &ReservedMemory ();
RangeAllocator &BootServicesMemory ();
RangeAllocator &Smram ();

//
// Maps the ranges on first use and returns them, zeroed, to power-on state.
//
void ResetMemory ();

//
// Pool blocks carry a header in front of the caller's buffer, as a firmware
// pool does; the buffer is 16-byte aligned.
//
EFI_STATUS PoolAllocate (RangeAllocator &Range, EFI_MEMORY_TYPE Type, UINTN Size, VOID **Buffer);
EFI_STATUS PoolFree (RangeAllocator &Range, VOID *Buffer);

//
// Zeroed pool memory for the platform's own structures; running out at
// power-on is a broken machine configuration, so it throws.
//
//
// Page allocation (AllocateAnyPages only) and release of a whole earlier
// allocation.
//
EFI_STATUS PagesAllocate (RangeAllocator &Range, EFI_ALLOCATE_TYPE Type, UINTN Pages, EFI_PHYSICAL_ADDRESS *Memory);
EFI_STATUS PagesFree (RangeAllocator &Range, EFI_PHYSICAL_ADDRESS Memory, UINTN Pages);

VOID *PlatformAllocate (RangeAllocator &Range, EFI_MEMORY_TYPE Type, UINTN Size);

template <typename T> T *PlatformNew (RangeAllocator &Range, EFI_MEMORY_TYPE Type) {
  return static_cast<T *> (PlatformAllocate (Range, Type, sizeof (T)));
}

//
// Counts one call of the service; returns the status to fail it with, if a
// fault applies.
//
std::optional<EFI_STATUS> CheckFault (Service Which);
void                      ResetFaults ();

//
// Power-on of each part, in the order PowerOn calls them.
//
void ApplyFixedPcds ();
void ResetUarts ();
void ResetCmos ();
void ResetSmiPorts ();
void ResetFch ();
void ResetPci ();
void ResetMsrs ();
void ResetTrace ();
void ResetProcessors ();
void ResetBreakpoints ();
void InstallBootServices ();
void InstallSmst ();
void InstallSmmBase2 ();
void InstallManufacturingMode ();
void InstallSwDispatch ();
void InstallSmmCpuService ();
void InstallAttributeStorage ();

//
// A Fail fault on a platform protocol fails LocateProtocol of its GUID in
// the database that holds it; counts one call when the GUID is guarded.
//
class ProtocolDatabase;
std::optional<EFI_STATUS> CheckLocateFault (const ProtocolDatabase &Database, const EFI_GUID *Protocol);

//
// Configuration table entries; an entry under a fault is never published.
//
void RemoveConfigurationTable (const EFI_GUID &Guid);
bool HasFault (Service Which);

//
// Register models behind the I/O bus; the caller holds RegisterLock.
//
bool  IsUartPort (UINTN Port);
UINT8 UartRead (UINTN Port);
void  UartWrite (UINTN Port, UINT8 Value);
void  UartWriteFifo (UINTN Port, const UINT8 *Bytes, UINTN Count);
UINT8 CmosRead (UINTN Port);
void  CmosWrite (UINTN Port, UINT8 Value);
UINT8 SmiDataPort ();

//
// Serial log lines the primary port has written since the process started.
//
UINT64 SerialLinesWritten ();

//
// Software SMI dispatch, called without RegisterLock held.
//
void DispatchSwSmi (UINT8 CommandValue);

//
// The flash part as a machine snapshot keeps it: the image and what was
// counted and logged since power-on (SpiFlash.cpp).
//
struct FlashState {
  std::vector<UINT8>               Bytes;
  Flash::Counters                  Counted;
  std::vector<Flash::Operation>    Log;
  std::vector<Flash::ProgramFault> Faults;
};

//
// The FCH registers and signal counts, for the same snapshots (Fch.cpp).
//
struct FchState {
  std::map<UINT64, UINT32> Registers;
  UINT64                   SciCount;
  UINT64                   NmiCount;
};

FchState SaveFch ();
void     RestoreFch (const FchState &State);

FlashState SaveFlash ();
void       RestoreFlash (const FlashState &State);

} // namespace Host::Internal
