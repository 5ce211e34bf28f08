/** @file
  printf-style text for building expected log lines in tests.
**/
#pragma once

#include <string>

std::string Format (const char *Fmt, ...) __attribute__ ((format (printf, 1, 2)));
