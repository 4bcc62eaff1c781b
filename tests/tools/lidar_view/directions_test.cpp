#include "lidar_view/directions.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "calibration/angle_calib.h"
#include "lidar_view/default_angle_record.h"
#include "sensor_simulator/camera_model.h"
#include "support/temp_dir.h"
#include "tools/lidar_view/sample_frame.h"

namespace kerul::lidar::view {
namespace {

std::vector<std::uint8_t> BytesOf(const QndrAngleDatRecord& record) {
  std::vector<std::uint8_t> bytes(78);
  std::memcpy(bytes.data(), &record, 78);
  return bytes;
}

// No distortion, no tilt: angles follow from the places by hand.
QndrAngleDatRecord PlainRecord() {
  QndrAngleDatRecord record{};
  record.binning = 0x22;
  record.rows = 216;
  record.cols = 288;
  record.f = 340.0F;
  record.cx = 289.0F;
  record.cy = 286.0F;
  return record;
}

const std::array<float, 3>& At(const Directions& directions, int row, int col) {
  return directions.unit[static_cast<std::size_t>(row * 288 + col)];
}

TEST(Directions, DefaultOnesAreUnitVectorsThatLookAhead) {
  Directions directions;
  std::string error;
  ASSERT_TRUE(LoadDirections("", directions, error)) << error;
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
  ASSERT_TRUE(LoadDirections("", directions, error)) << error;
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
  ASSERT_TRUE(LoadDirections("", directions, error)) << error;
  EXPECT_LT(At(directions, 0, 144)[2], -0.3F);
  EXPECT_GT(At(directions, 215, 144)[2], 0.3F);
  EXPECT_GT(At(directions, 108, 0)[1], 0.3F);
  EXPECT_LT(At(directions, 108, 287)[1], -0.3F);
}

TEST(Directions, AnAngleFileIsTaken) {
  const testing::TempDir folder;
  folder.Write("Lidar-ab12_angle_calib.dat", BytesOf(PlainRecord()));
  Directions directions;
  std::string error;
  ASSERT_TRUE(LoadDirections(folder.path().string(), directions, error)) << error;
  EXPECT_EQ(directions.origin, folder.File("Lidar-ab12_angle_calib.dat"));
  // Column 144: px = 289, straight ahead sideways. Row 108: py = 36 * 2 + 1 + 216 = 289, and
  // 576 - 1 - 289 - 286 = 0. The grid marks this pixel with (0, 0, 1).
  EXPECT_EQ(At(directions, 108, 144), (std::array<float, 3>{1.0F, 0.0F, 0.0F}));
  // 100 columns further: 200 cells, an angle of 200 / 340 to the right.
  const auto& right = At(directions, 108, 244);
  EXPECT_NEAR(right[0], std::cos(200.0 / 340.0), 1e-4);
  EXPECT_NEAR(right[1], -std::sin(200.0 / 340.0), 1e-4);
  EXPECT_NEAR(right[2], 0.0, 1e-6);
}

TEST(Directions, TheRecordInAHeadPageIsTaken) {
  const testing::TempDir folder;
  std::vector<std::uint8_t> head(256, 0xFF);
  const std::vector<std::uint8_t> record = BytesOf(PlainRecord());
  std::copy(record.begin(), record.end(), head.begin() + 20);
  folder.Write("ab12_head.bin", head);
  Directions directions;
  std::string error;
  ASSERT_TRUE(LoadDirections(folder.path().string(), directions, error)) << error;
  EXPECT_EQ(directions.origin, folder.File("ab12_head.bin"));
  EXPECT_EQ(At(directions, 108, 144)[0], 1.0F);
}

TEST(Directions, TheAngleFileGoesBeforeTheHeadPageAndNamesInOrder) {
  const testing::TempDir folder;
  folder.Write("ab_head.bin", {});
  folder.Write("Lidar-b_angle_calib.dat", {});
  folder.Write("Lidar-a_angle_calib.dat", BytesOf(PlainRecord()));
  folder.Write("Lidar-0_angle_calib.dat.old", {});
  Directions directions;
  std::string error;
  ASSERT_TRUE(LoadDirections(folder.path().string(), directions, error)) << error;
  EXPECT_EQ(directions.origin, folder.File("Lidar-a_angle_calib.dat"));
}

TEST(Directions, AFolderWithoutEitherFileIsAnError) {
  const testing::TempDir folder;
  Directions directions;
  std::string error;
  EXPECT_FALSE(LoadDirections(folder.path().string(), directions, error));
  EXPECT_EQ(error, "no Lidar-*_angle_calib.dat and no *_head.bin in " + folder.path().string());
  EXPECT_FALSE(LoadDirections(folder.File("missing"), directions, error));
}

TEST(Directions, AShortOrSenselessRecordIsAnError) {
  const testing::TempDir folder;
  const std::string file = folder.File("Lidar-a_angle_calib.dat");
  folder.Write("Lidar-a_angle_calib.dat", std::vector<std::uint8_t>(77, 1));
  Directions directions;
  std::string error;
  EXPECT_FALSE(LoadDirections(folder.path().string(), directions, error));
  EXPECT_EQ(error.find(file + ": "), 0U) << error;
  folder.Write("Lidar-a_angle_calib.dat", std::vector<std::uint8_t>(78, 0));
  EXPECT_FALSE(LoadDirections(folder.path().string(), directions, error));
}

TEST(Directions, AHeadPageCutBeforeTheRecordIsAnError) {
  const testing::TempDir folder;
  folder.Write("a_head.bin", std::vector<std::uint8_t>(10, 1));
  Directions directions;
  std::string error;
  EXPECT_FALSE(LoadDirections(folder.path().string(), directions, error));
}

TEST(Directions, AGridOfAnotherSizeIsAnError) {
  const testing::TempDir folder;
  QndrAngleDatRecord record = PlainRecord();
  record.rows = 100;
  folder.Write("Lidar-a_angle_calib.dat", BytesOf(record));
  Directions directions;
  std::string error;
  EXPECT_FALSE(LoadDirections(folder.path().string(), directions, error));
  EXPECT_EQ(error,
            folder.File("Lidar-a_angle_calib.dat") + ": 100 x 288 pixels instead of 216 x 288");
}

TEST(Directions, AFifoInPlaceOfARecordHoldsNobody) {
  const testing::TempDir folder;
  ASSERT_EQ(mkfifo(folder.File("Lidar-a_angle_calib.dat").c_str(), 0600), 0);
  Directions directions;
  std::string error;
  EXPECT_FALSE(LoadDirections(folder.path().string(), directions, error));
  EXPECT_EQ(error.substr(0, error.find(": ")), folder.File("Lidar-a_angle_calib.dat"));
}

}  // namespace
}  // namespace kerul::lidar::view
