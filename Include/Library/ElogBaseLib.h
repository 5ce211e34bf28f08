/** @file
  Error-log base library: debug levels, RAS logging modes, UUID text and the
  CXL component event identifiers, plus the diagnostic record dumps.
**/
#pragma once

#include <Uefi.h>
#include <Pi/PiFirmwareVolume.h>
#include <Protocol/VornApeiLoggingSmm.h>
#include <VornApeiErst.h>

#define RasProductionMode       0
#define RasDiagnosticMode       1
#define RasMemEccThresholdMode  0
#define RasMemEccDiagnosticMode 1

typedef struct {
  UINT64  SerDbgLevelConstructor;
  UINT64  SerDbgLevel;
  UINT64  SerDbgLevelDetailed;
  UINT32  MfgModeType;
  BOOLEAN ManufacturingDiagsEnabled;
  UINT32  MemEccLoggingMode;
} VORN_ELOG_BASE_PRIVATE_DATA;

extern VORN_ELOG_BASE_PRIVATE_DATA mPrivateDataVornElogBase;

extern "C" EFI_STATUS EFIAPI VornElogBaseLibConstructor (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable);

VOID   VornElogGetSerialDebugLevels (OUT UINT64 *pSerDbgLevelConstructor,
                                     OUT UINT64 *pSerDbgLevel,
                                     OUT UINT64 *pSerDbgLevelDetailed);
UINT32 VornGetRasErrorLoggingMode (IN UINTN DebugLevel);
UINT32 VornElogGetRasMemEccLoggingMode (VOID);
VOID   VornElogDisplayPciSegmentInfo (IN UINTN DebugLevel);
VOID   VornElogConvertUuidToAsciiString (IN UINT8 *pUuid, OUT CHAR8 *pBuffer);

//
// CXL component event record identifiers, compared as raw big-endian bytes.
//
EFI_STATUS VornElogCxlConvertComponentEventRecordIdentiferUuidToString (IN UINT8  *pEventRecordIdentifierUuid,
                                                                        OUT CHAR8 *pBuffer,
                                                                        IN UINTN   BufferSize);
BOOLEAN    VornElogCxlCheckComponentEventSectionType (IN UINTN DebugLevel, IN UINT8 *pUuid);
VOID       VornElogCxlSectionTypeToIdentifier (IN CONST UINT8 *pSectionType, OUT UINT8 *pIdentifier);
