/** @file
  vornsim inject: boots the module, enables APEI as the OS, plays a
  platform error handler that reports one error, and shows what the OS
  reads.
**/
#include <cstring>
#include <iostream>
#include <optional>

#include <Guid/Cper.h>

#include "Commands/Commands.h"
#include "Commands/ErrorInjection.h"
#include "Commands/OsSession.h"
#include "Commands/SharedOptions.h"
#include "Common/TextFormat.h"
#include "Handlers/CperFile.h"
#include "Os/GhesReader.h"

namespace Sim {

namespace {

constexpr const char *kInjectOptions[] = {"--flash", "--log", "--acpi", "--severity", "--cpu", "--cper", "--fru"};
constexpr char        kPageRetire[]    = "page-retire";

std::optional<std::string> Option (const ParsedArguments &Parsed, const char *Name) {
  const auto Found = Parsed.Options.find (Name);
  return Found != Parsed.Options.end () ? std::optional<std::string> (Found->second) : std::nullopt;
}

void ExpectPositionals (const ParsedArguments &Parsed, size_t Count) {
  if (Parsed.Positionals.size () > Count) {
    throw UsageError ("unexpected argument '" + Parsed.Positionals[Count] + "'");
  }
}

//
// The error the command line asks for, checked before anything boots.
//
struct Injection {
  std::vector<UINT8> Record;             // empty for a page-retire request
  const ErrorKind   *Kind     = nullptr; // built once the platform's switches are on
  UINT32             Severity = 0;
  UINT64             Address  = 0;
  std::string        FruText;
  std::string        What;
};

Injection FromCperFile (const ParsedArguments &Parsed, const std::string &Path) {
  if (!Parsed.Positionals.empty ()) {
    throw UsageError ("'--cper' takes the place of the error kind");
  }
  if (Option (Parsed, "--fru")) {
    throw UsageError ("'--fru' goes with page-retire");
  }
  Injection Result;
  Result.Record       = ReadSingleSectionRecord (Path);
  auto      *Cper     = reinterpret_cast<CPER_RECORD *> (Result.Record.data ());
  const auto Severity = Option (Parsed, "--severity");
  Result.Severity     = Severity ? ParseCperSeverity (*Severity) : Cper->Header.ErrorSeverity;
  if (Severity) {
    // The record says what the call says.
    Cper->Header.ErrorSeverity = Result.Severity;
    Cper->Descriptor.Severity  = Result.Severity;
  }
  std::array<UINT8, 16> Type;
  std::memcpy (Type.data (), &Cper->Descriptor.SectionType, Type.size ());
  Result.What = Format ("%s record from %s, severity %s", SectionTypeName (Type).c_str (), Path.c_str (),
                        CperSeverityName (Result.Severity).c_str ());
  return Result;
}

Injection PageRetire (const ParsedArguments &Parsed) {
  if (Parsed.Positionals.size () < 2) {
    throw UsageError ("missing the address of the page to retire");
  }
  ExpectPositionals (Parsed, 2);
  if (Option (Parsed, "--severity")) {
    throw UsageError ("'--severity' does not go with page-retire");
  }
  Injection Result;
  Result.Address = ParseUnsigned (Parsed.Positionals[1], "ADDRESS");
  Result.FruText = Option (Parsed, "--fru").value_or ("");
  return Result;
}

Injection OfKind (const ParsedArguments &Parsed) {
  const ErrorKind &Kind = FindErrorKind (Parsed.Positionals.front ());
  ExpectPositionals (Parsed, 1);
  if (Option (Parsed, "--fru")) {
    throw UsageError ("'--fru' goes with page-retire");
  }
  Injection  Result;
  const auto Severity = Option (Parsed, "--severity");
  Result.Severity     = Severity ? ParseCperSeverity (*Severity) : Kind.DefaultSeverity;
  Result.Kind         = &Kind;
  Result.What         = Format ("%s error, severity %s", Kind.Name, CperSeverityName (Result.Severity).c_str ());
  return Result;
}

int RunInject (std::span<const std::string> Arguments) {
  const ParsedArguments Parsed = ParseArguments (Arguments, kInjectOptions);
  const UINTN           Cpu    = ParseCpuOption (Parsed);
  Injection             Error;
  if (const auto Path = Option (Parsed, "--cper")) {
    Error = FromCperFile (Parsed, *Path);
  } else if (Parsed.Positionals.empty ()) {
    throw UsageError ("missing the error kind");
  } else if (Parsed.Positionals.front () == kPageRetire) {
    Error = PageRetire (Parsed);
  } else {
    Error = OfKind (Parsed);
  }

  OsSession  Session (Parsed);
  GhesReader Os (Session.Booted ().Platform.Hest, Story ());
  PlatformOscGrantsApei ();
  if (Error.Kind != nullptr) {
    // A handler writes section types as the platform it runs on does.
    Error.Record = BuildKindRecord (*Error.Kind, Error.Severity);
  }
  if (Error.Record.empty ()) {
    InjectPageRetire (Os, Cpu, Error.Address, Error.FruText);
  } else {
    InjectRecord (Os, Cpu, Error.Record, Error.Severity, Error.What);
  }
  Session.Finish ();
  return kExitSuccess;
}

} // namespace

const Command kInjectCommand = {
    "inject",
    "report an error as a platform error handler and show what the OS reads",
    "usage: vornsim inject KIND [--severity S] [--cpu N] [options]\n"
    "       vornsim inject --cper FILE [--severity S] [--cpu N] [options]\n"
    "       vornsim inject page-retire ADDRESS [--fru TEXT] [--cpu N] [options]\n"
    "\n"
    "Boots the module; the OS asks for APEI through the WHEA _OSC and the\n"
    "platform's _OSC method grants it by raising software SMI 0x9E (a\n"
    "\"platform: \" line: Linux itself never raises it). A\n"
    "platform error handler then runs as an SMI handler on processor N: it builds\n"
    "a single-section CPER record in SMRAM, finds the logging protocol, records\n"
    "the error with ElogRecord and raises the NMI (fatal errors, and recoverable\n"
    "PCIe and CXL errors) or the SCI (all others). On that notification the OS\n"
    "reads the status block of every error source notified that way, checks it,\n"
    "decodes its entries and acknowledges it by clearing BlockStatus.\n"
    "\n"
    "  KIND              memory (default severity corrected), pcie (recoverable),\n"
    "                    cxl-protocol (recoverable), cxl-component (corrected; a\n"
    "                    CXL General Media event), processor-generic (corrected),\n"
    "                    processor-specific (fatal), pci-component (recoverable)\n"
    "  --severity S      CPER severity of the record (header and section) and of\n"
    "                    the call: recoverable, fatal, corrected, info, or 0 to 3\n"
    "  --cpu N           processor the handler runs on (default 0)\n"
    "  --cper FILE       report a CPER record file written by another tool: it must\n"
    "                    start with \"CPER\", its RecordLength must equal the file's\n"
    "                    size, and it must hold at least one section lying after\n"
    "                    the header and descriptors. Only the first section is\n"
    "                    reported: the record is rebuilt around it with the body at\n"
    "                    byte 200 and SectionCount 1, the form the protocol takes.\n"
    "                    Default severity: the header's ErrorSeverity.\n"
    "  page-retire ADDRESS\n"
    "                    ask for the 4 KiB page holding ADDRESS to be retired\n"
    "                    (ElogRecordMemoryPageRetire, then the SCI)\n"
    "  --fru TEXT        the page-retire request's FRU text (20 bytes kept)\n" OS_SESSION_OPTIONS_HELP "\n"
    "Standard output carries the serial log and, where they happen, the platform's\n"
    "_OSC step (\"platform: \"), the handler's result (lines starting \"handler: \")\n"
    "and what the OS reads (lines starting \"os: \"). With --log or -q the serial\n"
    "log goes to a file, byte for byte, and standard output keeps only those\n"
    "lines; --json prints one JSON document instead. The module entry's status\n"
    "and the health line go to standard error.\n"
    "\n"
    "Exit status: 0 when the error was injected (whatever the module answered), 1\n"
    "when the platform could not be built or the CPER file was refused, 2 for bad\n"
    "arguments.\n",
    RunInject,
};

} // namespace Sim
