/** @file
  Common pieces of every ACPI table the simulator builds or loads: the
  platform's OEM identity, the standard header and the 8-bit checksum.
**/
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include <IndustryStandard/Acpi.h>

namespace Sim {

//
// The identity every table of the simulated platform carries.
//
inline constexpr char   kAcpiOemId[]         = "VORN  ";   // 6 bytes, blank padded
inline constexpr char   kAcpiOemTableId[]    = "VORNSIM "; // 8 bytes
inline constexpr UINT32 kAcpiOemRevision     = 1;
inline constexpr char   kAcpiCreatorId[]     = "VORN";
inline constexpr UINT32 kAcpiCreatorRevision = 1;

//
// The byte that makes Bytes sum to zero when stored in place of a zero byte.
//
UINT8 AcpiChecksum (std::span<const UINT8> Bytes);

//
// The 8-bit sum of Bytes; a valid table sums to 0.
//
UINT8 AcpiByteSum (std::span<const UINT8> Bytes);

//
// The table at Table, Length bytes as its header says.
//
std::span<UINT8> AcpiTableBytes (EFI_ACPI_DESCRIPTION_HEADER *Table);

//
// Recomputes the header checksum over the table's Length bytes.
//
void AcpiUpdateChecksum (EFI_ACPI_DESCRIPTION_HEADER *Table);

//
// Fills the standard header with the platform's identity; the checksum is
// left for AcpiUpdateChecksum once the body is complete.
//
void AcpiFillHeader (EFI_ACPI_DESCRIPTION_HEADER *Table, UINT32 Signature, UINT32 Length, UINT8 Revision);

//
// "HEST" for 0x54534548; unprintable bytes shown as '?'.
//
std::string AcpiSignatureText (UINT32 Signature);

} // namespace Sim
