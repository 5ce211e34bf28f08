/** @file
  Readable names for the built section kinds.
**/
#include "SectionKindName.h"

namespace Cper {

const char *SectionKindName (SectionKind Kind) {
  switch (Kind) {
    case SectionKind::Memory:
      return "Memory";
    case SectionKind::Pcie:
      return "Pcie";
    case SectionKind::CxlProtocol:
      return "CxlProtocol";
    case SectionKind::CxlComponent:
      return "CxlComponent";
    case SectionKind::ProcessorGeneric:
      return "ProcessorGeneric";
    case SectionKind::ProcessorSpecific:
      return "ProcessorSpecific";
    case SectionKind::PciComponent:
      return "PciComponent";
  }
  return "Unknown";
}

void PrintTo (SectionKind Kind, std::ostream *Out) {
  *Out << SectionKindName (Kind);
}

} // namespace Cper
