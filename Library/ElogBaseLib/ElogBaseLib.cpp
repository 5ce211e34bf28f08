/** @file
  Error-log base library start-up: debug levels, manufacturing mode and the
  RAS logging modes derived from them.
**/
#include <Library/ElogBaseLib.h>

#include <Library/DebugLib.h>
#include <Library/UefiBootServicesTableLib.h>
#include <Protocol/SmmBase2.h>
#include <Protocol/VornManufacturingMode.h>

#define MFG_MODE_DISABLED    0
#define MFG_MODE_ENABLED     1
#define MFG_MODE_FVS_ENABLED 2

MODULE_DATA VORN_ELOG_BASE_PRIVATE_DATA mPrivateDataVornElogBase;

/**
  Library constructor. Fails only when the SMM base protocol cannot tell
  whether the module runs in SMM; every other missing setting falls back to
  production behaviour.
**/
EFI_STATUS
EFIAPI
VornElogBaseLibConstructor ([[maybe_unused]] IN EFI_HANDLE        ImageHandle,
                            [[maybe_unused]] IN EFI_SYSTEM_TABLE *SystemTable) {
  EFI_STATUS                        Status;
  EFI_SMM_BASE2_PROTOCOL           *pSmmBase2Protocol;
  BOOLEAN                           InSmm;
  UINT64                            Level;
  VORN_MANUFACTURING_MODE_PROTOCOL *pMfgModeProtocol;

  pSmmBase2Protocol = NULL;
  Status            = gBS->LocateProtocol (&gEfiSmmBase2ProtocolGuid, NULL, (VOID **)&pSmmBase2Protocol);
  if (EFI_ERROR (Status) || (pSmmBase2Protocol == NULL)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r locating protocol gEfiSmmBase2ProtocolGuid, aborting...\n", __func__, Status));
    return EFI_NOT_FOUND;
  }

  InSmm  = FALSE;
  Status = pSmmBase2Protocol->InSmm (pSmmBase2Protocol, &InSmm);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r from InSmm, aborting...\n", __func__, Status));
    return EFI_NOT_FOUND;
  }

  //
  // Every level is the info level, inside SMM or not, so that all start-up,
  // run-time and dump messages show whenever info output is on.
  //
  mPrivateDataVornElogBase.SerDbgLevelConstructor = DEBUG_INFO;
  mPrivateDataVornElogBase.SerDbgLevel            = DEBUG_INFO;
  mPrivateDataVornElogBase.SerDbgLevelDetailed    = DEBUG_INFO;
  Level                                           = mPrivateDataVornElogBase.SerDbgLevelConstructor;

  DEBUG ((Level, "%a: InSmm %d SerDbgLevelConstructor 0x%016lx\n", __func__, InSmm,
          mPrivateDataVornElogBase.SerDbgLevelConstructor));
  DEBUG (
      (Level, "%a: InSmm %d SerDbgLevel            0x%016lx\n", __func__, InSmm, mPrivateDataVornElogBase.SerDbgLevel));
  DEBUG ((Level, "%a: InSmm %d SerDbgLevelDetailed    0x%016lx\n", __func__, InSmm,
          mPrivateDataVornElogBase.SerDbgLevelDetailed));

  if (DebugCodeEnabled ()) {
    VornElogDisplayPciSegmentInfo (Level);
  }

  mPrivateDataVornElogBase.MemEccLoggingMode = VornElogGetRasMemEccLoggingMode ();
  DEBUG ((Level, "%a: MemEccLoggingMode %d (threshold=%d, diagnostic=%d)\n", __func__,
          mPrivateDataVornElogBase.MemEccLoggingMode, RasMemEccThresholdMode, RasMemEccDiagnosticMode));

  mPrivateDataVornElogBase.MfgModeType = MFG_MODE_DISABLED;
  DEBUG ((Level, "%a: Locating protocol gVornManufacturingModeProtocolGuid\n", __func__));
  pMfgModeProtocol = NULL;
  Status           = gBS->LocateProtocol (&gVornManufacturingModeProtocolGuid, NULL, (VOID **)&pMfgModeProtocol);
  if (EFI_ERROR (Status) || (pMfgModeProtocol == NULL)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r locating protocol gVornManufacturingModeProtocolGuid\n", __func__, Status));
  } else {
    mPrivateDataVornElogBase.MfgModeType = pMfgModeProtocol->GetManufacturingMode (pMfgModeProtocol);
    switch (mPrivateDataVornElogBase.MfgModeType) {
      case MFG_MODE_DISABLED:
        DEBUG ((Level, "%a: Manufacturing mode disabled\n", __func__));
        break;
      case MFG_MODE_ENABLED:
        DEBUG ((Level, "%a: Manufacturing mode enabled\n", __func__));
        mPrivateDataVornElogBase.ManufacturingDiagsEnabled = TRUE;
        break;
      case MFG_MODE_FVS_ENABLED:
        DEBUG ((Level, "%a: Manufacturing mode (FVS mode) enabled\n", __func__));
        mPrivateDataVornElogBase.ManufacturingDiagsEnabled = TRUE;
        break;
      default:
        DEBUG ((DEBUG_ERROR, "%a: ERROR MfgModeType %d unrecognized, default to mfg mode disabled\n", __func__,
                mPrivateDataVornElogBase.MfgModeType));
        break;
    }
  }

  DEBUG ((Level, "%a: ManufacturingDiagsEnabled %d\n", __func__, mPrivateDataVornElogBase.ManufacturingDiagsEnabled));
  return EFI_SUCCESS;
}

/**
  Copies the library's three debug levels out; writes nothing when any
  pointer is NULL.
**/
VOID VornElogGetSerialDebugLevels (OUT UINT64 *pSerDbgLevelConstructor,
                                   OUT UINT64 *pSerDbgLevel,
                                   OUT UINT64 *pSerDbgLevelDetailed) {
  if ((pSerDbgLevelConstructor == NULL) || (pSerDbgLevel == NULL) || (pSerDbgLevelDetailed == NULL)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n", __func__));
    return;
  }

  *pSerDbgLevelConstructor = mPrivateDataVornElogBase.SerDbgLevelConstructor;
  *pSerDbgLevel            = mPrivateDataVornElogBase.SerDbgLevel;
  *pSerDbgLevelDetailed    = mPrivateDataVornElogBase.SerDbgLevelDetailed;
}

/**
  RAS error logging mode: diagnostic when manufacturing diagnostics are on or
  when the memory correctable-error threshold is switched off; production
  otherwise.
**/
UINT32
VornGetRasErrorLoggingMode (IN UINTN DebugLevel) {
  UINT32 Mode;

  Mode = RasProductionMode;
  DEBUG ((DebugLevel, "%a: mPrivateDataVornElogBase ManufacturingDiagsEnabled %d MfgModeType %d\n", __func__,
          mPrivateDataVornElogBase.ManufacturingDiagsEnabled, mPrivateDataVornElogBase.MfgModeType));
  if (mPrivateDataVornElogBase.ManufacturingDiagsEnabled) {
    DEBUG ((DebugLevel, "%a: Manufacturing mode detected, forcing RAS to RasDiagnosticMode\n", __func__));
    Mode = RasDiagnosticMode;
  }

  DEBUG (
      (DebugLevel,
       "%a: mPrivateDataVornElogBase.MemEccLoggingMode %d (RasMemEccThresholdMode = %d RasMemEccDiagnosticMode = %d)\n",
       __func__, mPrivateDataVornElogBase.MemEccLoggingMode, RasMemEccThresholdMode, RasMemEccDiagnosticMode));
  if (mPrivateDataVornElogBase.MemEccLoggingMode == RasMemEccDiagnosticMode) {
    DEBUG ((DebugLevel, "%a: Memory CECC diagnostic mode detected, forcing RAS to RasDiagnosticMode\n", __func__));
    Mode = RasDiagnosticMode;
  }

  DEBUG ((DebugLevel, "%a: Exiting => ErrorLoggingMode %d (RasProductionMode = %d RasDiagnosticMode = %d)\n", __func__,
          Mode, RasProductionMode, RasDiagnosticMode));
  return Mode;
}
