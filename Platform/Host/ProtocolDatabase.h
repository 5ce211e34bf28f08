/** @file
  A protocol database: handles and the protocol interfaces on them. The boot
  services and the SMM services each own one.
**/
#pragma once

#include <mutex>
#include <vector>

#include "HostInternal.h"

namespace Host::Internal {

class ProtocolDatabase {
public:
  //
  // Handles are small pool objects of HandleType in Range, so their
  // addresses follow the order of creation.
  //
  ProtocolDatabase (RangeAllocator &(*Range) (), EFI_MEMORY_TYPE HandleType);

  void Reset ();

  EFI_STATUS Install (EFI_HANDLE *Handle, EFI_GUID *Protocol, EFI_INTERFACE_TYPE InterfaceType, VOID *Interface);
  EFI_STATUS Locate (EFI_GUID *Protocol, VOID **Interface);
  EFI_STATUS LocateHandle (
      EFI_LOCATE_SEARCH_TYPE SearchType, EFI_GUID *Protocol, VOID *SearchKey, UINTN *BufferSize, EFI_HANDLE *Buffer);
  EFI_STATUS HandleProtocol (EFI_HANDLE Handle, EFI_GUID *Protocol, VOID **Interface);

  //
  // A handle with no protocol on it yet (the image handle).
  //
  EFI_HANDLE CreateHandle ();

  //
  // Removes every instance of the protocol; a handle left empty goes too.
  //
  void UninstallAll (const EFI_GUID &Protocol);

private:
  struct Entry {
    EFI_GUID   Protocol;
    VOID      *Interface;
    EFI_HANDLE Handle;
  };

  EFI_HANDLE NewHandle ();
  bool       IsHandle (EFI_HANDLE Handle) const;

  RangeAllocator &(*mRange) ();
  EFI_MEMORY_TYPE         mHandleType;
  std::mutex              mLock;
  std::vector<EFI_HANDLE> mHandles; // creation order
  std::vector<Entry>      mEntries; // installation order
};

ProtocolDatabase &BootDatabase ();
ProtocolDatabase &SmmDatabase ();

bool SameGuid (const EFI_GUID &First, const EFI_GUID &Second);

} // namespace Host::Internal
