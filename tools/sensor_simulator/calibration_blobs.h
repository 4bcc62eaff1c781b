// The calibration as the sensor stores it: two blobs, read out in pages of 256 bytes.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "sensor_simulator/camera_model.h"
#include "sensor_simulator/sensor_calibration.h"

namespace kerul::lidar::simulator {

inline constexpr std::size_t kPageBytes = 256;
inline constexpr std::size_t kMainBytes = 168960;  // two pixel tables and three curves: 660 pages

struct CalibrationBlobs {
  std::string lidar_id;
  std::vector<std::uint8_t> head;  // 256 bytes
  std::vector<std::uint8_t> main;  // (page_count - 1) * 256 bytes
};

// CRC-32/MPEG-2: polynomial 0x04C11DB7, start 0xFFFFFFFF, nothing reflected or inverted.
std::uint32_t Crc32Mpeg2(std::span<const std::uint8_t> bytes) noexcept;

// "SIM-" and the serial number, at least four digits; 20 characters at most.
std::string LidarId(std::uint64_t serial);

CalibrationBlobs MakeBlobs(const std::string& lidar_id, const CameraModel& camera,
                           const SensorCalibration& calibration);

// The blobs of the sensor that these options describe.
struct SimulatorOptions;
CalibrationBlobs MakeBlobs(const SimulatorOptions& options);

// Writes <directory>/<id>/para_read/ with <id>_head.bin, <id>_para2.bin and
// Lidar-<id>_angle_calib.dat, and gives that directory. Throws std::runtime_error or
// std::filesystem::filesystem_error when something cannot be written.
std::filesystem::path WriteBlobs(const CalibrationBlobs& blobs,
                                 const std::filesystem::path& directory);

}  // namespace kerul::lidar::simulator
