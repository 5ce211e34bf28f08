/** @file
  printf-style formatting into std::string for the simulator's messages, and
  writing a file with a message that says why it failed.
**/
#pragma once

#include <filesystem>
#include <span>
#include <string>

#include <Uefi.h>

namespace Sim {

std::string Format (const char *FormatString, ...) __attribute__ ((format (printf, 1, 2)));

//
// Writes Bytes to Path, replacing it; throws std::runtime_error naming the
// file and the reason.
//
void WriteBinaryFile (const std::filesystem::path &Path, std::span<const UINT8> Bytes);

} // namespace Sim
