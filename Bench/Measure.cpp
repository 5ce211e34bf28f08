/** @file
  Figures and checks of the bench.
**/
#include "Measure.h"

#include <stdexcept>

namespace Bench {

void Note (const std::string &Row, const std::string &Name, double Value) {
  std::printf ("{\"row\": \"%s\", \"%s\": %.6f}\n", Row.c_str (), Name.c_str (), Value);
  std::fflush (stdout);
}

void Require (bool Condition, const char *What) {
  if (!Condition) {
    throw std::runtime_error (What);
  }
}

} // namespace Bench
