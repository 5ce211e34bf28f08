/** @file
  The processor prefix and the locked serial write shared by messages and
  assertions.
**/
#include "VornMultiThreadedDebugLibInternal.h"

#include <Library/BaseLib.h>
#include <Library/PrintLib.h>
#include <Library/SerialPortLib.h>

/**
  Formats "[SMM] APIC ..." for the calling processor from the table built at
  start-up; empty when there is no table or WhoAmI fails.
**/
VOID VornMtDebugBuildPrefix (OUT CHAR8 *Prefix, IN UINTN PrefixSize) {
  VORN_MT_DEBUG_SHARED_DATA *Shared;
  EFI_PROCESSOR_INFORMATION *Info;
  UINTN                      ProcessorNumber;

  Prefix[0] = 0;
  Shared    = mVornMtDebugSharedData;
  if (Shared == NULL || Shared->ProcessorInfo == NULL || mVornMtDebugSmmCpuService == NULL) {
    return;
  }

  if (EFI_ERROR (mVornMtDebugSmmCpuService->WhoAmI (mVornMtDebugSmmCpuService, &ProcessorNumber)) ||
      ProcessorNumber >= mVornMtDebugSmst->NumberOfCpus) {
    return;
  }

  Info = &Shared->ProcessorInfo[ProcessorNumber];
  AsciiSPrint (Prefix, PrefixSize, "[SMM] APIC 0x%02x S%02d:C%02d:T%02d > ", (UINT32)Info->ProcessorId,
               Info->Location.Package, Info->Location.Core, Info->Location.Thread);
}

/**
  Writes the prefix (if any) and the message under the shared lock, so that
  whole lines of different processors never mix.
**/
VOID VornMtDebugWrite (IN CONST CHAR8 *Prefix, IN CONST CHAR8 *Message) {
  VORN_MT_DEBUG_SHARED_DATA *Shared;

  Shared = mVornMtDebugSharedData;
  if (Shared != NULL) {
    AcquireSpinLock (&Shared->Lock);
  }

  if (Prefix[0] != 0) {
    SerialPortWrite ((UINT8 *)Prefix, AsciiStrLen (Prefix));
  }

  SerialPortWrite ((UINT8 *)Message, AsciiStrLen (Message));

  if (Shared != NULL) {
    ReleaseSpinLock (&Shared->Lock);
  }
}
