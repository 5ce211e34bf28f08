/** @file
  The fields a script wants from a CPER record, read without the module's
  printers: the header's identity and severity, and each section's type,
  severity and place. Used by --json, 'decode flash --summary' and the
  extracted files' index.
**/
#pragma once

#include <array>
#include <span>
#include <string>
#include <vector>

#include <Uefi.h>

namespace Sim {

struct CperSectionSummary {
  std::array<UINT8, 16> Type{};
  std::string           TypeName; // as the OS names it; "unknown" for a type it does not know
  UINT32                Severity = 0;
  UINT32                Offset   = 0;
  UINT32                Length   = 0;
};

struct CperSummary {
  std::string                     Problem; // why the bytes are not a whole CPER record; empty when they are
  UINT64                          RecordId     = 0;
  UINT32                          Severity     = 0;
  UINT32                          RecordLength = 0;
  UINT16                          SectionCount = 0;
  std::array<UINT8, 16>           Creator{};
  std::string                     PersistenceInfo; // its first two bytes when printable ("ER" from Linux)
  std::vector<CperSectionSummary> Sections;        // those whose descriptors lie inside the record
};

CperSummary SummarizeCper (std::span<const UINT8> Record);

} // namespace Sim
