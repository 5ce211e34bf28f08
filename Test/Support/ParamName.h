/** @file
  Turns free text from a test case into a fragment gtest accepts in the name
  of a parameterised instance.
**/
#pragma once

#include <string>
#include <string_view>

// Letters and digits kept, each run of anything else one underscore, none at
// either end: "boot --cpu 3x" gives "boot_cpu_3x".
std::string ParamName (std::string_view Text);
