/** @file
  Walk over the record chain of the ERST store for the maintenance routines:
  one header-and-flags block per record, from the start of the record region
  along NextRecordHeaderAddress.
**/
#pragma once

#include <Uefi.h>
#include <VornApeiErst.h>

//
// Header and flags as they lie on flash, read together in one access.
//
typedef struct {
  ERST_ERROR_RECORD_HEADER Header;
  ERST_ERROR_RECORD_FLAGS  Flags;
} ERST_RECORD_HEADER_AND_FLAGS;

static_assert (OFFSET_OF (ERST_RECORD_HEADER_AND_FLAGS, Flags) == sizeof (ERST_ERROR_RECORD_HEADER),
               "flags follow header");

//
// What a walk read last. The flash read logs its buffer's address, so the
// buffer lives at a fixed place; walks never nest.
//
extern ERST_RECORD_HEADER_AND_FLAGS mErstRecordScanData;

//
// Position of a walk: the record it stands on and what was read there.
//
typedef struct {
  UINT32                        RecordIndex;
  UINT64                        HeaderAddress;
  ERST_RECORD_HEADER_AND_FLAGS *pData;
} ERST_RECORD_SCAN;

/**
  Places the walk on the first record slot of the record region.
**/
VOID VornApeiLoggingErstScanBegin (OUT ERST_RECORD_SCAN *pScan);

/**
  Reads the header and flags at the walk's position. A read failure is
  logged under the caller's name and returned.
**/
EFI_STATUS
VornApeiLoggingErstScanRead (IN CONST CHAR8 *pCallerName, IN UINTN DebugLevel, IN OUT ERST_RECORD_SCAN *pScan);

/**
  TRUE when the block last read is a record header ("ERST ERR").
**/
BOOLEAN
VornApeiLoggingErstScanHoldsRecord (IN CONST ERST_RECORD_SCAN *pScan);

/**
  Moves to the next record; FALSE when the chain ends (no successor, or the
  successor lies at or past the end of the record region).
**/
BOOLEAN
VornApeiLoggingErstScanAdvance (IN OUT ERST_RECORD_SCAN *pScan);
