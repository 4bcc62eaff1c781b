#include "frame_export_info/export_points.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace kerul::lidar {
namespace {

// Two by two pixels that look along +x, +y, +z and, where the model has no direction, nowhere.
AngleCalibGrid SmallGrid() {
  AngleCalibGrid grid;
  grid.rows = 2;
  grid.cols = 2;
  grid.valid = true;
  grid.xyz = {1, 0, 0, 0, /*y*/ 0, 1, 0, 0, /*z*/ 0, 0, 1, 0};
  return grid;
}

ExportFile FileOf(std::uint16_t height, std::uint16_t width, std::vector<ExportRecord> records) {
  ExportFile file;
  file.header.height = height;
  file.header.width = width;
  file.records = std::move(records);
  return file;
}

void ExpectAt(const CloudPoint& point, float x, float y, float z) {
  // Half positions go through a root: the last bits are not of interest.
  EXPECT_NEAR(point.x, x, 1e-5F);
  EXPECT_NEAR(point.y, y, 1e-5F);
  EXPECT_NEAR(point.z, z, 1e-5F);
}

TEST(ExportPoints, ARangeGoesAlongTheDirectionOfItsPixel) {
  ExportPoints result;
  std::string error;
  const ExportFile file =
      FileOf(2, 2, {{0, 0, 5.0F, 1.0F}, {0, 1, 6.0F, 2.0F}, {1, 0, 7.0F, 3.0F}});
  ASSERT_TRUE(MakePoints(file, SmallGrid(), result, error)) << error;
  ASSERT_EQ(result.points.size(), 3U);
  EXPECT_EQ(result.left_out, 0U);
  ExpectAt(result.points[0], 5, 0, 0);
  ExpectAt(result.points[1], 0, 6, 0);
  ExpectAt(result.points[2], 0, 0, 7);
  EXPECT_EQ(result.points[1].row, 0);
  EXPECT_EQ(result.points[1].col, 1);
  EXPECT_EQ(result.points[1].intensity, 2.0F);
}

TEST(ExportPoints, ADoubledFileLooksBetweenTheDirections) {
  ExportPoints result;
  std::string error;
  AngleCalibGrid grid = SmallGrid();
  const ExportFile file =
      FileOf(4, 4, {{0, 0, 2.0F, 0}, {0, 1, 2.0F, 0}, {0, 2, 2.0F, 0}, {1, 0, 2.0F, 0}});
  ASSERT_TRUE(MakePoints(file, grid, result, error)) << error;
  ASSERT_EQ(result.points.size(), 4U);
  const float diagonal = std::sqrt(2.0F);
  ExpectAt(result.points[0], 2, 0, 0);
  ExpectAt(result.points[1], diagonal, diagonal, 0);
  ExpectAt(result.points[2], 0, 2, 0);
  ExpectAt(result.points[3], diagonal, 0, diagonal);
  // The middle of all four, once the fourth has a direction.
  grid.xyz[3] = 1.0F;
  ASSERT_TRUE(MakePoints(FileOf(4, 4, {{1, 1, 6.0F, 0}}), grid, result, error));
  const float unit = 6.0F / std::sqrt(6.0F);  // (2, 1, 1) at length 6
  ExpectAt(result.points[0], 2 * unit, unit, unit);
}

TEST(ExportPoints, PixelsWithoutADirectionAreLeftOut) {
  ExportPoints result;
  std::string error;
  // (1, 1) has none; in the doubled file neither have its neighbours, nor what lies past the grid.
  ASSERT_TRUE(MakePoints(FileOf(2, 2, {{1, 1, 5.0F, 1.0F}}), SmallGrid(), result, error));
  EXPECT_EQ(result.left_out, 1U);
  EXPECT_TRUE(result.points.empty());
  const ExportFile doubled =
      FileOf(4, 4, {{0, 3, 1.0F, 0}, {1, 1, 1.0F, 0}, {2, 1, 1.0F, 0}, {3, 0, 1.0F, 0}});
  ASSERT_TRUE(MakePoints(doubled, SmallGrid(), result, error));
  EXPECT_EQ(result.left_out, 4U);
}

TEST(ExportPoints, OppositeDirectionsHaveNoMiddle) {
  AngleCalibGrid grid = SmallGrid();
  grid.xyz = {1, -1, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1};
  ExportPoints result;
  std::string error;
  ASSERT_TRUE(MakePoints(FileOf(4, 4, {{0, 1, 5.0F, 0}}), grid, result, error));
  EXPECT_EQ(result.left_out, 1U);
}

TEST(ExportPoints, RangesThatAreNoReturnsAreLeftOut) {
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  constexpr float kInf = std::numeric_limits<float>::infinity();
  ExportPoints result;
  std::string error;
  const ExportFile file = FileOf(2, 2, {{0, 0, kNan, 0}, {0, 1, kInf, 0}, {1, 0, -1.0F, 0}});
  ASSERT_TRUE(MakePoints(file, SmallGrid(), result, error));
  EXPECT_EQ(result.left_out, 3U);
}

TEST(ExportPoints, AGridOfAnotherSizeIsRefused) {
  ExportPoints result;
  std::string error;
  EXPECT_FALSE(MakePoints(FileOf(6, 6, {}), SmallGrid(), result, error));
  EXPECT_EQ(error,
            "the angle record describes 2 x 2 pixels, which fits neither once nor twice the file's"
            " 6 x 6");
  EXPECT_FALSE(MakePoints(FileOf(2, 4, {}), SmallGrid(), result, error));
  EXPECT_FALSE(MakePoints(FileOf(0, 0, {}), AngleCalibGrid{}, result, error));
  AngleCalibGrid torn = SmallGrid();
  torn.xyz.pop_back();
  EXPECT_FALSE(MakePoints(FileOf(2, 2, {}), torn, result, error));
}

}  // namespace
}  // namespace kerul::lidar
