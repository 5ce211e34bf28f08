/** @file
  Pieces shared by the routines that empty and rebuild the ERST store:
  keeping the firmware volume headers across an erase, laying down a fresh
  store header and resetting the in-memory store summary.
**/
#pragma once

#include <Uefi.h>
#include <Pi/PiFirmwareVolume.h>
#include <VornApeiErst.h>

#include "ErstRecordScan.h"

//
// Copies of the volume headers held across an erase and the fresh store
// header; the log prints their addresses, so they live at fixed places.
//
extern EFI_FIRMWARE_VOLUME_HEADER     mErstMaintenanceFvHeader;
extern EFI_FIRMWARE_VOLUME_EXT_HEADER mErstMaintenanceFvExtHeader;
extern ERST_STORE_HEADER              mErstMaintenanceStoreHeader;

//
// ERST status of each record defragmentation stores again; the write path
// logs its address.
//
extern UINT64 mErstDefragmentPersistentStatus;

//
// Store header as the whole-store dump reads it.
//
extern ERST_STORE_HEADER mErstDumpStoreHeader;

/**
  TRUE when the store summary holds a usable extended header address.
**/
BOOLEAN
VornApeiLoggingErstFvExtHeaderKnown (VOID);

/**
  Reads the FV header and, when asked, the FV extended header into the
  maintenance copies.
**/
EFI_STATUS
VornApeiLoggingErstSaveFvHeaders (IN CONST CHAR8 *pCallerName, IN UINTN DebugLevel, IN BOOLEAN SaveExtHeader);

/**
  Writes the saved FV header (and extended header when asked) back to the
  erased volume and lays down a fresh store header.
**/
EFI_STATUS
VornApeiLoggingErstRestoreFvHeadersAndStoreHeader (IN CONST CHAR8 *pCallerName,
                                                   IN UINTN        DebugLevel,
                                                   IN BOOLEAN      RestoreExtHeader);

/**
  Keep everything before the store header (volume header, block map,
  extended header with its entries) across an erase, and program it back.
**/
EFI_STATUS
VornApeiLoggingErstSaveVolumeHeaders (IN CONST CHAR8 *pCallerName, IN UINTN DebugLevel);
EFI_STATUS
VornApeiLoggingErstRestoreVolumeHeaders (IN UINTN DebugLevel);

/**
  Records torn by a power cut (see ErstTornTail.cpp): the verdict on a
  record discovery read, where the used part of the store ends, and whether
  a walk has reached the end of the chain.
**/
typedef enum { ErstTornTailWhole, ErstTornTailDropped, ErstTornTailCut } ERST_TORN_TAIL_VERDICT;

extern UINT64 mErstTornTailEnd;

ERST_TORN_TAIL_VERDICT
VornApeiLoggingErstCheckTornRecord (IN CONST CHAR8                      *pCaller,
                                    IN UINT32                            RecordIndex,
                                    IN UINT64                            RecordAddress,
                                    IN UINT64                            LastRecordAddress,
                                    IN OUT ERST_RECORD_HEADER_AND_FLAGS *pRecord);
UINT64
VornApeiLoggingErstUsedEnd (VOID);
BOOLEAN
VornApeiLoggingErstPastChainEnd (IN UINT64 RecordAddress);

/**
  Rewriting the volume through the spare area so that a power cut loses
  nothing (see ErstVolumeRewrite.cpp), and store maintenance built on it.
**/
BOOLEAN
VornApeiLoggingErstSpareUsable (IN UINT64 TargetLength);
EFI_STATUS
VornApeiLoggingErstRewriteVolume (IN UINTN DebugLevel, IN UINT8 *pImage, IN UINT64 ImageLength, IN UINT64 TargetLength);
VOID VornApeiLoggingErstRecoverVolume (IN UINTN DebugLevel);
BOOLEAN
VornApeiLoggingErstRecoveredVolume (OUT UINT64 *pVolumeAddress, OUT UINTN *pBlockSize);
BOOLEAN
VornApeiLoggingErstRewriteUnfinished (VOID);
EFI_STATUS
VornApeiLoggingErstSafeClearEntirePStore (IN UINTN DebugLevel);
EFI_STATUS
VornApeiLoggingErstSafeDefragment (IN UINTN DebugLevel);

/**
  Describes an empty store in the store summary and the parameter region.
**/
VOID VornApeiLoggingErstResetStoreInformation (VOID);
