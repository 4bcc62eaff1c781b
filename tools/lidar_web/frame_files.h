// One frame as a file: picture, points or text.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "kerul_lidar/directions.h"
#include "lidar_web/frame_message.h"
#include "lidar_web/request.h"

namespace kerul::lidar::web {

// Where a frame's pixels look.
struct ViewGeometry {
  Directions directions;
  std::optional<TransformParam> mount;  // its rotation belongs to its angles

  const TransformParam* Mount() const noexcept { return mount ? &*mount : nullptr; }
};

// `message` is the whole message that `header` describes; its own header is not looked at. The
// files are those that lidar_view writes of the same frame; JSON has a line for each return with
// direction:
//   {"frame_id": .., ..., "columns": ["echo", "row", "col", "range_m", "x_m", "y_m", "z_m",
//    "reflectivity", "flags"], "points": [[0, 12, 24, 1.0, ...], ...]}
// Planes from outside may hold anything. False with the reason in `error`.
bool MakeFrameFile(const FrameHeader& header, std::span<const char> message,
                   const ViewGeometry& geometry, FileFormat format, bool floats,
                   std::vector<char>& file, std::string& error);

}  // namespace kerul::lidar::web
