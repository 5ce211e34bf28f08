/** @file
  Turns free text from a test case into a fragment gtest accepts in the name
  of a parameterised instance.
**/
#pragma once

#include <string>
#include <string_view>

#include <gtest/gtest.h>

// Letters and digits kept, each run of anything else one underscore, none at
// either end: "boot --cpu 3x" gives "boot_cpu_3x".
std::string ParamName (std::string_view Text);

// Names each instance of a table-driven test after its case's Name.
struct CaseName {
  template <typename T> std::string operator() (const ::testing::TestParamInfo<T> &Info) const {
    return ParamName (Info.param.Name);
  }
};
