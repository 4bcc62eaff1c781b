#include "lidar_view/directions.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "client/plain_angle_record.h"
#include "lidar_view/default_angle_record.h"
#include "sensor_simulator/camera_model.h"
#include "tools/lidar_view/sample_frame.h"

namespace kerul::lidar::view {
namespace {

const std::array<float, 3>& At(const Directions& directions, int row, int col) {
  return directions.unit[static_cast<std::size_t>(row * 288 + col)];
}

TEST(Directions, DefaultOnesAreUnitVectorsThatLookAhead) {
  Directions directions;
  std::string error;
  ASSERT_TRUE(LoadDirectionsOrDefault("", directions, error)) << error;
  ASSERT_EQ(directions.unit.size(), 62208U);
  for (const auto& unit : directions.unit) {
    ASSERT_GT(unit[0], 0.0F);
    ASSERT_NEAR(unit[0] * unit[0] + unit[1] * unit[1] + unit[2] * unit[2], 1.0F, 1e-5F);
  }
  EXPECT_EQ(directions.origin, "default camera model");
}

TEST(Directions, TheDefaultIsTheSimulatedSensorsCamera) {
  const auto theirs = simulator::CameraRecord(simulator::CameraModel{});
  const std::vector<std::uint8_t> ours = BytesOf(DefaultAngleRecord());
  // Bytes 5..45 are those that are read.
  EXPECT_TRUE(std::equal(ours.begin() + 5, ours.begin() + 46, theirs.begin() + 5));

  Directions directions;
  std::string error;
  ASSERT_TRUE(LoadDirectionsOrDefault("", directions, error)) << error;
  const std::vector<simulator::Vec3> truth = simulator::PixelDirections(simulator::CameraModel{});
  ASSERT_EQ(truth.size(), directions.unit.size());
  double worst = 0.0;
  for (std::size_t i = 0; i < truth.size(); ++i) {
    const auto& unit = directions.unit[i];
    worst = std::max({worst, std::fabs(unit[0] - truth[i].x), std::fabs(unit[1] - truth[i].y),
                      std::fabs(unit[2] - truth[i].z)});
  }
  // The grid interpolates a table of 0.001 rad in single precision.
  EXPECT_LT(worst, 1e-4);
}

TEST(Directions, RowsRunUpAndColumnsRunToTheRight) {
  Directions directions;
  std::string error;
  ASSERT_TRUE(LoadDirectionsOrDefault("", directions, error)) << error;
  EXPECT_LT(At(directions, 0, 144)[2], -0.3F);
  EXPECT_GT(At(directions, 215, 144)[2], 0.3F);
  EXPECT_GT(At(directions, 108, 0)[1], 0.3F);
  EXPECT_LT(At(directions, 108, 287)[1], -0.3F);
}

}  // namespace
}  // namespace kerul::lidar::view
