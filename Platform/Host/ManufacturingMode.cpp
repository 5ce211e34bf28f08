/** @file
  The manufacturing-mode protocol, present when the machine is configured
  with a mode.
**/
#include <Protocol/VornManufacturingMode.h>

#include "ProtocolDatabase.h"

namespace Host::Internal {

namespace {

UINT32 EFIAPI GetManufacturingMode (VORN_MANUFACTURING_MODE_PROTOCOL *This) {
  (void)This;
  return Config ().ManufacturingMode.value_or (0);
}

} // namespace

void InstallManufacturingMode () {
  if (!Config ().ManufacturingMode) {
    return;
  }

  auto *Protocol = PlatformNew<VORN_MANUFACTURING_MODE_PROTOCOL> (BootServicesMemory (), EfiBootServicesData);
  Protocol->GetManufacturingMode = GetManufacturingMode;

  EFI_HANDLE Handle = nullptr;
  BootDatabase ().Install (&Handle, &gVornManufacturingModeProtocolGuid, EFI_NATIVE_INTERFACE, Protocol);
}

} // namespace Host::Internal
