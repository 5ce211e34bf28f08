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
#include "Handlers/CperBuilder.h"
#include "Handlers/CperFile.h"
#include "Os/ErstDriver.h"
#include "Commands/OsSession.h"
#include "Common/TextFormat.h"

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

//
// Boots, takes the platform's ERST as the OS does and runs Act, whose text
// follows the serial log on standard output.
//
int RunAsOs (const ParsedArguments &Parsed, const std::function<std::string (ErstDriver &)> &Act) {
  OsSession  Session (Parsed);
  ErstDriver Os (Session.Booted ().Platform.Erst);
  const auto Outcome = Act (Os);
  Session.Finish ();
  std::cout << Outcome;
  return 0;
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
  return ParseUnsigned (Parsed.Positionals.front (), "record identifier");
}

std::string WriteOutcome (const std::vector<UINT8> &Record, ErstResult Result) {
  EFI_COMMON_ERROR_RECORD_HEADER Header;
  std::memcpy (&Header, Record.data (), sizeof (Header));
  return Format ("os: erst write %s (%zu bytes): %s\n", Id (Header.RecordID).c_str (), Record.size (),
                 ErstResultText (Result));
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
    RecordId = ParseUnsigned (IdOption->second, IdOption->first);
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

int RunRead (std::span<const std::string> Arguments) {
  ParsedArguments Parsed;
  const UINT64    RecordId = RecordIdArgument (Arguments, Parsed);

  return RunAsOs (Parsed, [RecordId] (ErstDriver &Os) {
    const ErstResult               Result = Os.Read (RecordId);
    EFI_COMMON_ERROR_RECORD_HEADER Header;
    std::memcpy (&Header, reinterpret_cast<const void *> (Os.ErrorLog ().Base), sizeof (Header));
    const std::string Buffer = (Header.SignatureStart == EFI_ERROR_RECORD_SIGNATURE_START)
                                   ? Format ("record %s (%u bytes)", Id (Header.RecordID).c_str (), Header.RecordLength)
                                   : std::string ("no CPER record");
    return Format ("os: erst read %s: %s\n"
                   "os: erst read: the error-log buffer holds %s; next record identifier %s\n",
                   Id (RecordId).c_str (), ErstResultText (Result), Buffer.c_str (), Id (Os.RecordId ()).c_str ());
  });
}

int RunClear (std::span<const std::string> Arguments) {
  ParsedArguments Parsed;
  const UINT64    RecordId = RecordIdArgument (Arguments, Parsed);

  return RunAsOs (Parsed, [RecordId] (ErstDriver &Os) {
    return Format ("os: erst clear %s: %s\n", Id (RecordId).c_str (), ErstResultText (Os.Clear (RecordId)));
  });
}

int RunDummyWrite (std::span<const std::string> Arguments) {
  const ParsedArguments Parsed = ParseWithPositionals (Arguments, kOsSessionOptions, 0, "");
  return RunAsOs (
      Parsed, [] (ErstDriver &Os) { return Format ("os: erst dummy-write: %s\n", ErstResultText (Os.DummyWrite ())); });
}

int RunCount (std::span<const std::string> Arguments) {
  const ParsedArguments Parsed = ParseWithPositionals (Arguments, kOsSessionOptions, 0, "");
  return RunAsOs (Parsed, [] (ErstDriver &Os) {
    return Format ("os: erst count: %llu\n", static_cast<unsigned long long> (Os.RecordCount ()));
  });
}

std::string ListEnd (const ErstListing &Listing) {
  switch (Listing.End) {
    case ErstListEnd::NoMoreRecords:
      return "end of the store";
    case ErstListEnd::Repeated:
      return "an identifier came round again";
    case ErstListEnd::Limit:
      return Format ("stopped after %zu records", Listing.Ids.size ());
    case ErstListEnd::ReadFailed:
      return Format ("reading %s failed: %s", Id (Listing.Ids.back ()).c_str (), ErstResultText (Listing.Result));
  }

  return "";
}

int RunList (std::span<const std::string> Arguments) {
  const ParsedArguments Parsed = ParseWithPositionals (Arguments, kOsSessionOptions, 0, "");
  return RunAsOs (Parsed, [] (ErstDriver &Os) {
    const ErstListing Listing = Os.List ();
    std::string       Text    = Format ("os: erst list: %zu record%s (%s)\n", Listing.Ids.size (),
                               Listing.Ids.size () == 1 ? "" : "s", ListEnd (Listing).c_str ());
    for (UINT64 RecordId : Listing.Ids) {
      Text += "os:   " + Id (RecordId) + "\n";
    }
    return Text;
  });
}

#define ERST_COMMAND_NOTES                                                         \
  OS_SESSION_OPTIONS_HELP                                                          \
  "\n"                                                                             \
  "Standard output carries the serial log, from the first boot line to the\n"      \
  "module's answer to the OS, then the result of the operation, named as an OS\n"  \
  "driver names it (lines starting \"os: \"). With --log the serial log goes to\n" \
  "FILE, byte for byte, and standard output keeps only those lines. The module\n"  \
  "entry's status goes to standard error.\n"                                       \
  "\n"                                                                             \
  "Exit status: 0 when the operation ran (whatever its result), 1 when the\n"      \
  "platform could not be built, the ERST was refused, one of its actions\n"        \
  "could not complete (no SMI handler answered the SMI, say) or the machine\n"     \
  "faulted (\"vornsim: machine fault: \" lines on standard error), 2 for bad\n"    \
  "arguments.\n"

} // namespace

const Command kErstWriteCommand = {
    "erst write",
    "store a CPER record through the ERST, as the OS does",
    "usage: vornsim erst write FILE [options]\n"
    "       vornsim erst write --generate [--id N] [options]\n"
    "\n"
    "Boots the module, then stores a CPER record through the ERST instruction\n"
    "entries: the record goes to the start of the error-log address range, and\n"
    "BEGIN_WRITE, SET_RECORD_OFFSET 0, EXECUTE (the software SMI), CHECK_BUSY_STATUS,\n"
    "GET_COMMAND_STATUS and END run.\n"
    "\n"
    "  FILE          a CPER record: it must start with \"CPER\" and its RecordLength\n"
    "                must equal the file's size\n"
    "  --generate    store a single-section memory error record instead\n"
    "  --id N        the generated record's identifier (default: the store's\n"
    "                record count + 1)\n" ERST_COMMAND_NOTES,
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
    "which record identifier GET_RECORD_IDENTIFIER offers next.\n"
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
    "usage: vornsim erst list [options]\n"
    "\n"
    "Boots the module, then walks the store as an OS driver does: reads the\n"
    "current identifier with GET_RECORD_IDENTIFIER, stops at\n"
    "0xFFFFFFFFFFFFFFFF, and reads each record by identifier to move the\n"
    "firmware on to the next; an identifier seen before also ends the walk.\n"
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
    "\n" ERST_COMMAND_NOTES,
    RunDummyWrite,
};

} // namespace Sim
