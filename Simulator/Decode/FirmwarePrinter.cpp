/** @file
  The module's printers on a powered-on platform.
**/
#include "Decode/FirmwarePrinter.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <Firmware.h>
#include <Host.h>
#include <Library/DebugLib.h>
#include <Library/ElogBaseLib.h>
#include <Library/ElogCperDump.h>
#include <Library/VornPciSegmentInfoLib.h>
#include <Library/SmmServicesTableLib.h>
#include <Library/UefiBootServicesTableLib.h>
#include <Library/VornMultiThreadedDebugLib.h>

#include "Builder/Boot.h"
#include "Builder/ModuleImage.h"

namespace Sim {

namespace {

void Construct (const char *Library, EFI_STATUS (*Constructor) (EFI_HANDLE, EFI_SYSTEM_TABLE *)) {
  Host::FirmwareScope Firmware (Host::EntryKind::HostPrinter, Library);
  const EFI_STATUS    Status = Constructor (Host::ImageHandle (), Host::SystemTable ());
  if (EFI_ERROR (Status)) {
    throw std::runtime_error (std::string (Library) + " constructor returned " + StatusText (Status));
  }
}

} // namespace

FirmwarePrinter::FirmwarePrinter (std::ostream &Serial) : mSerial (Serial) {
  Host::PowerOn (DefaultMachine ());
  ModuleImageLoad ();
  Host::SetSerialSink (nullptr);
  Host::SetCurrentCpu (0);
  Construct ("debug log sink", VornMultiThreadedDebugLibConstructor);
  Construct ("boot services table", UefiBootServicesTableLibConstructor);
  Construct ("SMM services table", SmmServicesTableLibConstructor);
  Construct ("PCI segment information", PciSegmentInfoLibConstructor);
  Construct ("error-log base library", VornElogBaseLibConstructor);
  Host::ClearSerialOutput ();
  Host::SetSerialSink (&mSerial);
}

FirmwarePrinter::~FirmwarePrinter () {
  Host::SetSerialSink (nullptr);
}

void FirmwarePrinter::PrintCperRecord (const std::vector<UINT8> &Record) {
  if (Record.size () > mPlacementSize) {
    mPlacementSize = std::max<UINT64> (Record.size (), 2 * mPlacementSize);
    mPlacement     = Host::AllocateSmram (mPlacementSize);
  }

  //
  // The bytes past the record read as a fresh allocation would, not as the
  // tail of an earlier, longer record.
  //
  UINT8 *Placed = Host::At<UINT8> (mPlacement);
  std::memcpy (Placed, Record.data (), Record.size ());
  std::memset (Placed + Record.size (), 0, mPlacementSize - Record.size ());
  Host::FirmwareScope Firmware (Host::EntryKind::HostPrinter, "DisplayCperRecord");
  DisplayCperRecord (DEBUG_INFO, reinterpret_cast<CPER_RECORD *> (Placed));
}

void FirmwarePrinter::Finish () {
  Host::SetSerialSink (nullptr);
  mSerial.flush ();
  if (!mSerial) {
    throw std::runtime_error (std::string ("cannot write the decoded output: ") + std::strerror (errno));
  }
}

} // namespace Sim
