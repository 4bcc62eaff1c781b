// Doubles a frame in both directions, filling the pixels between from raw windows.
#pragma once

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

// Resets `target` and fills it from `source`, frame id included. False, with nothing changed, when
// the target has not exactly twice the height and width of the source.
bool UpsampleFrame(const LidarFrame& source, LidarFrame& target);

}  // namespace kerul::lidar
