/** @file
  The ACPI tables of a simulated platform: where each table and each APEI
  register and status block lies in simulated memory.
**/
#pragma once

#include <vector>

#include "Builder/AcpiErst.h"
#include "Builder/AcpiHest.h"
#include "Builder/AcpiRoot.h"

namespace Sim {

struct AcpiPlatform {
  AcpiRootTables                     Root;
  UINT64                             Hest = 0;
  UINT64                             Erst = 0;
  std::vector<GhesPlacement>         StatusBlocks;  // in HEST order
  std::vector<ErstRegisterPlacement> ErstRegisters; // in entry order
};

//
// Builds the default platform's tables after Host::PowerOn: HEST with the
// NMI, SCI and VMware page-retire error sources and their status blocks, ERST,
// XSDT, RSDT and RSDP; publishes the RSDP.
//
AcpiPlatform BuildDefaultAcpiPlatform ();

} // namespace Sim
