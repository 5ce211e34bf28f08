/** @file
  The multi-processor debug log sink: its shared record and constructor.
**/
#pragma once

#include <Uefi.h>
#include <Library/SynchronizationLib.h>
#include <Protocol/MpService.h>

extern EFI_GUID gVornMtDebugSharedDataGuid;

//
// One per SMM environment, found by every module through its GUID.
//
typedef struct {
  SPIN_LOCK                  Lock;
  EFI_PROCESSOR_INFORMATION *ProcessorInfo;
} VORN_MT_DEBUG_SHARED_DATA;

static_assert (sizeof (VORN_MT_DEBUG_SHARED_DATA) == 16, "shared sink record size");

extern "C" EFI_STATUS EFIAPI VornMultiThreadedDebugLibConstructor (IN EFI_HANDLE        ImageHandle,
                                                                   IN EFI_SYSTEM_TABLE *SystemTable);
