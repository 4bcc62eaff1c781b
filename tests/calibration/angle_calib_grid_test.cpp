#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "calibration/angle_calib.h"

namespace kerul::lidar {
namespace {

// 2 rows x 3 columns; entry value is its place in the vector.
AngleCalibGrid SmallGrid() {
  AngleCalibGrid grid;
  grid.rows = 2;
  grid.cols = 3;
  for (int i = 0; i < 18; ++i) grid.xyz.push_back(static_cast<float>(i + 1));
  grid.valid = true;
  return grid;
}

TEST(AngleCalibGrid, AtReadsPlaneMajorRowMajor) {
  const AngleCalibGrid grid = SmallGrid();
  EXPECT_EQ(grid.At(0, 0, 0), 1.0F);
  EXPECT_EQ(grid.At(0, 1, 2), 6.0F);
  EXPECT_EQ(grid.At(1, 0, 0), 7.0F);
  EXPECT_EQ(grid.At(2, 1, 2), 18.0F);
}

TEST(AngleCalibGrid, AtReadsTheRawDirections) {
  AngleCalibGrid grid = SmallGrid();
  grid.unit_xyz.assign(18, -1.0F);
  EXPECT_EQ(grid.At(0, 0, 1), 2.0F);
}

TEST(AngleCalibGrid, AtGivesZeroOutside) {
  const AngleCalibGrid grid = SmallGrid();
  EXPECT_EQ(grid.At(-1, 0, 0), 0.0F);
  EXPECT_EQ(grid.At(3, 0, 0), 0.0F);
  EXPECT_EQ(grid.At(0, -1, 0), 0.0F);
  EXPECT_EQ(grid.At(0, 2, 0), 0.0F);
  EXPECT_EQ(grid.At(0, 0, -1), 0.0F);
  EXPECT_EQ(grid.At(0, 0, 3), 0.0F);
  EXPECT_EQ(AngleCalibGrid{}.At(0, 0, 0), 0.0F);
  AngleCalibGrid hollow = SmallGrid();
  hollow.xyz.clear();
  EXPECT_EQ(hollow.At(0, 0, 0), 0.0F);
}

TEST(AngleCalibGrid, ComponentsSpanTheByte) {
  EXPECT_EQ(AngleCalibGrid::EncodeComponent(-1.0F), 0);
  EXPECT_EQ(AngleCalibGrid::EncodeComponent(0.0F), 128);  // 127.5 rounds away from zero
  EXPECT_EQ(AngleCalibGrid::EncodeComponent(1.0F), 255);
  EXPECT_EQ(AngleCalibGrid::EncodeComponent(0.5F), 191);  // 191.25
  EXPECT_EQ(AngleCalibGrid::EncodeComponent(-0.5F), 64);  // 63.75
}

TEST(AngleCalibGrid, ComponentsOutsideAreClamped) {
  EXPECT_EQ(AngleCalibGrid::EncodeComponent(-7.0F), 0);
  EXPECT_EQ(AngleCalibGrid::EncodeComponent(1.5F), 255);
  EXPECT_EQ(AngleCalibGrid::EncodeComponent(std::numeric_limits<float>::max()), 255);
}

TEST(AngleCalibGrid, ComponentsThatAreNotFiniteAreTheMiddle) {
  EXPECT_EQ(AngleCalibGrid::EncodeComponent(std::nanf("")), 127);
  EXPECT_EQ(AngleCalibGrid::EncodeComponent(INFINITY), 127);
  EXPECT_EQ(AngleCalibGrid::EncodeComponent(-INFINITY), 127);
}

}  // namespace
}  // namespace kerul::lidar
