/** @file
  Readable names for the built section kinds, so parameterised tests over
  them are listed by kind rather than by the enum's bytes.
**/
#pragma once

#include <ostream>
#include <string>

#include "Handlers/CperBuilder.h"

namespace Cper {

// The kind's command-line name made usable in a test name, e.g. "cxl_protocol".
std::string SectionKindName (SectionKind Kind);

// Found by gtest through the enum's namespace.
void PrintTo (SectionKind Kind, std::ostream *Out);

} // namespace Cper
