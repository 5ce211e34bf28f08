/** @file
  Driver entry: publishes the error-log volume's block protocol, then the SPI
  protocol (the APEI logging module waits for the latter, so it finds both).
**/
#include "QemuFlashSmm.h"

#include <Library/DebugLib.h>
#include <Library/SmmServicesTableLib.h>

EFI_STATUS
EFIAPI
QemuFlashSmmEntry (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable) {
  EFI_STATUS Status;
  EFI_HANDLE FvbHandle;
  EFI_HANDLE SpiHandle;

  (VOID) ImageHandle;
  (VOID) SystemTable;

  FvbHandle = NULL;
  Status    = gSmst->SmmInstallProtocolInterface (&FvbHandle, &gEfiSmmFirmwareVolumeBlockProtocolGuid,
                                                  EFI_NATIVE_INTERFACE, &mQemuElogFvb);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r installing the error-log volume's block protocol\n", __func__, Status));
    return Status;
  }

  SpiHandle = NULL;
  Status = gSmst->SmmInstallProtocolInterface (&SpiHandle, &gVornSmmSpiProtocolGuid, EFI_NATIVE_INTERFACE, &mQemuSpi);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r installing gVornSmmSpiProtocolGuid\n", __func__, Status));
    gSmst->SmmUninstallProtocolInterface (FvbHandle, &gEfiSmmFirmwareVolumeBlockProtocolGuid, &mQemuElogFvb);
  }

  return Status;
}
