/** @file
  Free text to a parameterised-instance name fragment.
**/
#include "ParamName.h"

#include <cctype>

std::string ParamName (std::string_view Text) {
  std::string Name;
  bool        Gap = false;
  for (const char C : Text) {
    if (std::isalnum (static_cast<unsigned char> (C)) == 0) {
      Gap = true;
      continue;
    }
    if (Gap && !Name.empty ()) {
      Name += '_';
    }
    Gap = false;
    Name += C;
  }
  return Name;
}
