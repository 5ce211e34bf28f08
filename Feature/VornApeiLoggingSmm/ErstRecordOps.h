/** @file
  Pieces shared by the ERST record read, write and clear.
**/
#pragma once

#include <Uefi.h>
#include <VornApeiErst.h>

//
// Header of the record being written; the log prints its address.
//
extern ERST_ERROR_RECORD_HEADER mErstErrorRecordHeader;

//
// Sources of the single-field flash programs (flags revision, clear flag);
// the flash write logs their addresses.
//
extern UINT32 mErstFlagsRevision;
extern UINT8  mErstClearFlagValue;

/**
  Prints the store summary and the parameter region before or after an ERST
  operation (debug code), and the whole store when extensive output is on.
**/
VOID VornApeiLoggingErstDisplayStoreState (IN CONST CHAR8 *pCallerName, IN BOOLEAN AfterProcessing);

/**
  Turns the status of a search by identifier into the operation's status and
  moves CurRecordID on: to the record after the found one, or to the first
  live record when the identifier is unknown. TRUE when the record was found.
**/
BOOLEAN
VornApeiLoggingErstAdvanceCurRecordId (IN CONST CHAR8 *pCallerName,
                                       IN UINT64       NextRecordHeaderPhyAddress,
                                       IN OUT UINT64  *pPersistentStatus);

/**
  Copies a stored OS record into the OS error-log buffer when it fits the
  buffer and matches its stored checksum.
**/
EFI_STATUS
VornApeiLoggingErstCopyRecordToOs (IN UINT64 RecordBuffer, IN UINT64 OsRecordAddress, IN UINT64 FlagsAddress);

/**
  Marks the older live copies of RecordId as cleared by the OS, once the
  copy at NewHeaderAddress is stored.
**/
VOID VornApeiLoggingErstSupersedeRecord (IN UINT64 RecordId, IN UINT64 NewHeaderAddress);
