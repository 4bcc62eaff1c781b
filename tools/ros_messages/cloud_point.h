// One point of a cloud as it stands in the message.
#pragma once

#include <cstdint>

namespace kerul::lidar::ros {

// 32 bytes, every field at a multiple of its size.
struct CloudPoint {
  float x, y, z;        // metres; NaN without return or direction
  float intensity;      // 0..255, the reflectivity where the mode carries it (PointIntensity)
  float range;          // metres, 0 is no return
  std::uint16_t row;    // of the sensor, 0..215, row 0 looks down
  std::uint16_t col;    // 0..287, column 0 looks to the left
  std::uint8_t echo;    // 0 or 1
  std::uint8_t unused;  // always 0
  std::uint16_t flags;  // bit numbers of point_flag
  float time;           // seconds from the stamp to the publishing of the pixel's miniflash row
};
static_assert(sizeof(CloudPoint) == 32);

}  // namespace kerul::lidar::ros
