/** @file
  Protocol database semantics of the boot-services and SMM cores: install,
  locate, locate handles, handle protocol.
**/
#include "ProtocolDatabase.h"

#include "MachineAccess.h"

#include <algorithm>
#include <cstring>

namespace Host::Internal {

namespace {

//
// What a handle points at in simulated memory.
//
struct HandleObject {
  UINT64 Signature;
  UINT64 Number;
};

constexpr UINT64 kHandleSignature = SIGNATURE_64 ('H', 'A', 'N', 'D', 'L', 'E', ' ', ' ');

} // namespace

bool SameGuid (const EFI_GUID &First, const EFI_GUID &Second) {
  return std::memcmp (&First, &Second, sizeof (EFI_GUID)) == 0;
}

ProtocolDatabase::ProtocolDatabase (RangeAllocator &(*Range) (), EFI_MEMORY_TYPE HandleType)
    : mRange (Range), mHandleType (HandleType) {}

void ProtocolDatabase::Reset () {
  std::lock_guard<std::mutex> Guard (mLock);
  mHandles.clear ();
  mEntries.clear ();
}

EFI_HANDLE
ProtocolDatabase::NewHandle () {
  VOID *Buffer = nullptr;
  if (EFI_ERROR (PoolAllocate (mRange (), mHandleType, sizeof (HandleObject), &Buffer))) {
    return nullptr;
  }

  auto *Object      = static_cast<HandleObject *> (Buffer);
  Object->Signature = kHandleSignature;
  Object->Number    = mHandles.size ();
  mHandles.push_back (Buffer);
  return Buffer;
}

bool ProtocolDatabase::IsHandle (EFI_HANDLE Handle) const {
  return std::find (mHandles.begin (), mHandles.end (), Handle) != mHandles.end ();
}

EFI_HANDLE
ProtocolDatabase::CreateHandle () {
  std::lock_guard<std::mutex> Guard (mLock);
  return NewHandle ();
}

EFI_STATUS
ProtocolDatabase::Install (EFI_HANDLE *Handle, EFI_GUID *Protocol, EFI_INTERFACE_TYPE InterfaceType, VOID *Interface) {
  if ((Handle == nullptr) || (Protocol == nullptr) || (InterfaceType != EFI_NATIVE_INTERFACE)) {
    return EFI_INVALID_PARAMETER;
  }

  std::lock_guard<std::mutex> Guard (mLock);
  if (*Handle != nullptr) {
    if (!IsHandle (*Handle)) {
      return EFI_INVALID_PARAMETER;
    }

    for (const Entry &Existing : mEntries) {
      if ((Existing.Handle == *Handle) && SameGuid (Existing.Protocol, *Protocol)) {
        return EFI_INVALID_PARAMETER;
      }
    }
  } else {
    *Handle = NewHandle ();
    if (*Handle == nullptr) {
      return EFI_OUT_OF_RESOURCES;
    }
  }

  mEntries.push_back ({*Protocol, Interface, *Handle});
  return EFI_SUCCESS;
}

EFI_STATUS
ProtocolDatabase::Locate (EFI_GUID *Protocol, VOID **Interface) {
  if ((Protocol == nullptr) || (Interface == nullptr)) {
    return EFI_INVALID_PARAMETER;
  }

  *Interface = nullptr;
  std::lock_guard<std::mutex> Guard (mLock);
  for (const Entry &Existing : mEntries) {
    if (SameGuid (Existing.Protocol, *Protocol)) {
      *Interface = Existing.Interface;
      return EFI_SUCCESS;
    }
  }

  return EFI_NOT_FOUND;
}

EFI_STATUS
ProtocolDatabase::LocateHandle (
    EFI_LOCATE_SEARCH_TYPE SearchType, EFI_GUID *Protocol, VOID *SearchKey, UINTN *BufferSize, EFI_HANDLE *Buffer) {
  (void)SearchKey;
  if ((BufferSize == nullptr) || ((*BufferSize > 0) && (Buffer == nullptr))) {
    return EFI_INVALID_PARAMETER;
  }

  std::lock_guard<std::mutex> Guard (mLock);
  std::vector<EFI_HANDLE>     Found;
  switch (SearchType) {
    case AllHandles:
      Found = mHandles;
      break;
    case ByProtocol:
      if (Protocol == nullptr) {
        return EFI_INVALID_PARAMETER;
      }

      for (const Entry &Existing : mEntries) {
        if (SameGuid (Existing.Protocol, *Protocol)) {
          Found.push_back (Existing.Handle);
        }
      }

      break;
    default:
      //
      // Protocol notifications are not modelled, so no registration key can
      // be valid.
      //
      return EFI_INVALID_PARAMETER;
  }

  if (Found.empty ()) {
    return EFI_NOT_FOUND;
  }

  const UINTN Required = Found.size () * sizeof (EFI_HANDLE);
  if (*BufferSize < Required) {
    *BufferSize = Required;
    return EFI_BUFFER_TOO_SMALL;
  }

  CheckMachineAccess (Buffer, Required, MachineFaultKind::Write);
  *BufferSize = Required;
  std::copy (Found.begin (), Found.end (), Buffer);
  return EFI_SUCCESS;
}

EFI_STATUS
ProtocolDatabase::HandleProtocol (EFI_HANDLE Handle, EFI_GUID *Protocol, VOID **Interface) {
  if ((Protocol == nullptr) || (Interface == nullptr)) {
    return EFI_INVALID_PARAMETER;
  }

  *Interface = nullptr;
  std::lock_guard<std::mutex> Guard (mLock);
  if (!IsHandle (Handle)) {
    return EFI_INVALID_PARAMETER;
  }

  for (const Entry &Existing : mEntries) {
    if ((Existing.Handle == Handle) && SameGuid (Existing.Protocol, *Protocol)) {
      *Interface = Existing.Interface;
      return EFI_SUCCESS;
    }
  }

  return EFI_UNSUPPORTED;
}

void ProtocolDatabase::UninstallAll (const EFI_GUID &Protocol) {
  std::lock_guard<std::mutex> Guard (mLock);
  std::vector<EFI_HANDLE>     Touched;
  std::erase_if (mEntries, [&] (const Entry &Existing) {
    if (!SameGuid (Existing.Protocol, Protocol)) {
      return false;
    }

    Touched.push_back (Existing.Handle);
    return true;
  });

  for (EFI_HANDLE Handle : Touched) {
    const bool Empty = std::none_of (mEntries.begin (), mEntries.end (),
                                     [&] (const Entry &Existing) { return Existing.Handle == Handle; });
    if (Empty) {
      std::erase (mHandles, Handle);
    }
  }
}

ProtocolDatabase &BootDatabase () {
  static ProtocolDatabase Database (BootServicesMemory, EfiBootServicesData);
  return Database;
}

ProtocolDatabase &SmmDatabase () {
  static ProtocolDatabase Database (Smram, EfiRuntimeServicesData);
  return Database;
}

} // namespace Host::Internal
