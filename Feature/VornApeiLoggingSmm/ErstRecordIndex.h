/** @file
  An index of the ERST record chain in SMRAM (record-index switch): a search
  by identifier and each step of an enumeration go straight to their record
  instead of walking the chain from its start. Discovery builds it, the write
  path appends to it and the OS clear mark updates it; whatever else changes
  the store (an erase, a failed program) drops it, and the next lookup
  rebuilds it with one walk. Without the switch every call does nothing and
  the index is never usable.
**/
#pragma once

#include <Uefi.h>
#include <VornApeiErst.h>

#include "ErstRecordScan.h"

//
// What the index knows of one record of the chain. Positions count from 1;
// 0 names no record.
//
typedef struct {
  UINT64 HeaderAddress;
  UINT64 RecordId;
  UINT32 NextCopy;           // the next record with the same identifier
  UINT32 LastCopy;           // on the first record of an identifier: its last one
  UINT8  RecordClearPerOspm; // the OS clear byte as it reads on flash
} ERST_RECORD_INDEX_ENTRY;

/**
  Discovery: start an empty index, add each record it accepts, and make the
  index usable once the whole chain is read.
**/
VOID VornApeiLoggingErstIndexStart (VOID);
VOID VornApeiLoggingErstIndexAdd (IN UINT64 HeaderAddress, IN CONST ERST_RECORD_HEADER_AND_FLAGS *pRecord);
VOID VornApeiLoggingErstIndexFinish (VOID);

/**
  The store changed in a way the index does not follow.
**/
VOID VornApeiLoggingErstIndexDrop (VOID);

/**
  The write path stored a record whose header (as programmed) is pHeader.
**/
VOID VornApeiLoggingErstIndexAppend (IN UINT64 HeaderAddress, IN CONST ERST_ERROR_RECORD_HEADER *pHeader);

/**
  The OS clear byte of the record whose flags lie at FlagsAddress was
  programmed with Value; Status is how the program went.
**/
VOID VornApeiLoggingErstIndexNoteClear (IN UINT64 FlagsAddress, IN UINT8 Value, IN EFI_STATUS Status);

/**
  TRUE when the switch is on and the index matches the chain, rebuilding it
  first when it was dropped.
**/
BOOLEAN
VornApeiLoggingErstIndexUsable (VOID);

/**
  The first record with RecordId, the record whose header is at
  HeaderAddress, and the entry at a position.
**/
UINT32
VornApeiLoggingErstIndexFind (IN UINT64 RecordId);
UINT32
VornApeiLoggingErstIndexAt (IN UINT64 HeaderAddress);
ERST_RECORD_INDEX_ENTRY *VornApeiLoggingErstIndexEntry (IN UINT32 Position);

/**
  The identifier of the first record from Position on that the OS has not
  cleared (MAX_UINT64 when the chain ends without one): TRUE. FALSE when the
  chain goes on past the last indexed record, with the address a walk must
  go on from in *pWalkFrom.
**/
BOOLEAN
VornApeiLoggingErstIndexNextLive (IN UINT32 Position, OUT UINT64 *pRecordId, OUT UINT64 *pWalkFrom);
