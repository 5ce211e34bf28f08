/** @file
  Module boot on the simulated platform.
**/
#include "Builder/Boot.h"

#include <stdexcept>

#include <Library/PrintLib.h>
#include <VornApeiLoggingSmm.h>

#include <Firmware.h>
#include <SpiFlash.h>

#include "Builder/AcpiLoader.h"
#include "Builder/Fixes.h"
#include "Builder/FlashImage.h"
#include "Builder/ModuleImage.h"

namespace Sim {

namespace {

std::optional<UINT32> mPrintLevel;

} // namespace

Host::MachineConfig DefaultMachine () {
  Host::MachineConfig Config;
  Config.CorErrLoggingThreshold = u"Enabled";
  Config.Fixes                  = SelectedFixes ();
  Config.ErstSpareBase          = FlashImage::SpareAreaAddress ();
  Config.ErstSpareSize          = FlashImage::kSpareAreaLength;
  Config.DebugPrintErrorLevel   = mPrintLevel.value_or (Config.DebugPrintErrorLevel);
  return Config;
}

void SelectPrintLevel (UINT32 Level) {
  mPrintLevel = Level;
}

UINTN
ProcessorCount (const Host::Topology &Cpus) {
  return UINTN{Cpus.Sockets} * Cpus.CoresPerSocket * Cpus.ThreadsPerCore;
}

BootResult Boot (const BootOptions &Options) {
  if (Options.Cpu >= ProcessorCount (Options.Machine.Cpus)) {
    throw std::logic_error ("boot processor outside the topology");
  }

  if (Options.FlashImage.has_value ()) {
    // The protocols come from the image as it is at power-on.
    const bool Exists = std::filesystem::exists (*Options.FlashImage);
    Host::Flash::AttachFile (*Options.FlashImage, Exists ? std::vector<UINT8> () : FlashImage::BuildDefault ());
  }
  Host::PowerOn (Options.Machine);
  ModuleImageLoad ();
  Host::SetSerialSink (Options.Serial);

  BootResult Result;
  if (Options.AcpiDirectory.has_value ()) {
    std::ostream Discard (nullptr);
    Result.Platform = LoadAcpiPlatform (*Options.AcpiDirectory, Options.Report != nullptr ? *Options.Report : Discard);
  } else {
    Result.Platform = BuildDefaultAcpiPlatform ();
  }

  Host::SetCurrentCpu (Options.Cpu);
  Host::FirmwareScope Firmware (Host::EntryKind::ModuleEntry);
  Result.Status = _ModuleEntryPoint (Host::ImageHandle (), Host::SystemTable ());
  return Result;
}

std::string StatusText (EFI_STATUS Status) {
  CHAR8 Text[64];
  AsciiSPrint (Text, sizeof (Text), "%r", Status);
  return Text;
}

} // namespace Sim
