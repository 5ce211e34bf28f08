/** @file
  The slow half of the platform services' memory check (MachineAccess.h):
  an access that is not wholly below the machine's window's end nor on the
  thread's stack.
**/
#include "MachineAccess.h"

#include "FirmwareInternal.h"

namespace Host::Internal {

constinit thread_local UINT64 tStackLow  = 0;
constinit thread_local UINT64 tStackHigh = 0;

void CheckOutsideMachine (UINT64 Address, MachineFaultKind Kind) {
  if (!InFirmware ()) {
    return;
  }

#if defined(VORN_ASAN)
  //
  // Locals that AddressSanitizer moved off the stack are still the stack.
  //
  void *Fake = __asan_get_current_fake_stack ();
  if ((Fake != nullptr) &&
      (__asan_addr_is_in_fake_stack (Fake, reinterpret_cast<void *> (Address), nullptr, nullptr) != nullptr)) {
    return;
  }
#endif

  //
  // Reported is the first byte outside: past the end of the machine's range
  // the access starts in, or its first byte.
  //
  const UINT64 Ranges[][2] = {{kAcpiBase, kBootServicesBase + kBootServicesSize},
                              {kSmramBase, kModuleDataBase + kModuleDataSize}};
  UINT64       Outside     = Address;
  for (const auto &Range : Ranges) {
    if (Within (Address, 1, Range[0], Range[1])) {
      Outside = Range[1];
    }
  }

  RaiseAccessFault (Kind, Outside);
}

} // namespace Host::Internal
