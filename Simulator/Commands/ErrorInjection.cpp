/** @file
  Error kinds, severities and handler summaries for the injecting commands.
**/
#include "Commands/ErrorInjection.h"

#include <algorithm>

#include <Host.h>

#include "Builder/Boot.h"
#include "Commands/JsonReports.h"
#include "Common/TextFormat.h"
#include "Os/GhesReader.h"
#include "Os/OsApei.h"

namespace Sim {

namespace {

// One request per page; the count a handler has seen is not modelled.
constexpr UINT64 kPageRetireErrorCount = 1;

} // namespace

const std::vector<ErrorKind> &ErrorKinds () {
  using Cper::SectionKind;
  // Defaults as the errors usually arrive: corrected memory, processor and
  // CXL events by SCI; uncorrected PCIe and CXL link errors by NMI; a fatal
  // machine check by NMI; a PCI device error that the OS can recover by SCI.
  static const std::vector<ErrorKind> kKinds = {
      {"memory", SectionKind::Memory, EFI_GENERIC_ERROR_CORRECTED},
      {"pcie", SectionKind::Pcie, EFI_GENERIC_ERROR_RECOVERABLE},
      {"cxl-protocol", SectionKind::CxlProtocol, EFI_GENERIC_ERROR_RECOVERABLE},
      {"cxl-component", SectionKind::CxlComponent, EFI_GENERIC_ERROR_CORRECTED},
      {"processor-generic", SectionKind::ProcessorGeneric, EFI_GENERIC_ERROR_CORRECTED},
      {"processor-specific", SectionKind::ProcessorSpecific, EFI_GENERIC_ERROR_FATAL},
      {"pci-component", SectionKind::PciComponent, EFI_GENERIC_ERROR_RECOVERABLE},
  };
  return kKinds;
}

const ErrorKind &FindErrorKind (const std::string &Name) {
  const auto &Kinds = ErrorKinds ();
  const auto  Found =
      std::find_if (Kinds.begin (), Kinds.end (), [&Name] (const ErrorKind &Kind) { return Name == Kind.Name; });
  if (Found != Kinds.end ()) {
    return *Found;
  }
  std::string Names;
  for (const ErrorKind &Kind : Kinds) {
    Names += std::string (Names.empty () ? "" : ", ") + Kind.Name;
  }
  throw UsageError ("unknown error kind '" + Name + "' (one of " + Names + ")");
}

UINT32 ParseCperSeverity (const std::string &Text) {
  for (UINT32 Severity = EFI_GENERIC_ERROR_RECOVERABLE; Severity <= EFI_GENERIC_ERROR_INFO; Severity++) {
    if (Text == CperSeverityText (Severity) || Text == std::to_string (Severity)) {
      return Severity;
    }
  }
  throw UsageError ("invalid severity '" + Text + "' (recoverable, fatal, corrected, info or 0 to 3)");
}

std::string CperSeverityName (UINT32 Severity) {
  return Severity <= EFI_GENERIC_ERROR_INFO ? CperSeverityText (Severity) : Format ("%u (unknown)", Severity);
}

std::vector<UINT8> BuildKindRecord (const ErrorKind &Kind, UINT32 Severity) {
  Cper::RecordSpec Spec;
  Spec.Kind            = Kind.Section;
  Spec.HeaderSeverity  = Severity;
  Spec.SectionSeverity = Severity;
  return Cper::BuildRecord (Spec);
}

UINTN ParseCpuOption (const ParsedArguments &Parsed) {
  const auto Cpu = Parsed.Options.find ("--cpu");
  if (Cpu == Parsed.Options.end ()) {
    return 0;
  }
  const UINT64 Index = ParseUnsigned (Cpu->second, Cpu->first);
  const UINTN  Count = ProcessorCount (Host::MachineConfig ().Cpus);
  if (Index >= Count) {
    throw UsageError (Format ("processor %s does not exist: the machine has %llu (0 to %llu)", Cpu->second.c_str (),
                              static_cast<unsigned long long> (Count), static_cast<unsigned long long> (Count - 1)));
  }
  return Index;
}

std::string HandlerSummary (const HandlerReport &Report, UINTN Cpu, const std::string &What) {
  std::string Line = Format ("handler: processor %llu: %s", static_cast<unsigned long long> (Cpu), What.c_str ());
  if (Report.RecordAddress != 0) {
    Line += Format (", record @ 0x%016llX", static_cast<unsigned long long> (Report.RecordAddress));
  }
  if (EFI_ERROR (Report.Locate)) {
    return Line + ": logging protocol not found (" + StatusText (Report.Locate) + ")\n";
  }
  if (!Report.OsLoaded) {
    return Line + ": APEI OS not loaded, not reported\n";
  }
  Line += ": " + std::string (Report.RecordAddress != 0 ? "ElogRecord " : "ElogRecordMemoryPageRetire ") +
          StatusText (Report.Record);
  if (Report.Signal == Notification::None) {
    return Line + ", nothing signalled\n";
  }
  return Line + ", ElogSignal" + (Report.Signal == Notification::Nmi ? "Nmi " : "Sci ") +
         StatusText (Report.SignalStatus) + "\n";
}

void PlatformOscGrantsApei (const char *Why) {
  OsEnableApei ();
  Story () << "platform: _OSC grants APEI to the OS: its method raises software SMI 0x9E" << Why << '\n';
  Document ()["osc"] = "APEI granted: software SMI 0x9E";
}

namespace {

//
// The OS's side of one error: the blocks it read, and, when one was fatal,
// the panic Linux takes there.
//
HandlerReport Deliver (GhesReader &Os, UINTN Cpu, const HandlerReport &Report, const std::string &What) {
  Story () << HandlerSummary (Report, Cpu, What);
  const std::vector<GhesBlockReport> Blocks = Os.Poll ();
  Json                               Error  = {{"handler", HandlerJson (Report, Cpu, What)}, {"os", BlocksJson (Blocks)}};
  Error["linux_panics"] = std::any_of (Blocks.begin (), Blocks.end (), [] (const GhesBlockReport &Block) { return Block.Panic; });
  Document ()["errors"].push_back (Error);
  return Report;
}

} // namespace

HandlerReport InjectRecord (GhesReader               &Os,
                            UINTN                     Cpu,
                            const std::vector<UINT8> &Record,
                            UINT32                    ErrorSeverity,
                            const std::string        &What) {
  return Deliver (Os, Cpu, ErrorHandlerAgent (Cpu).Report (Record, ErrorSeverity), What);
}

HandlerReport InjectPageRetire (GhesReader &Os, UINTN Cpu, UINT64 PhysicalAddress, const std::string &FruText) {
  const HandlerReport Report = ErrorHandlerAgent (Cpu).RetirePage (PhysicalAddress, FruText, kPageRetireErrorCount);
  std::string         What   = Format ("retire the page of 0x%llX", static_cast<unsigned long long> (PhysicalAddress));
  if (!FruText.empty ()) {
    What += " (FRU \"" + FruText + "\")";
  }
  return Deliver (Os, Cpu, Report, What);
}

} // namespace Sim
