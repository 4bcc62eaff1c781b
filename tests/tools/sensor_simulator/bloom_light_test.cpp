#include "sensor_simulator/bloom_light.h"

#include <gtest/gtest.h>

namespace kerul::lidar::simulator {
namespace {

const BloomSpots& At(const std::vector<BloomSpots>& light, int row, int col) {
  return light[static_cast<std::size_t>(PixelIndex(row, col))];
}

TEST(SpreadBloom, NoSourceGivesNoTable) { EXPECT_TRUE(SpreadBloom({}).empty()); }

TEST(SpreadBloom, LightFallsWithDistanceAndLeavesTheSourceAlone) {
  const auto light = SpreadBloom({{100, 100, 1e6, 12.0}});
  EXPECT_EQ(At(light, 100, 100)[0].strength, 0.0);
  EXPECT_DOUBLE_EQ(At(light, 100, 103)[0].strength, 1e6 * BloomShare(3.0));
  EXPECT_DOUBLE_EQ(At(light, 104, 103)[0].strength, 1e6 * BloomShare(5.0));
  EXPECT_DOUBLE_EQ(At(light, 100, 103)[0].range_m, 12.0);
  EXPECT_EQ(At(light, 100, 115)[0].strength, 0.0);
  EXPECT_GT(BloomShare(3.0), BloomShare(5.0));
}

TEST(SpreadBloom, SourcesAtOneRangeAddUpAndOthersStayApart) {
  const auto light = SpreadBloom({{50, 50, 1e5, 10.0}, {50, 54, 3e5, 10.2}, {54, 52, 1e5, 25.0}});
  const BloomSpots& spots = At(light, 50, 52);
  EXPECT_DOUBLE_EQ(spots[0].strength, 4e5 * BloomShare(2.0));
  EXPECT_NEAR(spots[0].range_m, 10.15, 1e-12);
  EXPECT_DOUBLE_EQ(spots[1].strength, 1e5 * BloomShare(4.0));
  EXPECT_DOUBLE_EQ(spots[1].range_m, 25.0);
}

TEST(SpreadBloom, CornersOfThePictureAreNoDanger) {
  const auto light = SpreadBloom({{0, 0, 1e6, 5.0}, {kRows - 1, kCols - 1, 1e6, 5.0}});
  EXPECT_GT(At(light, 0, 1)[0].strength, 0.0);
  EXPECT_GT(At(light, kRows - 2, kCols - 1)[0].strength, 0.0);
}

}  // namespace
}  // namespace kerul::lidar::simulator
