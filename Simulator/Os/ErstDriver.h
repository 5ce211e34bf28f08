/** @file
  The simulated OS's ERST driver. It takes the ERST the platform published,
  checks it as an OS does before trusting it, and stores, reads and clears
  error records only by running the table's instruction entries: it writes
  nothing into the firmware's parameter region by itself and never calls the
  firmware; the EXECUTE_OPERATION entry raises the SMI.
**/
#pragma once

#include <span>
#include <vector>

#include "Os/ErstInterpreter.h"

namespace Sim {

//
// What an ERST operation came to, named after the errno an OS driver turns
// the command status into.
//
enum class ErstResult {
  Success,              // status 0
  NoSpace,              // 1: -ENOSPC
  HardwareNotAvailable, // 2: -ENODEV
  Failed,               // 3: -EINVAL (Linux has no errno of its own for it)
  StoreEmpty,           // 4: -ENOENT
  NotFound,             // 5: -ENOENT
  Invalid,              // any other status, or a record the driver cannot hand over: -EINVAL
  TimedOut,             // still busy after the polling limit: -EIO
};

ErstResult ErstResultFromStatus (UINT64 CommandStatus);

//
// "success", "no space (-ENOSPC)", ...
//
const char *ErstResultText (ErstResult Result);

struct ErstErrorLogRange {
  UINT64 Base       = 0;
  UINT64 Length     = 0;
  UINT64 Attributes = 0;
};

//
// How an enumeration ended.
//
enum class ErstListEnd {
  NoMoreRecords, // the record identifier read 0xFFFFFFFFFFFFFFFF
  Repeated,      // an identifier came round again
  Limit,         // the caller's limit was reached
  ReadFailed,    // reading a record to advance failed (see Result)
};

struct ErstListing {
  std::vector<UINT64> Ids;
  ErstListEnd         End    = ErstListEnd::NoMoreRecords;
  ErstResult          Result = ErstResult::Success; // of the last read
};

class ErstDriver {
public:
  static constexpr UINT64 kNoRecord   = MAX_UINT64;
  static constexpr UINT64 kBusyPolls  = 1000;
  static constexpr size_t kListLimit  = 4096;
  static constexpr UINT32 kHeaderSize = sizeof (EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER);

  //
  // Takes the ERST at ErstAddress in simulated memory, as patched by the
  // firmware. Throws AcpiTableError for a table an OS refuses: not "ERST",
  // shorter than its header, a serialization header size other than 12 or
  // 48, an entry count other than (Length - 48) / 32, or an entry the
  // interpreter refuses; and for an error-log address range outside memory
  // the OS can map.
  //
  explicit ErstDriver (UINT64 ErstAddress);

  const ErstErrorLogRange &ErrorLog () const;
  ErstInterpreter         &Interpreter ();

  //
  // Every command below raises the SMI through EXECUTE_OPERATION and throws
  // ErstExecutionError when no SMI handler answered it: the action raised no
  // software SMI (its register is not the SMI command port), or the SMI it
  // raised found no handler (the firmware never registered one, as when the
  // flash holds no error-log volume). An OS would otherwise read the zeroed
  // status as success.
  //

  //
  // Copies Record to the start of the error-log range and has the firmware
  // store it. Invalid, with nothing run, when it does not fit the range.
  //
  ErstResult Write (std::span<const UINT8> Record);

  //
  // Has the firmware place the record in the error-log range; the record,
  // if any, is then at ErrorLog ().Base.
  //
  ErstResult Read (UINT64 RecordId);

  ErstResult Clear (UINT64 RecordId);
  ErstResult DummyWrite ();

  UINT64 RecordId ();
  UINT64 RecordCount ();

  //
  // Walks the store: reads the current record identifier, stops at
  // 0xFFFFFFFFFFFFFFFF, and reads each record to move the firmware on to the
  // next, stopping at an identifier seen before or after Limit records.
  //
  ErstListing List (size_t Limit = kListLimit);

private:
  UINT64     Query (UINT8 Action);
  ErstResult Execute ();

  ErstInterpreter   mInterpreter;
  ErstErrorLogRange mErrorLog;
};

} // namespace Sim
