/** @file
  The ERST store's access to the platform: the firmware volume block handles
  and SPI flash read, program and erase through VornSmmSpiProtocol.
**/
#include <Library/DebugLib.h>
#include <Library/SmmServicesTableLib.h>
#include <Protocol/SmmFirmwareVolumeBlock.h>

#include "VornApeiLoggingSmm.h"
#include "ErstRecordIndex.h"

/**
  Locates the SPI protocol into the private data. Lines carry the name of
  the flash routine on whose behalf it runs.
**/
static EFI_STATUS VornApeiLoggingLocateSpiProtocolNow (IN CONST CHAR8 *pCaller, IN UINTN DebugLevel) {
  EFI_STATUS Status;

  DEBUG ((DebugLevel, "%a: Locating protocol gVornSmmSpiProtocolGuid %g\n", pCaller, &gVornSmmSpiProtocolGuid));
  Status = gSmst->SmmLocateProtocol (&gVornSmmSpiProtocolGuid, NULL,
                                     (VOID **)&mPrivateDataVornApeiLogging.pVornSmmSpiProtocol);
  if (EFI_ERROR (Status)) {
    //
    // Leave the cache empty so that the next access tries again.
    //
    mPrivateDataVornApeiLogging.pVornSmmSpiProtocol = NULL;
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r locating protocol gVornSmmSpiProtocolGuid %g, aborting...\n", pCaller, Status,
            &gVornSmmSpiProtocolGuid));
  }

  return Status;
}

/**
  The SPI protocol is located once; every flash access after that only
  tests the cache, so the test stays in line.
**/
static EFI_STATUS VornApeiLoggingLocateSpiProtocol (IN CONST CHAR8 *pCaller, IN UINTN DebugLevel) {
  if (mPrivateDataVornApeiLogging.pVornSmmSpiProtocol != NULL) {
    return EFI_SUCCESS;
  }

  return VornApeiLoggingLocateSpiProtocolNow (pCaller, DebugLevel);
}

/**
  Reads or programs NumOfByte bytes at PhyAddress; the two directions differ
  only in the protocol member and the words they log.
**/
static EFI_STATUS VornApeiLoggingTransferViaSpi (IN CONST CHAR8 *pCaller,
                                                 IN BOOLEAN      IsWrite,
                                                 IN UINTN        DebugLevel,
                                                 IN UINT64       PhyAddress,
                                                 IN UINTN        NumOfByte,
                                                 IN VOID        *pBuffer) {
  EFI_STATUS          Status;
  VornSmmSpiProtocol *pSpi;

  if ((NumOfByte == 0) || (pBuffer == NULL)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR NumOfByte is zero or pBuffer is NULL, aborting...\n", pCaller));
    return EFI_INVALID_PARAMETER;
  }

  Status = VornApeiLoggingLocateSpiProtocol (pCaller, DebugLevel);
  if (EFI_ERROR (Status)) {
    return Status;
  }

  pSpi = mPrivateDataVornApeiLogging.pVornSmmSpiProtocol;
  if (IsWrite) {
    DEBUG ((DebugLevel, "%a: Writing SPI flash @ PhyAddress 0x%016lx NumBytes 0x%016lx from pBuffer 0x%016lx\n",
            pCaller, PhyAddress, (UINT64)NumOfByte, (UINT64)(UINTN)pBuffer));
    Status = pSpi->Write (pSpi, PhyAddress, (UINT32)NumOfByte, (UINT8 *)pBuffer);
    if (EFI_ERROR (Status)) {
      DEBUG ((DEBUG_ERROR, "%a: ERROR %r issuing VornSmmSpiProtocol->Write command, aborting...\n", pCaller, Status));
    }
  } else {
    DEBUG ((DebugLevel, "%a: Reading SPI flash @ PhyAddress 0x%016lx NumBytes 0x%016lx to pBuffer 0x%016lx\n", pCaller,
            PhyAddress, (UINT64)NumOfByte, (UINT64)(UINTN)pBuffer));
    Status = pSpi->Read (pSpi, PhyAddress, (UINT32)NumOfByte, (UINT8 *)pBuffer);
    if (EFI_ERROR (Status)) {
      DEBUG ((DEBUG_ERROR, "%a: ERROR %r issuing VornSmmSpiProtocol->Read command, aborting...\n", pCaller, Status));
    }
  }

  return Status;
}

/**
  Returns the count and a pool-allocated list of all SMM handles that carry
  the firmware volume block protocol. The list belongs to the caller.
**/
EFI_STATUS
VornApeiLoggingGetFvbCountAndBuffer (OUT UINTN *pNumberOfHandles, OUT EFI_HANDLE **ppBuffer) {
  EFI_STATUS Status;
  UINTN      BufferSize;

  if ((pNumberOfHandles == NULL) || (ppBuffer == NULL)) {
    DEBUG ((DEBUG_ERROR, "%a: One or more input parameters are NULL, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: Entering\n", __func__));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor,
          "%a: Calling SmmLocateHandle for gEfiSmmFirmwareVolumeBlockProtocolGuid %g\n", __func__,
          &gEfiSmmFirmwareVolumeBlockProtocolGuid));

  *pNumberOfHandles = 0;
  *ppBuffer         = NULL;
  BufferSize        = 0;
  Status = gSmst->SmmLocateHandle (ByProtocol, &gEfiSmmFirmwareVolumeBlockProtocolGuid, NULL, &BufferSize, *ppBuffer);
  if (Status != EFI_BUFFER_TOO_SMALL) {
    DEBUG (
        (DEBUG_ERROR,
         "%a: ERROR %r from SmmLocateHandle for gEfiSmmFirmwareVolumeBlockProtocolGuid %g (first call), aborting...\n",
         __func__, Status, &gEfiSmmFirmwareVolumeBlockProtocolGuid));
    return EFI_NOT_FOUND;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor,
          "%a: Allocating EfiRuntimeServicesData memory to ppBuffer length 0x%016lx bytes\n", __func__,
          (UINT64)BufferSize));
  Status = gSmst->SmmAllocatePool (EfiRuntimeServicesData, BufferSize, (VOID **)ppBuffer);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR,
            "%a: ERROR %r from SmmAllocatePool EfiRuntimeServicesData to ppBuffer length 0x%016lx bytes, aborting...\n",
            __func__, Status, (UINT64)BufferSize));
    return Status;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor,
          "%a: Successfully allocated EfiRuntimeServicesData @ 0x%016lx length 0x%016lx bytes\n", __func__,
          (UINT64)(UINTN)*ppBuffer, (UINT64)BufferSize));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor,
          "%a: Calling SmmLocateHandle for gEfiSmmFirmwareVolumeBlockProtocolGuid %g\n", __func__,
          &gEfiSmmFirmwareVolumeBlockProtocolGuid));
  Status = gSmst->SmmLocateHandle (ByProtocol, &gEfiSmmFirmwareVolumeBlockProtocolGuid, NULL, &BufferSize, *ppBuffer);
  if (!EFI_ERROR (Status)) {
    *pNumberOfHandles = BufferSize / sizeof (EFI_HANDLE);
  } else {
    //
    // The list stays with the caller, as on success.
    //
    DEBUG (
        (DEBUG_ERROR,
         "%a: ERROR %r from SmmLocateHandle for gEfiSmmFirmwareVolumeBlockProtocolGuid %g (second call), aborting...\n",
         __func__, Status, &gEfiSmmFirmwareVolumeBlockProtocolGuid));
    *pNumberOfHandles = 0;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor, "%a: On exit *pNumberOfHandles %d\n", __func__,
          (UINT32)*pNumberOfHandles));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelConstructor, "%a: On exit *ppBuffer 0x%016lx\n", __func__,
          (UINT64)(UINTN)*ppBuffer));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: Exiting with status %r\n", __func__, Status));
  return Status;
}

/**
  Reads NumOfByte bytes of SPI flash at PhyAddress into pBuffer.
**/
EFI_STATUS
VornApeiLoggingReadDataViaSpi (IN UINTN DebugLevel, IN UINT64 PhyAddress, IN UINTN NumOfByte, OUT VOID *pBuffer) {
  return VornApeiLoggingTransferViaSpi (__func__, FALSE, DebugLevel, PhyAddress, NumOfByte, pBuffer);
}

/**
  Programs NumOfByte bytes of pBuffer into SPI flash at PhyAddress.
**/
EFI_STATUS
VornApeiLoggingWriteDataViaSpi (IN UINTN DebugLevel, IN UINT64 PhyAddress, IN UINTN NumOfByte, IN VOID *pBuffer) {
  return VornApeiLoggingTransferViaSpi (__func__, TRUE, DebugLevel, PhyAddress, NumOfByte, pBuffer);
}

/**
  Erases NumOfByte bytes of SPI flash at PhyAddress; both must be whole
  blocks of the error-log volume.
**/
EFI_STATUS
VornApeiLoggingEraseDataViaSpi (IN UINTN DebugLevel, IN UINT64 PhyAddress, IN UINTN NumOfByte) {
  EFI_STATUS          Status;
  UINT64              BlockSize;
  VornSmmSpiProtocol *pSpi;

  if (NumOfByte == 0) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR NumOfByte is zero, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  BlockSize = mPrivateDataVornApeiLogging.pErstSpiStoreInformation->LengthErstBlockSize;
  if ((PhyAddress & (BlockSize - 1)) != 0) {
    DEBUG ((DEBUG_ERROR,
            "%a: ERROR PhyAddress 0x%016lx is not aligned to SPI block/sector size 0x%016lx, aborting...\n", __func__,
            PhyAddress, BlockSize));
    return EFI_INVALID_PARAMETER;
  }

  if ((NumOfByte % BlockSize) != 0) {
    DEBUG ((DEBUG_ERROR,
            "%a: ERROR NumOfByte 0x%016lx is not an even multiple of SPI block/sector size 0x%016lx, aborting...\n",
            __func__, (UINT64)NumOfByte, BlockSize));
    return EFI_INVALID_PARAMETER;
  }

  Status = VornApeiLoggingLocateSpiProtocol (__func__, DebugLevel);
  if (EFI_ERROR (Status)) {
    return Status;
  }

  pSpi = mPrivateDataVornApeiLogging.pVornSmmSpiProtocol;
  DEBUG ((DebugLevel, "%a: Erasing SPI flash @ PhyAddress 0x%016lx NumBytes 0x%016lx\n", __func__, PhyAddress,
          (UINT64)NumOfByte));
  VornApeiLoggingErstIndexDrop ();
  Status = pSpi->Erase (pSpi, PhyAddress, (UINT32)NumOfByte);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r issuing VornSmmSpiProtocol->Erase command, aborting...\n", __func__, Status));
  }

  return Status;
}
