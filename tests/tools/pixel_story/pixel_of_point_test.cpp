#include "pixel_story/pixel_of_point.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <string>

#include "kerul_lidar/mounting.h"
#include "story_fixture.h"

namespace kerul::lidar::story {
namespace {

Directions SimulatedDirections() {
  Directions directions;
  std::string error;
  EXPECT_TRUE(LoadDirections(CalibrationDir(), directions, error)) << error;
  return directions;
}

std::array<double, 3> PointOf(const Directions& directions, int row, int col, double range,
                              const TransformParam* mount = nullptr) {
  const auto& unit = directions.unit[static_cast<std::size_t>(row * 288 + col)];
  const Point3 point = PointAt(static_cast<float>(range), unit, mount);
  return {point[0], point[1], point[2]};
}

TEST(PixelOfPoint, IsThePixelThatThePointWasMadeOf) {
  const Directions directions = SimulatedDirections();
  int compared = 0;
  for (int row = 0; row < 216; row += 43) {
    for (int col = 0; col < 288; col += 41) {
      for (const double range : {0.3, 38.0}) {
        const PointedPixel pixel =
            PixelOfPoint(directions, PointOf(directions, row, col, range), nullptr);
        EXPECT_EQ(pixel.row, row);
        EXPECT_EQ(pixel.col, col);
        EXPECT_LT(pixel.off_degrees, 0.01);
        ++compared;
      }
    }
  }
  EXPECT_EQ(compared, 6 * 8 * 2);
}

TEST(PixelOfPoint, AMountedPointIsTakenBack) {
  const Directions directions = SimulatedDirections();
  TransformParam mount;
  mount.x = 1.5;
  mount.y = -0.4;
  mount.z = 2.1;
  mount.roll = 0.02;
  mount.pitch = -0.3;
  mount.yaw = 1.2;
  ComputeRotation(mount);
  const std::array<double, 3> point = PointOf(directions, 77, 201, 12.0, &mount);
  const PointedPixel pixel = PixelOfPoint(directions, point, &mount);
  EXPECT_EQ(pixel.row, 77);
  EXPECT_EQ(pixel.col, 201);
}

TEST(PixelOfPoint, PointsThatNoPixelSeesAreRefused) {
  const Directions directions = SimulatedDirections();
  EXPECT_THROW(PixelOfPoint(directions, {0.0, 0.0, 0.0}, nullptr), std::runtime_error);
  // At the sensor's back, and straight up.
  EXPECT_THROW(PixelOfPoint(directions, {-5.0, 0.0, 0.0}, nullptr), std::runtime_error);
  EXPECT_THROW(PixelOfPoint(directions, {0.0, 0.0, 5.0}, nullptr), std::runtime_error);
}

}  // namespace
}  // namespace kerul::lidar::story
