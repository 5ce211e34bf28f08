/** @file
  The simulated OS's ERST driver, rule by rule as Linux's: it takes the ERST
  the platform published, checks it as Linux does before trusting it, and
  stores, reads and clears error records only by running the table's
  instruction entries (BEGIN_* and END entries are optional): it writes
  nothing into the firmware's parameter region by itself and never calls the
  firmware; the EXECUTE_OPERATION entry raises the SMI. Enumeration walks the
  store as pstore does when it mounts.
**/
#pragma once

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "Os/ErstInterpreter.h"

namespace Sim {

//
// What an ERST operation came to, named after the errno Linux turns the
// command status into.
//
enum class ErstResult {
  Success,              // status 0
  NoSpace,              // 1: -ENOSPC
  HardwareNotAvailable, // 2: -ENODEV
  Failed,               // 3: -EINVAL (Linux has no errno of its own for it)
  StoreEmpty,           // 4: -ENOENT
  NotFound,             // 5: -ENOENT
  Invalid,              // any other status, or a record Linux refuses to hand over: -EINVAL
  TimedOut,             // still busy after 1 ms: -EIO ("Firmware does not respond in time.")
};

ErstResult ErstResultFromStatus (UINT64 CommandStatus);

//
// "success", "no space (-ENOSPC)", ...
//
const char *ErstResultText (ErstResult Result);

//
// The errno Linux returns: "ENOSPC", ...; "" for success.
//
const char *ErstResultErrno (ErstResult Result);

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
  Repeated,      // an identifier that was read came round again
  Limit,         // the caller's limit was reached
  ReadFailed,    // reading a record failed with other than -ENOENT (see Result): pstore stops
  ShortRecord,   // the read left less than a CPER header and one section descriptor: pstore stops (-EIO)
  Stuck,         // after "not found" the firmware offered the same identifier again: Linux would loop for ever
};

struct ErstListing {
  std::vector<UINT64> Ids; // every identifier offered, in order
  ErstListEnd         End        = ErstListEnd::NoMoreRecords;
  ErstResult          Result     = ErstResult::Success; // of the last read
  UINT32              LastLength = 0;                   // RecordLength found in the range by the last read
  size_t              Skipped    = 0;                   // ids whose read said "not found"
  size_t              Pstore     = 0;                   // records pstore keeps: read whole, creator Linux's pstore
};

//
// How a walk ended, as a phrase: "end of the store", "pstore stopped: ...".
//
std::string ErstListEndText (const ErstListing &Listing);

class ErstDriver {
public:
  static constexpr UINT64 kNoRecord      = MAX_UINT64;
  static constexpr UINT64 kBusyPolls     = 10000; // 1 ms in 100 ns steps
  static constexpr size_t kListLimit     = 4096;
  static constexpr UINT32 kHeaderSize    = sizeof (EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER);
  static constexpr UINT32 kPstoreMinimum = 200; // a CPER header and one section descriptor

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
  // Copies the record's RecordLength bytes to the start of the error-log
  // range, stamps "ER" into its persistence information and has the firmware
  // store it. Invalid, with nothing run, for a record Linux refuses: no
  // "CPER" signature, or longer than the range (or than Record).
  //
  ErstResult Write (std::span<const UINT8> Record);

  //
  // Record as Write hands it to the firmware: "ER" in its persistence
  // information (a record shorter than its header is returned as it is).
  //
  static std::vector<UINT8> AsSerialised (std::span<const UINT8> Record);

  //
  // Has the firmware place the record in the error-log range; the record,
  // if any, is then at ErrorLog ().Base.
  //
  ErstResult Read (UINT64 RecordId);

  //
  // The RecordLength Linux takes from the error-log range after a read: what
  // it copies out (0 for a zeroed range).
  //
  UINT32 RecordLengthInRange () const;

  ErstResult Clear (UINT64 RecordId);
  ErstResult DummyWrite ();

  UINT64 RecordId ();
  UINT64 RecordCount ();

  //
  // Walks the store as pstore does: reads the current record identifier,
  // stops at 0xFFFFFFFFFFFFFFFF or at an identifier it read before, and
  // reads each record (which moves the firmware on to the next). A read that
  // says "not found" skips the identifier; any other failure, or a record
  // shorter than kPstoreMinimum, ends the walk (unless PastPstore, for a
  // firmware engineer who wants every identifier the firmware offers).
  // Progress, when set, is called with the count of identifiers so far.
  //
  ErstListing
  List (size_t Limit = kListLimit, const std::function<void (size_t)> &Progress = nullptr, bool PastPstore = false);

private:
  UINT64     Query (UINT8 Action);
  bool       RangeHoldsPstoreRecord () const;
  ErstResult Execute ();

  ErstInterpreter   mInterpreter;
  ErstErrorLogRange mErrorLog;
};

} // namespace Sim
