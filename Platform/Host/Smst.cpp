/** @file
  The SMM system table and its services, in SMRAM.
**/
#include "ProtocolDatabase.h"

namespace Host::Internal {

namespace {

constexpr UINT32 kSmstRevision = (1 << 16) | 80;

EFI_SMM_SYSTEM_TABLE2 *mSmst;

bool IsSmmMemoryType (EFI_MEMORY_TYPE Type) {
  return (Type == EfiRuntimeServicesCode) || (Type == EfiRuntimeServicesData);
}

EFI_STATUS EFIAPI SmmAllocatePool (EFI_MEMORY_TYPE PoolType, UINTN Size, VOID **Buffer) {
  if (auto Failure = CheckFault (Service::SmmAllocatePool)) {
    return *Failure;
  }

  if (!IsSmmMemoryType (PoolType)) {
    return EFI_INVALID_PARAMETER;
  }

  return PoolAllocate (Smram (), PoolType, Size, Buffer);
}

EFI_STATUS EFIAPI SmmFreePool (VOID *Buffer) {
  return PoolFree (Smram (), Buffer);
}

EFI_STATUS EFIAPI SmmAllocatePages (EFI_ALLOCATE_TYPE     Type,
                                    EFI_MEMORY_TYPE       MemoryType,
                                    UINTN                 Pages,
                                    EFI_PHYSICAL_ADDRESS *Memory) {
  if (!IsSmmMemoryType (MemoryType)) {
    return EFI_INVALID_PARAMETER;
  }

  return PagesAllocate (Smram (), Type, Pages, Memory);
}

EFI_STATUS EFIAPI SmmFreePages (EFI_PHYSICAL_ADDRESS Memory, UINTN Pages) {
  return PagesFree (Smram (), Memory, Pages);
}

EFI_STATUS EFIAPI SmmInstallProtocolInterface (EFI_HANDLE        *Handle,
                                               EFI_GUID          *Protocol,
                                               EFI_INTERFACE_TYPE InterfaceType,
                                               VOID              *Interface) {
  if (auto Failure = CheckFault (Service::SmmInstallProtocolInterface)) {
    return *Failure;
  }

  return SmmDatabase ().Install (Handle, Protocol, InterfaceType, Interface);
}

EFI_STATUS EFIAPI SmmHandleProtocol (EFI_HANDLE Handle, EFI_GUID *Protocol, VOID **Interface) {
  return SmmDatabase ().HandleProtocol (Handle, Protocol, Interface);
}

EFI_STATUS EFIAPI SmmLocateHandle (
    EFI_LOCATE_SEARCH_TYPE SearchType, EFI_GUID *Protocol, VOID *SearchKey, UINTN *BufferSize, EFI_HANDLE *Buffer) {
  if (auto Failure = CheckFault (Service::SmmLocateHandle)) {
    return *Failure;
  }

  return SmmDatabase ().LocateHandle (SearchType, Protocol, SearchKey, BufferSize, Buffer);
}

EFI_STATUS EFIAPI SmmLocateProtocol (EFI_GUID *Protocol, VOID *Registration, VOID **Interface) {
  (void)Registration;
  if (auto Failure = CheckLocateFault (SmmDatabase (), Protocol)) {
    if (Interface != nullptr) {
      *Interface = nullptr;
    }

    return *Failure;
  }

  return SmmDatabase ().Locate (Protocol, Interface);
}

} // namespace

void InstallSmst () {
  mSmst                              = PlatformNew<EFI_SMM_SYSTEM_TABLE2> (Smram (), EfiRuntimeServicesData);
  mSmst->Hdr                         = {SMM_SMST_SIGNATURE, kSmstRevision, sizeof (EFI_SMM_SYSTEM_TABLE2), 0, 0};
  mSmst->SmmAllocatePool             = SmmAllocatePool;
  mSmst->SmmFreePool                 = SmmFreePool;
  mSmst->SmmAllocatePages            = SmmAllocatePages;
  mSmst->SmmFreePages                = SmmFreePages;
  mSmst->NumberOfCpus                = NumberOfCpus ();
  mSmst->SmmInstallProtocolInterface = SmmInstallProtocolInterface;
  mSmst->SmmHandleProtocol           = SmmHandleProtocol;
  mSmst->SmmLocateHandle             = SmmLocateHandle;
  mSmst->SmmLocateProtocol           = SmmLocateProtocol;
}

} // namespace Host::Internal

namespace Host {

EFI_SMM_SYSTEM_TABLE2 *Smst () {
  return Internal::mSmst;
}

} // namespace Host
