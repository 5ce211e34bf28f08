/** @file
  The scenario tells its story on a factory image of its own: the image the
  other commands share keeps its records.
**/
#include <gtest/gtest.h>

#include <VornsimShell.h>

TEST (ScenarioImageTest, BareRunLeavesTheSharedImageAlone) {
  VornsimShell Vornsim;
  ASSERT_EQ (Vornsim ("erst write --generate --id 7").Status, 0);
  const std::vector<UINT8> Shared = Vornsim.Read ("vornsim-flash.img");

  ASSERT_EQ (Vornsim ("").Status, 0);
  EXPECT_EQ (Vornsim.Read ("vornsim-flash.img"), Shared);
  EXPECT_TRUE (std::filesystem::exists (Vornsim.File ("vornsim-scenario.img")));
  EXPECT_EQ (Vornsim ("erst list").Out.back (), "os:   0x0000000000000007");
}
