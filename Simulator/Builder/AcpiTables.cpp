/** @file
  The default platform's ACPI tables.
**/
#include "Builder/AcpiTables.h"

namespace Sim {

AcpiPlatform BuildDefaultAcpiPlatform () {
  AcpiPlatform Platform;
  Platform.Hest         = BuildDefaultHest (Platform.StatusBlocks);
  Platform.Erst         = BuildDefaultErst (Platform.ErstRegisters);
  const UINT64 Tables[] = {Platform.Hest, Platform.Erst};
  Platform.Root         = BuildAcpiRoot (Tables);
  return Platform;
}

} // namespace Sim
