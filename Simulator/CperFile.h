/** @file
  CPER records written by other tools, turned into the single-section form
  the logging protocol takes: the record header, its first section
  descriptor, and that section's body at byte 200.
**/
#pragma once

#include <filesystem>
#include <span>
#include <stdexcept>
#include <vector>

#include <Uefi.h>

namespace Sim {

//
// A record that cannot be reported; the message says why.
//
struct CperFileError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

//
// Checks Bytes as a CPER record: the "CPER" signature, RecordLength equal to
// the number of bytes, at least one section, and the first section wholly
// inside the record after the header and all descriptors. Returns the record
// rebuilt around its first section: SectionCount 1, SectionOffset 200, the
// body moved there and RecordLength adjusted; a record already in that form
// comes back unchanged. Throws CperFileError.
//
std::vector<UINT8> SingleSectionRecord (std::span<const UINT8> Bytes);

//
// Reads Path and returns SingleSectionRecord of it; errors name the file.
//
std::vector<UINT8> ReadSingleSectionRecord (const std::filesystem::path &Path);

} // namespace Sim
