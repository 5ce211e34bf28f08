/** @file
  Processor topology, the current processor of each host thread, and
  EFI_SMM_CPU_SERVICE_PROTOCOL answering from them.
**/
#include <stdexcept>

#include <Protocol/SmmCpuService.h>

#include "ProtocolDatabase.h"

namespace Host::Internal {

namespace {

thread_local UINTN mCurrentCpu;

EFI_STATUS EFIAPI GetProcessorInfo (CONST EFI_SMM_CPU_SERVICE_PROTOCOL *This,
                                    UINTN                               ProcessorNumber,
                                    EFI_PROCESSOR_INFORMATION          *ProcessorInfoBuffer) {
  if ((This == nullptr) || (ProcessorInfoBuffer == nullptr) || (ProcessorNumber >= NumberOfCpus ())) {
    return EFI_INVALID_PARAMETER;
  }

  *ProcessorInfoBuffer             = {};
  ProcessorInfoBuffer->ProcessorId = ApicId (ProcessorNumber);
  ProcessorInfoBuffer->StatusFlag  = PROCESSOR_ENABLED_BIT | PROCESSOR_HEALTH_STATUS_BIT;
  if (ProcessorNumber == 0) {
    ProcessorInfoBuffer->StatusFlag |= PROCESSOR_AS_BSP_BIT;
  }

  ProcessorInfoBuffer->Location = CpuLocation (ProcessorNumber);
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI WhoAmI (CONST EFI_SMM_CPU_SERVICE_PROTOCOL *This, UINTN *ProcessorNumber) {
  if ((This == nullptr) || (ProcessorNumber == nullptr)) {
    return EFI_INVALID_PARAMETER;
  }

  *ProcessorNumber = CurrentCpu ();
  return EFI_SUCCESS;
}

} // namespace

void ResetProcessors () {
  mCurrentCpu = 0;
}

void InstallSmmCpuService () {
  auto *Protocol             = PlatformNew<EFI_SMM_CPU_SERVICE_PROTOCOL> (Smram (), EfiRuntimeServicesData);
  Protocol->GetProcessorInfo = GetProcessorInfo;
  Protocol->WhoAmI           = WhoAmI;

  EFI_HANDLE Handle = nullptr;
  SmmDatabase ().Install (&Handle, &gEfiSmmCpuServiceProtocolGuid, EFI_NATIVE_INTERFACE, Protocol);
}

} // namespace Host::Internal

namespace Host {

UINTN
NumberOfCpus () {
  const Topology &Cpus = Config ().Cpus;
  return UINTN (Cpus.Sockets) * Cpus.CoresPerSocket * Cpus.ThreadsPerCore;
}

UINTN
CurrentCpu () {
  return Internal::mCurrentCpu;
}

void SetCurrentCpu (UINTN CpuIndex) {
  if (CpuIndex >= NumberOfCpus ()) {
    throw std::out_of_range ("no such processor");
  }

  Internal::mCurrentCpu = CpuIndex;
}

EFI_CPU_PHYSICAL_LOCATION
CpuLocation (UINTN CpuIndex) {
  const Topology &Cpus = Config ().Cpus;
  const UINTN     Core = CpuIndex / Cpus.ThreadsPerCore;
  return {static_cast<UINT32> (Core / Cpus.CoresPerSocket), static_cast<UINT32> (Core % Cpus.CoresPerSocket),
          static_cast<UINT32> (CpuIndex % Cpus.ThreadsPerCore)};
}

UINT64
ApicId (UINTN CpuIndex) {
  const EFI_CPU_PHYSICAL_LOCATION Location = CpuLocation (CpuIndex);
  return (UINT64 (Location.Package) << 4) | (UINT64 (Location.Core) << 1) | Location.Thread;
}

} // namespace Host
