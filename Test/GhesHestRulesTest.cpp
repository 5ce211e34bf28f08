/** @file
  The OS's reading of the HEST, rule by rule as Linux reads it: what
  disables HEST, what drops or skips one source, and what is capped.
**/

#include <cstring>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <Host.h>

#include "Builder/AcpiTables.h"
#include "Os/GhesReader.h"

namespace {

// The default HEST: three generic sources (ids 7, 8, 0xFFFE) of 64 bytes
// each from byte 40.
constexpr size_t kSource = 40;
constexpr size_t kSize   = 64;

struct HestRuleCase {
  const char *Name;
  size_t      Offset; // in the HEST
  size_t      Size;
  UINT64      Value;
  bool        Disabled;
  size_t      Sources; // sources the OS keeps
  const char *Problem; // the start of its first complaint; "" for none
};

class GhesHestRulesTest : public ::testing::TestWithParam<HestRuleCase> {};

TEST_P (GhesHestRulesTest, TheOsKeepsWhatLinuxKeeps) {
  const HestRuleCase &Case = GetParam ();
  Host::PowerOn ();
  const Sim::AcpiPlatform Platform = Sim::BuildDefaultAcpiPlatform ();
  std::memcpy (Host::At<UINT8> (Platform.Hest + Case.Offset), &Case.Value, Case.Size);

  std::ostringstream    Out;
  const Sim::GhesReader Os (Platform.Hest, Out);
  EXPECT_EQ (Case.Disabled, Os.Disabled ());
  EXPECT_EQ (Case.Sources, Os.Sources ().size ());
  const std::string First = Os.TableProblems ().empty () ? "" : Os.TableProblems ().front ();
  EXPECT_EQ (0u, First.find (Case.Problem)) << First;
  if (std::string (Case.Problem).starts_with ("Error status block length is too long")) {
    EXPECT_EQ (0x10000u, Os.Sources ().front ().StatusBlockLength);
  }
}

INSTANTIATE_TEST_SUITE_P (
    Tables,
    GhesHestRulesTest,
    ::testing::Values (HestRuleCase{"AsBuilt", 0, 0, 0, false, 3, ""},
                       HestRuleCase{"DisabledSourceIsSkipped", kSource + 7, 1, 0, false, 2, ""},
                       HestRuleCase{"DuplicatedIdDisablesHest", kSource + kSize + 2, 2, 7, true, 0,
                                    "Duplicated hardware error source ID: 7"},
                       HestRuleCase{"UnknownTypeDisablesHest", kSource + 2 * kSize, 2, 3, true, 0,
                                    "Unknown or unused hardware error source type: 3"},
                       HestRuleCase{"StatusAddressInPciSpaceDropsTheSource", kSource + 20, 1, 2, false, 2,
                                    "generic hardware error source 7 dropped: Error Status Address: "},
                       HestRuleCase{"BlockShorterThanItsHeaderDropsTheSource", kSource + 60, 4, 19, false, 2,
                                    "generic hardware error source 7 dropped: Invalid error block length: 19"},
                       HestRuleCase{"BlockOver64KiBIsCapped", kSource + 60, 4, 0x20000, false, 3,
                                    "Error status block length is too long: 131072"}),
    [] (const auto &Info) { return std::string (Info.param.Name); });

} // namespace
