#include "sensor_simulator/camera_model.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "calibration/angle_calib.h"
#include "sensor_simulator/pixel_layout.h"

namespace kerul::lidar::simulator {
namespace {

const Vec3& At(const std::vector<Vec3>& directions, int row, int col) {
  return directions[static_cast<std::size_t>(PixelIndex(row, col))];
}

CameraModel Untilted() {
  CameraModel camera;
  camera.half_tilt_tan = 0.0F;
  return camera;
}

struct ImagePoint {
  double right = 0.0;
  double down = 0.0;
};

// Forward through the lens, in focal lengths.
ImagePoint ImageOf(const CameraModel& camera, const Vec3& d) {
  const double theta = std::acos(d.x);
  double radius = theta;
  for (int i = 0; i < 4; ++i) {
    radius += static_cast<double>(camera.distortion[static_cast<std::size_t>(i)]) *
              std::pow(theta, 3 + 2 * i);
  }
  const double across = std::hypot(d.y, d.z);
  return {-d.y / across * radius, -d.z / across * radius};
}

TEST(CameraModel, RowZeroLooksDownAndColumnZeroToTheLeft) {
  const std::vector<Vec3> directions = PixelDirections(CameraModel{});
  EXPECT_LT(At(directions, 0, 144).z, -0.6);
  EXPECT_GT(At(directions, 215, 144).z, 0.6);
  EXPECT_GT(At(directions, 108, 0).y, 0.8);
  EXPECT_LT(At(directions, 108, 287).y, -0.8);
}

TEST(CameraModel, DirectionsAreUnitVectorsThatLookForward) {
  const std::vector<Vec3> directions = PixelDirections(CameraModel{});
  ASSERT_EQ(directions.size(), static_cast<std::size_t>(kPixels));
  for (const Vec3& direction : directions) {
    ASSERT_NEAR(Length(direction), 1.0, 1e-12);
    ASSERT_GT(direction.x, 0.0);
  }
}

TEST(CameraModel, HeightGrowsStrictlyWithTheRow) {
  const std::vector<Vec3> directions = PixelDirections(CameraModel{});
  for (int col : {0, 100, 287}) {
    for (int row = 1; row < kRows; ++row) {
      ASSERT_GT(At(directions, row, col).z, At(directions, row - 1, col).z) << row << ' ' << col;
    }
  }
}

// Forward through the lens: the direction's angle from the axis, bent by the polynomial, must fall
// on the pixel's own cell.
TEST(CameraModel, DirectionsFallBackOntoTheirCells) {
  const CameraModel camera = Untilted();
  const std::vector<Vec3> directions = PixelDirections(camera);
  int compared = 0;
  for (int row = 0; row < kRows; row += 31) {
    for (int col = 0; col < kCols; col += 23) {
      const ImagePoint point = ImageOf(camera, At(directions, row, col));
      const double x = 288.7 + point.right * 276.4;
      const double down = 287.2 + point.down * 276.4;
      EXPECT_NEAR(x, 1 + 2 * col, 2e-3);
      EXPECT_NEAR(down, 575.0 - (72 + 1 + 2 * row), 2e-3);
      ++compared;
    }
  }
  EXPECT_GT(compared, 80);
}

// A tilt about the axis that runs to the left, worked out by hand: seen from the lens centre one
// focal length away, the turned point (x, y cos, -y sin) falls at (x, y cos) / (1 + y sin).
TEST(CameraModel, ATiltIsSeenInPerspective) {
  const double tilt = 0.04;
  CameraModel camera;
  camera.half_tilt_tan = static_cast<float>(std::tan(tilt / 2.0));
  camera.tilt_azimuth_rad = 0.0F;
  const std::vector<Vec3> tilted = PixelDirections(camera);
  const std::vector<Vec3> straight = PixelDirections(Untilted());
  int compared = 0;
  for (int row = 0; row < kRows; row += 43) {
    for (int col = 0; col < kCols; col += 41) {
      const ImagePoint before = ImageOf(camera, At(straight, row, col));
      const ImagePoint after = ImageOf(camera, At(tilted, row, col));
      const double nearness = 1.0 + before.down * std::sin(tilt);
      EXPECT_NEAR(after.right, before.right / nearness, 1e-6);
      EXPECT_NEAR(after.down, before.down * std::cos(tilt) / nearness, 1e-6);
      ++compared;
    }
  }
  EXPECT_GT(compared, 30);
}

TEST(CameraModel, TheNodesGridHoldsTheSameDirections) {
  const auto record = CameraRecord(CameraModel{});
  AngleCalibGrid grid;
  std::string error;
  ASSERT_TRUE(load_angle_calib_from_dat_bytes(record.data(), record.size(), grid, &error)) << error;
  ASSERT_EQ(grid.rows, kRows);
  ASSERT_EQ(grid.cols, kCols);
  const std::vector<Vec3> directions = PixelDirections(CameraModel{});
  double largest = 0.0;
  for (int row = 0; row < kRows; ++row) {
    for (int col = 0; col < kCols; ++col) {
      const auto plane = [&](int number) {
        const int entry = (number * kRows + row) * kCols + col;
        return static_cast<double>(grid.xyz[static_cast<std::size_t>(entry)]);
      };
      const Vec3 node = {plane(0), plane(1), plane(2)};
      largest = std::max(largest, Length(node - At(directions, row, col)));
    }
  }
  // The node's table of the lens has steps of 0.001 radians, its arithmetic single precision.
  EXPECT_LT(largest, 2e-5);
}

TEST(CameraModel, TheRecordHasItsFieldsInPlace) {
  CameraModel camera;
  camera.bin_x = 3;
  const auto record = CameraRecord(camera);
  const auto real = [&](std::size_t offset) {
    float value;
    std::memcpy(&value, record.data() + offset, sizeof value);
    return value;
  };
  EXPECT_EQ(record[5], 0x32);
  EXPECT_EQ(record[6] | record[7] << 8, 216);
  EXPECT_EQ(record[8] | record[9] << 8, 288);
  EXPECT_EQ(real(10), 276.4F);
  EXPECT_EQ(real(14), 288.7F);
  EXPECT_EQ(real(18), 287.2F);
  EXPECT_EQ(real(22), -0.0214F);
  EXPECT_EQ(real(34), 0.0000071F);
  EXPECT_EQ(real(38), 0.0021F);
  EXPECT_EQ(real(42), 0.71F);
}

}  // namespace
}  // namespace kerul::lidar::simulator
