/** @file
  An arbitrary HEST in the ACPI tables at the module's start-up, which looks
  up its generic error sources there and takes their status blocks.

  Input: the table. Its signature is made "HEST" and its Length the bytes
  given, and it ends at an inaccessible page; the ERST is the default one.
  The table vouches for the addresses its entries name: a fault at one of
  them is the platform's, allowed in both modes; a read past the table is
  the module's. The machine has no flash part: the store's discovery does
  not read the HEST, and ElogVolumeFuzz explores it.
**/
#include <algorithm>
#include <cstring>
#include <vector>

#include <IndustryStandard/Acpi.h>
#include <VornApeiLoggingSmm.h>

#include "Builder/AcpiRoot.h"
#include "Builder/AcpiTables.h"
#include "Builder/ModuleImage.h"
#include "FuzzPlatform.h"
#include "SpiFlash.h"

namespace {

//
// Whether some 8 bytes of the table name the register Address lies in: an
// entry may name an address on the page that follows the table.
//
bool TableNames (const std::vector<UINT8> &Table, UINT64 Address) {
  for (size_t Offset = 0; Offset + sizeof (UINT64) <= Table.size (); Offset++) {
    UINT64 Named;
    std::memcpy (&Named, &Table[Offset], sizeof (Named));
    if (Address - Named < sizeof (UINT64)) {
      return true;
    }
  }

  return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *Data, size_t Size) {
  std::vector<UINT8> Table (Data, Data + Size);
  Table.resize (std::max (Table.size (), sizeof (EFI_ACPI_DESCRIPTION_HEADER)));
  auto *Header      = reinterpret_cast<EFI_ACPI_DESCRIPTION_HEADER *> (Table.data ());
  Header->Signature = EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE;
  Header->Length    = static_cast<UINT32> (Table.size ());

  UINT64     Start = 0, End = 0;
  const auto Fault = Host::Contained ([&] {
    Host::ClearSerialOutput ();
    Host::Flash::Detach ();
    Host::PowerOn (Fuzz::Machine ());
    ModuleImageLoad ();
    Fuzz::GuardedWindow Hest (Host::AllocateAcpi, Table.size ());
    Start                 = Hest.Place (Table);
    End                   = Start + Table.size () + EFI_PAGE_SIZE;
    const UINT64 Tables[] = {Start, Sim::BuildDefaultAcpiPlatform ().Erst};
    Sim::BuildAcpiRoot (Tables);
    Host::FirmwareScope Firmware (Host::EntryKind::ModuleEntry);
    _ModuleEntryPoint (Host::ImageHandle (), Host::SystemTable ());
  });
  // A read past the table is the module's; an address its entries name is the platform's.
  Fuzz::Faulted (Fault,
                 Fault.has_value () && (Fault->Kind != Host::MachineFaultKind::Watchdog) &&
                     ((Fault->Address < Start) || (Fault->Address >= End) || TableNames (Table, Fault->Address)));
  return 0;
}
