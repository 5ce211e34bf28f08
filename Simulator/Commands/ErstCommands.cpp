/** @file
  vornsim erst ...: boots the module on the persistent flash image, then
  acts as the OS's ERST driver for one operation.
**/
#include <cstring>
#include <functional>
#include <iostream>
#include <optional>

#include <Guid/Cper.h>

#include "Commands/Commands.h"
#include "Commands/OsSession.h"
#include "Commands/Progress.h"
#include "Commands/SharedOptions.h"
#include "Common/TextFormat.h"
#include "Handlers/CperBuilder.h"
#include "Handlers/CperFile.h"
#include "Os/ErstDriver.h"

namespace Sim {

namespace {

constexpr const char *kWriteOptions[] = {"--flash", "--log", "--acpi", "--id"};

//
// Removes every Flag from Arguments; true when there was one.
//
bool TakeFlag (std::vector<std::string> &Arguments, const char *Flag) {
  return std::erase (Arguments, std::string (Flag)) != 0;
}

std::string Id (UINT64 RecordId) {
  return Format ("0x%016llX", static_cast<unsigned long long> (RecordId));
}

int ExitStatusOf (ErstResult Result) {
  switch (Result) {
    case ErstResult::Success:
      return kExitSuccess;
    case ErstResult::NoSpace:
      return kExitNoSpace;
    case ErstResult::HardwareNotAvailable:
      return kExitNoDevice;
    case ErstResult::StoreEmpty:
    case ErstResult::NotFound:
      return kExitNotFound;
    case ErstResult::TimedOut:
      return kExitIo;
    case ErstResult::Failed:
    case ErstResult::Invalid:
      break;
  }
  return kExitInvalid;
}

//
// What one operation came to: the "os: " lines and the document's "erst"
// member, and the exit status.
//
struct Outcome {
  std::string Text;
  Json        Fields;
  int         Status = kExitSuccess;
};

Json ResultJson (ErstResult Result) {
  const char *Errno = ErstResultErrno (Result);
  return {{"result", ErstResultText (Result)}, {"errno", *Errno != '\0' ? Json (Errno) : Json (nullptr)}};
}

Outcome OperationOutcome (const char *Operation, std::string Text, ErstResult Result) {
  Json Fields = {{"operation", Operation}};
  Fields.update (ResultJson (Result));
  return {std::move (Text), std::move (Fields), ExitStatusOf (Result)};
}

//
// Boots, takes the platform's ERST as the OS does and runs Act, whose lines
// follow the serial log.
//
int RunAsOs (const ParsedArguments &Parsed, const std::function<Outcome (ErstDriver &)> &Act) {
  OsSession  Session (Parsed);
  ErstDriver Os (Session.Booted ().Platform.Erst);
  Outcome    Result   = Act (Os);
  Document ()["erst"] = std::move (Result.Fields);
  Session.Finish ();
  Story () << Result.Text;
  return Result.Status;
}

ParsedArguments ParseWithPositionals (std::span<const std::string> Arguments,
                                      std::span<const char *const> Options,
                                      size_t                       Count,
                                      const char                  *What) {
  ParsedArguments Parsed = ParseArguments (Arguments, Options);
  if (Parsed.Positionals.size () < Count) {
    throw UsageError (std::string ("missing ") + What);
  }

  if (Parsed.Positionals.size () > Count) {
    throw UsageError ("unexpected argument '" + Parsed.Positionals[Count] + "'");
  }

  return Parsed;
}

UINT64 RecordIdArgument (std::span<const std::string> Arguments, ParsedArguments &Parsed) {
  Parsed = ParseWithPositionals (Arguments, kOsSessionOptions, 1, "record identifier");
  return ParseRecordId (Parsed.Positionals.front (), "ID");
}

Outcome WriteOutcome (const std::vector<UINT8> &Record, ErstResult Result) {
  EFI_COMMON_ERROR_RECORD_HEADER Header;
  std::memcpy (&Header, Record.data (), sizeof (Header));
  Outcome Written             = OperationOutcome ("write",
                                                  Format ("os: erst write %s (%zu bytes): %s\n", Id (Header.RecordID).c_str (),
                                                          Record.size (), ErstResultText (Result)),
                                                  Result);
  Written.Fields["record_id"] = Id (Header.RecordID);
  Written.Fields["bytes"]     = Record.size ();
  return Written;
}

int RunWrite (std::span<const std::string> Arguments) {
  std::vector<std::string> Rest (Arguments.begin (), Arguments.end ());
  const bool               Generate = TakeFlag (Rest, "--generate");
  const ParsedArguments    Parsed   = ParseWithPositionals (Rest, kWriteOptions, Generate ? 0 : 1, "CPER record file");
  const auto               IdOption = Parsed.Options.find ("--id");

  if (!Generate) {
    if (IdOption != Parsed.Options.end ()) {
      throw UsageError ("'--id' goes with '--generate'");
    }

    const std::vector<UINT8> Record = ReadRecordFile (Parsed.Positionals.front (), RecordCheck::Header);
    return RunAsOs (Parsed, [&Record] (ErstDriver &Os) { return WriteOutcome (Record, Os.Write (Record)); });
  }

  std::optional<UINT64> RecordId;
  if (IdOption != Parsed.Options.end ()) {
    RecordId = ParseRecordId (IdOption->second, IdOption->first);
  }

  return RunAsOs (Parsed, [&RecordId] (ErstDriver &Os) {
    // Without --id the identifier follows the store's record count, so the
    // same sequence of commands stores the same identifiers.
    Cper::RecordSpec Spec;
    Spec.RecordId                   = RecordId.value_or (Os.RecordCount () + 1);
    const std::vector<UINT8> Record = Cper::BuildRecord (Spec);
    return WriteOutcome (Record, Os.Write (Record));
  });
}

//
// What Linux takes out of the error-log range after a read: RecordLength
// bytes, whatever record (if any) they hold.
//
Outcome ReadOutcome (ErstDriver &Os, UINT64 RecordId) {
  const ErstResult               Result = Os.Read (RecordId);
  EFI_COMMON_ERROR_RECORD_HEADER Header;
  std::memcpy (&Header, reinterpret_cast<const void *> (Os.ErrorLog ().Base), sizeof (Header));
  const bool        Cper   = Header.SignatureStart == EFI_ERROR_RECORD_SIGNATURE_START;
  const std::string Buffer = Cper ? Format ("record %s (%u bytes)", Id (Header.RecordID).c_str (), Header.RecordLength)
                                  : std::string ("no CPER record");
  Outcome           Read   = OperationOutcome (
                  "read", Format ("os: erst read %s: %s\n", Id (RecordId).c_str (), ErstResultText (Result)), Result);
  Read.Fields["record_id"] = Id (RecordId);
  Read.Fields["buffer"] =
      Cper ? Json{{"record_id", Id (Header.RecordID)}, {"record_length", Header.RecordLength}} : Json (nullptr);
  if (Result == ErstResult::Success && (!Cper || Header.RecordID != RecordId)) {
    // The firmware answered success without placing the record there.
    Read.Text += Format ("os: erst read: Linux copies out the %u bytes RecordLength gives there, not record %s%s\n",
                         Os.RecordLengthInRange (), Id (RecordId).c_str (),
                         Os.RecordLengthInRange () < ErstDriver::kPstoreMinimum ? " (pstore: -EIO)" : "");
    Read.Fields["linux_copies_bytes"] = Os.RecordLengthInRange ();
  }
  Read.Text += Format ("os: erst read: the error-log buffer holds %s; next record identifier %s\n", Buffer.c_str (),
                       Id (Os.RecordId ()).c_str ());
  Read.Fields["next_record_id"] = Id (Os.RecordId ());
  return Read;
}

int RunRead (std::span<const std::string> Arguments) {
  ParsedArguments Parsed;
  const UINT64    RecordId = RecordIdArgument (Arguments, Parsed);
  return RunAsOs (Parsed, [RecordId] (ErstDriver &Os) { return ReadOutcome (Os, RecordId); });
}

int RunClear (std::span<const std::string> Arguments) {
  ParsedArguments Parsed;
  const UINT64    RecordId = RecordIdArgument (Arguments, Parsed);

  return RunAsOs (Parsed, [RecordId] (ErstDriver &Os) {
    const ErstResult Result  = Os.Clear (RecordId);
    Outcome          Cleared = OperationOutcome (
                 "clear", Format ("os: erst clear %s: %s\n", Id (RecordId).c_str (), ErstResultText (Result)), Result);
    Cleared.Fields["record_id"] = Id (RecordId);
    return Cleared;
  });
}

int RunDummyWrite (std::span<const std::string> Arguments) {
  const ParsedArguments Parsed = ParseWithPositionals (Arguments, kOsSessionOptions, 0, "");
  return RunAsOs (Parsed, [] (ErstDriver &Os) {
    const ErstResult Result = Os.DummyWrite ();
    return OperationOutcome (
        "dummy-write", Format ("os: erst dummy-write: %s (Linux never issues one)\n", ErstResultText (Result)), Result);
  });
}

int RunCount (std::span<const std::string> Arguments) {
  const ParsedArguments Parsed = ParseWithPositionals (Arguments, kOsSessionOptions, 0, "");
  return RunAsOs (Parsed, [] (ErstDriver &Os) {
    const UINT64 Count = Os.RecordCount ();
    return Outcome{Format ("os: erst count: %llu\n", static_cast<unsigned long long> (Count)),
                   {{"operation", "count"}, {"record_count", Count}}};
  });
}

//
// The exit status of a walk that ended as Listing did.
//
int ListStatus (const ErstListing &Listing) {
  switch (Listing.End) {
    case ErstListEnd::ReadFailed:
      return ExitStatusOf (Listing.Result);
    case ErstListEnd::ShortRecord:
    case ErstListEnd::Stuck:
      return kExitIo;
    case ErstListEnd::NoMoreRecords:
    case ErstListEnd::Repeated:
    case ErstListEnd::Limit:
      break;
  }
  return kExitSuccess;
}

int RunList (std::span<const std::string> Arguments) {
  std::vector<std::string> Rest (Arguments.begin (), Arguments.end ());
  const bool               All    = TakeFlag (Rest, "--all");
  const ParsedArguments    Parsed = ParseWithPositionals (Rest, kOsSessionOptions, 0, "");
  return RunAsOs (Parsed, [All] (ErstDriver &Os) {
    Progress          Shown ("erst list");
    const ErstListing Listing = Os.List (
        ErstDriver::kListLimit, [&Shown] (size_t Count) { Shown.Show (Format ("%zu identifiers", Count)); }, All);
    const std::string End    = ErstListEndText (Listing);
    const int         Status = ListStatus (Listing);
    std::string       Text   = Format ("os: erst list: %zu record%s (%s)", Listing.Ids.size (),
                               Listing.Ids.size () == 1 ? "" : "s", End.c_str ());
    if (Listing.Skipped != 0) {
      Text += Format ("; %zu skipped as not found", Listing.Skipped);
    }
    Text += Format ("; pstore keeps %zu (its own records only)\n", Listing.Pstore);
    Json Ids = Json::array ();
    for (UINT64 RecordId : Listing.Ids) {
      Text += "os:   " + Id (RecordId) + "\n";
      Ids.push_back (Id (RecordId));
    }
    Json Fields = {{"operation", "list"},
                   {"record_ids", Ids},
                   {"end", End},
                   {"skipped", Listing.Skipped},
                   {"pstore_records", Listing.Pstore}};
    return Outcome{Text, Fields, Status};
  });
}

#define ERST_COMMAND_NOTES                                                          \
  OS_SESSION_OPTIONS_HELP                                                           \
  "\n"                                                                              \
  "Standard output carries the serial log, from the first boot line to the\n"       \
  "module's answer to the OS, then the result of the operation as Linux names it\n" \
  "(lines starting \"os: \"). With --log or -q the serial log goes to a file,\n"    \
  "byte for byte, and standard output keeps only those lines; --json prints one\n"  \
  "JSON document instead. The module entry's status and the health line go to\n"    \
  "standard error.\n"                                                               \
  "\n"                                                                              \
  "Record identifiers are hexadecimal, with or without 0x, as vornsim prints\n"     \
  "them: 0000000100000001 and 0x100000001 are the same record.\n"                   \
  "\n"                                                                              \
  "Exit status: 0 when the operation succeeded; as Linux maps the firmware's\n"     \
  "status: 3 for -ENOENT (record not found, store empty), 4 for -EIO (the\n"        \
  "firmware did not answer in time, or pstore could not read a record), 5 for\n"    \
  "-ENOSPC, 6 for -ENODEV, 7 for -EINVAL (failed, or a status Linux does not\n"     \
  "know); 1 when the platform could not be built, the ERST was refused, one of\n"   \
  "its actions could not complete (no SMI handler answered the SMI, say) or the\n"  \
  "machine faulted (\"vornsim: machine fault: \" lines on standard error); 2 for\n" \
  "bad arguments.\n"

} // namespace

const Command kErstWriteCommand = {
    "erst write",
    "store a CPER record through the ERST, as the OS does",
    "usage: vornsim erst write FILE [options]\n"
    "       vornsim erst write --generate [--id N] [options]\n"
    "\n"
    "Boots the module, then stores a CPER record as Linux's erst_write does: its\n"
    "RecordLength bytes go to the start of the error-log address range with \"ER\"\n"
    "stamped into the persistence information, and BEGIN_WRITE (when the table\n"
    "has it), SET_RECORD_OFFSET 0, EXECUTE (the software SMI), CHECK_BUSY_STATUS\n"
    "(for up to 1 ms), GET_COMMAND_STATUS and END run.\n"
    "\n"
    "  FILE          a CPER record: it must start with \"CPER\" and its RecordLength\n"
    "                must equal the file's size\n"
    "  --generate    store a single-section memory error record instead\n"
    "  --id ID       the generated record's identifier, hexadecimal (default: the\n"
    "                store's record count + 1)\n" ERST_COMMAND_NOTES,
    RunWrite,
};

const Command kErstReadCommand = {
    "erst read",
    "read a record through the ERST by identifier",
    "usage: vornsim erst read ID [options]\n"
    "\n"
    "Boots the module, then reads record ID through the ERST (BEGIN_READ,\n"
    "SET_RECORD_OFFSET 0, SET_RECORD_IDENTIFIER, EXECUTE, CHECK_BUSY_STATUS,\n"
    "GET_COMMAND_STATUS, END), and tells what the error-log buffer then holds and\n"
    "which record identifier GET_RECORD_IDENTIFIER offers next. Linux copies out\n"
    "as many bytes as the RecordLength it finds in the buffer: when the firmware\n"
    "answers success without placing the record there, an \"os: \" line says so.\n"
    "\n" ERST_COMMAND_NOTES,
    RunRead,
};

const Command kErstClearCommand = {
    "erst clear",
    "clear a record through the ERST by identifier",
    "usage: vornsim erst clear ID [options]\n"
    "\n"
    "Boots the module, then clears record ID through the ERST (BEGIN_CLEAR,\n"
    "SET_RECORD_IDENTIFIER, EXECUTE, CHECK_BUSY_STATUS, GET_COMMAND_STATUS, END).\n"
    "\n" ERST_COMMAND_NOTES,
    RunClear,
};

const Command kErstListCommand = {
    "erst list",
    "list the stored record identifiers through the ERST",
    "usage: vornsim erst list [--all] [options]\n"
    "\n"
    "Boots the module, then walks the store as Linux's pstore does when it\n"
    "mounts: reads the current identifier with GET_RECORD_IDENTIFIER, stops at\n"
    "0xFFFFFFFFFFFFFFFF or at an identifier it read before, and reads each record\n"
    "by identifier (which moves the firmware on to the next). A read that says\n"
    "\"not found\" skips the identifier; any other failure, or a read that leaves\n"
    "less than a CPER header and one section descriptor (200 bytes) in the\n"
    "buffer, ends the walk as it ends pstore's. pstore keeps only records whose\n"
    "creator is its own; the line says how many. On a terminal a progress line\n"
    "on standard error counts the identifiers.\n"
    "\n"
    "  --all         read on where pstore would stop on a short record: every\n"
    "                identifier the firmware offers\n"
    "\n" ERST_COMMAND_NOTES,
    RunList,
};

const Command kErstCountCommand = {
    "erst count",
    "read the record count through the ERST",
    "usage: vornsim erst count [options]\n"
    "\n"
    "Boots the module, then runs GET_RECORD_COUNT.\n"
    "\n" ERST_COMMAND_NOTES,
    RunCount,
};

const Command kErstDummyWriteCommand = {
    "erst dummy-write",
    "run a dummy write through the ERST",
    "usage: vornsim erst dummy-write [options]\n"
    "\n"
    "Boots the module, then runs BEGIN_DUMMY_WRITE, SET_RECORD_OFFSET 0, EXECUTE,\n"
    "CHECK_BUSY_STATUS, GET_COMMAND_STATUS and END: the firmware stores nothing.\n"
    "Linux never issues a dummy write; this is for firmware engineers.\n"
    "\n" ERST_COMMAND_NOTES,
    RunDummyWrite,
};

} // namespace Sim
