/** @file
  The SMST of the running SMM module, found through EFI_SMM_BASE2_PROTOCOL.
**/
#include <Library/SmmServicesTableLib.h>
#include <Protocol/SmmBase2.h>

EFI_SMM_SYSTEM_TABLE2 *gSmst;

/**
  Locates EFI_SMM_BASE2_PROTOCOL and asks it for the SMST.
**/
EFI_STATUS
SmmServicesTableLibConstructor (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable) {
  EFI_STATUS              Status;
  EFI_SMM_BASE2_PROTOCOL *SmmBase2;

  (VOID) ImageHandle;
  SmmBase2 = NULL;
  Status   = SystemTable->BootServices->LocateProtocol (&gEfiSmmBase2ProtocolGuid, NULL, (VOID **)&SmmBase2);
  if (EFI_ERROR (Status)) {
    return Status;
  }

  return SmmBase2->GetSmstLocation (SmmBase2, &gSmst);
}

/**
  An SMM module only runs in SMM.
**/
BOOLEAN
InSmm (VOID) {
  return TRUE;
}
