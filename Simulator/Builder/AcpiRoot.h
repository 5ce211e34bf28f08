/** @file
  The root of the ACPI tables: RSDP, XSDT and RSDT around a list of tables,
  published in the configuration table as platform firmware does.
**/
#pragma once

#include <span>

#include <Uefi.h>

namespace Sim {

struct AcpiRootTables {
  UINT64 Rsdp = 0;
  UINT64 Xsdt = 0;
  UINT64 Rsdt = 0;
};

//
// Builds an XSDT and an RSDT listing Tables in order, and an RSDP (revision
// 2) pointing at both, in ACPI memory; publishes the RSDP under both ACPI
// GUIDs. Every table must lie below 4 GiB (the RSDT holds 32-bit entries).
//
AcpiRootTables BuildAcpiRoot (std::span<const UINT64> Tables);

} // namespace Sim
