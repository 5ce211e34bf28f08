/** @file
  printf-style text for building expected log lines in tests.
**/
#include "TestFormat.h"

#include <cstdarg>
#include <cstdio>

std::string Format (const char *Fmt, ...) {
  va_list Args;
  va_start (Args, Fmt);
  va_list Copy;
  va_copy (Copy, Args);
  const int Size = std::vsnprintf (nullptr, 0, Fmt, Copy);
  va_end (Copy);
  std::string Text (static_cast<std::size_t> (Size), '\0');
  std::vsnprintf (Text.data (), Text.size () + 1, Fmt, Args);
  va_end (Args);
  return Text;
}
