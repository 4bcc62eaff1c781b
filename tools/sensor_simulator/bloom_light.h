// Light of retro-reflectors that the lens scatters into the pixels around them.
#pragma once

#include <array>
#include <vector>

#include "sensor_simulator/pixel_layout.h"

namespace kerul::lidar::simulator {

// A pixel that looks at a retro-reflector.
struct BloomSource {
  int row = 0;
  int col = 0;
  double strength = 0.0;  // expected detections per 160 shots
  double range_m = 0.0;
};

struct BloomSpot {
  double strength = 0.0;
  double range_m = 0.0;
};

// Two sources at different ranges reach one pixel at most; a third is left out.
using BloomSpots = std::array<BloomSpot, 2>;

// Share of a source's light in a pixel at this distance, pixels.
double BloomShare(double distance_pixels) noexcept;

// Scattered light of every pixel, row-major; empty when there is no source. A source lights the
// pixels up to 14 away, not its own.
std::vector<BloomSpots> SpreadBloom(const std::vector<BloomSource>& sources);

}  // namespace kerul::lidar::simulator
