// Point clouds as LAS 1.2, point format 1, little-endian.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "support/cloud_point.h"

namespace kerul::lidar {

struct LasOptions {
  // Class 2 for points on the ground and 1 for the others; without it all are of class 0, never
  // classified.
  bool ground_known = false;
  // When the points were taken: system clock, microseconds since the epoch. 0 is unknown: no date
  // in the header, and the points' time is 0.
  std::int64_t timestamp_us = 0;
};

// The whole file: coordinates in steps of 1 mm, rounded; intensity times 256, as the format wants
// 16 bits, cut to 0..65535; return number echo + 1 of as many as the pixel has. Points that are not
// finite, or further away than the format's 2,147 km, are left out.
std::vector<char> EncodeLas(std::span<const CloudPoint> points, const LasOptions& options);

}  // namespace kerul::lidar
