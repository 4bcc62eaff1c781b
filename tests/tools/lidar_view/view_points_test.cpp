#include "lidar_view/view_points.h"

#include <gtest/gtest.h>

#include "tools/lidar_view/sample_frame.h"

namespace kerul::lidar::view {
namespace {

TEST(ViewPoints, APointIsItsRangeAlongItsDirection) {
  CollectedFrame frame = UniformFrame(0, 0, {});
  SetPoint(frame, 0, 7, 9, 2500, {77, 0, 0x80});
  Directions directions = StraightAhead();
  directions.unit[7 * 288 + 9] = {0.6F, 0.0F, -0.8F};
  const std::vector<CloudPoint> points = MakeViewPoints(frame, directions, nullptr);
  ASSERT_EQ(points.size(), 1U);
  EXPECT_FLOAT_EQ(points[0].x, 6.0F);
  EXPECT_FLOAT_EQ(points[0].y, 0.0F);
  EXPECT_FLOAT_EQ(points[0].z, -8.0F);
  EXPECT_EQ(points[0].intensity, 77);
  EXPECT_EQ(points[0].row, 7);
  EXPECT_EQ(points[0].col, 9);
  EXPECT_EQ(points[0].echo, 0);
  EXPECT_EQ(points[0].ground, 1);
}

TEST(ViewPoints, PixelsWithoutReturnOrDirectionGiveNone) {
  const CollectedFrame frame = UniformFrame(0, 10, {});
  Directions directions = StraightAhead();
  for (std::size_t i = 0; i < 100; ++i) directions.unit[i] = {};
  EXPECT_EQ(MakeViewPoints(frame, directions, nullptr).size(), 62208U - 100);
  EXPECT_TRUE(MakeViewPoints(UniformFrame(0, 0, {}), directions, nullptr).empty());
}

TEST(ViewPoints, TheSecondEchoComesAfterTheFirstAndOnlyIfPublished) {
  CollectedFrame frame = UniformFrame(0, 0, {});
  SetPoint(frame, 1, 0, 0, 500, {});
  SetPoint(frame, 0, 5, 5, 250, {});
  EXPECT_EQ(MakeViewPoints(frame, StraightAhead(), nullptr).size(), 1U);
  frame.key.echoes = 2;
  const std::vector<CloudPoint> points = MakeViewPoints(frame, StraightAhead(), nullptr);
  ASSERT_EQ(points.size(), 2U);
  EXPECT_EQ(points[0].echo, 0);
  EXPECT_FLOAT_EQ(points[0].x, 1.0F);
  EXPECT_EQ(points[1].echo, 1);
  EXPECT_FLOAT_EQ(points[1].x, 2.0F);
}

TEST(ViewPoints, TheMountingRotatesThenMoves) {
  CollectedFrame frame = UniformFrame(0, 0, {});
  SetPoint(frame, 0, 0, 0, 250, {});
  TransformParam mount;
  mount.x = 10.0;
  mount.y = 20.0;
  mount.z = 30.0;
  // Row by row: x' = -y, y' = x, z' = z, so that the axis ahead becomes y.
  const double quarter_turn[9] = {0, -1, 0, 1, 0, 0, 0, 0, 1};
  for (int i = 0; i < 9; ++i) mount.rotation[i] = quarter_turn[i];
  const std::vector<CloudPoint> points = MakeViewPoints(frame, StraightAhead(), &mount);
  ASSERT_EQ(points.size(), 1U);
  EXPECT_FLOAT_EQ(points[0].x, 10.0F);
  EXPECT_FLOAT_EQ(points[0].y, 21.0F);
  EXPECT_FLOAT_EQ(points[0].z, 30.0F);
}

TEST(ViewPoints, TheGroundFlagNeedsAModeThatCarriesIt) {
  Directions directions = StraightAhead();
  EXPECT_EQ(MakeViewPoints(UniformFrame(12, 9, {0, 0x40, 0}), directions, nullptr)[0].ground, 1);
  EXPECT_EQ(MakeViewPoints(UniformFrame(12, 9, {0, 0, 0x80}), directions, nullptr)[0].ground, 0);
  EXPECT_EQ(MakeViewPoints(UniformFrame(4, 9, {0, 0xFF, 0xFF}), directions, nullptr)[0].ground, 0);
}

}  // namespace
}  // namespace kerul::lidar::view
