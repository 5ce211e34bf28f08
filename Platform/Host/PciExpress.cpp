/** @file
  PCI Express configuration space: the functions present on the machine and
  their registers, reached by PCI_EXPRESS_LIB_ADDRESS.
**/
#include <map>

#include <Library/PciExpressLib.h>

#include "HostInternal.h"

namespace Host::Internal {

namespace {

constexpr UINTN  kFunctionMask   = ~UINTN (0xFFF);
constexpr UINTN  kRootComplex    = PCI_EXPRESS_LIB_ADDRESS (0, 0, 0, 0);
constexpr UINT32 kRootComplexIds = 0x14801022; // device 0x1480, vendor 0x1022 (AMD)

//
// Function address -> (register offset -> value); a function is present
// when it has an entry.
//
std::map<UINTN, std::map<UINTN, UINT32>> mFunctions;

std::map<UINTN, UINT32> *Function (UINTN Address) {
  auto It = mFunctions.find (Address & kFunctionMask);
  return (It == mFunctions.end ()) ? nullptr : &It->second;
}

UINT32
ReadConfig (UINTN Address) {
  auto *Registers = Function (Address);
  if (Registers == nullptr) {
    return 0xFFFFFFFF;
  }

  auto It = Registers->find (Address & ~kFunctionMask);
  return (It == Registers->end ()) ? 0 : It->second;
}

} // namespace

void ResetPci () {
  std::lock_guard<std::mutex> Guard (RegisterLock ());
  mFunctions.clear ();
  mFunctions[kRootComplex][0] = kRootComplexIds;
}

} // namespace Host::Internal

using namespace Host;
using namespace Host::Internal;

UINT32
PciExpressRead32 (IN UINTN Address) {
  std::lock_guard<std::mutex> Guard (RegisterLock ());
  const UINT32                Value = ReadConfig (Address);
  RecordAccess (AccessKind::PciRead, Address, 4, Value);
  return Value;
}

UINT32
PciExpressWrite32 (IN UINTN Address, IN UINT32 Value) {
  std::lock_guard<std::mutex> Guard (RegisterLock ());
  RecordAccess (AccessKind::PciWrite, Address, 4, Value);
  auto *Registers = Function (Address);
  //
  // Absent functions ignore writes; the identification register is
  // read-only.
  //
  if ((Registers != nullptr) && ((Address & ~kFunctionMask) != 0)) {
    (*Registers)[Address & ~kFunctionMask] = Value;
  }

  return Value;
}

namespace Host {

void SetPciConfig32 (UINTN PciExpressLibAddress, UINT32 Value) {
  std::lock_guard<std::mutex> Guard (Internal::RegisterLock ());
  Internal::mFunctions[PciExpressLibAddress & Internal::kFunctionMask]
                      [PciExpressLibAddress & ~Internal::kFunctionMask] = Value;
}

UINT32
GetPciConfig32 (UINTN PciExpressLibAddress) {
  std::lock_guard<std::mutex> Guard (Internal::RegisterLock ());
  return Internal::ReadConfig (PciExpressLibAddress);
}

} // namespace Host
