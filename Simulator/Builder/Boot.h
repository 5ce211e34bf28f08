/** @file
  Booting the module on a simulated platform: power on, load the module
  image, build (or load) the ACPI tables, and run the image entry on a chosen
  processor, as the SMM core does when it dispatches the driver.
**/
#pragma once

#include <filesystem>
#include <optional>
#include <ostream>
#include <string>

#include <Host.h>

#include "Builder/AcpiTables.h"

namespace Sim {

//
// The default platform: the host's power-on settings, with the memory
// correctable-error threshold switched on in NVRAM as a production server
// ships, the erased flash range after the main volume offered to the ERST
// store as its spare, and the switches this run selected.
//
Host::MachineConfig DefaultMachine ();

//
// The run-time debug print level of every platform DefaultMachine gives from
// now on (vornsim's --print-level).
//
void SelectPrintLevel (UINT32 Level);

struct BootOptions {
  Host::MachineConfig                  Machine = DefaultMachine ();
  UINTN                                Cpu     = 0; // processor the entry runs on; below ProcessorCount (Machine.Cpus)
  std::optional<std::filesystem::path> AcpiDirectory; // HEST and ERST from files instead of the defaults
  std::optional<std::filesystem::path> FlashImage;    // flash image file, created from the default image when
                                                      // missing; nullopt: the flash as already attached
  std::ostream *Serial = nullptr;                     // serial log sink; the log is kept in Host::SerialOutput () too
  std::ostream *Report = nullptr;                     // what the ACPI loader placed where; null: not reported
};

struct BootResult {
  AcpiPlatform Platform;
  EFI_STATUS   Status = EFI_SUCCESS; // what the image entry returned
};

UINTN ProcessorCount (const Host::Topology &Cpus);

//
// Boots the module; the serial sink stays set for what runs next. Throws
// AcpiTableError when the ACPI files cannot be used.
//
BootResult Boot (const BootOptions &Options);

//
// An EFI_STATUS as the firmware prints it ("Success", "Not Found").
//
std::string StatusText (EFI_STATUS Status);

} // namespace Sim
