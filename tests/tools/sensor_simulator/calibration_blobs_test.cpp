#include "sensor_simulator/calibration_blobs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "sensor_simulator/frame_simulator.h"
#include "support/temp_dir.h"

namespace kerul::lidar::simulator {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

int Read16(const Bytes& bytes, std::size_t offset) {
  return static_cast<std::int16_t>(bytes[offset] | bytes[offset + 1] << 8);
}

std::uint32_t Read32(const Bytes& bytes, std::size_t offset) {
  return static_cast<std::uint32_t>(bytes[offset] | bytes[offset + 1] << 8 |
                                    bytes[offset + 2] << 16) |
         static_cast<std::uint32_t>(bytes[offset + 3]) << 24;
}

SensorCalibration Numbered() {
  SensorCalibration calibration;
  for (std::size_t i = 0; i < kCurveEntries; ++i) {
    calibration.range_low[i] = static_cast<double>(i) - 100.4;
    calibration.range_high[i] = -static_cast<double>(i);
    calibration.power[i] = static_cast<double>(i) / 64.0;
  }
  calibration.power[5] = 40.0;  // more than 16 bits of 1024ths hold
  calibration.offset.assign(82944, 0);
  calibration.scale.assign(82944, 0);
  for (std::size_t i = 0; i < 82944; ++i) {
    calibration.offset[i] = static_cast<std::uint8_t>(i);
    calibration.scale[i] = static_cast<std::uint8_t>(i / 7);
  }
  return calibration;
}

TEST(Crc32Mpeg2, GivesThePublishedCheckValue) {
  const std::string text = "123456789";
  EXPECT_EQ(Crc32Mpeg2({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}),
            0x0376E6E7U);
}

TEST(LidarId, HoldsTheSerialNumberAndFitsItsField) {
  EXPECT_EQ(LidarId(1), "SIM-0001");
  EXPECT_EQ(LidarId(123456), "SIM-123456");
  EXPECT_LE(LidarId(UINT64_MAX).size(), 20U);
}

TEST(CalibrationBlobs, TheHeadNamesTheSensorAndHoldsTheCameraAndTheChecksums) {
  const CalibrationBlobs blobs = MakeBlobs("SIM-0042", CameraModel{}, Numbered());
  ASSERT_EQ(blobs.head.size(), 256U);
  EXPECT_EQ(std::string(blobs.head.begin(), blobs.head.begin() + 8), "SIM-0042");
  EXPECT_EQ(blobs.head[8], 0xFF);
  const auto record = CameraRecord(CameraModel{});
  EXPECT_TRUE(std::equal(record.begin(), record.end(), blobs.head.begin() + 20));
  EXPECT_EQ(Read16(blobs.head, 98), 661);
  EXPECT_EQ(Read32(blobs.head, 128), Crc32Mpeg2(blobs.main));
  EXPECT_EQ(Read32(blobs.head, 132), Crc32Mpeg2({blobs.head.data(), 128}));
}

TEST(CalibrationBlobs, TheMainBlobHoldsTablesAndRoundedCurvesInTheirPlaces) {
  const SensorCalibration calibration = Numbered();
  const CalibrationBlobs blobs = MakeBlobs("SIM-0042", CameraModel{}, calibration);
  ASSERT_EQ(blobs.main.size(), 660U * 256U);
  EXPECT_TRUE(std::equal(calibration.offset.begin(), calibration.offset.end(), blobs.main.begin()));
  EXPECT_TRUE(
      std::equal(calibration.scale.begin(), calibration.scale.end(), blobs.main.begin() + 82944));
  EXPECT_EQ(Read16(blobs.main, 165888), -100);
  EXPECT_EQ(Read16(blobs.main, 165888 + 2 * 511), 411);
  EXPECT_EQ(Read16(blobs.main, 166912 + 2 * 511), -511);
  EXPECT_EQ(Read16(blobs.main, 167936 + 2 * 64), 1024);
  EXPECT_EQ(Read16(blobs.main, 167936 + 2 * 5), 32767);
}

TEST(CalibrationBlobs, ADirectoryHoldsTheThreeFilesOfTheSensor) {
  const testing::TempDir directory;
  const CalibrationBlobs blobs = MakeBlobs("SIM-0042", CameraModel{}, Numbered());
  const std::filesystem::path place = WriteBlobs(blobs, directory.path());
  EXPECT_EQ(place, directory.path() / "SIM-0042" / "para_read");
  EXPECT_EQ(ReadFile(place / "SIM-0042_head.bin"), blobs.head);
  EXPECT_EQ(ReadFile(place / "SIM-0042_para2.bin"), blobs.main);
  EXPECT_EQ(ReadFile(place / "Lidar-SIM-0042_angle_calib.dat"),
            Bytes(blobs.head.begin() + 20, blobs.head.begin() + 98));
}

TEST(CalibrationBlobs, WhatCannotBeWrittenIsReported) {
  const CalibrationBlobs blobs = MakeBlobs("SIM-0042", CameraModel{}, Numbered());
  EXPECT_ANY_THROW(WriteBlobs(blobs, "/proc/nowhere"));
}

TEST(CalibrationBlobs, TheSameSensorHasTheSameBlobsAndAnotherOneOthers) {
  SimulatorOptions options;
  options.serial = 7;
  const CalibrationBlobs first = MakeBlobs(options);
  EXPECT_EQ(first.lidar_id, "SIM-0007");
  EXPECT_EQ(MakeBlobs(options).main, first.main);
  options.serial = 8;
  EXPECT_NE(MakeBlobs(options).main, first.main);
}

}  // namespace
}  // namespace kerul::lidar::simulator
