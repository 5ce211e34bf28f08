/** @file
  CPER record fields for scripts.
**/
#include "Decode/CperSummary.h"

#include <cctype>
#include <cstring>

#include <Guid/Cper.h>

#include "Handlers/CperFile.h"
#include "Os/GhesReader.h"

namespace Sim {

CperSummary SummarizeCper (std::span<const UINT8> Record) {
  CperSummary Summary;
  try {
    CheckRecord (Record, RecordCheck::Sections);
  } catch (const CperFileError &Error) {
    Summary.Problem = Error.what ();
  }
  EFI_COMMON_ERROR_RECORD_HEADER Header;
  if (Record.size () < sizeof (Header)) {
    return Summary;
  }
  std::memcpy (&Header, Record.data (), sizeof (Header));
  Summary.RecordId     = Header.RecordID;
  Summary.Severity     = Header.ErrorSeverity;
  Summary.RecordLength = Header.RecordLength;
  Summary.SectionCount = Header.SectionCount;
  std::memcpy (Summary.Creator.data (), &Header.CreatorID, Summary.Creator.size ());
  const auto *Persistence = reinterpret_cast<const char *> (&Header.PersistenceInfo);
  if (std::isprint (static_cast<unsigned char> (Persistence[0])) &&
      std::isprint (static_cast<unsigned char> (Persistence[1]))) {
    Summary.PersistenceInfo.assign (Persistence, 2);
  }

  for (size_t Index = 0; Index < Header.SectionCount; Index++) {
    const size_t At = sizeof (Header) + Index * sizeof (EFI_ERROR_SECTION_DESCRIPTOR);
    if (At + sizeof (EFI_ERROR_SECTION_DESCRIPTOR) > Record.size ()) {
      break;
    }
    EFI_ERROR_SECTION_DESCRIPTOR Descriptor;
    std::memcpy (&Descriptor, Record.data () + At, sizeof (Descriptor));
    CperSectionSummary Section;
    std::memcpy (Section.Type.data (), &Descriptor.SectionType, Section.Type.size ());
    Section.TypeName = SectionTypeName (Section.Type);
    Section.Severity = Descriptor.Severity;
    Section.Offset   = Descriptor.SectionOffset;
    Section.Length   = Descriptor.SectionLength;
    Summary.Sections.push_back (Section);
  }
  return Summary;
}

} // namespace Sim
