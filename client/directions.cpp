#include "kerul_lidar/directions.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>

#include "kerul_lidar/angle_calib.h"
#include "kerul_lidar/frame_collector.h"
#include "kerul_lidar/regular_file.h"

namespace kerul::lidar {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kRecordInHead = 20;  // byte offset in the head page

// The first file by name whose name begins and ends so; empty when there is none.
fs::path FindFile(const std::string& folder, const std::string& begin, const std::string& end) {
  std::vector<fs::path> found;
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
    const std::string name = entry.path().filename().string();
    if (name.size() >= begin.size() + end.size() && name.starts_with(begin) &&
        name.ends_with(end)) {
      found.push_back(entry.path());
    }
  }
  return found.empty() ? fs::path() : *std::min_element(found.begin(), found.end());
}

// Empty when it cannot be read, which makes no record.
Bytes ReadFile(const fs::path& path) {
  Bytes bytes;
  if (ReadRegularFile(path.string(), bytes) != FileFault::kNone) bytes.clear();
  return bytes;
}

// The record's bytes and where they are from. False when the folder has none.
bool FindRecord(const std::string& calib_dir, Bytes& record, std::string& origin) {
  const fs::path angle_file = FindFile(calib_dir, "Lidar-", "_angle_calib.dat");
  if (!angle_file.empty()) {
    record = ReadFile(angle_file);
    origin = angle_file.string();
    return true;
  }
  const fs::path head_file = FindFile(calib_dir, "", "_head.bin");
  if (head_file.empty()) return false;
  record = ReadFile(head_file);
  record.erase(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(
                                                    std::min(kRecordInHead, record.size())));
  origin = head_file.string();
  return true;
}

void TakeGrid(const AngleCalibGrid& grid, Directions& directions) {
  directions.unit.resize(std::size_t{kFrameRows} * kFrameCols);
  for (int row = 0; row < kFrameRows; ++row) {
    for (int col = 0; col < kFrameCols; ++col) {
      std::array<float, 3> unit{grid.At(0, row, col), grid.At(1, row, col), grid.At(2, row, col)};
      // The grid marks the pixel exactly on the principal point with (0, 0, 1); it looks straight
      // ahead.
      if (unit == std::array<float, 3>{0.0F, 0.0F, 1.0F}) unit = {1.0F, 0.0F, 0.0F};
      directions.unit[CollectedFrame::Index(0, row, col)] = unit;
    }
  }
}

}  // namespace

bool LoadDirections(const std::string& calib_dir, Directions& directions, std::string& error) {
  Bytes record;
  if (!FindRecord(calib_dir, record, directions.origin) &&
      !FindRecord(calib_dir + "/para_read", record, directions.origin)) {
    error = "no Lidar-*_angle_calib.dat and no *_head.bin in " + calib_dir;
    return false;
  }
  return MakeDirections(record.data(), record.size(), directions, error);
}

bool MakeDirections(const std::uint8_t* record, std::size_t size, Directions& directions,
                    std::string& error) {
  AngleCalibGrid grid;
  std::string reason;
  if (!load_angle_calib_from_dat_bytes(record, size, grid, &reason)) {
    error = directions.origin + ": " + reason;
    return false;
  }
  if (grid.rows != kFrameRows || grid.cols != kFrameCols) {
    error = directions.origin + ": " + std::to_string(grid.rows) + " x " +
            std::to_string(grid.cols) + " pixels instead of 216 x 288";
    return false;
  }
  TakeGrid(grid, directions);
  return true;
}

}  // namespace kerul::lidar
