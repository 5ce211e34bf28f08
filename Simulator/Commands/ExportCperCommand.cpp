/** @file
  vornsim export-cper: writes the CPER record the error-handler agents build,
  so that outside decoders can read it and 'inject --cper' can take it back.
**/
#include "Commands/Commands.h"
#include "Commands/ErrorInjection.h"
#include "Commands/SharedOptions.h"
#include "Common/TextFormat.h"

namespace Sim {

namespace {

constexpr const char *kExportOptions[] = {"--severity"};

int RunExportCper (std::span<const std::string> Arguments) {
  const ParsedArguments Parsed = ParseArguments (Arguments, kExportOptions);
  if (Parsed.Positionals.empty ()) {
    throw UsageError ("missing the error kind");
  }
  const ErrorKind &Kind = FindErrorKind (Parsed.Positionals.front ());
  if (Parsed.Positionals.size () < 2) {
    throw UsageError ("missing the file to write the record to");
  }
  if (Parsed.Positionals.size () > 2) {
    throw UsageError ("unexpected argument '" + Parsed.Positionals[2] + "'");
  }
  const auto   Severity = Parsed.Options.find ("--severity");
  const UINT32 Value = Severity != Parsed.Options.end () ? ParseCperSeverity (Severity->second) : Kind.DefaultSeverity;

  const std::string       &Path   = Parsed.Positionals[1];
  const std::vector<UINT8> Record = BuildKindRecord (Kind, Value);
  WriteBinaryFile (Path, Record);
  Story () << Format ("vornsim: %s: %s record, severity %s, %zu bytes\n", Path.c_str (), Kind.Name,
                      CperSeverityName (Value).c_str (), Record.size ());
  Document ()["file"]     = Path;
  Document ()["kind"]     = Kind.Name;
  Document ()["severity"] = CperSeverityName (Value);
  Document ()["bytes"]    = Record.size ();
  return kExitSuccess;
}

} // namespace

const Command kExportCperCommand = {
    "export-cper",
    "write the CPER record an error handler builds to a file",
    "usage: vornsim export-cper KIND FILE [--severity S]\n"
    "\n"
    "Writes the single-section CPER record the platform error handlers of\n"
    "'vornsim inject KIND' build: the 128-byte record header, one 72-byte section\n"
    "descriptor and the section body at byte 200, RecordLength equal to the\n"
    "file's size. Other CPER tools can decode it; 'vornsim inject --cper FILE'\n"
    "reports it.\n"
    "\n"
    "  KIND          memory, pcie, cxl-protocol, cxl-component, processor-generic,\n"
    "                processor-specific or pci-component (see 'vornsim inject\n"
    "                --help' for their default severities)\n"
    "  --severity S  the record's severity: recoverable, fatal, corrected, info,\n"
    "                or 0 to 3\n"
    "\n"
    "Standard output gets one line naming what was written. Nothing boots.\n"
    "\n"
    "Exit status: 0 when the file was written, 1 when it could not be, 2 for bad\n"
    "arguments.\n",
    RunExportCper,
};

} // namespace Sim
