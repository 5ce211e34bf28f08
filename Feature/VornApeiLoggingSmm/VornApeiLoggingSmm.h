/** @file
  VornApeiLoggingSmm: the module's private data and the routines of its
  start-up, table access, error-log protocol, ERST store and ERST OS
  interface.
**/
#pragma once

#include <Uefi.h>
#include <Pi/PiSmmCis.h>
#include <Protocol/SmmBase2.h>
#include <Protocol/SmmSwDispatch2.h>
#include <Protocol/VornSmmSpi.h>
#include <Protocol/VornApeiLoggingSmm.h>
#include <VornApeiErst.h>
#include <VornApeiPlatform.h>

//
// HEST structure type of the generic hardware error sources the module fills
// (their source ids are in VornApeiPlatform.h).
//
#define VORN_APEI_GHESS_TYPE 9

//
// The record index of the ERST store (ErstRecordIndex.h).
//
typedef struct _ERST_RECORD_INDEX ERST_RECORD_INDEX;

typedef struct {
  UINT64                      SerDbgLevelConstructor;
  UINT64                      SerDbgLevel;
  UINT64                      SerDbgLevelDetailed;
  UINT32                      RasErrorLoggingMode;
  BOOLEAN                     DebugOutputExtensive;
  EFI_SMM_BASE2_PROTOCOL     *pSmmBase2Protocol;
  EFI_SMM_SYSTEM_TABLE2      *pSmst;
  BOOLEAN                     HestPresent;
  BOOLEAN                     ErstPresent;
  UINT64                      pApeiHestGhessErrStsDataBlkNmi;
  UINT64                      ApeiHestGhessErrStsDataBlkLengthNmi;
  UINT64                      pApeiHestGhessErrStsDataBlkSci;
  UINT64                      ApeiHestGhessErrStsDataBlkLengthSci;
  UINT64                      pApeiHestGhessErrStsDataBlkSciVmwareMemPageRetire;
  UINT64                      ApeiHestGhessErrStsDataBlkLengthSciVmwareMemPageRetire;
  BOOLEAN                     IsApeiOsLoaded;
  BOOLEAN                     ErstUnitTestSeverityOverride;
  VornSmmSpiProtocol         *pVornSmmSpiProtocol;
  VORN_ERST_PARAMETER_REGION *pErstParameterBlock;
  UINT8                      *pErstRecordBlock;
  UINT64                      OsBufferSize;
  ERST_SPI_STORE_INFORMATION *pErstSpiStoreInformation;
  ERST_RECORD_INDEX          *pErstRecordIndex;
} VORN_APEI_LOGGING_PRIVATE_DATA;

extern VORN_APEI_LOGGING_PRIVATE_DATA     mPrivateDataVornApeiLogging;
extern EFI_VORN_APEI_LOGGING_SMM_PROTOCOL mVornApeiLoggingSmmProtocol;

//
// Start-up
//
EFI_STATUS EFIAPI _ModuleEntryPoint (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable);
EFI_STATUS EFIAPI VornApeiLoggingSmmConstructor (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable);

//
// ACPI/APEI table access
//
EFI_STATUS VornApeiLoggingAcpiLocateTable (IN UINT32 Signature, OUT UINT64 *Table);
EFI_STATUS VornApeiLoggingFindHestGhess (IN VOID    *pHestAddress,
                                         IN UINT16   Type,
                                         IN UINT16   SourceId,
                                         IN UINT16   RelatedSourceId,
                                         OUT UINT64 *pGesb,
                                         OUT UINT64 *pGesbLength);

//
// Error-log protocol
//
EFI_STATUS EFIAPI VornApeiLoggingElogIsApeiOsLoaded (OUT BOOLEAN *pIsApeiOsLoaded);
EFI_STATUS EFIAPI VornApeiLoggingElogClear (IN EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *pThis,
                                            IN GENERIC_ERROR_STATUS               *pGesb,
                                            IN UINTN                               GesbLength);
EFI_STATUS EFIAPI VornApeiLoggingElogClearAll (IN EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *pThis);
EFI_STATUS EFIAPI VornApeiLoggingElogRecord (IN EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *pThis,
                                             IN CPER_RECORD                        *pCper,
                                             IN UINT32                              ErrorSeverity);
EFI_STATUS EFIAPI VornApeiLoggingElogRecordMemoryPageRetire (IN EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *pThis,
                                                             IN VOID                               *Reserved,
                                                             IN CHAR8                              *pFruText,
                                                             IN UINT64                              PhysicalAddress,
                                                             IN UINT64                              ErrorStatusCount);
EFI_STATUS EFIAPI VornApeiLoggingElogSignalSci (IN EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *pThis, IN UINT32 SciCause);
EFI_STATUS EFIAPI VornApeiLoggingElogSignalNmi (IN EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *pThis);
EFI_STATUS        VornApeiLoggingElogPopulateGhess (IN EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *pThis,
                                                    IN CPER_RECORD                        *pCper,
                                                    IN GENERIC_ERROR_STATUS               *pGesb,
                                                    IN UINT64                              GesbLength);

//
// APEI enable/disable software SMIs
//
EFI_STATUS EFIAPI VornApeiLoggingSoftSmiEnable (IN EFI_HANDLE                DispatchHandle,
                                                IN CONST VOID *Context       OPTIONAL,
                                                IN OUT VOID *CommBuffer      OPTIONAL,
                                                IN OUT UINTN *CommBufferSize OPTIONAL);
EFI_STATUS EFIAPI VornApeiLoggingSoftSmiDisable (IN EFI_HANDLE                DispatchHandle,
                                                 IN CONST VOID *Context       OPTIONAL,
                                                 IN OUT VOID *CommBuffer      OPTIONAL,
                                                 IN OUT UINTN *CommBufferSize OPTIONAL);

//
// ERST persistent store
//
UINT8      VornApeiLoggingCalculateChecksum (IN UINT8 *pBuffer, IN UINTN Size);
EFI_STATUS VornApeiLoggingGetFvbCountAndBuffer (OUT UINTN *pNumberOfHandles, OUT EFI_HANDLE **ppBuffer);
EFI_STATUS
VornApeiLoggingReadDataViaSpi (IN UINTN DebugLevel, IN UINT64 PhyAddress, IN UINTN NumOfByte, OUT VOID *pBuffer);
EFI_STATUS
VornApeiLoggingWriteDataViaSpi (IN UINTN DebugLevel, IN UINT64 PhyAddress, IN UINTN NumOfByte, IN VOID *pBuffer);
EFI_STATUS VornApeiLoggingEraseDataViaSpi (IN UINTN DebugLevel, IN UINT64 PhyAddress, IN UINTN NumOfByte);
EFI_STATUS VornApeiLoggingGetErstPersistentStoreData (VOID);
VOID       VornApeiLoggingSearchErstPersistentStore (IN UINT64   RecordId,
                                                     IN BOOLEAN  FindNextRecordID,
                                                     IN BOOLEAN  MarkClearedPerOspm,
                                                     OUT UINT64 *pOsRecordPhyAddress,
                                                     OUT UINT64 *pOsRecordFlagsPhyAddress,
                                                     OUT UINT64 *pNextRecordHeaderPhyAddress,
                                                     OUT UINT64 *pPersistentStatus);
VOID       VornApeiLoggingGetFirstOsRecordId (OUT UINT64 *pFirstRecordId);
VOID       VornApeiLoggingGetNextOsRecordId (IN UINT64 RecordHeaderPhyAddress, OUT UINT64 *pNextRecordId);
VOID VornApeiLoggingErstPersistentStoreRead (IN UINT64 RecordBuffer, IN UINT64 RecordId, OUT UINT64 *pPersistentStatus);
VOID VornApeiLoggingErstPersistentStoreWrite (IN UINT64 NewRecord, OUT UINT64 *pPersistentStatus);
VOID VornApeiLoggingErstPersistentStoreClear (IN UINT64 RecordId, OUT UINT64 *pPersistentStatus);
EFI_STATUS VornApeiLoggingErstSetRecordClearPerOspm (IN UINT64 FlagsAddress);
EFI_STATUS VornApeiLoggingErstSetRecordClearPerBios (IN UINT64 FlagsAddress);
EFI_STATUS VornApeiLoggingClearEntirePStore (IN UINTN DebugLevel);
EFI_STATUS VornApeiLoggingErstDefragment (IN UINTN DebugLevel);
EFI_STATUS VornApeiLoggingErstMarkObsoleteRecords (IN UINTN DebugLevel);
VOID       VornApeiLoggingDumpErstMemoryFromFlash (IN UINTN DebugLevel);

//
// ERST OS interface
//
EFI_STATUS VornApeiLoggingUpdateErst (IN EFI_SMM_SW_DISPATCH2_PROTOCOL *pSwDispatch2Protocol, IN VOID *pApeiErstTable);
BOOLEAN    VornApeiLoggingErstOsBufferValid (IN VORN_ERST_PARAMETER_REGION *pRegion, IN UINT64 Command);
EFI_STATUS EFIAPI VornApeiLoggingErstElogSwSmiCallback (IN EFI_HANDLE                DispatchHandle,
                                                        IN CONST VOID *Context       OPTIONAL,
                                                        IN OUT VOID *CommBuffer      OPTIONAL,
                                                        IN OUT UINTN *CommBufferSize OPTIONAL);
