/** @file
  One ERST software SMI as the OS raises it: the parameter region filled as
  the ERST instructions fill it, then 0x9C to the SMI command port. Only the
  SMI itself is measured, not the OS's interpretation of the table.
**/
#pragma once

#include <Uefi.h>

namespace Bench {

constexpr UINT64 kNoRecord = MAX_UINT64;

//
// Fills the region for Command (1 read, 2 write, 3 clear) on RecordId.
//
void ErstPrepare (UINT64 Command, UINT64 RecordId);

//
// Raises the SMI and returns the command status the handler left.
//
UINT64 ErstRaise ();

//
// What GET_RECORD_IDENTIFIER reads: the next identifier of an enumeration.
//
UINT64 ErstCurrentRecordId ();

//
// Reads every record of a store of Records records as the OS enumerates
// them: GET_RECORD_IDENTIFIER, then a read of that record, until the
// identifier says the store has no more.
//
void ErstEnumerate (UINT64 Records);

} // namespace Bench
