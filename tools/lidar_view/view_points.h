// A frame as points in space.
#pragma once

#include <cstdint>
#include <vector>

#include "config/transform_param.h"
#include "kerul_lidar/frame_collector.h"
#include "lidar_view/directions.h"

namespace kerul::lidar::view {

struct ViewPoint {
  float x;  // metres
  float y;
  float z;
  std::uint8_t intensity;  // 0..255
  std::uint16_t row;
  std::uint16_t col;
  std::uint8_t echo;    // 0 or 1
  std::uint8_t ground;  // 1 on the ground, where the output mode tells it
};

// All returns of the frame, echo by echo, row by row. Pixels without return or direction give none.
// `mount`, if not null, takes them from the sensor's frame to the carrier's: rotation, then offset.
std::vector<ViewPoint> MakeViewPoints(const CollectedFrame& frame, const Directions& directions,
                                      const TransformParam* mount);

}  // namespace kerul::lidar::view
