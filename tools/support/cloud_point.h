// One point of a point file.
#pragma once

#include <cstdint>

namespace kerul::lidar {

struct CloudPoint {
  float x = 0.0F;  // metres
  float y = 0.0F;
  float z = 0.0F;
  float intensity = 0.0F;  // 0..255 from the node's stream
  std::uint16_t row = 0;
  std::uint16_t col = 0;
  std::uint8_t echo = 0;    // 0 or 1
  std::uint8_t ground = 0;  // 1 on the ground, where the origin of the points tells it
};

}  // namespace kerul::lidar
