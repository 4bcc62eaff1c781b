// Writes one frame as a binary file.
#pragma once

#include <cstdint>
#include <string>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

// 0 for "raw", 1 for "processed", 2 for anything else.
std::uint8_t ExportModeCode(const std::string& export_mode) noexcept;

struct FrameExport {
  std::string export_dir;
  std::string node_name;
  std::string export_mode;
  // The frame counter that the frame's last packet carried, which is not always the id that the
  // frame is published under. Its low byte is used; a negative one counts as 0.
  int frame_id = 0;
  std::uint64_t sequence = 0;
};

// Writes `frame` under the name that `request` gives. Failures are printed to standard error; a
// partial file stays.
void ExportFrame(const LidarFrame& frame, const FrameExport& request);

}  // namespace kerul::lidar
