#include "reference/ground.h"

#include <gtest/gtest.h>

#include <cmath>

#include "reference/plane.h"

namespace reference {
namespace {

GroundSettings Defaults() {
  GroundSettings s;
  s.vert_span_ratio = 0.055F;
  s.vert_span_max = 0.4F;
  s.mean_diff_ratio = 0.04F;
  s.mean_diff_max = 0.3F;
  s.max_diff_ratio = 0.2F;
  s.max_diff_max = 0.2F;
  s.min_dist = {0.4F};
  s.plane_min_points = 100;
  s.plane_keep_ratio = 0.8F;
  s.plane_inlier_m = 0.05F;
  s.plane_pull = 1.0F;
  s.plane_pull_full_m = 0.3F;
  s.plane_pull_zero_m = 0.6F;
  s.plane_col_step = 2;
  s.plane_max_points = 500;
  return s;
}

LidarFrame Slope(float step) {
  LidarFrame frame = MakeFrame(216, 24, 1);
  for (std::size_t row = 0; row < 216; ++row) {
    for (LidarPoint& p : frame.points[row]) {
      p.echoes[0].dist_raw = 5.0F + step * static_cast<float>(row);
    }
  }
  return frame;
}

TEST(ReferenceGround, ARiseAboveTheGateIsGround) {
  // At row 12 and 6.2 m the gate is 0.341 m: 0.4 over five rows passes, 0.2 does not.
  LidarFrame steep = Slope(0.1F);
  Ground(steep, 2, Defaults(), AngleCalibGrid{});
  EXPECT_TRUE(steep.points[12][2].echoes[0].ground);
  EXPECT_FALSE(steep.points[12][1].echoes[0].ground);
  EXPECT_TRUE(steep.points[12][21].echoes[0].ground);
  EXPECT_FALSE(steep.points[12][22].echoes[0].ground);
  LidarFrame level = Slope(0.05F);
  Ground(level, 2, Defaults(), AngleCalibGrid{});
  EXPECT_FALSE(level.points[12][2].echoes[0].ground);
}

// Rays down a column that meet the floor 1 m below at the ranges given.
AngleCalibGrid FloorRays(int rows, int cols, const std::vector<float>& ranges) {
  AngleCalibGrid grid;
  grid.rows = rows;
  grid.cols = cols;
  grid.valid = true;
  const auto plane = static_cast<std::size_t>(rows * cols);
  grid.unit_xyz.assign(3 * plane, 0.0F);
  for (std::size_t row = 0; row < static_cast<std::size_t>(rows); ++row) {
    const float down = 1.0F / ranges[row];
    for (std::size_t col = 0; col < static_cast<std::size_t>(cols); ++col) {
      const std::size_t place = row * static_cast<std::size_t>(cols) + col;
      grid.unit_xyz[place] = std::sqrt(1.0F - down * down);
      grid.unit_xyz[2 * plane + place] = -down;
    }
  }
  return grid;
}

TEST(ReferenceGround, AFlatFloorGivesTheCosineOfTheRay) {
  const std::vector<float> ranges = {1.6F, 1.8F, 2.0F, 2.2F, 2.4F};
  const AngleCalibGrid grid = FloorRays(5, 1, ranges);
  // The centre ray falls at 30 degrees: the root of one half.
  EXPECT_NEAR(ProcessGroundVertSeed(ranges.data(), 5, 2, 0, -2, grid), std::sqrt(0.5), 1e-3);
  const std::vector<float> far = {16.0F, 18.0F, 20.0F, 22.0F, 24.0F};
  EXPECT_FLOAT_EQ(ProcessGroundVertSeed(far.data(), 5, 2, 0, -2, FloorRays(5, 1, far)), 0.4F);
}

TEST(ReferenceGround, ThePlaneStagePullsPointsOntoThePlane) {
  GroundSettings s = Defaults();
  s.plane_enable = true;
  s.plane_min_points = 10;
  LidarFrame frame = Slope(0.1F);
  std::vector<float> ranges;
  for (int row = 0; row < 216; ++row) ranges.push_back(5.0F + 0.1F * static_cast<float>(row));
  AngleCalibGrid grid = FloorRays(216, 24, ranges);
  // Columns look aside a little, so that the points do not lie on one line.
  const std::size_t plane = 216 * 24;
  for (std::size_t i = 0; i < plane; ++i) {
    const float x = grid.unit_xyz[i];
    const float y = 0.01F * static_cast<float>(i % 24);
    grid.unit_xyz[i] = std::sqrt(x * x - y * y);
    grid.unit_xyz[plane + i] = y;
  }
  frame.points[13][10].echoes[0].dist_raw += 0.02F;
  frame.points[14][10].echoes[0].dist_raw = 0.0F;
  Ground(frame, 2, s, grid);
  EXPECT_TRUE(frame.points[12][0].echoes[0].ground);  // only the plane stage reaches column 0
  EXPECT_NEAR(frame.points[13][10].echoes[0].dist_raw, 6.3F, 1e-3);
  EXPECT_FALSE(frame.points[14][10].echoes[0].ground);
}

TEST(ReferencePlane, TiltedPlaneWithOneOutlier) {
  std::vector<Point3f> points;
  for (int i = 0; i < 5; ++i) {
    for (int j = 0; j < 4; ++j) {
      const float x = static_cast<float>(i);
      points.push_back(Point3f{x, static_cast<float>(j), x + 2.0F});
    }
  }
  points[7].z += 3.0F;
  const GroundPlane plane = FitPlaneRobust(points, 0.8F);
  ASSERT_TRUE(plane.valid);
  // z - x = 2, unit normal; the sign is free.
  const float sign = plane.c > 0.0F ? 1.0F : -1.0F;
  EXPECT_NEAR(sign * plane.a, -0.70710678F, 1e-4);
  EXPECT_NEAR(plane.b, 0.0F, 1e-4);
  EXPECT_NEAR(sign * plane.c, 0.70710678F, 1e-4);
  EXPECT_NEAR(sign * plane.d, 1.41421356F, 1e-3);
}

TEST(ReferencePlane, ThreePointsGiveNoneAndOneSpotGivesALevelPlane) {
  EXPECT_FALSE(FitPlaneRobust(std::vector<Point3f>(3), 0.8F).valid);
  const GroundPlane plane = FitPlane(std::vector<Point3f>(4, Point3f{1.0F, 2.0F, 3.0F}));
  EXPECT_TRUE(plane.valid);
  EXPECT_EQ(plane.a, 0.0F);
  EXPECT_EQ(plane.c, 1.0F);
  EXPECT_EQ(plane.d, 3.0F);
}

}  // namespace
}  // namespace reference
