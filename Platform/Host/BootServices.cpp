/** @file
  The boot services, the system table and its configuration table, all in
  boot-services memory.
**/
#include <Guid/Acpi.h>

#include "ProtocolDatabase.h"

namespace Host::Internal {

namespace {

constexpr UINT64 kSystemTableSignature  = SIGNATURE_64 ('I', 'B', 'I', ' ', 'S', 'Y', 'S', 'T');
constexpr UINT64 kBootServicesSignature = SIGNATURE_64 ('B', 'O', 'O', 'T', 'S', 'E', 'R', 'V');
constexpr UINT32 kUefiRevision          = (2 << 16) | 70;

//
// Room for every table the platform publishes.
//
constexpr UINTN kConfigurationTableCapacity = 8;

EFI_HANDLE        mImageHandle;
EFI_SYSTEM_TABLE *mSystemTable;

//
// Pool requests go to the range their memory type belongs to.
//
RangeAllocator *PoolRange (EFI_MEMORY_TYPE PoolType) {
  switch (PoolType) {
    case EfiReservedMemoryType:
      return &ReservedMemory ();
    case EfiACPIReclaimMemory:
    case EfiACPIMemoryNVS:
      return &AcpiMemory ();
    case EfiConventionalMemory:
    case EfiPersistentMemory:
    case EfiUnacceptedMemoryType:
      return nullptr;
    default:
      return (PoolType < EfiMaxMemoryType) ? &BootServicesMemory () : nullptr;
  }
}

EFI_STATUS EFIAPI BsAllocatePages (EFI_ALLOCATE_TYPE     Type,
                                   EFI_MEMORY_TYPE       MemoryType,
                                   UINTN                 Pages,
                                   EFI_PHYSICAL_ADDRESS *Memory) {
  if (auto Failure = CheckFault (Service::BsAllocatePages)) {
    return *Failure;
  }

  if (PoolRange (MemoryType) == nullptr) {
    return EFI_INVALID_PARAMETER;
  }

  return PagesAllocate (BootServicesMemory (), Type, Pages, Memory);
}

EFI_STATUS EFIAPI BsFreePages (EFI_PHYSICAL_ADDRESS Memory, UINTN Pages) {
  if (auto Failure = CheckFault (Service::BsFreePages)) {
    return *Failure;
  }

  return PagesFree (BootServicesMemory (), Memory, Pages);
}

EFI_STATUS EFIAPI BsAllocatePool (EFI_MEMORY_TYPE PoolType, UINTN Size, VOID **Buffer) {
  if (auto Failure = CheckFault (Service::BsAllocatePool)) {
    return *Failure;
  }

  RangeAllocator *Range = PoolRange (PoolType);
  if (Range == nullptr) {
    return EFI_INVALID_PARAMETER;
  }

  return PoolAllocate (*Range, PoolType, Size, Buffer);
}

EFI_STATUS EFIAPI BsFreePool (VOID *Buffer) {
  for (RangeAllocator *Range : {&ReservedMemory (), &AcpiMemory (), &BootServicesMemory ()}) {
    if (Range->Contains (reinterpret_cast<UINT64> (Buffer))) {
      return PoolFree (*Range, Buffer);
    }
  }

  return EFI_INVALID_PARAMETER;
}

EFI_STATUS EFIAPI BsInstallProtocolInterface (EFI_HANDLE        *Handle,
                                              EFI_GUID          *Protocol,
                                              EFI_INTERFACE_TYPE InterfaceType,
                                              VOID              *Interface) {
  return BootDatabase ().Install (Handle, Protocol, InterfaceType, Interface);
}

EFI_STATUS EFIAPI BsHandleProtocol (EFI_HANDLE Handle, EFI_GUID *Protocol, VOID **Interface) {
  return BootDatabase ().HandleProtocol (Handle, Protocol, Interface);
}

EFI_STATUS EFIAPI BsLocateHandle (
    EFI_LOCATE_SEARCH_TYPE SearchType, EFI_GUID *Protocol, VOID *SearchKey, UINTN *BufferSize, EFI_HANDLE *Buffer) {
  return BootDatabase ().LocateHandle (SearchType, Protocol, SearchKey, BufferSize, Buffer);
}

EFI_STATUS EFIAPI BsLocateProtocol (EFI_GUID *Protocol, VOID *Registration, VOID **Interface) {
  (void)Registration;
  if (auto Failure = CheckLocateFault (BootDatabase (), Protocol)) {
    if (Interface != nullptr) {
      *Interface = nullptr;
    }

    return *Failure;
  }

  return BootDatabase ().Locate (Protocol, Interface);
}

//
// Sets, or with a NULL table removes, the entry of Guid.
//
void SetConfigurationTable (const EFI_GUID &Guid, VOID *Table) {
  EFI_CONFIGURATION_TABLE *Entries = mSystemTable->ConfigurationTable;
  UINTN                   &Count   = mSystemTable->NumberOfTableEntries;
  for (UINTN Index = 0; Index < Count; Index++) {
    if (!SameGuid (Entries[Index].VendorGuid, Guid)) {
      continue;
    }

    if (Table != nullptr) {
      Entries[Index].VendorTable = Table;
      return;
    }

    for (UINTN Next = Index + 1; Next < Count; Next++) {
      Entries[Next - 1] = Entries[Next];
    }

    Count--;
    Entries[Count] = {};
    return;
  }

  if ((Table != nullptr) && (Count < kConfigurationTableCapacity)) {
    Entries[Count++] = {Guid, Table};
  }
}

} // namespace

void InstallBootServices () {
  mSystemTable       = PlatformNew<EFI_SYSTEM_TABLE> (BootServicesMemory (), EfiBootServicesData);
  auto *BootServices = PlatformNew<EFI_BOOT_SERVICES> (BootServicesMemory (), EfiBootServicesData);
  auto *Entries      = static_cast<EFI_CONFIGURATION_TABLE *> (PlatformAllocate (
           BootServicesMemory (), EfiBootServicesData, kConfigurationTableCapacity * sizeof (EFI_CONFIGURATION_TABLE)));

  BootServices->Hdr                      = {kBootServicesSignature, kUefiRevision, sizeof (EFI_BOOT_SERVICES), 0, 0};
  BootServices->AllocatePages            = BsAllocatePages;
  BootServices->FreePages                = BsFreePages;
  BootServices->AllocatePool             = BsAllocatePool;
  BootServices->FreePool                 = BsFreePool;
  BootServices->InstallProtocolInterface = BsInstallProtocolInterface;
  BootServices->HandleProtocol           = BsHandleProtocol;
  BootServices->LocateHandle             = BsLocateHandle;
  BootServices->LocateProtocol           = BsLocateProtocol;

  mSystemTable->Hdr                = {kSystemTableSignature, kUefiRevision, sizeof (EFI_SYSTEM_TABLE), 0, 0};
  mSystemTable->BootServices       = BootServices;
  mSystemTable->ConfigurationTable = Entries;
  mImageHandle                     = BootDatabase ().CreateHandle ();
}

void RemoveConfigurationTable (const EFI_GUID &Guid) {
  SetConfigurationTable (Guid, nullptr);
}

} // namespace Host::Internal

namespace Host {

EFI_HANDLE
ImageHandle () {
  return Internal::mImageHandle;
}

EFI_SYSTEM_TABLE *SystemTable () {
  return Internal::mSystemTable;
}

void PublishRsdp (UINT64 RsdpAddress, BOOLEAN Acpi20, BOOLEAN Acpi10) {
  const struct {
    Service         Which;
    const EFI_GUID &Guid;
    BOOLEAN         Wanted;
  } Entries[] = {
      {Service::ConfigTableAcpi20, gEfiAcpi20TableGuid, Acpi20},
      {Service::ConfigTableAcpi10, gEfiAcpi10TableGuid, Acpi10},
  };

  for (const auto &Entry : Entries) {
    const bool Publish = Entry.Wanted && !Internal::HasFault (Entry.Which);
    Internal::SetConfigurationTable (Entry.Guid, Publish ? At<VOID> (RsdpAddress) : nullptr);
  }
}

} // namespace Host
