/** @file
  ERST registers as an OS driver reaches them: the Generic Address Structure
  of an instruction entry checked before use, then read and written at its
  access width, system memory by pointer and system I/O through the port
  model (so a write to the SMI command port raises the SMI).
**/
#pragma once

#include <string>

#include <IndustryStandard/Acpi.h>

namespace Sim {

using ErstGas = EFI_ACPI_6_3_GENERIC_ADDRESS_STRUCTURE;

//
// Bits moved per access: from the access size code (1 byte .. 4 qword), or
// the register's own width when the table names too small an access for an
// aligned, unshifted 32- or 64-bit register (a common firmware slip that OS
// drivers put right). 0 for an access size code outside 1..4.
//
UINT32 ErstAccessWidth (const ErstGas &Register);

//
// Why an OS refuses the register, or an empty string when it is usable:
// address 0, access size code outside 1..4, bit offset plus bit width beyond
// the access width, an address space other than system memory and system
// I/O. The simulated machine adds two limits: its ports are byte-wide, and a
// memory register must lie in memory the OS can map (ACPI, reserved and
// boot-services memory; never SMRAM).
//
std::string ErstRegisterProblem (const ErstGas &Register);

//
// True when [Address, Address + Length) lies in memory the OS can map.
//
bool ErstOsMemory (UINT64 Address, UINT64 Length);

//
// One access of the whole access width; no shift, no mask. The register
// must have passed ErstRegisterProblem.
//
UINT64 ErstRegisterRead (const ErstGas &Register);
void   ErstRegisterWrite (const ErstGas &Register, UINT64 Value);

} // namespace Sim
