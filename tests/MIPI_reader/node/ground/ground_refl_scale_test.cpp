// EstimateGroundReflScale: rays and ranges are chosen so that the points, and with them the sums,
// are exact in single precision.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "MIPI_reader/node/ground/ground_labelling.h"
#include "MIPI_reader/node/ground/ground_refl_scale.h"
#include "support/ground_settings_builder.h"

namespace kerul::lidar {
namespace {

using ground_builder::EmptyGrid;
using ground_builder::SetDirection;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

// Column 1 of a 10 x 3 grid; the rays stand in rows 3, 4, ...
AngleCalibGrid ColumnGrid(const std::vector<Point3f>& rays) {
  AngleCalibGrid grid = EmptyGrid(10, 3);
  for (std::size_t i = 0; i < rays.size(); ++i) {
    SetDirection(grid, 3 + static_cast<int>(i), 1, rays[i]);
  }
  return grid;
}

// Scale of the column whose centre pixel is entry -first_offset of the rays.
float Scale(const std::vector<Point3f>& rays, const std::vector<float>& distances,
            int first_offset) {
  return EstimateGroundReflScale(distances.data(), static_cast<int>(distances.size()),
                                 3 - first_offset, 1, first_offset, ColumnGrid(rays));
}

// Five rays that hit a level floor one metre below at x = 2, 2.5, 3, 3.5, 4; z is the same for all.
std::vector<Point3f> FloorRays(float z) {
  std::vector<Point3f> rays;
  for (int i = 0; i < 5; ++i) rays.push_back({-z * (2.0F + 0.5F * static_cast<float>(i)), 0.0F, z});
  return rays;
}

TEST(GroundReflScale, LevelGroundGivesTheRootOfTheCosine) {
  // Heights are equal, so the slope is exactly 0 and the cosine is |z| of the centre ray.
  EXPECT_EQ(Scale(FloorRays(-0.25F), std::vector<float>(5, 4.0F), -2), 0.5F);
  EXPECT_EQ(Scale(FloorRays(0.25F), std::vector<float>(5, 4.0F), -2), 0.5F);
  EXPECT_EQ(Scale(FloorRays(-1.0F), std::vector<float>(5, 1.0F), -2), 1.0F);
}

TEST(GroundReflScale, IsPointFourAtLeast) {
  EXPECT_EQ(Scale(FloorRays(-0.0625F), std::vector<float>(5, 16.0F), -2), 0.4F);
}

TEST(GroundReflScale, SlopeOfTheGroundTurnsTheNormal) {
  // Points (2, 0, -1) and (2, 0, -2): mean height -1.5, ranges there 3 and 1.5.
  // b = (2 (-3 - 3) + 3 * 4.5) / (2 * 11.25 - 4.5^2) = 1.5 / 2.25 = 2/3.
  const std::vector<Point3f> rays = {{1.0F, 0.0F, -0.5F}, {0.5F, 0.0F, -0.5F}};
  const double nz = 1.0 / std::sqrt(1.0 + 4.0 / 9.0);
  const double nr = -2.0 / 3.0 * nz;
  // The division, two roots and three products round: 1e-6 is ten roundings.
  EXPECT_NEAR(Scale(rays, {2.0F, 4.0F}, -1), std::sqrt(std::fabs(0.5 * nr - 0.5 * nz)), 1e-6);
  EXPECT_NEAR(Scale(rays, {2.0F, 4.0F}, 0), std::sqrt(std::fabs(1.0 * nr - 0.5 * nz)), 1e-6);
}

TEST(GroundReflScale, HeadingTurnsTheNormalSideways) {
  // The same two heights along y = 3/4 x: points (4, 3, -1) and (8, 6, -2), both at range 5 per
  // metre of height; at the mean height both ranges are 7.5, so the slope says nothing.
  // A third point (8, 6, -1) sets it: mean height -4/3, ranges 20/3, 20/3 and 40/3.
  const std::vector<Point3f> rays = {{4.0F, 3.0F, -1.0F}, {4.0F, 3.0F, -1.0F}, {8.0F, 6.0F, -1.0F}};
  const double rho[3] = {20.0 / 3.0, 20.0 / 3.0, 40.0 / 3.0};
  const double z[3] = {-1.0, -2.0, -1.0};
  double sum_z = 0;
  double sum_r = 0;
  double sum_rr = 0;
  double sum_zr = 0;
  for (int i = 0; i < 3; ++i) {
    sum_z += z[i];
    sum_r += rho[i];
    sum_rr += rho[i] * rho[i];
    sum_zr += z[i] * rho[i];
  }
  const double b = (3 * sum_zr - sum_z * sum_r) / (3 * sum_rr - sum_r * sum_r);
  const double nz = 1.0 / std::sqrt(1.0 + b * b);
  const double nr = -b * nz;
  // Heading 3/4: (1, 3/4) / 1.25 = (0.8, 0.6).
  const double cosine = std::fabs(4.0 * nr * 0.8 + 3.0 * nr * 0.6 - nz);
  EXPECT_NEAR(Scale(rays, {1.0F, 2.0F, 1.0F}, -1), std::sqrt(cosine), 1e-5);
}

TEST(GroundReflScale, EmptyRangesGiveNoPointButTheCentreRayCounts) {
  std::vector<float> distances = {4.0F, 4.0F, 0.0F, 4.0F, kNan};
  EXPECT_EQ(Scale(FloorRays(-0.25F), distances, -2), 0.5F);
  distances = {0.0F, 0.0F, 4.0F, -4.0F, 0.0F};  // one point is left
  EXPECT_EQ(Scale(FloorRays(-0.25F), distances, -2), 1.0F);
}

TEST(GroundReflScale, CannotTellWithoutACentreRay) {
  std::vector<Point3f> rays = FloorRays(-0.25F);
  for (const Point3f& broken : {Point3f{}, Point3f{kNan, 0.0F, -0.25F},
                                Point3f{0.5F, -std::numeric_limits<float>::infinity(), -0.25F}}) {
    rays[2] = broken;
    EXPECT_EQ(Scale(rays, std::vector<float>(5, 4.0F), -2), 1.0F);
  }
}

TEST(GroundReflScale, CannotTellWithoutGridOrPoints) {
  const std::vector<float> distances(5, 4.0F);
  AngleCalibGrid grid = ColumnGrid(FloorRays(-0.25F));
  EXPECT_EQ(EstimateGroundReflScale(distances.data(), 1, 5, 1, -2, grid), 1.0F);
  EXPECT_EQ(EstimateGroundReflScale(distances.data(), 0, 5, 1, -2, grid), 1.0F);
  EXPECT_EQ(EstimateGroundReflScale(distances.data(), 5, 5, -1, -2, grid), 1.0F);
  EXPECT_EQ(EstimateGroundReflScale(distances.data(), 5, 5, 3, -2, grid), 1.0F);
  EXPECT_EQ(EstimateGroundReflScale(distances.data(), 5, 50, 1, -2, grid), 1.0F);
  EXPECT_EQ(EstimateGroundReflScale(distances.data(), 5, -50, 1, -2, grid), 1.0F);
  EXPECT_EQ(EstimateGroundReflScale(distances.data(), 5, 5, 1, -2, grid), 0.5F);
  grid.valid = false;
  EXPECT_EQ(EstimateGroundReflScale(distances.data(), 5, 5, 1, -2, grid), 1.0F);
  grid.valid = true;
  grid.unit_xyz.clear();
  EXPECT_EQ(EstimateGroundReflScale(distances.data(), 5, 5, 1, -2, grid), 1.0F);
}

TEST(GroundReflScale, RowsAboveTheGridAreSkipped) {
  AngleCalibGrid grid = EmptyGrid(10, 3);
  const std::vector<Point3f> rays = FloorRays(-0.25F);
  for (int i = 0; i < 4; ++i) SetDirection(grid, i, 1, rays[static_cast<std::size_t>(i)]);
  const std::vector<float> distances(5, 4.0F);
  EXPECT_EQ(EstimateGroundReflScale(distances.data(), 5, 1, 1, -2, grid), 0.5F);
}

TEST(GroundReflScale, RaysAlongTheHorizonHaveNoSlope) {
  // Height 0 cannot be projected: the normal stays upright and the cosine is 0.
  const std::vector<Point3f> rays(5, {1.0F, 0.0F, 0.0F});
  EXPECT_EQ(Scale(rays, {1.0F, 2.0F, 3.0F, 4.0F, 5.0F}, -2), 0.4F);
}

TEST(GroundReflScale, InfiniteRangesLeaveTheNormalUpright) {
  const float kInf = std::numeric_limits<float>::infinity();
  EXPECT_EQ(Scale(FloorRays(-0.25F), std::vector<float>(5, kInf), -2), 0.5F);
  // Infinite and finite heights mixed: all sums are NaN, the normal stays upright.
  EXPECT_EQ(Scale(FloorRays(-0.25F), {4.0F, kInf, 4.0F, 4.0F, 4.0F}, -2), 0.5F);
}

}  // namespace
}  // namespace kerul::lidar
