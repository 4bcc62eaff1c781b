#include "MIPI_reader/node/frame_end/frame_export.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <system_error>

namespace kerul::lidar {
namespace {

constexpr std::uint8_t kModeRaw = 0;
constexpr std::uint8_t kModeProcessed = 1;
constexpr std::uint8_t kModeDoubled = 2;
constexpr std::size_t kPathBytes = 1024;
constexpr char kMagic[] = {'Q', 'N', 'D', 'R', 'B', 'I', 'N', '1'};
constexpr std::uint8_t kVersion = 1;
constexpr std::uint16_t kValuesPerRecord = 2;

template <class Number>
void Write(std::ofstream& file, Number number) {
  // The format is little-endian, as every host this runs on.
  static_assert(std::endian::native == std::endian::little);
  std::array<char, sizeof(Number)> bytes;
  std::memcpy(bytes.data(), &number, sizeof number);
  file.write(bytes.data(), bytes.size());
}

struct Values {
  float range;
  float reflectivity;
};

Values ValuesOf(const LidarPoint& point, std::uint8_t mode) noexcept {
  const LidarEcho& echo = point.echoes[0];
  if (mode == kModeRaw) return {echo.dist_raw, echo.refl_raw};
  return {echo.dist_proc, echo.refl_proc};
}

std::uint32_t CountReturns(const LidarFrame& frame, std::uint8_t mode) noexcept {
  std::uint32_t count = 0;
  for (const std::vector<LidarPoint>& row : frame.points) {
    for (const LidarPoint& point : row) {
      if (ValuesOf(point, mode).range > 0.0F) ++count;
    }
  }
  return count;
}

int FileFrameId(const FrameExport& request) {
  return request.frame_id < 0 ? 0 : request.frame_id & 0xFF;
}

// Up to the sequence number; the count of points follows.
void WriteHeader(std::ofstream& file, const LidarFrame& frame, std::uint8_t mode,
                 const FrameExport& request) {
  file.write(kMagic, sizeof kMagic);
  Write(file, kVersion);
  Write(file, kVersion);
  Write(file, mode);
  Write(file, std::uint8_t{0});
  Write(file, static_cast<std::uint16_t>(frame.height));
  Write(file, static_cast<std::uint16_t>(frame.width));
  Write(file, kValuesPerRecord);
  Write(file, std::uint16_t{0});
  Write(file, static_cast<std::uint32_t>(FileFrameId(request)));
  Write(file, request.sequence);
}

void WriteRecords(std::ofstream& file, const LidarFrame& frame, std::uint8_t mode) {
  for (std::size_t r = 0; r < frame.points.size(); ++r) {
    for (std::size_t c = 0; c < frame.points[r].size(); ++c) {
      const Values values = ValuesOf(frame.points[r][c], mode);
      // A NaN is written although it does not count in the header. Deliberate.
      if (values.range <= 0.0F) continue;
      Write(file, static_cast<std::uint16_t>(r));
      Write(file, static_cast<std::uint16_t>(c));
      Write(file, values.range);
      Write(file, values.reflectivity);
    }
  }
}

// Judged before the file is closed: an error at the close itself goes unseen.
bool WriteFile(const char* path, const LidarFrame& frame, const FrameExport& request) {
  const std::uint8_t mode = ExportModeCode(request.export_mode);
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (file.good()) WriteHeader(file, frame, mode, request);
  if (file.good()) Write(file, CountReturns(frame, mode));
  if (file.good()) WriteRecords(file, frame, mode);
  return !file.fail();
}

}  // namespace

std::uint8_t ExportModeCode(const std::string& export_mode) noexcept {
  if (export_mode == "raw") return kModeRaw;
  return export_mode == "processed" ? kModeProcessed : kModeDoubled;
}

void ExportFrame(const LidarFrame& frame, const FrameExport& request) {
  std::array<char, kPathBytes> path;
  const int length = std::snprintf(path.data(), path.size(), "%s/%s_%s_f%03d_n%06llu.bin",
                                   request.export_dir.c_str(), request.node_name.c_str(),
                                   request.export_mode.c_str(), FileFrameId(request),
                                   static_cast<unsigned long long>(request.sequence));
  if (length <= 0 || length >= static_cast<int>(path.size())) {
    std::cerr << "[LidarNode][" << request.node_name << "] export BIN path too long\n";
    return;
  }
  const std::filesystem::path parent = std::filesystem::path(path.data()).parent_path();
  if (!parent.empty()) {
    // A failure shows when the file is opened.
    std::error_code ignored;
    std::filesystem::create_directories(parent, ignored);
  }
  if (!WriteFile(path.data(), frame, request)) {
    std::cerr << "[LidarNode][" << request.node_name << "] export BIN failed: " << path.data()
              << '\n';
  }
}

}  // namespace kerul::lidar
