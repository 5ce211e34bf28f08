/** @file
  Booting for the commands that act as the operating system.
**/
#include "Commands/OsSession.h"

#include <iostream>

#include "Common/TextFormat.h"

namespace Sim {

std::filesystem::path FlashImagePath (const ParsedArguments &Parsed) {
  const auto Flash = Parsed.Options.find ("--flash");
  return Flash != Parsed.Options.end () ? std::filesystem::path (Flash->second) : kDefaultFlashImage;
}

OsSession::OsSession (const ParsedArguments &Parsed) {
  BootOptions Options;
  Options.FlashImage = FlashImagePath (Parsed);
  if (auto Acpi = Parsed.Options.find ("--acpi"); Acpi != Parsed.Options.end ()) {
    Options.AcpiDirectory = Acpi->second;
  }

  mSerial = &std::cout;
  if (auto LogPath = Parsed.Options.find ("--log"); LogPath != Parsed.Options.end ()) {
    mLog.open (LogPath->second, std::ios::binary | std::ios::trunc);
    if (!mLog) {
      throw std::runtime_error (Format ("%s: cannot open the log file", LogPath->second.c_str ()));
    }
    mSerial = &mLog;
  }

  Options.Serial = mSerial;
  Options.Report = &std::cerr;
  try {
    mBooted = Boot (Options);
  } catch (...) {
    Host::SetSerialSink (nullptr);
    throw;
  }
  std::cerr << "vornsim: module entry returned " << StatusText (mBooted.Status) << '\n';
}

OsSession::~OsSession () {
  Host::SetSerialSink (nullptr);
}

const BootResult &OsSession::Booted () const {
  return mBooted;
}

void OsSession::Finish () {
  Host::SetSerialSink (nullptr);
  mSerial->flush ();
  if (!*mSerial) {
    throw std::runtime_error ("the serial log could not be written");
  }
}

} // namespace Sim
