/** @file
  The attribute-storage protocol, holding the platform's RAS settings when
  the machine is configured with them.
**/
#include <cstring>
#include <string_view>

#include <Protocol/VornAttributeStorage.h>

#include "MachineAccess.h"
#include "ProtocolDatabase.h"

namespace Host::Internal {

namespace {

constexpr std::u16string_view kCorErrLoggingThreshold = u"CorErrLoggingThreshold";

//
// Settings are stored as their characters, without a terminator.
//
EFI_STATUS EFIAPI GetAttribute (VORN_SMM_ATTRIBUTE_STORAGE_PROTOCOL *This,
                                CONST EFI_GUID                      *Namespace,
                                CONST CHAR16                        *Name,
                                UINT32                              *Attributes,
                                UINTN                               *DataSize,
                                VOID                                *Data) {
  if ((This == nullptr) || (Namespace == nullptr) || (Name == nullptr) || (DataSize == nullptr)) {
    return EFI_INVALID_PARAMETER;
  }

  const auto &Threshold = Config ().CorErrLoggingThreshold;
  if (!SameGuid (*Namespace, gVornRasAttributeNamespaceGuid) || (Name != kCorErrLoggingThreshold) || !Threshold) {
    return EFI_NOT_FOUND;
  }

  const UINTN Required = Threshold->size () * sizeof (CHAR16);
  if (*DataSize < Required) {
    *DataSize = Required;
    return EFI_BUFFER_TOO_SMALL;
  }

  if ((Data == nullptr) && (Required != 0)) {
    return EFI_INVALID_PARAMETER;
  }

  if (Attributes != nullptr) {
    *Attributes = 0;
  }

  *DataSize = Required;
  if (Required != 0) {
    CheckMachineAccess (Data, Required, MachineFaultKind::Write);
    std::memcpy (Data, Threshold->data (), Required);
  }

  return EFI_SUCCESS;
}

} // namespace

void InstallAttributeStorage () {
  if (!Config ().CorErrLoggingThreshold) {
    return;
  }

  auto *Protocol         = PlatformNew<VORN_SMM_ATTRIBUTE_STORAGE_PROTOCOL> (Smram (), EfiRuntimeServicesData);
  Protocol->GetAttribute = GetAttribute;

  EFI_HANDLE Handle = nullptr;
  SmmDatabase ().Install (&Handle, &gVornSmmAttributeStorageProtocolGuid, EFI_NATIVE_INTERFACE, Protocol);
}

} // namespace Host::Internal
