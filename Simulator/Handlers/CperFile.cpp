/** @file
  CPER record files: checks and the single-section form.
**/
#include "Handlers/CperFile.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

#include <Guid/Cper.h>

#include "Common/TextFormat.h"

namespace Sim {

namespace {

constexpr size_t kHeaderSize     = sizeof (EFI_COMMON_ERROR_RECORD_HEADER);
constexpr size_t kDescriptorSize = sizeof (EFI_ERROR_SECTION_DESCRIPTOR);
constexpr size_t kBodyOffset     = kHeaderSize + kDescriptorSize;

EFI_COMMON_ERROR_RECORD_HEADER CheckedHeader (std::span<const UINT8> Bytes) {
  EFI_COMMON_ERROR_RECORD_HEADER Header;
  if (Bytes.size () < kHeaderSize) {
    throw CperFileError (
        Format ("%zu bytes is shorter than a CPER record header (%zu bytes)", Bytes.size (), kHeaderSize));
  }
  std::memcpy (&Header, Bytes.data (), sizeof (Header));
  if (Header.SignatureStart != EFI_ERROR_RECORD_SIGNATURE_START) {
    throw CperFileError ("not a CPER record (no \"CPER\" signature)");
  }
  if (Header.RecordLength != Bytes.size ()) {
    throw CperFileError (
        Format ("RecordLength %u does not match the record's %zu bytes", Header.RecordLength, Bytes.size ()));
  }
  return Header;
}

EFI_ERROR_SECTION_DESCRIPTOR Descriptor (std::span<const UINT8> Bytes, UINT32 Index) {
  EFI_ERROR_SECTION_DESCRIPTOR Result;
  std::memcpy (&Result, Bytes.data () + kHeaderSize + Index * kDescriptorSize, sizeof (Result));
  return Result;
}

std::string SectionName (UINT32 Index) {
  return Index == 0 ? std::string ("the first section") : Format ("section %u", Index + 1);
}

//
// All SectionCount descriptors inside the record, and the first Count
// sections inside it after them.
//
void CheckSections (std::span<const UINT8> Bytes, const EFI_COMMON_ERROR_RECORD_HEADER &Header, UINT32 Count) {
  const UINT64 DescriptorsEnd = kHeaderSize + UINT64{Header.SectionCount} * kDescriptorSize;
  if (DescriptorsEnd > Bytes.size ()) {
    throw CperFileError (
        Format ("the %u section descriptors run past the record's %zu bytes", Header.SectionCount, Bytes.size ()));
  }

  for (UINT32 Index = 0; Index < Count; Index++) {
    const EFI_ERROR_SECTION_DESCRIPTOR Section = Descriptor (Bytes, Index);
    const std::string                  Name    = SectionName (Index);
    if (Section.SectionOffset < DescriptorsEnd) {
      throw CperFileError (Format ("%s's offset %u lies inside the header and descriptors (%llu bytes)", Name.c_str (),
                                   Section.SectionOffset, static_cast<unsigned long long> (DescriptorsEnd)));
    }
    if (UINT64{Section.SectionOffset} + Section.SectionLength > Bytes.size ()) {
      throw CperFileError (Format ("%s (offset %u, %u bytes) runs past the record's %zu bytes", Name.c_str (),
                                   Section.SectionOffset, Section.SectionLength, Bytes.size ()));
    }
  }
}

//
// Runs Check on the bytes of Path; its errors, and a file that cannot be
// opened, are reported with the file's name.
//
template <typename CheckRoutine>
std::vector<UINT8> ReadChecked (const std::filesystem::path &Path, CheckRoutine Check) {
  try {
    std::ifstream File (Path, std::ios::binary);
    if (!File) {
      throw CperFileError (Format ("cannot open the CPER record file: %s", std::strerror (errno)));
    }
    std::vector<UINT8> Bytes;
    try {
      Bytes.assign (std::istreambuf_iterator<char> (File), std::istreambuf_iterator<char> ());
    } catch (const std::ios_base::failure &) {
      // A directory opens but cannot be read.
      throw CperFileError (Format ("cannot read the CPER record file: %s", std::strerror (errno)));
    }
    return Check (std::move (Bytes));
  } catch (const CperFileError &Error) {
    throw CperFileError (Path.string () + ": " + Error.what ());
  }
}

} // namespace

void CheckRecord (std::span<const UINT8> Bytes, RecordCheck Check) {
  const EFI_COMMON_ERROR_RECORD_HEADER Header = CheckedHeader (Bytes);
  if (Check == RecordCheck::Sections) {
    CheckSections (Bytes, Header, Header.SectionCount);
  }
}

std::vector<UINT8> ReadRecordFile (const std::filesystem::path &Path, RecordCheck Check) {
  return ReadChecked (Path, [Check] (std::vector<UINT8> Bytes) {
    CheckRecord (Bytes, Check);
    return Bytes;
  });
}

std::vector<UINT8> SingleSectionRecord (std::span<const UINT8> Bytes) {
  EFI_COMMON_ERROR_RECORD_HEADER Header = CheckedHeader (Bytes);
  if (Header.SectionCount == 0) {
    throw CperFileError ("SectionCount is 0: the record has no section to report");
  }
  CheckSections (Bytes, Header, 1);

  EFI_ERROR_SECTION_DESCRIPTOR First = Descriptor (Bytes, 0);
  const auto                   Body  = Bytes.subspan (First.SectionOffset, First.SectionLength);
  Header.SectionCount                = 1;
  Header.RecordLength                = static_cast<UINT32> (kBodyOffset + Body.size ());
  First.SectionOffset                = static_cast<UINT32> (kBodyOffset);

  std::vector<UINT8> Record (kBodyOffset + Body.size ());
  std::memcpy (Record.data (), &Header, sizeof (Header));
  std::memcpy (Record.data () + kHeaderSize, &First, sizeof (First));
  std::memcpy (Record.data () + kBodyOffset, Body.data (), Body.size ());
  return Record;
}

std::vector<UINT8> ReadSingleSectionRecord (const std::filesystem::path &Path) {
  return ReadChecked (Path, [] (std::vector<UINT8> Bytes) { return SingleSectionRecord (Bytes); });
}

} // namespace Sim
