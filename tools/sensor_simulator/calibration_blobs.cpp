#include "sensor_simulator/calibration_blobs.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "sensor_simulator/frame_simulator.h"
#include "sensor_simulator/pixel_layout.h"

namespace kerul::lidar::simulator {
namespace {

constexpr std::size_t kIdBytes = 20;
constexpr std::size_t kAngleOffset = 20;
constexpr std::size_t kPageCountOffset = 98;
constexpr std::size_t kMainCrcOffset = 128;
constexpr std::size_t kHeadCrcOffset = 132;
constexpr std::size_t kTableBytes = 82944;
constexpr std::size_t kCurveBytes = 1024;
constexpr double kPowerUnits = 1024.0;  // steps of one power of two
constexpr std::uint8_t kBlank = 0xFF;   // memory that was never written

template <typename T>
void Put(std::uint8_t* bytes, T value) noexcept {
  std::memcpy(bytes, &value, sizeof value);
}

void PutCurve(const Curve& curve, double units, std::uint8_t* bytes) noexcept {
  for (const double value : curve) {
    const long rounded = std::clamp(std::lround(value * units), -32768L, 32767L);
    Put(bytes, static_cast<std::int16_t>(rounded));
    bytes += 2;
  }
}

std::vector<std::uint8_t> MainBlob(const SensorCalibration& calibration) {
  std::vector<std::uint8_t> main(kMainBytes);
  std::copy(calibration.offset.begin(), calibration.offset.end(), main.begin());
  std::copy(calibration.scale.begin(), calibration.scale.end(), main.begin() + kTableBytes);
  std::uint8_t* curves = main.data() + 2 * kTableBytes;
  PutCurve(calibration.range_low, 1.0, curves);
  PutCurve(calibration.range_high, 1.0, curves + kCurveBytes);
  PutCurve(calibration.power, kPowerUnits, curves + 2 * kCurveBytes);
  return main;
}

void WriteFile(const std::filesystem::path& path, std::span<const std::uint8_t> bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path.string());
}

}  // namespace

std::uint32_t Crc32Mpeg2(std::span<const std::uint8_t> bytes) noexcept {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const std::uint8_t byte : bytes) {
    crc ^= static_cast<std::uint32_t>(byte) << 24;
    for (int bit = 0; bit < 8; ++bit) crc = (crc << 1) ^ (crc >> 31 != 0 ? 0x04C11DB7U : 0U);
  }
  return crc;
}

std::string LidarId(std::uint64_t serial) {
  std::string digits = std::to_string(serial % 10000000000000000ULL);
  if (digits.size() < 4) digits.insert(0, 4 - digits.size(), '0');
  return "SIM-" + digits;
}

CalibrationBlobs MakeBlobs(const std::string& lidar_id, const CameraModel& camera,
                           const SensorCalibration& calibration) {
  CalibrationBlobs blobs;
  blobs.lidar_id = lidar_id;
  blobs.main = MainBlob(calibration);
  blobs.head.assign(kPageBytes, kBlank);
  std::copy_n(lidar_id.begin(), std::min(lidar_id.size(), kIdBytes), blobs.head.begin());
  const auto record = CameraRecord(camera);
  std::copy(record.begin(), record.end(), blobs.head.begin() + kAngleOffset);
  Put(&blobs.head[kPageCountOffset], static_cast<std::uint16_t>(1 + kMainBytes / kPageBytes));
  Put(&blobs.head[kMainCrcOffset], Crc32Mpeg2(blobs.main));
  Put(&blobs.head[kHeadCrcOffset], Crc32Mpeg2({blobs.head.data(), kMainCrcOffset}));
  return blobs;
}

CalibrationBlobs MakeBlobs(const SimulatorOptions& options) {
  const std::vector<PixelTraits> traits =
      MakePixelTraits(options.serial, PixelDirections(options.camera));
  return MakeBlobs(LidarId(options.serial), options.camera,
                   Calibrate(options.pulse, DefaultSensorTables(), traits));
}

std::filesystem::path WriteBlobs(const CalibrationBlobs& blobs,
                                 const std::filesystem::path& directory) {
  const std::filesystem::path place = directory / blobs.lidar_id / "para_read";
  std::filesystem::create_directories(place);
  WriteFile(place / (blobs.lidar_id + "_head.bin"), blobs.head);
  WriteFile(place / (blobs.lidar_id + "_para2.bin"), blobs.main);
  WriteFile(place / ("Lidar-" + blobs.lidar_id + "_angle_calib.dat"),
            {blobs.head.data() + kAngleOffset, kCameraRecordBytes});
  return place;
}

}  // namespace kerul::lidar::simulator
