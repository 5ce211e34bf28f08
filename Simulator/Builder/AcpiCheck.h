/** @file
  Validation of HEST and ERST tables taken from outside (files dumped from a
  real server or compiled with iasl) before they are placed in simulated
  memory: a malformed table is refused with a message, never walked blindly.
**/
#pragma once

#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include <IndustryStandard/Acpi.h>

namespace Sim {

//
// A table that cannot be used; the message says why.
//
struct AcpiTableError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

//
// One error source structure found by the HEST walk.
//
struct HestSource {
  UINT32 Index;
  UINT32 Offset;
  UINT16 Type;
  UINT32 Length;
};

//
// Checks the standard header against the bytes of a whole table: at least
// MinimumLength bytes, the expected Signature, and Length equal to the number
// of bytes. A wrong checksum is not an error (the simulator rewrites the
// checksum once it has placed its registers, as firmware does): it adds a
// line to Warnings.
//
void CheckAcpiTable (std::span<const UINT8>    Bytes,
                     UINT32                    Signature,
                     size_t                    MinimumLength,
                     std::vector<std::string> &Warnings);

//
// Walks the error source structures of a checked HEST. Every structure must be
// of a type ACPI defines for x86 (0, 1, 2, 6 to 11), lie wholly inside the
// table, and the last one must end at the table's end. A generic hardware
// error source (type 9 or 10) must have its Error Status Address in system
// memory and a status block long enough for the status header.
//
std::vector<HestSource> WalkHest (std::span<const UINT8> Bytes);

//
// Checks the body of an ERST: Length = 48 + 32 x InstructionEntryCount. The
// module patches exactly 16 entries in action order; another count or order
// is accepted with a warning, since it is what a firmware engineer wants to
// see the module meet.
//
void CheckErst (std::span<const UINT8> Bytes, std::vector<std::string> &Warnings);

} // namespace Sim
