/** @file
  Booting for the commands that act as the operating system.
**/
#include "Commands/OsSession.h"

#include <iostream>

#include "Commands/Health.h"
#include "Commands/SharedOptions.h"

namespace Sim {

std::filesystem::path FlashImagePath (const ParsedArguments &Parsed) {
  const auto Flash = Parsed.Options.find ("--flash");
  return Flash != Parsed.Options.end () ? std::filesystem::path (Flash->second) : kDefaultFlashImage;
}

OsSession::OsSession (const ParsedArguments &Parsed, UINTN Cpu) : mLog (Parsed) {
  BootOptions Options;
  Options.FlashImage = FlashImagePath (Parsed);
  Options.Cpu        = Cpu;
  if (auto Acpi = Parsed.Options.find ("--acpi"); Acpi != Parsed.Options.end ()) {
    Options.AcpiDirectory = Acpi->second;
  }
  Options.Serial = &mLog.Stream ();
  // Under -q the story and the summary are all the terminal gets.
  Options.Report = Shared ().Quiet ? nullptr : &std::cerr;
  mBooted        = Boot (Options);

  const std::string Status = StatusText (mBooted.Status);
  if (Shared ().Json) {
    Document ()["boot"] = {{"status", Status},
                           {"flash_image", Options.FlashImage->string ()},
                           {"serial_log", mLog.File ().empty () ? Json (nullptr) : Json (mLog.File ())}};
    return;
  }
  if (!mLog.File ().empty ()) {
    std::cerr << "vornsim: serial log in " << mLog.File () << '\n';
  }
  std::cerr << "vornsim: module entry returned " << Status << '\n';
}

const BootResult &OsSession::Booted () const {
  return mBooted;
}

void OsSession::Finish () {
  mLog.Finish ();
  ReportHealth (mLog);
}

} // namespace Sim
