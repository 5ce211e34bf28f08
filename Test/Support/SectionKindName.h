/** @file
  Readable names for the built section kinds, so parameterised tests over
  them are listed by kind rather than by the enum's bytes.
**/
#pragma once

#include <ostream>

#include <CperBuilder.h>

namespace Cper {

// The enumerator's own name, e.g. "CxlProtocol"; usable in a test name.
const char *SectionKindName (SectionKind Kind);

// Found by gtest through the enum's namespace.
void PrintTo (SectionKind Kind, std::ostream *Out);

} // namespace Cper
