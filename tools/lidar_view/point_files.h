// Point clouds as files that common programs open: PCD and PLY, both binary and little-endian.
// A point is x, y, z, intensity (float, metres and 0..255), row, col (16 bits), echo, ground (8).
#pragma once

#include <span>
#include <string>

#include "lidar_view/view_points.h"

namespace kerul::lidar::view {

// False, with the reason in `error`, when the file cannot be written.
bool WritePcd(const std::string& path, std::span<const ViewPoint> points, std::string& error);
bool WritePly(const std::string& path, std::span<const ViewPoint> points, std::string& error);

}  // namespace kerul::lidar::view
