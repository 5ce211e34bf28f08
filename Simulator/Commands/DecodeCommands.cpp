/** @file
  vornsim decode ...: decodes what a firmware engineer brings from a
  machine (a CPER record file, a flash dump) with the module's own printers,
  so the text reads as the firmware's serial log would.
**/
#include <filesystem>
#include <fstream>
#include <iostream>

#include <Library/DebugLib.h>
#include <Library/ElogStoreDump.h>
#include <Firmware.h>
#include <SpiFlash.h>

#include "Commands/Commands.h"
#include "Handlers/CperFile.h"
#include "Decode/ErstStoreReader.h"
#include "Decode/FirmwarePrinter.h"
#include "Common/TextFormat.h"

namespace Sim {

namespace {

std::string OnlyPositional (const ParsedArguments &Parsed, const char *What) {
  if (Parsed.Positionals.empty ()) {
    throw UsageError (std::string ("missing the ") + What);
  }
  if (Parsed.Positionals.size () > 1) {
    throw UsageError ("unexpected argument '" + Parsed.Positionals[1] + "'");
  }
  return Parsed.Positionals.front ();
}

int RunDecodeCper (std::span<const std::string> Arguments) {
  const std::string Path   = OnlyPositional (ParseArguments (Arguments, {}), "CPER record file");
  const auto        Record = ReadRecordFile (Path, RecordCheck::Sections);

  FirmwarePrinter Printer (std::cout);
  Printer.PrintCperRecord (Record);
  Printer.Finish ();
  return 0;
}

//
// A copy of the image, so nothing the decoder does can reach the file.
//
void AttachImage (const std::string &Path) {
  std::error_code Failure;
  const UINT64    Size = std::filesystem::file_size (Path, Failure);
  std::ifstream   File (Path, std::ios::binary);
  if (Failure || !File) {
    throw std::runtime_error (Path + ": cannot open the flash image");
  }
  std::vector<UINT8> Image (Size);
  if (!File.read (reinterpret_cast<char *> (Image.data ()), static_cast<std::streamsize> (Size))) {
    throw std::runtime_error (Path + ": cannot read the flash image");
  }
  try {
    Host::Flash::AttachMemory (Image);
  } catch (const std::runtime_error &Error) {
    throw std::runtime_error (Path + ": " + Error.what ());
  }
}

std::string Hex (UINT64 Value) {
  return Format ("0x%016llX", static_cast<unsigned long long> (Value));
}

bool Marked (UINT8 Flag) {
  return Flag == ERST_RECORD_CLEAR_FLAG_VALUE;
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
    const std::string Part = Marked (Byte.Value)  ? std::string (Byte.Meaning)
                             : Byte.Value != 0xFF ? Format ("%s 0x%02X unexpected", Byte.Field, Byte.Value)
                                                  : std::string ();
    if (!Part.empty ()) {
      State += (State.empty () ? "" : ", ") + Part;
    }
  }
  return State.empty () ? "live" : State;
}

void PrintRecord (FirmwarePrinter &Printer, size_t Index, const ErstStoredRecord &Record) {
  ERST_ERROR_RECORD_HEADER Header = Record.Header;
  ERST_ERROR_RECORD_FLAGS  Flags  = Record.Flags;
  std::cout << Format ("decode: record %zu @ %s: id %s, %u bytes, %s\n", Index, Hex (Record.HeaderAddress).c_str (),
                       Hex (Record.Header.OsRecordID).c_str (), Record.Header.OsRecordLength,
                       FlagState (Record.Flags).c_str ());
  {
    Host::FirmwareScope Firmware (Host::EntryKind::HostPrinter, "DisplayErstRecordHeader");
    DisplayErstRecordHeader (&Header, DEBUG_INFO);
    DisplayErstErrorRecordFlags (&Flags, DEBUG_INFO);
  }
  try {
    CheckRecord (Record.OsRecord, RecordCheck::Sections);
    Printer.PrintCperRecord (Record.OsRecord);
  } catch (const CperFileError &Error) {
    std::cout << Format ("decode: record %zu: OS record not decoded: %s\n", Index, Error.what ());
  }
}

std::string Summary (const ErstVolume &Volume, const ErstStoreContents &Store) {
  size_t Live = 0, Cleared = 0, Obsolete = 0;
  for (const ErstStoredRecord &Record : Store.Records) {
    Cleared += Marked (Record.Flags.RecordClearPerOspm);
    Obsolete += Marked (Record.Flags.RecordClearPerBios);
    Live += !Marked (Record.Flags.RecordClearPerOspm) && !Marked (Record.Flags.RecordClearPerBios);
  }
  return Format ("decode: %zu record%s (%zu live, %zu cleared by OSPM, %zu marked obsolete by firmware), "
                 "%llu bytes used, %llu bytes free\n",
                 Store.Records.size (), Store.Records.size () == 1 ? "" : "s", Live, Cleared, Obsolete,
                 static_cast<unsigned long long> (Store.End - Volume.Records ()),
                 static_cast<unsigned long long> (Volume.End () - Store.End));
}

int RunDecodeFlash (std::span<const std::string> Arguments) {
  const std::string Path = OnlyPositional (ParseArguments (Arguments, {}), "flash image");
  AttachImage (Path);

  FirmwarePrinter Printer (std::cout);
  const auto      Volume = FindErrorLogVolume ();
  if (!Volume) {
    throw std::runtime_error (Path + ": no firmware volume named gEfiWheaElogFvGuid (the error-log volume)");
  }
  std::cout << Format ("decode: %s: error-log volume @ %s, %llu bytes; store header @ %s\n", Path.c_str (),
                       Hex (Volume->Address).c_str (), static_cast<unsigned long long> (Volume->Length),
                       Hex (Volume->StoreHeader).c_str ());

  ErstStoreContents Store = ReadErstStore (*Volume);
  if (Volume->Records () <= Volume->End ()) {
    Host::FirmwareScope Firmware (Host::EntryKind::HostPrinter, "DisplayErstStoreHeader");
    DisplayErstStoreHeader (&Store.StoreHeader, DEBUG_INFO);
  }
  for (size_t Index = 0; Index < Store.Records.size (); Index++) {
    PrintRecord (Printer, Index, Store.Records[Index]);
  }
  std::cout << Summary (*Volume, Store);
  Printer.Finish ();

  if (!Store.Corruption.empty ()) {
    std::cerr << "vornsim: " << Path << ": corrupt store: " << Store.Corruption << '\n';
    return 1;
  }
  return 0;
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
    "usage: vornsim decode flash FILE\n"
    "\n"
    "Decodes the ERST record store in a flash image: a dump of the platform's SPI\n"
    "part such as vornsim-flash.img. The image is read into memory (the file is\n"
    "never written) and mapped so that it ends at 4 GiB, as the part is: its size\n"
    "must be a whole number of 4 KiB sectors, at most 4 GiB (a 16 MiB image\n"
    "starts at 0xFF000000). The error-log volume is the first firmware volume\n"
    "(\"_FVH\") whose extended header names gEfiWheaElogFvGuid; the store header\n"
    "follows its extended header.\n"
    "\n"
    "Printed, in order, with the module's own printers where the firmware has\n"
    "one (lines with the processor prefix, as in 'vornsim decode cper'):\n"
    "  - where the volume and the store header lie (a \"decode: \" line), then\n"
    "    the store header;\n"
    "  - for each record of the chain, a \"decode: \" line with its header\n"
    "    address, identifier, OS record length and state (live, cleared by\n"
    "    OSPM, marked obsolete by firmware), then its record header, its flags\n"
    "    and its CPER record decoded as 'vornsim decode cper' does (an OS\n"
    "    record that is not a whole CPER record is named and skipped);\n"
    "  - a summary: records, live, cleared and obsolete ones, bytes of the\n"
    "    record area used and free.\n"
    "The chain ends at an erased record header, as the firmware's does. A store\n"
    "header without \"ERST LOG\", a record header with another signature, or a\n"
    "record or NextRecordHeaderAddress running off the volume stops the decode:\n"
    "what came before is printed, and the reason goes to standard error.\n"
    "\n"
    "Exit status: 0 when the whole store was decoded, 1 when FILE cannot be read\n"
    "or used as an image, holds no error-log volume, or its store is corrupt, 2\n"
    "for bad arguments.\n",
    RunDecodeFlash,
};

} // namespace Sim
