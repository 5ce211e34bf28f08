/** @file
  CPER record files for injection.
**/
#include "CperFile.h"

#include <cstring>
#include <fstream>
#include <iterator>

#include <Guid/Cper.h>

#include "TextFormat.h"

namespace Sim {

namespace {

constexpr size_t kHeaderSize     = sizeof (EFI_COMMON_ERROR_RECORD_HEADER);
constexpr size_t kDescriptorSize = sizeof (EFI_ERROR_SECTION_DESCRIPTOR);
constexpr size_t kBodyOffset     = kHeaderSize + kDescriptorSize;

} // namespace

std::vector<UINT8> SingleSectionRecord (std::span<const UINT8> Bytes) {
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
  if (Header.SectionCount == 0) {
    throw CperFileError ("SectionCount is 0: the record has no section to report");
  }
  const UINT64 DescriptorsEnd = kHeaderSize + UINT64{Header.SectionCount} * kDescriptorSize;
  if (DescriptorsEnd > Bytes.size ()) {
    throw CperFileError (
        Format ("the %u section descriptors run past the record's %zu bytes", Header.SectionCount, Bytes.size ()));
  }

  EFI_ERROR_SECTION_DESCRIPTOR Descriptor;
  std::memcpy (&Descriptor, Bytes.data () + kHeaderSize, sizeof (Descriptor));
  if (Descriptor.SectionOffset < DescriptorsEnd) {
    throw CperFileError (Format ("the first section's offset %u lies inside the header and descriptors (%llu bytes)",
                                 Descriptor.SectionOffset, static_cast<unsigned long long> (DescriptorsEnd)));
  }
  if (UINT64{Descriptor.SectionOffset} + Descriptor.SectionLength > Bytes.size ()) {
    throw CperFileError (Format ("the first section (offset %u, %u bytes) runs past the record's %zu bytes",
                                 Descriptor.SectionOffset, Descriptor.SectionLength, Bytes.size ()));
  }

  const auto Body          = Bytes.subspan (Descriptor.SectionOffset, Descriptor.SectionLength);
  Header.SectionCount      = 1;
  Header.RecordLength      = static_cast<UINT32> (kBodyOffset + Body.size ());
  Descriptor.SectionOffset = static_cast<UINT32> (kBodyOffset);

  std::vector<UINT8> Record (kBodyOffset + Body.size ());
  std::memcpy (Record.data (), &Header, sizeof (Header));
  std::memcpy (Record.data () + kHeaderSize, &Descriptor, sizeof (Descriptor));
  std::memcpy (Record.data () + kBodyOffset, Body.data (), Body.size ());
  return Record;
}

std::vector<UINT8> ReadSingleSectionRecord (const std::filesystem::path &Path) {
  std::ifstream File (Path, std::ios::binary);
  if (!File) {
    throw CperFileError (Path.string () + ": cannot open the CPER record file");
  }
  const std::vector<UINT8> Bytes ((std::istreambuf_iterator<char> (File)), std::istreambuf_iterator<char> ());
  try {
    return SingleSectionRecord (Bytes);
  } catch (const CperFileError &Error) {
    throw CperFileError (Path.string () + ": " + Error.what ());
  }
}

} // namespace Sim
