/** @file
  EFI_SMM_SW_DISPATCH2_PROTOCOL and the dispatch of a software SMI written to
  the SMI command port.
**/
#include <map>
#include <mutex>

#include <Library/IoLib.h>
#include <Protocol/SmmSwDispatch2.h>

#include <Firmware.h>

#include "ProtocolDatabase.h"

namespace Host::Internal {

namespace {

constexpr UINTN kMaximumSwiValue = 0xFF;

//
// One registration, in SMRAM: its address is the dispatch handle, and the
// handler's Context, CommBuffer and CommBufferSize point into it.
//
struct SwRegistration {
  UINT64                      Signature;
  EFI_SMM_SW_REGISTER_CONTEXT RegisterContext;
  EFI_SMM_SW_CONTEXT          SwContext;
  UINTN                       SwContextSize;
};

constexpr UINT64 kRegistrationSignature = SIGNATURE_64 ('S', 'W', 'S', 'M', 'I', 'R', 'E', 'G');

struct Handler {
  EFI_SMM_HANDLER_ENTRY_POINT2 Function;
  SwRegistration              *Registration;
};

std::mutex               mDispatchLock;
std::map<UINTN, Handler> mHandlers; // by SMI command value
SwSmiCount               mCount;

//
// The lowest value no handler holds, for a registration that asks the
// dispatcher to choose.
//
std::optional<UINTN> FreeValue () {
  for (UINTN Value = 1; Value <= kMaximumSwiValue; Value++) {
    if (!mHandlers.contains (Value)) {
      return Value;
    }
  }

  return std::nullopt;
}

EFI_STATUS EFIAPI SwRegister (CONST EFI_SMM_SW_DISPATCH2_PROTOCOL *This,
                              EFI_SMM_HANDLER_ENTRY_POINT2         DispatchFunction,
                              EFI_SMM_SW_REGISTER_CONTEXT         *RegisterContext,
                              EFI_HANDLE                          *DispatchHandle) {
  if ((This == nullptr) || (DispatchFunction == nullptr) || (RegisterContext == nullptr) ||
      (DispatchHandle == nullptr)) {
    return EFI_INVALID_PARAMETER;
  }

  if (auto Failure = CheckFault (Service::SwDispatch2Register)) {
    return *Failure;
  }

  std::lock_guard<std::mutex> Guard (mDispatchLock);
  if (RegisterContext->SwSmiInputValue == MAX_UINTN) {
    auto Value = FreeValue ();
    if (!Value) {
      return EFI_OUT_OF_RESOURCES;
    }

    RegisterContext->SwSmiInputValue = *Value;
  }

  const UINTN Value = RegisterContext->SwSmiInputValue;
  if ((Value > kMaximumSwiValue) || mHandlers.contains (Value)) {
    return EFI_INVALID_PARAMETER;
  }

  VOID *Buffer = nullptr;
  if (EFI_ERROR (PoolAllocate (Smram (), EfiRuntimeServicesData, sizeof (SwRegistration), &Buffer))) {
    return EFI_OUT_OF_RESOURCES;
  }

  auto *Registration            = static_cast<SwRegistration *> (Buffer);
  *Registration                 = {};
  Registration->Signature       = kRegistrationSignature;
  Registration->RegisterContext = *RegisterContext;
  mHandlers[Value]              = {DispatchFunction, Registration};
  *DispatchHandle               = Registration;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI SwUnRegister (CONST EFI_SMM_SW_DISPATCH2_PROTOCOL *This, EFI_HANDLE DispatchHandle) {
  if (This == nullptr) {
    return EFI_INVALID_PARAMETER;
  }

  std::lock_guard<std::mutex> Guard (mDispatchLock);
  for (auto It = mHandlers.begin (); It != mHandlers.end (); ++It) {
    if (It->second.Registration == DispatchHandle) {
      mHandlers.erase (It);
      return PoolFree (Smram (), DispatchHandle);
    }
  }

  return EFI_INVALID_PARAMETER;
}

} // namespace

void InstallSwDispatch () {
  {
    std::lock_guard<std::mutex> Guard (mDispatchLock);
    mHandlers.clear ();
    mCount = {};
  }

  auto *Protocol            = PlatformNew<EFI_SMM_SW_DISPATCH2_PROTOCOL> (Smram (), EfiRuntimeServicesData);
  Protocol->Register        = SwRegister;
  Protocol->UnRegister      = SwUnRegister;
  Protocol->MaximumSwiValue = kMaximumSwiValue;

  EFI_HANDLE Handle = nullptr;
  SmmDatabase ().Install (&Handle, &gEfiSmmSwDispatch2ProtocolGuid, EFI_NATIVE_INTERFACE, Protocol);
}

void DispatchSwSmi (UINT8 CommandValue) {
  Handler Found{};
  {
    std::lock_guard<std::mutex> Guard (mDispatchLock);
    auto                        It = mHandlers.find (CommandValue);
    mCount.Raised++;
    mCount.Last = CommandValue;
    if (It == mHandlers.end ()) {
      return;
    }

    mCount.Answered++;
    Found = It->second;
  }

  UINT8 DataPort;
  {
    std::lock_guard<std::mutex> Guard (RegisterLock ());
    DataPort = SmiDataPort ();
  }

  FirmwareScope   Firmware (EntryKind::SoftwareSmi, nullptr, CommandValue);
  const UINTN     Cpu            = CurrentCpu ();
  SwRegistration *Registration   = Found.Registration;
  Registration->SwContext        = {Cpu, CommandValue, DataPort};
  Registration->SwContextSize    = sizeof (EFI_SMM_SW_CONTEXT);
  Smst ()->CurrentlyExecutingCpu = Cpu;
  Found.Function (Registration, &Registration->RegisterContext, &Registration->SwContext, &Registration->SwContextSize);
}

} // namespace Host::Internal

namespace Host {

SwSmiCount SwSmis () {
  std::lock_guard<std::mutex> Guard (Internal::mDispatchLock);
  return Internal::mCount;
}

void RaiseSwSmi (UINT8 Value, UINTN CpuIndex) {
  const UINTN Previous = CurrentCpu ();
  SetCurrentCpu (CpuIndex);
  IoWrite8 (kSmiCommandPort, Value);
  SetCurrentCpu (Previous);
}

} // namespace Host
