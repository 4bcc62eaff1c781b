// The sensor's blobs and its camera model against the reference.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "calibration/angle_calib.h"
#include "calibration/para2_lidar_calib.h"
#include "reference/para2.h"
#include "support/point_compare.h"
#include "support/random_records.h"

namespace kerul::lidar::testing {
namespace {

std::vector<std::uint8_t> RandomBytes(RandomRecords& random, std::size_t size) {
  std::vector<std::uint8_t> bytes(size);
  for (std::uint8_t& byte : bytes) byte = random.Byte();
  return bytes;
}

std::string TableDifference(const std::vector<float>& got, const std::vector<float>& expected) {
  if (got.size() != expected.size()) {
    return std::to_string(got.size()) + " entries, expected " + std::to_string(expected.size());
  }
  for (std::size_t i = 0; i < got.size(); ++i) {
    if (SameValue(got[i], expected[i])) continue;
    return "entry " + std::to_string(i) + " is " + std::to_string(got[i]) + ", expected " +
           std::to_string(expected[i]);
  }
  return {};
}

TEST(CalibrationData, ChecksumsAreTheReferences) {
  RandomRecords random(81);
  int compared = 0;
  for (int round = 0; round < 300; ++round, ++compared) {
    const auto size = static_cast<std::size_t>(round < 20 ? round : random.Below(3000));
    const std::vector<std::uint8_t> bytes = RandomBytes(random, size);
    ASSERT_EQ(para2_lidar_detail::GenPara2Crc32(bytes.data(), size),
              reference::Para2Crc(bytes.data(), size))
        << size;
  }
  EXPECT_EQ(compared, 300);
}

TEST(CalibrationData, IdentifiersAreTheReferences) {
  RandomRecords random(82);
  int compared = 0;
  for (int round = 0; round < 2000; ++round, ++compared) {
    std::vector<std::uint8_t> head = RandomBytes(random, 256);
    if (random.Chance(0.8)) head[static_cast<std::size_t>(random.Below(24))] = 0xFF;
    ASSERT_EQ(para2_lidar_detail::ParseLidarId(head), reference::HeadLidarId(head));
  }
  EXPECT_EQ(compared, 2000);
}

TEST(CalibrationData, UnpackedTablesAreTheReferences) {
  RandomRecords random(83);
  int compared = 0;
  for (int round = 0; round < 30; ++round, ++compared) {
    const std::vector<std::uint8_t> main =
        RandomBytes(random, 168960 + static_cast<std::size_t>(random.Below(600)));
    const int tile_pixels = random.Chance(0.6) ? 36 : random.Between(1, 100);
    const int tile_columns = random.Chance(0.6) ? 48 : random.Between(1, 100);
    Para2LidarCalib calib;
    para2_lidar_detail::UnpackPara2Main(main, tile_pixels, tile_columns, calib);
    const reference::MainTables expected = reference::UnpackMain(main, tile_pixels, tile_columns);
    ASSERT_EQ(TableDifference(calib.dist_curve, expected.dist_curve), "");
    ASSERT_EQ(TableDifference(calib.dist_curve_high, expected.dist_curve_high), "");
    ASSERT_EQ(TableDifference(calib.dist_offset, expected.dist_offset), "");
    ASSERT_EQ(TableDifference(calib.retro_curve, expected.retro_curve), "");
    ASSERT_EQ(TableDifference(calib.retro_scale, expected.retro_scale), "");
  }
  EXPECT_EQ(compared, 30);
}

// A camera like the sensor's, at times with fields of any kind; grids stay small.
QndrAngleDatRecord RandomCamera(RandomRecords& random) {
  QndrAngleDatRecord record{};
  const int bins = random.Between(1, 2);
  record.binning = random.Chance(0.9) ? static_cast<std::uint8_t>(bins << 4 | bins) : random.Byte();
  record.rows = static_cast<std::uint16_t>(random.Below(300));
  record.cols = static_cast<std::uint16_t>(random.Below(300));
  record.f = random.Chance(0.9) ? random.Uniform(100.0F, 600.0F) : random.Uniform(-5.0F, 1e6F);
  record.cx = random.Uniform(100.0F, 200.0F) * static_cast<float>(bins);
  record.cy = random.Uniform(100.0F, 320.0F) * static_cast<float>(bins);
  // The record is packed: its floats are assigned, never referred to.
  for (std::size_t i = 0; i < 4; ++i) record.k[i] = random.Uniform(-0.2F, 0.2F);
  record.tilt_tan = random.Chance(0.3) ? 0.0F : random.Uniform(-0.1F, 0.1F);
  record.tilt_azimuth = random.Uniform(-10.0F, 10.0F);
  if (random.Chance(0.8)) return record;
  if (random.Chance(0.3)) record.cx = random.EdgeValue();
  if (random.Chance(0.3)) record.cy = random.EdgeValue();
  if (random.Chance(0.3)) record.tilt_tan = random.EdgeValue();
  if (random.Chance(0.3)) record.tilt_azimuth = random.EdgeValue();
  return record;
}

TEST(CalibrationData, DirectionGridsAreTheReferences) {
  RandomRecords random(84);
  int valid = 0;
  for (int round = 0; round < 150; ++round) {
    const QndrAngleDatRecord record = RandomCamera(random);
    std::uint8_t bytes[kAngleRecordBytes];
    std::memcpy(bytes, &record, sizeof(bytes));
    const std::size_t size = random.Chance(0.95) ? sizeof(bytes) : 77;
    AngleCalibGrid grid;
    const bool loaded = load_angle_calib_from_dat_bytes(bytes, size, grid, nullptr);
    const AngleCalibGrid expected = reference::AngleGrid(bytes, size);
    ASSERT_EQ(loaded && grid.valid, expected.valid) << round;
    ASSERT_EQ(TableDifference(grid.xyz, expected.xyz), "") << round;
    ASSERT_EQ(TableDifference(grid.unit_xyz, expected.unit_xyz), "") << round;
    if (!loaded) continue;
    ASSERT_EQ(grid.rows, expected.rows);
    ASSERT_EQ(grid.cols, expected.cols);
    ++valid;
  }
  EXPECT_GT(valid, 80);
}

}  // namespace
}  // namespace kerul::lidar::testing
