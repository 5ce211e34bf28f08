/** @file
  CPER record files written by other tools: the checks a record must pass
  before it is stored, reported or decoded, and its rebuilding into the
  single-section form the logging protocol takes (the record header, its
  first section descriptor, and that section's body at byte 200).
**/
#pragma once

#include <filesystem>
#include <span>
#include <stdexcept>
#include <vector>

#include <Uefi.h>

namespace Sim {

//
// A record that cannot be used; the message says why.
//
struct CperFileError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

enum class RecordCheck {
  Header,   // the "CPER" signature and a RecordLength equal to the number of
            // bytes: what an OS driver checks before storing a record
  Sections, // also every section descriptor, and every section wholly inside
            // the record after the header and all descriptors: what a
            // decoder needs before it follows the offsets
};

//
// Checks Bytes as one CPER record; throws CperFileError.
//
void CheckRecord (std::span<const UINT8> Bytes, RecordCheck Check);

//
// Reads Path whole and checks it; errors name the file.
//
std::vector<UINT8> ReadRecordFile (const std::filesystem::path &Path, RecordCheck Check);

//
// Checks Bytes as a CPER record with at least one section, the first of
// which must lie wholly inside the record after the header and all
// descriptors. Returns the record rebuilt around its first section:
// SectionCount 1, SectionOffset 200, the body moved there and RecordLength
// adjusted; a record already in that form comes back unchanged. Throws
// CperFileError.
//
std::vector<UINT8> SingleSectionRecord (std::span<const UINT8> Bytes);

//
// Reads Path and returns SingleSectionRecord of it; errors name the file.
//
std::vector<UINT8> ReadSingleSectionRecord (const std::filesystem::path &Path);

} // namespace Sim
