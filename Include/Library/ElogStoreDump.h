/** @file
  Debug-log dumps of the ERST store structures, the parameter region and the
  firmware volume headers.
**/
#pragma once

#include <Uefi.h>
#include <Pi/PiFirmwareVolume.h>
#include <VornApeiErst.h>

VOID PrintRawData (IN UINT8 *pData8, IN UINT32 Length, IN UINTN DebugLevel);
VOID PrintErstSpiStoreInformation (IN ERST_SPI_STORE_INFORMATION *pErstSpiStoreInformation, IN UINTN DebugLevel);
VOID PrintErstParameterRegion (IN VORN_ERST_PARAMETER_REGION *pErstParameterBlock, IN UINTN DebugLevel);
VOID DisplayErstStoreHeader (IN ERST_STORE_HEADER *pErstStoreHeader, IN UINTN DebugLevel);
VOID DisplayErstRecordHeader (IN ERST_ERROR_RECORD_HEADER *pErstErrorRecordHeader, IN UINTN DebugLevel);
VOID DisplayErstErrorRecordFlags (IN ERST_ERROR_RECORD_FLAGS *pErstErrorRecordFlagsData, IN UINTN DebugLevel);
VOID DisplayFvHeader (IN EFI_FIRMWARE_VOLUME_HEADER *pFvHeader, IN UINTN DebugLevel);
VOID DisplayFvExtHeader (IN EFI_FIRMWARE_VOLUME_EXT_HEADER *pFvExtHeader, IN UINTN DebugLevel);
