/** @file
  vornsim scenario (and vornsim alone): the whole story on a new machine.
  The module boots, the OS enables APEI, a corrected memory error arrives by
  SCI and a fatal PCIe error by NMI, the OS reads and acknowledges both and
  the handler reclaims the blocks; the OS then stores, lists and clears
  records through the ERST, and a reboot defragments the store.

  The serial log goes to a file, byte for byte; standard output tells the
  story from the OS's side and ends with a summary.
**/
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "Builder/Boot.h"
#include "Commands/Commands.h"
#include "Commands/ErrorInjection.h"
#include "Commands/Health.h"
#include "Commands/SerialLog.h"
#include "Commands/SharedOptions.h"
#include "Common/TextFormat.h"
#include "Os/ErstDriver.h"
#include "Os/GhesReader.h"

namespace Sim {

namespace {

constexpr const char *kScenarioOptions[] = {"--log", "--flash"};
// The story starts from the factory image, so it keeps its own: the image
// the other commands share is left alone.
constexpr char kDefaultScenarioImage[] = "vornsim-scenario.img";

// The processors the two handlers run on: errors arrive wherever they are
// detected, and the log's prefix shows it.
constexpr UINTN kMemoryHandlerCpu = 2;
constexpr UINTN kPcieHandlerCpu   = 5;

// The records the OS stores: identifiers 1 to 3, the second one cleared.
constexpr const char *kStoredKinds[]   = {"memory", "pcie", "processor-generic"};
constexpr UINT64      kFirstStoredId   = 1;
constexpr UINT64      kClearedRecordId = 2;

struct Tally {
  int    Sci          = 0;
  int    Nmi          = 0;
  int    Acknowledged = 0;
  int    Written      = 0;
  int    Cleared      = 0;
  size_t AfterReboot  = 0;
  size_t AfterDefrag  = 0;
};

std::string Id (UINT64 RecordId) {
  return Format ("0x%016llX", static_cast<unsigned long long> (RecordId));
}

BootResult BootOn (const std::filesystem::path &Flash, std::ostream &Serial, const char *What) {
  BootOptions Options;
  Options.FlashImage      = Flash;
  Options.Serial          = &Serial;
  const BootResult Result = Boot (Options);
  Story () << "vornsim: " << What << ": module entry returned " << StatusText (Result.Status) << '\n';
  Document ()["boots"].push_back ({{"boot", What}, {"status", StatusText (Result.Status)}});
  return Result;
}

void Count (const HandlerReport &Report, Tally &Totals) {
  Totals.Sci += Report.Signal == Notification::Sci ? 1 : 0;
  Totals.Nmi += Report.Signal == Notification::Nmi ? 1 : 0;
  for (const Json &Block : Document ()["errors"].back ()["os"]) {
    Totals.Acknowledged += Block["outcome"] == "acknowledged" ? 1 : 0;
  }
}

//
// One error from the handler to the OS, counted.
//
void ReportError (GhesReader &Os, UINTN Cpu, const char *KindName, UINT32 Severity, Tally &Totals) {
  const ErrorKind &Kind = FindErrorKind (KindName);
  const bool       Dead = Os.Panicked ();
  Count (InjectRecord (Os, Cpu, BuildKindRecord (Kind, Severity), Severity,
                       Format ("%s error, severity %s", Kind.Name, CperSeverityName (Severity).c_str ())),
         Totals);
  if (!Dead && Os.Panicked ()) {
    Story () << "vornsim: scenario: Linux would have panicked here and rebooted; the story goes on as if it had "
                "not\n";
  }
}

//
// The errors: a corrected memory error by SCI, a fatal PCIe error by NMI;
// the OS reads each, and the handler then reclaims the blocks.
//
void ReportErrors (const BootResult &Booted, Tally &Totals) {
  GhesReader Os (Booted.Platform.Hest, Story ());
  PlatformOscGrantsApei ();
  ReportError (Os, kMemoryHandlerCpu, "memory", EFI_GENERIC_ERROR_CORRECTED, Totals);
  ReportError (Os, kPcieHandlerCpu, "pcie", EFI_GENERIC_ERROR_FATAL, Totals);
  const std::string Cleared = StatusText (ErrorHandlerAgent (kMemoryHandlerCpu).ClearAll ());
  Story () << "handler: processor " << kMemoryHandlerCpu << ": ElogClearAll " << Cleared << '\n';
  Document ()["clear_all"] = Cleared;
}

size_t ListRecords (ErstDriver &Erst) {
  const ErstListing Listing = Erst.List ();
  Story () << Format ("os: erst list: %zu record%s", Listing.Ids.size (), Listing.Ids.size () == 1 ? "" : "s");
  if (Listing.End != ErstListEnd::NoMoreRecords) {
    Story () << " (" << ErstListEndText (Listing) << ")";
  }
  Json Ids = Json::array ();
  for (size_t Index = 0; Index < Listing.Ids.size (); Index++) {
    Story () << (Index == 0 ? ": " : " ") << Id (Listing.Ids[Index]);
    Ids.push_back (Id (Listing.Ids[Index]));
  }
  Story () << '\n';
  Document ()["erst"].push_back ({{"operation", "list"}, {"record_ids", Ids}, {"end", ErstListEndText (Listing)}});
  return Listing.Ids.size ();
}

void Note (const char *Operation, UINT64 RecordId, ErstResult Result) {
  Document ()["erst"].push_back (
      {{"operation", Operation}, {"record_id", Id (RecordId)}, {"result", ErstResultText (Result)}});
}

void StoreAndClear (ErstDriver &Erst, Tally &Totals) {
  UINT64 RecordId = kFirstStoredId;
  for (const char *KindName : kStoredKinds) {
    const ErrorKind &Kind = FindErrorKind (KindName);
    Cper::RecordSpec Spec;
    Spec.Kind                       = Kind.Section;
    Spec.HeaderSeverity             = Kind.DefaultSeverity;
    Spec.SectionSeverity            = Kind.DefaultSeverity;
    Spec.RecordId                   = RecordId++;
    const std::vector<UINT8> Record = Cper::BuildRecord (Spec);
    const ErstResult         Result = Erst.Write (Record);
    Totals.Written += Result == ErstResult::Success ? 1 : 0;
    Story () << Format ("os: erst write %s (%s record, %zu bytes): %s\n", Id (Spec.RecordId).c_str (), Kind.Name,
                        Record.size (), ErstResultText (Result));
    Note ("write", Spec.RecordId, Result);
  }
  ListRecords (Erst);

  const ErstResult Result = Erst.Clear (kClearedRecordId);
  Totals.Cleared += Result == ErstResult::Success ? 1 : 0;
  Story () << Format ("os: erst clear %s: %s\n", Id (kClearedRecordId).c_str (), ErstResultText (Result));
  Note ("clear", kClearedRecordId, Result);
  const UINT64 Count = Erst.RecordCount ();
  Story () << Format ("os: erst count: %llu\n", static_cast<unsigned long long> (Count));
  Document ()["erst"].push_back ({{"operation", "count"}, {"record_count", Count}});
}

int RunScenario (std::span<const std::string> Arguments) {
  const ParsedArguments Parsed = ParseArguments (Arguments, kScenarioOptions);
  if (!Parsed.Positionals.empty ()) {
    throw UsageError ("unexpected argument '" + Parsed.Positionals.front () + "'");
  }
  const auto                  FlashOption = Parsed.Options.find ("--flash");
  const std::filesystem::path Flash =
      FlashOption != Parsed.Options.end () ? FlashOption->second : kDefaultScenarioImage;

  SerialLog Log (Parsed, kDefaultSerialLog, true);
  // A new machine: the story starts on the factory flash image.
  std::filesystem::remove (Flash);
  Story () << "vornsim: scenario: serial log in " << Log.File () << ", flash image " << Flash.string ()
           << " (factory image)\n";
  Document ()["serial_log"]  = Log.File ();
  Document ()["flash_image"] = Flash.string ();
  Document ()["errors"]      = Json::array ();
  Document ()["erst"]        = Json::array ();

  Tally Totals;
  {
    const BootResult Booted = BootOn (Flash, Log.Stream (), "boot");
    ReportErrors (Booted, Totals);
    ErstDriver Erst (Booted.Platform.Erst);
    StoreAndClear (Erst, Totals);
  }
  {
    // The records outlive the reboot; once the platform grants APEI to the
    // OS again the firmware marks them obsolete.
    const BootResult Rebooted = BootOn (Flash, Log.Stream (), "reboot");
    ErstDriver       Erst (Rebooted.Platform.Erst);
    Totals.AfterReboot = ListRecords (Erst);
    PlatformOscGrantsApei (": the firmware marks the stored records obsolete");
  }
  {
    // Start-up drops the obsolete records.
    const BootResult Rebooted = BootOn (Flash, Log.Stream (), "reboot");
    ErstDriver       Erst (Rebooted.Platform.Erst);
    Totals.AfterDefrag = ListRecords (Erst);
  }

  Log.Finish ();
  Story () << Format ("vornsim: summary: %d errors reported (%d by SCI, %d by NMI), %d status blocks read and "
                      "acknowledged; %d ERST records written, %d cleared, %zu listed after the first reboot, %zu "
                      "after the second; %llu serial log lines in %s\n",
                      Totals.Sci + Totals.Nmi, Totals.Sci, Totals.Nmi, Totals.Acknowledged, Totals.Written,
                      Totals.Cleared, Totals.AfterReboot, Totals.AfterDefrag,
                      static_cast<unsigned long long> (Log.Lines ()), Log.File ().c_str ());
  ReportHealth (Log);
  return kExitSuccess;
}

} // namespace

const Command kScenarioCommand = {
    "scenario",
    "the whole story, from boot through errors and ERST records to a reboot",
    "usage: vornsim scenario [--log FILE] [--flash FILE]\n"
    "       vornsim\n"
    "\n"
    "Runs the whole story on a new machine:\n"
    "  1. the module boots on the factory flash image;\n"
    "  2. the OS asks for APEI through the WHEA _OSC, and the platform's _OSC\n"
    "     method grants it by raising software SMI 0x9E;\n"
    "  3. a memory handler on processor 2 reports a corrected memory error: SCI;\n"
    "  4. a PCIe handler on processor 5 reports a fatal PCIe error: NMI; Linux\n"
    "     panics on it, and the story notes that and goes on;\n"
    "     after each notification the OS reads, checks, decodes and acknowledges\n"
    "     the status blocks, and at the end the handler clears them (ElogClearAll);\n"
    "  5. the OS stores three records through the ERST (identifiers 1 to 3),\n"
    "     lists them, clears record 2 and reads the record count;\n"
    "  6. the machine reboots on the same flash image and the OS lists the stored\n"
    "     records, then _OSC grants APEI again, which has the firmware mark them\n"
    "     obsolete;\n"
    "  7. the machine reboots again: start-up defragments the store, and the OS\n"
    "     lists what is left.\n"
    "\n"
    "  --log FILE    the serial log (default vornsim-serial.log)\n"
    "  --flash FILE  the flash image (default vornsim-scenario.img, not the image\n"
    "                the other commands share); it is replaced by the factory\n"
    "                image first and left as the story ends, so the 'erst'\n"
    "                commands can look at it afterwards with --flash\n"
    "\n"
    "The serial log of all three boots goes to the log file, byte for byte the same on\n"
    "every run. Standard output tells the story: lines starting \"handler: \" are\n"
    "the error handlers' calls, \"platform: \" the _OSC steps, \"os: \" what the OS\n"
    "reads and does, \"vornsim: \" the boots and the closing summary (--json: one\n"
    "JSON document instead). The health line goes to standard error.\n"
    "\n"
    "Exit status: 0 when the story ran, 1 when the platform could not be built or\n"
    "a file could not be written, 2 for bad arguments.\n",
    RunScenario,
};

} // namespace Sim
