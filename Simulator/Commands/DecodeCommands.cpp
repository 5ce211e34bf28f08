/** @file
  vornsim decode ...: decodes what a firmware engineer brings from a
  machine (a CPER record file, a flash dump) with the module's own printers,
  so the text reads as the firmware's serial log would.
**/
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>

#include <Library/DebugLib.h>
#include <Library/ElogStoreDump.h>
#include <Firmware.h>
#include <Host.h>
#include <SpiFlash.h>

#include "Builder/Boot.h"
#include "Commands/Commands.h"
#include "Commands/JsonReports.h"
#include "Commands/Progress.h"
#include "Commands/SharedOptions.h"
#include "Common/TextFormat.h"
#include "Decode/CperSummary.h"
#include "Decode/ErstStoreReader.h"
#include "Decode/FirmwarePrinter.h"
#include "Decode/FlashVolumeSvg.h"
#include "Handlers/CperFile.h"
#include "Os/GhesReader.h"

namespace Sim {

namespace {

// No SPI NOR part is larger (2 Gbit); a bigger file is not a flash dump, and
// reading it whole would take as much memory.
constexpr UINT64 kMaxImageBytes = 256 * 1024 * 1024;

constexpr const char *kDecodeFlashOptions[] = {"--extract", "--svg"};

std::string OnlyPositional (const ParsedArguments &Parsed, const char *What) {
  if (Parsed.Positionals.empty ()) {
    throw UsageError (std::string ("missing the ") + What);
  }
  if (Parsed.Positionals.size () > 1) {
    throw UsageError ("unexpected argument '" + Parsed.Positionals[1] + "'");
  }
  return Parsed.Positionals.front ();
}

Json SummaryJson (const CperSummary &Summary) {
  Json Result = {{"record_id", HexText (Summary.RecordId)},
                 {"severity", CperSeverityText (Summary.Severity)},
                 {"record_length", Summary.RecordLength},
                 {"section_count", Summary.SectionCount},
                 {"creator_id", GuidText (Summary.Creator)}};
  Result["persistence_information"] =
      Summary.PersistenceInfo.empty () ? Json (nullptr) : Json (Summary.PersistenceInfo);
  Json Sections = Json::array ();
  for (const CperSectionSummary &Section : Summary.Sections) {
    Sections.push_back ({{"section_type", GuidText (Section.Type)},
                         {"section_name", Section.TypeName},
                         {"severity", CperSeverityText (Section.Severity)},
                         {"offset", Section.Offset},
                         {"length", Section.Length}});
  }
  Result["sections"] = Sections;
  if (!Summary.Problem.empty ()) {
    Result["problem"] = Summary.Problem;
  }
  return Result;
}

int RunDecodeCper (std::span<const std::string> Arguments) {
  const std::string Path   = OnlyPositional (ParseArguments (Arguments, {}), "CPER record file");
  const auto        Record = ReadRecordFile (Path, RecordCheck::Sections);

  Document ()["file"]   = Path;
  Document ()["record"] = SummaryJson (SummarizeCper (Record));
  if (Shared ().Json) {
    return kExitSuccess;
  }
  FirmwarePrinter Printer (std::cout);
  Printer.PrintCperRecord (Record);
  Printer.Finish ();
  return kExitSuccess;
}

//
// A copy of the image, so nothing the decoder does can reach the file.
//
void AttachImage (const std::string &Path) {
  std::error_code Failure;
  const UINT64    Size = std::filesystem::file_size (Path, Failure);
  if (Failure) {
    throw std::runtime_error (Path + ": cannot open the flash image: " + Failure.message ());
  }
  if (Size > kMaxImageBytes) {
    throw std::runtime_error (Format ("%s: %llu bytes is larger than any SPI flash part (at most %llu MiB): not a "
                                      "flash image",
                                      Path.c_str (), static_cast<unsigned long long> (Size),
                                      static_cast<unsigned long long> (kMaxImageBytes >> 20)));
  }
  std::ifstream File (Path, std::ios::binary);
  if (!File) {
    throw std::runtime_error (Path + ": cannot open the flash image: " + std::strerror (errno));
  }
  std::vector<UINT8> Image (Size);
  if (!File.read (reinterpret_cast<char *> (Image.data ()), static_cast<std::streamsize> (Size))) {
    throw std::runtime_error (Path + ": cannot read the flash image: " + std::strerror (errno));
  }
  try {
    Host::Flash::AttachMemory (Image);
  } catch (const std::runtime_error &Error) {
    throw std::runtime_error (Path + ": " + Error.what ());
  }
}

const char *StateText (ErstRecordState State) {
  switch (State) {
    case ErstRecordState::ClearedByOspm:
      return "cleared by OSPM";
    case ErstRecordState::MarkedObsolete:
      return "marked obsolete by firmware";
    case ErstRecordState::Live:
      break;
  }
  return "live";
}

//
// The record's state as its two clear bytes tell it; a byte that is neither
// erased nor the clear mark is named as it is.
//
std::string FlagState (const ERST_ERROR_RECORD_FLAGS &Flags) {
  const struct {
    UINT8       Value;
    const char *Field;
    const char *Meaning;
  } Bytes[] = {{Flags.RecordClearPerOspm, "RecordClearPerOspm", "cleared by OSPM"},
               {Flags.RecordClearPerBios, "RecordClearPerBios", "marked obsolete by firmware"}};

  std::string State;
  for (const auto &Byte : Bytes) {
    const std::string Part = Byte.Value == ERST_RECORD_CLEAR_FLAG_VALUE ? std::string (Byte.Meaning)
                             : Byte.Value != 0xFF ? Format ("%s 0x%02X unexpected", Byte.Field, Byte.Value)
                                                  : std::string ();
    if (!Part.empty ()) {
      State += (State.empty () ? "" : ", ") + Part;
    }
  }
  return State.empty () ? "live" : State;
}

//
// What a decoder checks of one stored record before trusting its OS record.
//
struct RecordCheckResult {
  UINT8       Checksum   = 0; // what the OS record's bytes give
  bool        ChecksumOk = false;
  std::string Problem; // an OS record of length 0, or not a whole CPER record
};

RecordCheckResult Check (const ErstStoredRecord &Record) {
  RecordCheckResult Result;
  UINT8             Sum = 0;
  for (UINT8 Byte : Record.OsRecord) {
    Sum = static_cast<UINT8> (Sum + Byte);
  }
  // The firmware's checksum of nothing is 0xFF.
  Result.Checksum   = Record.OsRecord.empty () ? 0xFF : static_cast<UINT8> (0x100 - Sum);
  Result.ChecksumOk = Record.Header.OsRecordChecksum == Result.Checksum;
  if (Record.Header.OsRecordLength == 0) {
    Result.Problem = "OsRecordLength is 0: no OS record";
  } else {
    try {
      CheckRecord (Record.OsRecord, RecordCheck::Sections);
    } catch (const CperFileError &Error) {
      Result.Problem = Error.what ();
    }
  }
  return Result;
}

std::string RecordLine (size_t Index, const ErstStoredRecord &Record, const RecordCheckResult &Checked) {
  std::string Line = Format ("decode: record %zu @ %s: id %s, %u bytes, %s", Index,
                             HexText (Record.HeaderAddress).c_str (), HexText (Record.Header.OsRecordID).c_str (),
                             Record.Header.OsRecordLength, FlagState (Record.Flags).c_str ());
  if (!Checked.ChecksumOk) {
    Line += Format (", OsRecordChecksum 0x%02llX wrong (0x%02X is right)",
                    static_cast<unsigned long long> (Record.Header.OsRecordChecksum), Checked.Checksum);
  }
  return Line;
}

//
// One line a record: placement, state, checksum and what the CPER header says.
//
std::string SummaryLine (size_t Index, const ErstStoredRecord &Record, const RecordCheckResult &Checked) {
  std::string Line = RecordLine (Index, Record, Checked);
  if (!Checked.Problem.empty ()) {
    return Line + "; " + Checked.Problem + "\n";
  }
  const CperSummary Cper = SummarizeCper (Record.OsRecord);
  Line += Format ("; CPER %s, %u section%s", CperSeverityText (Cper.Severity), Cper.SectionCount,
                  Cper.SectionCount == 1 ? "" : "s");
  for (const CperSectionSummary &Section : Cper.Sections) {
    Line += ", " + Section.TypeName;
  }
  return Line + "\n";
}

void PrintRecord (FirmwarePrinter         &Printer,
                  size_t                   Index,
                  const ErstStoredRecord  &Record,
                  const RecordCheckResult &Checked) {
  ERST_ERROR_RECORD_HEADER Header = Record.Header;
  ERST_ERROR_RECORD_FLAGS  Flags  = Record.Flags;
  std::cout << RecordLine (Index, Record, Checked) << '\n';
  {
    Host::FirmwareScope Firmware (Host::EntryKind::HostPrinter, "DisplayErstRecordHeader");
    DisplayErstRecordHeader (&Header, DEBUG_INFO);
    DisplayErstErrorRecordFlags (&Flags, DEBUG_INFO);
  }
  if (Checked.Problem.empty ()) {
    Printer.PrintCperRecord (Record.OsRecord);
  } else {
    std::cout << Format ("decode: record %zu: OS record not decoded: %s\n", Index, Checked.Problem.c_str ());
  }
}

std::string UsageLine (const ErstStoreUsage &Usage, size_t BadChecksums) {
  std::string Line =
      Format ("decode: %zu record%s (%zu live, %zu cleared by OSPM, %zu marked obsolete by firmware), "
              "%llu bytes used, %llu bytes free",
              Usage.Records, Usage.Records == 1 ? "" : "s", Usage.Live, Usage.Cleared, Usage.Obsolete,
              static_cast<unsigned long long> (Usage.UsedBytes), static_cast<unsigned long long> (Usage.FreeBytes));
  if (BadChecksums != 0) {
    Line += Format ("; %zu with a wrong OsRecordChecksum", BadChecksums);
  }
  return Line + "\n";
}

//
// Each stored OS record as a file of its own, named by its place in the
// chain and its identifier, so the files sort in store order.
//
std::filesystem::path Extract (const std::filesystem::path &Directory, size_t Index, const ErstStoredRecord &Record) {
  const std::filesystem::path File =
      Directory / Format ("erst-%04zu-%016llX.cper", Index, static_cast<unsigned long long> (Record.Header.OsRecordID));
  WriteBinaryFile (File, Record.OsRecord);
  return File;
}

void MakeDirectory (const std::filesystem::path &Directory) {
  std::error_code Failure;
  std::filesystem::create_directories (Directory, Failure);
  if (Failure) {
    throw std::runtime_error (Directory.string () + ": cannot create directory: " + Failure.message ());
  }
}

int RunDecodeFlash (std::span<const std::string> Arguments) {
  std::vector<std::string> Rest (Arguments.begin (), Arguments.end ());
  const bool               Brief   = std::erase (Rest, std::string ("--summary")) != 0;
  const ParsedArguments    Parsed  = ParseArguments (Rest, kDecodeFlashOptions);
  const std::string        Path    = OnlyPositional (Parsed, "flash image");
  const auto               Extract = Parsed.Options.find ("--extract");
  const auto               Svg     = Parsed.Options.find ("--svg");
  // Only the full decode runs the module's printers.
  const bool Printers = !Brief && !Shared ().Json;
  AttachImage (Path);

  std::optional<FirmwarePrinter> Printer;
  if (Printers) {
    Printer.emplace (std::cout);
  } else {
    // The part's volumes are found at power-on.
    Host::PowerOn (DefaultMachine ());
  }
  const auto Volume = FindErrorLogVolume ();
  if (!Volume) {
    throw std::runtime_error (Path + ": no firmware volume named gEfiWheaElogFvGuid (the error-log volume)");
  }
  Story () << Format ("decode: %s: error-log volume @ %s, %llu bytes; store header @ %s\n", Path.c_str (),
                      HexText (Volume->Address).c_str (), static_cast<unsigned long long> (Volume->Length),
                      HexText (Volume->StoreHeader).c_str ());
  Document ()["image"]  = Path;
  Document ()["volume"] = {{"address", HexText (Volume->Address)},
                           {"length", Volume->Length},
                           {"store_header", HexText (Volume->StoreHeader)}};

  ErstStoreContents Store = ReadErstStore (*Volume);
  if (Printers && Volume->Records () <= Volume->End ()) {
    Host::FirmwareScope Firmware (Host::EntryKind::HostPrinter, "DisplayErstStoreHeader");
    DisplayErstStoreHeader (&Store.StoreHeader, DEBUG_INFO);
  }
  if (Extract != Parsed.Options.end ()) {
    MakeDirectory (Extract->second);
  }

  Progress Shown ("decode flash");
  size_t   BadChecksums = 0;
  Json     Records      = Json::array ();
  for (size_t Index = 0; Index < Store.Records.size (); Index++) {
    Shown.Show (Format ("record %zu of %zu", Index + 1, Store.Records.size ()));
    const ErstStoredRecord &Record  = Store.Records[Index];
    const RecordCheckResult Checked = Check (Record);
    BadChecksums += Checked.ChecksumOk ? 0 : 1;
    if (Printers) {
      PrintRecord (*Printer, Index, Record, Checked);
    } else {
      Story () << SummaryLine (Index, Record, Checked);
    }
    Json Item = {{"index", Index},
                 {"header_address", HexText (Record.HeaderAddress)},
                 {"record_id", HexText (Record.Header.OsRecordID)},
                 {"os_record_length", Record.Header.OsRecordLength},
                 {"state", StateText (RecordState (Record.Flags))},
                 {"checksum_ok", Checked.ChecksumOk}};
    if (!Checked.Problem.empty ()) {
      Item["problem"] = Checked.Problem;
    } else {
      Item["cper"] = SummaryJson (SummarizeCper (Record.OsRecord));
    }
    if (Extract != Parsed.Options.end ()) {
      Item["file"] = Sim::Extract (Extract->second, Index, Record).string ();
    }
    Records.push_back (Item);
  }
  const ErstStoreUsage Usage = StoreUsage (*Volume, Store);
  Story () << UsageLine (Usage, BadChecksums);
  if (Printer) {
    Printer->Finish ();
  }
  Document ()["records"] = Records;
  Document ()["summary"] = {{"records", Usage.Records},         {"live", Usage.Live},
                            {"cleared_by_ospm", Usage.Cleared}, {"obsolete", Usage.Obsolete},
                            {"used_bytes", Usage.UsedBytes},    {"free_bytes", Usage.FreeBytes},
                            {"bad_checksums", BadChecksums}};
  if (Svg != Parsed.Options.end ()) {
    const std::string Picture = FlashVolumeSvg (*Volume, Store);
    WriteBinaryFile (Svg->second,
                     std::span<const UINT8> (reinterpret_cast<const UINT8 *> (Picture.data ()), Picture.size ()));
    Document ()["svg"] = Svg->second;
  }

  if (!Store.Corruption.empty ()) {
    Document ()["corruption"] = Store.Corruption;
    std::cerr << "vornsim: " << Path << ": corrupt store: " << Store.Corruption << '\n';
    return kExitFailure;
  }
  return kExitSuccess;
}

} // namespace

const Command kDecodeCperCommand = {
    "decode cper",
    "print a CPER record file as the firmware's serial log shows it",
    "usage: vornsim decode cper FILE\n"
    "\n"
    "Prints the CPER record in FILE with the module's own record printer\n"
    "(DisplayCperRecord at the info level): the record header, then each section\n"
    "descriptor and its section, exactly as the firmware's serial log shows a\n"
    "record. The record is copied into SMRAM first, so the addresses printed are\n"
    "SMRAM addresses, the same on every run. Nothing boots: the platform is only\n"
    "powered on and the debug log sink and error-log base library started on\n"
    "processor 0, so every line carries that processor's prefix\n"
    "(\"[SMM] APIC 0x00 S00:C00:T00 > \").\n"
    "\n"
    "  FILE  a CPER record with any number of sections: it must start with\n"
    "        \"CPER\", its RecordLength must equal the file's size, and every\n"
    "        section descriptor and every section must lie inside the record,\n"
    "        the sections after the header and all descriptors\n"
    "\n"
    "Exit status: 0 when the record was printed, 1 when FILE cannot be read or\n"
    "is not such a record (one line on standard error says why), 2 for bad\n"
    "arguments.\n",
    RunDecodeCper,
};

const Command kDecodeFlashCommand = {
    "decode flash",
    "print the ERST record store of a flash image, record by record",
    "usage: vornsim decode flash FILE [--summary] [--extract DIR] [--svg OUT]\n"
    "\n"
    "Decodes the ERST record store in a flash image: a dump of the platform's SPI\n"
    "part such as vornsim-flash.img. The file's size is checked before it is\n"
    "read: it must be a whole number of 4 KiB sectors and at most 256 MiB (the\n"
    "largest SPI NOR part). The image is read into memory (the file is never\n"
    "written) and mapped so that it ends at 4 GiB, as the part is (a 16 MiB\n"
    "image starts at 0xFF000000). The error-log volume is the first firmware\n"
    "volume (\"_FVH\") whose extended header names gEfiWheaElogFvGuid; the store\n"
    "header follows its extended header.\n"
    "\n"
    "Printed, in order, with the module's own printers where the firmware has\n"
    "one (lines with the processor prefix, as in 'vornsim decode cper'):\n"
    "  - where the volume and the store header lie (a \"decode: \" line), then\n"
    "    the store header;\n"
    "  - for each record of the chain, a \"decode: \" line with its header\n"
    "    address, identifier, OS record length and state (live, cleared by\n"
    "    OSPM, marked obsolete by firmware), and the OsRecordChecksum when it\n"
    "    does not match the OS record; then its record header, its flags and\n"
    "    its CPER record decoded as 'vornsim decode cper' does (an OS record\n"
    "    of length 0, or one that is not a whole CPER record, is named and\n"
    "    skipped, and the records after it are still printed);\n"
    "  - a summary: records, live, cleared and obsolete ones, bytes of the\n"
    "    record area used and free, and how many checksums are wrong.\n"
    "The chain ends at an erased record header, as the firmware's does. A store\n"
    "header without \"ERST LOG\", a record header with another signature, or a\n"
    "record or NextRecordHeaderAddress running off the volume stops the decode:\n"
    "what came before is printed, and the reason goes to standard error.\n"
    "\n"
    "  --summary      one line a record instead of the module's printers: its\n"
    "                 place, identifier, length, state and checksum, and the\n"
    "                 CPER severity and section types\n"
    "  --extract DIR  also write each stored OS record to DIR (created if\n"
    "                 needed) as erst-<index>-<identifier>.cper, in store order,\n"
    "                 for 'vornsim decode cper' and other CPER tools\n"
    "  --svg OUT      also draw the error-log volume to scale as an SVG picture:\n"
    "                 a 4 KiB erase block a row (wider rows past 64 blocks);\n"
    "                 headers, live, cleared and obsolete records, free space\n"
    "                 and the flash past the volume\n"
    "  --json         the volume, each record (with its CPER header and section\n"
    "                 types) and the summary as one JSON document\n"
    "\n"
    "Exit status: 0 when the whole store was decoded, 1 when FILE cannot be read\n"
    "or used as an image, holds no error-log volume, or its store is corrupt, 2\n"
    "for bad arguments.\n",
    RunDecodeFlash,
};

} // namespace Sim
