/** @file
  printf-style formatting into std::string.
**/
#include "Common/TextFormat.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>

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

void WriteBinaryFile (const std::filesystem::path &Path, std::span<const UINT8> Bytes) {
  errno = 0;
  std::ofstream File (Path, std::ios::binary | std::ios::trunc);
  File.write (reinterpret_cast<const char *> (Bytes.data ()), static_cast<std::streamsize> (Bytes.size ()));
  File.close ();
  if (!File) {
    throw std::runtime_error (
        Format ("%s: cannot write: %s", Path.c_str (), errno != 0 ? std::strerror (errno) : "write failed"));
  }
}

} // namespace Sim
