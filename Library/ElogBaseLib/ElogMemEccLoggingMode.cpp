/** @file
  Memory ECC logging mode from the "CorErrLoggingThreshold" NVRAM attribute.
**/
#include <Library/ElogBaseLib.h>

#include <Library/BaseLib.h>
#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/MemoryAllocationLib.h>
#include <Library/SmmServicesTableLib.h>
#include <Protocol/VornAttributeStorage.h>

//
// UTF-16 literals; the cast is for firmware builds, where CHAR16 is a plain
// 16-bit integer type.
//
#define INTERNAL_CORERR_THRESHOLD_ATTR_NAME ((CONST CHAR16 *)u"CorErrLoggingThreshold")
#define CORERR_THRESHOLD_DISABLED_VALUE     ((CONST CHAR16 *)u"Disabled")

//
// Most attribute values fit; longer ones cost one more read.
//
#define NVRAM_ATTRIBUTE_FIRST_BUFFER_SIZE 32

/**
  Reads the attribute Name of the RAS namespace into a new NUL-terminated
  UTF-16 string in *pValue, which the caller frees.
**/
static EFI_STATUS VornElogGetNvramAttribute (IN CONST CHAR16 *Name, OUT CHAR16 **pValue) {
  EFI_STATUS                           Status;
  VORN_SMM_ATTRIBUTE_STORAGE_PROTOCOL *pAttributeStorage;
  UINTN                                DataSize;
  UINT8                               *pData;
  UINT8                               *pCopy;

  if ((Name == NULL) || (pValue == NULL)) {
    return EFI_INVALID_PARAMETER;
  }

  *pValue  = NULL;
  DataSize = NVRAM_ATTRIBUTE_FIRST_BUFFER_SIZE;
  pData    = (UINT8 *)AllocatePool (DataSize);
  if (pData == NULL) {
    return EFI_OUT_OF_RESOURCES;
  }

  pAttributeStorage = NULL;
  Status = gSmst->SmmLocateProtocol (&gVornSmmAttributeStorageProtocolGuid, NULL, (VOID **)&pAttributeStorage);
  if (!EFI_ERROR (Status)) {
    Status = pAttributeStorage->GetAttribute (pAttributeStorage, &gVornRasAttributeNamespaceGuid, Name, NULL, &DataSize,
                                              pData);
    if (Status == EFI_BUFFER_TOO_SMALL) {
      FreePool (pData);
      pData = (UINT8 *)AllocatePool (DataSize);
      if (pData == NULL) {
        return EFI_OUT_OF_RESOURCES;
      }

      Status = pAttributeStorage->GetAttribute (pAttributeStorage, &gVornRasAttributeNamespaceGuid, Name, NULL,
                                                &DataSize, pData);
    }
  }

  if (EFI_ERROR (Status)) {
    FreePool (pData);
    return Status;
  }

  //
  // The stored value need not carry its own terminator.
  //
  pCopy = (UINT8 *)AllocatePool (DataSize + sizeof (CHAR16));
  if (pCopy == NULL) {
    FreePool (pData);
    return EFI_OUT_OF_RESOURCES;
  }

  CopyMem (pCopy, pData, DataSize);
  pCopy[DataSize]     = 0;
  pCopy[DataSize + 1] = 0;
  FreePool (pData);

  *pValue = (CHAR16 *)pCopy;
  return EFI_SUCCESS;
}

/**
  Memory ECC logging mode: diagnostic when the correctable-error threshold is
  set to exactly "Disabled", threshold mode otherwise, also when the
  attribute cannot be read.
**/
UINT32
VornElogGetRasMemEccLoggingMode (VOID) {
  EFI_STATUS Status;
  UINT64     Level;
  UINT32     Mode;
  CHAR16    *pValue;

  Level = mPrivateDataVornElogBase.SerDbgLevelConstructor;
  Mode  = RasMemEccThresholdMode;
  DEBUG ((Level, "%a: Retrieving NVRAM attribute value for INTERNAL_CORERR_THRESHOLD_ATTR_NAME '%s'\n", __func__,
          INTERNAL_CORERR_THRESHOLD_ATTR_NAME));

  pValue = NULL;
  Status = VornElogGetNvramAttribute (INTERNAL_CORERR_THRESHOLD_ATTR_NAME, &pValue);
  if (EFI_ERROR (Status) || (pValue == NULL)) {
    DEBUG ((
        DEBUG_ERROR,
        "%a: ERROR %r retrieving NVRAM attribute value for INTERNAL_CORERR_THRESHOLD_ATTR_NAME 's', default to RasMemEccThresholdMode\n",
        __func__, Status));
    return Mode;
  }

  DEBUG ((Level, "%a: NVRAM '%s' = '%s'\n", __func__, INTERNAL_CORERR_THRESHOLD_ATTR_NAME, pValue));
  if (StrCmp (pValue, CORERR_THRESHOLD_DISABLED_VALUE) == 0) {
    DEBUG ((Level, "%a: Threshold mode disabled, setting RasMemEccDiagnosticMode\n", __func__));
    Mode = RasMemEccDiagnosticMode;
  } else {
    DEBUG ((Level, "%a: Threshold mode enabled, setting RasMemEccThresholdMode\n", __func__));
  }

  FreePool (pValue);
  DEBUG ((Level, "%a: Exiting => RasMemEccLoggingMode %d (RasMemEccThresholdMode=%d, RasMemEccDiagnosticMode=%d)\n",
          __func__, Mode, RasMemEccThresholdMode, RasMemEccDiagnosticMode));
  return Mode;
}
