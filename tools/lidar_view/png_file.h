// Writes a picture as PNG.
#pragma once

#include <string>

#include "lidar_view/canvas.h"

namespace kerul::lidar::view {

// False with the library's reason in `error`.
bool WritePng(const std::string& path, const Canvas& canvas, std::string& error);

}  // namespace kerul::lidar::view
