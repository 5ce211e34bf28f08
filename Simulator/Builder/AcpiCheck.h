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
  UINT16 SourceId;
};

//
// Where the walk over ErrorSourceCount structures stopped, if it did: at a
// structure of a type with no defined length, or one running past the
// table's Length.
//
enum class HestStop { None, UnknownType, Overflow };

struct HestWalk {
  std::vector<HestSource> Sources; // the structures before the stop
  HestStop                Stopped      = HestStop::None;
  UINT16                  StopType     = 0; // the structure the walk stopped at
  UINT16                  StopSourceId = 0;
  std::string             Problem; // the stop, or bytes left after the last structure; empty when neither
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
// The length of the error source structure at Offset by its type, as ACPI
// defines them for x86 (and Linux walks them): types 0 to 2 and 6 to 11,
// the machine check types with their 28-byte bank records. 0 for a type
// with no defined length.
//
UINT32 HestStructureLength (std::span<const UINT8> Bytes, size_t Offset);

//
// Walks the ErrorSourceCount structures of a HEST whose header passed
// CheckAcpiTable, as far as their types and the table's bytes allow.
//
HestWalk WalkHest (std::span<const UINT8> Bytes);

//
// Checks the body of an ERST: Length = 48 + 32 x InstructionEntryCount. The
// module patches exactly 16 entries in action order; another count or order
// is accepted with a warning, since it is what a firmware engineer wants to
// see the module meet.
//
void CheckErst (std::span<const UINT8> Bytes, std::vector<std::string> &Warnings);

} // namespace Sim
