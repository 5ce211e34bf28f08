/** @file
  printf-style formatting into std::string.
**/
#include "Common/TextFormat.h"

#include <cstdarg>
#include <cstdio>

namespace Sim {

std::string Format (const char *FormatString, ...) {
  va_list Arguments;
  va_start (Arguments, FormatString);
  va_list Copy;
  va_copy (Copy, Arguments);
  const int Length = std::vsnprintf (nullptr, 0, FormatString, Copy);
  va_end (Copy);
  std::string Text (Length > 0 ? static_cast<size_t> (Length) : 0, '\0');
  if (Length > 0) {
    std::vsnprintf (Text.data (), Text.size () + 1, FormatString, Arguments);
  }
  va_end (Arguments);
  return Text;
}

} // namespace Sim
