/** @file
  What the inject, export-cper and scenario commands share: the error kinds
  a handler can report, CPER severities on the command line, and the line
  that tells what a handler run came to.
**/
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include <Uefi.h>

#include "Commands/Command.h"
#include "Commands/SharedOptions.h"
#include "Handlers/CperBuilder.h"
#include "Handlers/ErrorHandlerAgent.h"
#include "Os/GhesReader.h"

namespace Sim {

struct ErrorKind {
  const char       *Name; // as on the command line: "memory", "pcie", ...
  Cper::SectionKind Section;
  UINT32            DefaultSeverity; // CPER severity
};

//
// The kinds in the order help texts list them.
//
const std::vector<ErrorKind> &ErrorKinds ();

//
// The kind named Name; a UsageError names the kinds otherwise.
//
const ErrorKind &FindErrorKind (const std::string &Name);

//
// "recoverable", "fatal", "corrected", "info" or 0 to 3; anything else is a
// UsageError.
//
UINT32 ParseCperSeverity (const std::string &Text);

//
// The name of a CPER severity as --severity takes it, or "N (unknown)" for
// other values.
//
std::string CperSeverityName (UINT32 Severity);

//
// The record a handler builds for Kind: header and section severity
// Severity.
//
std::vector<UINT8> BuildKindRecord (const ErrorKind &Kind, UINT32 Severity);

//
// Processor --cpu names (default 0), checked against the machine's topology.
//
UINTN ParseCpuOption (const ParsedArguments &Parsed);

//
// "handler: processor 2: ... : ElogRecord Success, ElogSignalSci Success",
// with What naming the error.
//
std::string HandlerSummary (const HandlerReport &Report, UINTN Cpu, const std::string &What);

//
// The OS asks for APEI through the WHEA _OSC; the platform's _OSC method
// grants it by raising the APEI-enable software SMI (0x9E), which Linux
// itself never raises. The step's line goes to Story ().
//
void PlatformOscGrantsApei (const char *Why = "");

//
// One error from handler to OS: the handler on processor Cpu reports Record
// with ErrorSeverity, its summary goes to Story (), then the OS reads what
// was signalled. Under --json the document's "errors" array gets the
// handler's report and the blocks the OS read.
//
HandlerReport InjectRecord (GhesReader               &Os,
                            UINTN                     Cpu,
                            const std::vector<UINT8> &Record,
                            UINT32                    ErrorSeverity,
                            const std::string        &What);

//
// The same for a page-retire request.
//
HandlerReport InjectPageRetire (GhesReader &Os, UINTN Cpu, UINT64 PhysicalAddress, const std::string &FruText);

} // namespace Sim
