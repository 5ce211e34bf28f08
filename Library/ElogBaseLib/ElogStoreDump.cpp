/** @file
  Debug-log dumps of the ERST store structures, the parameter region and the
  firmware volume headers.
**/
#include <Library/BaseLib.h>
#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/ElogStoreDump.h>

//
// One dump line: address, 16 cells of three characters, terminator.
//
#define RAW_DATA_LINE_LENGTH 200

/**
  TRUE when lines at DebugLevel print. Every line of these dumps is at the
  caller's level, so a dump at a filtered level ends after its NULL check.
**/
STATIC BOOLEAN StoreDumpLevelEnabled (IN UINTN DebugLevel) {
  return (BOOLEAN)(DebugPrintEnabled () && DebugPrintLevelEnabled (DebugLevel));
}

/**
  Writes Value as Digits upper-case hex digits, as "%0*x" prints it.
**/
STATIC VOID PrintRawDataHex (OUT CHAR8 *pText, IN UINT64 Value, IN UINTN Digits) {
  STATIC CONST CHAR8 HexDigits[] = "0123456789ABCDEF";

  while (Digits > 0) {
    Digits--;
    pText[Digits] = HexDigits[Value & 0xF];
    Value >>= 4;
  }
}

/**
  Hex dump of Length bytes at pData8 in whole 16-byte lines; cells of the
  first and last line that lie outside the buffer show as "--". The lines
  are built digit by digit ("0x%016lx: " then "%02x " cells) and only when
  the level prints.
**/
VOID PrintRawData (IN UINT8 *pData8, IN UINT32 Length, IN UINTN DebugLevel) {
  CHAR8 Line[RAW_DATA_LINE_LENGTH];
  UINTN First;
  UINTN Last;
  UINTN Address;
  UINTN Used;

  if (pData8 == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pData8 is NULL, aborting...\n", __func__));
    return;
  }

  if (!StoreDumpLevelEnabled (DebugLevel)) {
    return;
  }

  First = (UINTN)pData8;
  Last  = First + Length - 1;
  Used  = 0;
  DEBUG ((DebugLevel, "Starting Address    00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F\n"));
  for (Address = First & ~(UINTN)0xF; Address <= ((Last & ~(UINTN)0xF) + 0xF); Address++) {
    if ((Address & 0xF) == 0) {
      Line[0] = '0';
      Line[1] = 'x';
      PrintRawDataHex (&Line[2], Address, 16);
      Line[18] = ':';
      Line[19] = ' ';
      Used     = 20;
    }

    if ((Address >= First) && (Address <= Last)) {
      PrintRawDataHex (&Line[Used], *(UINT8 *)Address, 2);
    } else {
      Line[Used]     = '-';
      Line[Used + 1] = '-';
    }

    Line[Used + 2] = ' ';
    Used += 3;

    if ((Address & 0xF) == 0xF) {
      Line[Used] = 0;
      DEBUG ((DebugLevel, "%a\n", Line));
    }
  }
}

/**
  Prints the in-memory summary of the ERST store.
**/
VOID PrintErstSpiStoreInformation (IN ERST_SPI_STORE_INFORMATION *pErstSpiStoreInformation, IN UINTN DebugLevel) {
  ERST_SPI_STORE_INFORMATION *p;

  if (pErstSpiStoreInformation == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pErstSpiStoreInformation is NULL, aborting...\n", __func__));
    return;
  }

  if (!StoreDumpLevelEnabled (DebugLevel)) {
    return;
  }

  p = pErstSpiStoreInformation;
  DEBUG ((DebugLevel, "%a: ClearEntireStoreRegion                                  %d\n", __func__,
          (UINT32)p->ClearEntireStoreRegion));
  DEBUG ((DebugLevel, "%a: SpiAddressFvBlockHeader                               @ 0x%016lx\n", __func__,
          p->SpiAddressFvBlockHeader));
  DEBUG ((DebugLevel, "%a: SpiAddressFvBlockExtHeader                            @ 0x%016lx\n", __func__,
          p->SpiAddressFvBlockExtHeader));
  DEBUG ((DebugLevel, "%a: LengthTotalFv                                           0x%016lx\n", __func__,
          p->LengthTotalFv));
  DEBUG ((DebugLevel, "%a: LengthErstBlockSize                                     0x%016lx\n", __func__,
          p->LengthErstBlockSize));
  DEBUG ((DebugLevel, "%a: SpiAddressStartErstStoreHeader                        @ 0x%016lx\n", __func__,
          p->SpiAddressStartErstStoreHeader));
  DEBUG ((DebugLevel, "%a: LengthErstStoreRegion                                   0x%016lx\n", __func__,
          p->LengthErstStoreRegion));
  DEBUG ((DebugLevel, "%a: SpiAddressStartErstErrorRecordRegion                  @ 0x%016lx\n", __func__,
          p->SpiAddressStartErstErrorRecordRegion));
  DEBUG ((DebugLevel, "%a: LengthErstStoreRegionErrorRecordArea                    0x%016lx\n", __func__,
          p->LengthErstStoreRegionErrorRecordArea));
  DEBUG ((DebugLevel, "%a: SpiAddressLastValidRecord                             @ 0x%016lx\n", __func__,
          p->SpiAddressLastValidRecord));
  DEBUG ((DebugLevel, "%a: SpiAddressStartAvailableStorage                       @ 0x%016lx\n", __func__,
          p->SpiAddressStartAvailableStorage));
  DEBUG ((DebugLevel, "%a: LengthErstStoreRegionErrorRecordAreaAvailable           0x%016lx\n", __func__,
          p->LengthErstStoreRegionErrorRecordAreaAvailable));
  DEBUG ((DebugLevel, "%a: TotalNumberOfErstRecordsWithClearFlagOspm               0x%08x\n", __func__,
          p->TotalNumberOfErstRecordsWithClearFlagOspm));
  DEBUG ((DebugLevel, "%a: TotalNumberOfErstRecordsWithClearFlagBios               0x%08x\n", __func__,
          p->TotalNumberOfErstRecordsWithClearFlagBios));
  DEBUG ((DebugLevel, "%a: TotalNumberOfErstRecords                                0x%08x\n", __func__,
          p->TotalNumberOfErstRecords));
}

/**
  Prints the OS-shared ERST parameter region.
**/
VOID PrintErstParameterRegion (IN VORN_ERST_PARAMETER_REGION *pErstParameterBlock, IN UINTN DebugLevel) {
  if (pErstParameterBlock == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pErstParameterBlock is NULL, aborting...\n", __func__));
    return;
  }

  if (!StoreDumpLevelEnabled (DebugLevel)) {
    return;
  }

  DEBUG ((DebugLevel, "%a: pErstParameterBlock->Command                   0x%016lx\n", __func__,
          pErstParameterBlock->Command));
  DEBUG ((DebugLevel, "%a: pErstParameterBlock->RecordID                  0x%016lx\n", __func__,
          pErstParameterBlock->RecordID));
  DEBUG ((DebugLevel, "%a: pErstParameterBlock->NextRecordID              0x%016lx\n", __func__,
          pErstParameterBlock->NextRecordID));
  DEBUG ((DebugLevel, "%a: pErstParameterBlock->LogOffset                 0x%08x\n", __func__,
          pErstParameterBlock->LogOffset));
  DEBUG ((DebugLevel, "%a: pErstParameterBlock->Padding0                  0x%08x\n", __func__,
          pErstParameterBlock->Padding0));
  DEBUG ((DebugLevel, "%a: pErstParameterBlock->Status                    0x%016lx\n", __func__,
          pErstParameterBlock->Status));
  DEBUG ((DebugLevel, "%a: pErstParameterBlock->BusyFlag                  0x%016lx\n", __func__,
          pErstParameterBlock->BusyFlag));
  DEBUG ((DebugLevel, "%a: pErstParameterBlock->RecordCount               0x%016lx\n", __func__,
          pErstParameterBlock->RecordCount));
  DEBUG ((DebugLevel, "%a: pErstParameterBlock->ErrorLogAddressRange      0x%016lx\n", __func__,
          pErstParameterBlock->ErrorLogAddressRange));
  DEBUG ((DebugLevel, "%a: pErstParameterBlock->ErrorLogAddressLength     0x%016lx\n", __func__,
          pErstParameterBlock->ErrorLogAddressLength));
  DEBUG ((DebugLevel, "%a: pErstParameterBlock->ErrorLogAddressAttributes 0x%016lx\n", __func__,
          pErstParameterBlock->ErrorLogAddressAttributes));
  DEBUG ((DebugLevel, "%a: pErstParameterBlock->Dummy                     0x%016lx\n", __func__,
          pErstParameterBlock->Dummy));
  DEBUG ((DebugLevel, "%a: pErstParameterBlock->CurRecordID               0x%016lx\n", __func__,
          pErstParameterBlock->CurRecordID));
}

/**
  Prints the store header that opens the ERST store.
**/
VOID DisplayErstStoreHeader (IN ERST_STORE_HEADER *pErstStoreHeader, IN UINTN DebugLevel) {
  if (pErstStoreHeader == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pErstStoreHeader is NULL, aborting...\n", __func__));
    return;
  }

  if (!StoreDumpLevelEnabled (DebugLevel)) {
    return;
  }

  DEBUG ((DebugLevel, "%a: Signature                 0x%016lx\n", __func__, pErstStoreHeader->Signature));
  DEBUG ((DebugLevel, "%a: Revision                  0x%08x\n", __func__, pErstStoreHeader->Revision));
  DEBUG ((DebugLevel, "%a: StoreLengthAvailable      0x%08x\n", __func__, pErstStoreHeader->StoreLengthAvailable));
}

/**
  Prints one record header of the store.
**/
VOID DisplayErstRecordHeader (IN ERST_ERROR_RECORD_HEADER *pErstErrorRecordHeader, IN UINTN DebugLevel) {
  ERST_ERROR_RECORD_HEADER *p;

  if (pErstErrorRecordHeader == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pErstErrorRecordHeader is NULL, aborting...\n", __func__));
    return;
  }

  if (!StoreDumpLevelEnabled (DebugLevel)) {
    return;
  }

  p = pErstErrorRecordHeader;
  DEBUG ((DebugLevel, "%a: Signature                 0x%016lx\n", __func__, p->Signature));
  DEBUG ((DebugLevel, "%a: Revision                  0x%08x\n", __func__, p->Revision));
  DEBUG ((DebugLevel, "%a: OsRecordFlagsAddress    @ 0x%016lx\n", __func__, p->OsRecordFlagsAddress));
  DEBUG ((DebugLevel, "%a: OsRecordAddress         @ 0x%016lx\n", __func__, p->OsRecordAddress));
  DEBUG ((DebugLevel, "%a: PrevRecordHeaderAddress @ 0x%016lx\n", __func__, p->PrevRecordHeaderAddress));
  DEBUG ((DebugLevel, "%a: NextRecordHeaderAddress @ 0x%016lx\n", __func__, p->NextRecordHeaderAddress));
  DEBUG ((DebugLevel, "%a: OsRecordChecksum          0x%016lx\n", __func__, p->OsRecordChecksum));
  DEBUG ((DebugLevel, "%a: OsRecordLength            0x%08x\n", __func__, p->OsRecordLength));
  DEBUG ((DebugLevel, "%a: OsRecordID                0x%016lx\n", __func__, p->OsRecordID));
}

/**
  Prints the flags block that follows a record header.
**/
VOID DisplayErstErrorRecordFlags (IN ERST_ERROR_RECORD_FLAGS *pErstErrorRecordFlagsData, IN UINTN DebugLevel) {
  UINT8 *r;

  if (pErstErrorRecordFlagsData == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pErstErrorRecordFlagsData is NULL, aborting...\n", __func__));
    return;
  }

  if (!StoreDumpLevelEnabled (DebugLevel)) {
    return;
  }

  r = pErstErrorRecordFlagsData->Reserved;
  DEBUG ((DebugLevel, "%a: Revision                  0x%08x\n", __func__, pErstErrorRecordFlagsData->Revision));
  DEBUG (
      (DebugLevel, "%a: RecordClearPerOspm        0x%02x\n", __func__, pErstErrorRecordFlagsData->RecordClearPerOspm));
  DEBUG (
      (DebugLevel, "%a: RecordClearPerBios        0x%02x\n", __func__, pErstErrorRecordFlagsData->RecordClearPerBios));
  DEBUG ((DebugLevel, "%a: Reserved                  0x%02x %02x %02x %02x %02x %02x\n", __func__, r[0], r[1], r[2],
          r[3], r[4], r[5]));
}

/**
  Prints a PI firmware volume header up to and including BlockMap[0].
**/
VOID DisplayFvHeader (IN EFI_FIRMWARE_VOLUME_HEADER *pFvHeader, IN UINTN DebugLevel) {
  EFI_GUID Guid;
  UINT64   ZeroVector[2];

  if (pFvHeader == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pFvHeader is NULL, aborting...\n", __func__));
    return;
  }

  if (!StoreDumpLevelEnabled (DebugLevel)) {
    return;
  }

  CopyMem (ZeroVector, pFvHeader->ZeroVector, sizeof (ZeroVector));
  CopyGuid (&Guid, &pFvHeader->FileSystemGuid);
  DEBUG ((DebugLevel, "%a: FvHeader.ZeroVector                   0x %016lx %016lx\n", __func__, ZeroVector[0],
          ZeroVector[1]));
  DEBUG ((DebugLevel, "%a: FvHeader.FileSystemGuid               %g\n", __func__, &Guid));
  DEBUG ((DebugLevel, "%a: FvHeader.FileSystemGuid.Data1         0x%08x\n", __func__, Guid.Data1));
  DEBUG ((DebugLevel, "%a: FvHeader.FileSystemGuid.Data2         0x%04x\n", __func__, Guid.Data2));
  DEBUG ((DebugLevel, "%a: FvHeader.FileSystemGuid.Data3         0x%04x\n", __func__, Guid.Data3));
  DEBUG ((DebugLevel, "%a: FvHeader.FileSystemGuid.Data4[0]      0x%02x\n", __func__, Guid.Data4[0]));
  DEBUG ((DebugLevel, "%a: FvHeader.FileSystemGuid.Data4[1]      0x%02x\n", __func__, Guid.Data4[1]));
  DEBUG ((DebugLevel, "%a: FvHeader.FileSystemGuid.Data4[2]      0x%02x\n", __func__, Guid.Data4[2]));
  DEBUG ((DebugLevel, "%a: FvHeader.FileSystemGuid.Data4[3]      0x%02x\n", __func__, Guid.Data4[3]));
  DEBUG ((DebugLevel, "%a: FvHeader.FileSystemGuid.Data4[4]      0x%02x\n", __func__, Guid.Data4[4]));
  DEBUG ((DebugLevel, "%a: FvHeader.FileSystemGuid.Data4[5]      0x%02x\n", __func__, Guid.Data4[5]));
  DEBUG ((DebugLevel, "%a: FvHeader.FileSystemGuid.Data4[6]      0x%02x\n", __func__, Guid.Data4[6]));
  DEBUG ((DebugLevel, "%a: FvHeader.FileSystemGuid.Data4[7]      0x%02x\n", __func__, Guid.Data4[7]));
  DEBUG ((DebugLevel, "%a: FvHeader.FvLength                     0x%016lx\n", __func__, pFvHeader->FvLength));
  DEBUG ((DebugLevel, "%a: FvHeader.Signature                    0x%08x\n", __func__, pFvHeader->Signature));
  DEBUG ((DebugLevel, "%a: FvHeader.Attributes                   0x%08x\n", __func__, pFvHeader->Attributes));
  DEBUG ((DebugLevel, "%a: FvHeader.HeaderLength                 0x%04x\n", __func__, pFvHeader->HeaderLength));
  DEBUG ((DebugLevel, "%a: FvHeader.Checksum                     0x%04x\n", __func__, pFvHeader->Checksum));
  DEBUG ((DebugLevel, "%a: FvHeader.ExtHeaderOffset              0x%04x\n", __func__, pFvHeader->ExtHeaderOffset));
  DEBUG ((DebugLevel, "%a: FvHeader.Reserved                     0x%02x\n", __func__, pFvHeader->Reserved[0]));
  DEBUG ((DebugLevel, "%a: FvHeader.Revision                     0x%02x\n", __func__, pFvHeader->Revision));
  DEBUG (
      (DebugLevel, "%a: FvHeader.BlockMap[0].NumBlocks        0x%08x\n", __func__, pFvHeader->BlockMap[0].NumBlocks));
  DEBUG ((DebugLevel, "%a: FvHeader.BlockMap[0].Length           0x%08x\n", __func__, pFvHeader->BlockMap[0].Length));
}

/**
  Prints a PI firmware volume extended header.
**/
VOID DisplayFvExtHeader (IN EFI_FIRMWARE_VOLUME_EXT_HEADER *pFvExtHeader, IN UINTN DebugLevel) {
  EFI_GUID Guid;

  if (pFvExtHeader == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pFvExtHeader is NULL, aborting...\n", __func__));
    return;
  }

  if (!StoreDumpLevelEnabled (DebugLevel)) {
    return;
  }

  CopyGuid (&Guid, &pFvExtHeader->FvName);
  DEBUG ((DebugLevel, "%a: FvExtHeader.FvName               %g\n", __func__, &Guid));
  DEBUG ((DebugLevel, "%a: FvExtHeader.FvName.Data1         0x%08x\n", __func__, Guid.Data1));
  DEBUG ((DebugLevel, "%a: FvExtHeader.FvName.Data2         0x%04x\n", __func__, Guid.Data2));
  DEBUG ((DebugLevel, "%a: FvExtHeader.FvName.Data3         0x%04x\n", __func__, Guid.Data3));
  DEBUG ((DebugLevel, "%a: FvExtHeader.FvName.Data4[0]      0x%02x\n", __func__, Guid.Data4[0]));
  DEBUG ((DebugLevel, "%a: FvExtHeader.FvName.Data4[1]      0x%02x\n", __func__, Guid.Data4[1]));
  DEBUG ((DebugLevel, "%a: FvExtHeader.FvName.Data4[2]      0x%02x\n", __func__, Guid.Data4[2]));
  DEBUG ((DebugLevel, "%a: FvExtHeader.FvName.Data4[3]      0x%02x\n", __func__, Guid.Data4[3]));
  DEBUG ((DebugLevel, "%a: FvExtHeader.FvName.Data4[4]      0x%02x\n", __func__, Guid.Data4[4]));
  DEBUG ((DebugLevel, "%a: FvExtHeader.FvName.Data4[5]      0x%02x\n", __func__, Guid.Data4[5]));
  DEBUG ((DebugLevel, "%a: FvExtHeader.FvName.Data4[6]      0x%02x\n", __func__, Guid.Data4[6]));
  DEBUG ((DebugLevel, "%a: FvExtHeader.FvName.Data4[7]      0x%02x\n", __func__, Guid.Data4[7]));
  DEBUG ((DebugLevel, "%a: FvExtHeader.ExtHeaderSize        0x%08x\n", __func__, pFvExtHeader->ExtHeaderSize));
}
