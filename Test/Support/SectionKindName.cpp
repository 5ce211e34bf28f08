/** @file
  Readable names for the built section kinds, taken from the kinds vornsim
  offers on its command line.
**/
#include "SectionKindName.h"

#include "Commands/ErrorInjection.h"

#include "ParamName.h"

namespace Cper {

std::string SectionKindName (SectionKind Kind) {
  for (const Sim::ErrorKind &Each : Sim::ErrorKinds ()) {
    if (Each.Section == Kind) {
      return ParamName (Each.Name);
    }
  }
  return "unknown";
}

void PrintTo (SectionKind Kind, std::ostream *Out) {
  *Out << SectionKindName (Kind);
}

} // namespace Cper
