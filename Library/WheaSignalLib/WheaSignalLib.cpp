/** @file
  WHEA signal library start-up and the WHEA signal enable hook.
**/
#include <Library/DebugLib.h>
#include <Library/ElogBaseLib.h>
#include <Library/WheaSignalLib.h>

MODULE_DATA VORN_WHEA_SIGNAL_LIB_PRIVATE_DATA mPrivateDataWheaSignalLib;

/**
  Takes the library's own copy of the debug levels; runs after the error-log
  base library has decided them.
**/
EFI_STATUS
EFIAPI
WheaSignalLibConstructor (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable) {
  (VOID) ImageHandle;
  (VOID) SystemTable;

  VornElogGetSerialDebugLevels (&mPrivateDataWheaSignalLib.SerDbgLevelConstructor,
                                &mPrivateDataWheaSignalLib.SerDbgLevel, &mPrivateDataWheaSignalLib.SerDbgLevelDetailed);
  return EFI_SUCCESS;
}

/**
  Hook for enabling or disabling the WHEA signals when the OS takes over or
  gives up APEI. The FCH needs no set-up on this platform, so it only logs.
**/
EFI_STATUS
VornProgramWheaSignals (IN EFI_SMM_BASE2_PROTOCOL *pSmmBase2Protocol,
                        IN EFI_SMM_SYSTEM_TABLE2  *pSmst,
                        IN BOOLEAN                 EnableWhea) {
  (VOID) pSmmBase2Protocol;
  (VOID) pSmst;

  DEBUG ((mPrivateDataWheaSignalLib.SerDbgLevel, "%a: EnableWhea = %d\n", __func__, EnableWhea));
  return EFI_SUCCESS;
}
