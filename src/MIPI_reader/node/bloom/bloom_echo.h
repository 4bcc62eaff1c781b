// What the bloom pass asks of an echo, and its blocks.
#pragma once

#include <cmath>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar::bloom {

inline constexpr int kBlockSide = 6;

inline bool IsReturn(float dist) noexcept { return std::isfinite(dist) && dist != 0.0F; }

inline bool IsCandidate(const LidarEcho& echo, float threshold) noexcept {
  return !echo.highRefl && echo.cogh < threshold && IsReturn(echo.dist_raw);
}

}  // namespace kerul::lidar::bloom
