/** @file
  JSON forms of the agents' reports.
**/
#include "Commands/JsonReports.h"

#include "Builder/Boot.h"
#include "Common/TextFormat.h"

namespace Sim {

namespace {

Json StatusJson (EFI_STATUS Status) {
  return StatusText (Status);
}

const char *OutcomeName (BlockOutcome Outcome) {
  switch (Outcome) {
    case BlockOutcome::NoBlock:
      return "no block";
    case BlockOutcome::Empty:
      return "empty";
    case BlockOutcome::Acknowledged:
      return "acknowledged";
    case BlockOutcome::Rejected:
      return "rejected";
  }
  return "unknown";
}

Json EntryJson (const GhesEntry &Entry) {
  Json Result = {{"section_type", GuidText (Entry.SectionType)},  {"section_name", Entry.SectionName},
                 {"severity", CperSeverityText (Entry.Severity)}, {"revision", Format ("0x%04X", Entry.Revision)},
                 {"validation_bits", Entry.ValidationBits},       {"error_data_length", Entry.Length}};
  if ((Entry.ValidationBits & 0x01) != 0) {
    Result["fru_id"] = GuidText (Entry.FruId);
  }
  if ((Entry.ValidationBits & 0x02) != 0) {
    Result["fru_text"] = Entry.FruText;
  }
  return Result;
}

} // namespace

std::string HexText (UINT64 Value) {
  return Format ("0x%016llX", static_cast<unsigned long long> (Value));
}

Json HandlerJson (const HandlerReport &Report, UINTN Cpu, const std::string &What) {
  Json Result = {{"processor", Cpu}, {"error", What}, {"locate", StatusJson (Report.Locate)}};
  if (Report.RecordAddress != 0) {
    Result["record_address"] = HexText (Report.RecordAddress);
  }
  Result["apei_os_loaded"] = Report.OsLoaded != FALSE;
  Result["record"]         = Report.Recorded ? StatusJson (Report.Record) : Json (nullptr);
  if (Report.Signal != Notification::None) {
    Result["signal"] = {{"kind", NotificationName (Report.Signal)}, {"status", StatusJson (Report.SignalStatus)}};
  } else {
    Result["signal"] = nullptr;
  }
  return Result;
}

Json BlocksJson (const std::vector<GhesBlockReport> &Blocks) {
  Json Result = Json::array ();
  for (const GhesBlockReport &Block : Blocks) {
    Json Item = {{"source_id", Format ("0x%04X", Block.SourceId)},
                 {"address", HexText (Block.Address)},
                 {"outcome", OutcomeName (Block.Outcome)},
                 {"block_status", Format ("0x%08X", Block.BlockStatus)},
                 {"severity", CperSeverityText (Block.Severity)}};
    if (!Block.Problem.empty ()) {
      Item["problem"] = Block.Problem;
    }
    Json Entries = Json::array ();
    for (const GhesEntry &Entry : Block.Entries) {
      Entries.push_back (EntryJson (Entry));
    }
    Item["entries"] = Entries;
    Result.push_back (Item);
  }
  return Result;
}

} // namespace Sim
