/** @file
  Services a test makes absent or failing.
**/
#include <map>
#include <mutex>

#include <Guid/Acpi.h>
#include <Protocol/SmmBase2.h>
#include <Protocol/SmmCpuService.h>
#include <Protocol/SmmSwDispatch2.h>
#include <Protocol/VornAttributeStorage.h>
#include <Protocol/VornManufacturingMode.h>

#include "ProtocolDatabase.h"

namespace Host::Internal {

namespace {

struct FaultState {
  Fault  What;
  UINT32 Calls;
};

std::mutex                    mFaultLock;
std::map<Service, FaultState> mFaults;

//
// The platform protocols a fault can take away, and where they live.
//
struct GuardedProtocol {
  Service Which;
  ProtocolDatabase &(*Database) ();
  const EFI_GUID *Guid;
};

const GuardedProtocol kGuardedProtocols[] = {
    {Service::SmmBase2, BootDatabase, &gEfiSmmBase2ProtocolGuid},
    {Service::ManufacturingMode, BootDatabase, &gVornManufacturingModeProtocolGuid},
    {Service::SwDispatch2, SmmDatabase, &gEfiSmmSwDispatch2ProtocolGuid},
    {Service::SmmCpuService, SmmDatabase, &gEfiSmmCpuServiceProtocolGuid},
    {Service::AttributeStorage, SmmDatabase, &gVornSmmAttributeStorageProtocolGuid},
};

struct GuardedTable {
  Service         Which;
  const EFI_GUID *Guid;
};

const GuardedTable kGuardedTables[] = {
    {Service::ConfigTableAcpi20, &gEfiAcpi20TableGuid},
    {Service::ConfigTableAcpi10, &gEfiAcpi10TableGuid},
};

} // namespace

std::optional<EFI_STATUS> CheckFault (Service Which) {
  std::lock_guard<std::mutex> Guard (mFaultLock);
  auto                        It = mFaults.find (Which);
  if (It == mFaults.end ()) {
    return std::nullopt;
  }

  FaultState &State = It->second;
  if (State.Calls < State.What.AfterCalls) {
    State.Calls++;
    return std::nullopt;
  }

  return State.What.Status;
}

static bool IsAbsent (Service Which) {
  std::lock_guard<std::mutex> Guard (mFaultLock);
  auto                        It = mFaults.find (Which);
  return (It != mFaults.end ()) && (It->second.What.Kind == FaultKind::Absent);
}

bool HasFault (Service Which) {
  std::lock_guard<std::mutex> Guard (mFaultLock);
  return mFaults.contains (Which);
}

std::optional<EFI_STATUS> CheckLocateFault (const ProtocolDatabase &Database, const EFI_GUID *Protocol) {
  if (Protocol == nullptr) {
    return std::nullopt;
  }

  for (const GuardedProtocol &Guarded : kGuardedProtocols) {
    if ((&Guarded.Database () == &Database) && SameGuid (*Guarded.Guid, *Protocol)) {
      //
      // An absent protocol was uninstalled: the database answers for it.
      //
      return IsAbsent (Guarded.Which) ? std::nullopt : CheckFault (Guarded.Which);
    }
  }

  return std::nullopt;
}

void ResetFaults () {
  std::lock_guard<std::mutex> Guard (mFaultLock);
  mFaults.clear ();
}

} // namespace Host::Internal

namespace Host {

void SetFault (Service Which, Fault What) {
  {
    std::lock_guard<std::mutex> Guard (Internal::mFaultLock);
    Internal::mFaults[Which] = {What, 0};
  }

  for (const Internal::GuardedTable &Guarded : Internal::kGuardedTables) {
    if (Guarded.Which == Which) {
      Internal::RemoveConfigurationTable (*Guarded.Guid);
    }
  }

  if (What.Kind != FaultKind::Absent) {
    return;
  }

  for (const Internal::GuardedProtocol &Guarded : Internal::kGuardedProtocols) {
    if (Guarded.Which == Which) {
      Guarded.Database ().UninstallAll (*Guarded.Guid);
    }
  }
}

void ClearFaults () {
  Internal::ResetFaults ();
}

} // namespace Host
