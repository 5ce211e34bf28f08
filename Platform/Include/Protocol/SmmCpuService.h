/** @file
  EFI_SMM_CPU_SERVICE_PROTOCOL: processor identity inside SMM.
**/
#pragma once

#include <Protocol/MpService.h>

extern EFI_GUID gEfiSmmCpuServiceProtocolGuid;

typedef struct _EFI_SMM_CPU_SERVICE_PROTOCOL EFI_SMM_CPU_SERVICE_PROTOCOL;

typedef EFI_STATUS (EFIAPI *EFI_SMM_GET_PROCESSOR_INFO) (IN CONST EFI_SMM_CPU_SERVICE_PROTOCOL *This,
                                                         IN UINTN                               ProcessorNumber,
                                                         OUT EFI_PROCESSOR_INFORMATION         *ProcessorInfoBuffer);
typedef EFI_STATUS (EFIAPI *EFI_SMM_WHOAMI) (IN CONST EFI_SMM_CPU_SERVICE_PROTOCOL *This, OUT UINTN *ProcessorNumber);

struct _EFI_SMM_CPU_SERVICE_PROTOCOL {
  EFI_SMM_GET_PROCESSOR_INFO GetProcessorInfo;
  VOID                      *SwitchBsp;
  VOID                      *AddProcessor;
  VOID                      *RemoveProcessor;
  EFI_SMM_WHOAMI             WhoAmI;
  VOID                      *RegisterExceptionHandler;
};

static_assert (sizeof (EFI_SMM_CPU_SERVICE_PROTOCOL) == 48, "SMM CPU service size");
static_assert (offsetof (EFI_SMM_CPU_SERVICE_PROTOCOL, WhoAmI) == 32, "WhoAmI slot");
