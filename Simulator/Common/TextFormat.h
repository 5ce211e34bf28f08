/** @file
  printf-style formatting into std::string for the simulator's messages.
**/
#pragma once

#include <string>

namespace Sim {

std::string Format (const char *FormatString, ...) __attribute__ ((format (printf, 1, 2)));

} // namespace Sim
