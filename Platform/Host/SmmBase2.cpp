/** @file
  EFI_SMM_BASE2_PROTOCOL, in the boot-services database.
**/
#include <Protocol/SmmBase2.h>

#include "ProtocolDatabase.h"

namespace Host::Internal {

namespace {

EFI_STATUS EFIAPI SmmBase2InSmm (CONST EFI_SMM_BASE2_PROTOCOL *This, BOOLEAN *InSmram) {
  if ((This == nullptr) || (InSmram == nullptr)) {
    return EFI_INVALID_PARAMETER;
  }

  if (auto Failure = CheckFault (Service::SmmBase2InSmm)) {
    return *Failure;
  }

  *InSmram = Config ().InSmm;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI SmmBase2GetSmstLocation (CONST EFI_SMM_BASE2_PROTOCOL *This, EFI_SMM_SYSTEM_TABLE2 **SmstLocation) {
  if ((This == nullptr) || (SmstLocation == nullptr)) {
    return EFI_INVALID_PARAMETER;
  }

  if (auto Failure = CheckFault (Service::SmmBase2GetSmst)) {
    return *Failure;
  }

  *SmstLocation = Smst ();
  return EFI_SUCCESS;
}

} // namespace

void InstallSmmBase2 () {
  auto *Protocol            = PlatformNew<EFI_SMM_BASE2_PROTOCOL> (BootServicesMemory (), EfiBootServicesData);
  Protocol->InSmm           = SmmBase2InSmm;
  Protocol->GetSmstLocation = SmmBase2GetSmstLocation;

  EFI_HANDLE Handle = nullptr;
  BootDatabase ().Install (&Handle, &gEfiSmmBase2ProtocolGuid, EFI_NATIVE_INTERFACE, Protocol);
}

} // namespace Host::Internal
