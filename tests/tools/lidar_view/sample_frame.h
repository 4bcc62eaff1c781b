// Frames for the viewer's tests, and a folder that goes away.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "client/point_packet_by_hand.h"
#include "frame_collector.h"
#include "lidar_view/directions.h"

namespace kerul::lidar::view {

// A complete frame of one echo in which every point is `distance` units away.
inline CollectedFrame UniformFrame(int mode, std::uint16_t distance,
                                   std::array<std::uint8_t, 3> payload) {
  CollectedFrame frame;
  frame.key.output_mode = mode;
  frame.present[0].set();
  for (FramePoint& point : frame.points) point = {distance, payload};
  return frame;
}

inline void SetPoint(CollectedFrame& frame, int echo, int row, int col, std::uint16_t distance,
                     std::array<std::uint8_t, 3> payload) {
  frame.points[CollectedFrame::Index(echo, row, col)] = {distance, payload};
}

// Every pixel looks straight ahead.
inline Directions StraightAhead() {
  Directions directions;
  directions.unit.assign(216 * 288, {1.0F, 0.0F, 0.0F});
  return directions;
}

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "lidar_view_test_XXXXXX").string();
    path_ = mkdtemp(pattern.data());
  }
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string File(const std::string& name) const { return (path_ / name).string(); }
  std::string Path() const { return path_.string(); }
  void Write(const std::string& name, const std::vector<std::uint8_t>& bytes) const {
    std::ofstream file(File(name), std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
  }

 private:
  std::filesystem::path path_;
};

inline std::string ReadText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace kerul::lidar::view
