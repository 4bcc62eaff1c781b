// Small frames and plain tunings for the tests of the bloom pass.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <limits>
#include <random>
#include <vector>

#include "MIPI_reader/parser/lidar_point.h"
#include "config/bloom_suppress_calib.h"

namespace kerul::lidar::bloom_test {

inline LidarPoint& PointAt(LidarFrame& frame, int row, int col) {
  return frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
}

inline LidarEcho& EchoAt(LidarFrame& frame, int row, int col, int slot = 0) {
  return PointAt(frame, row, col).echoes[slot];
}

// All gains off, every PSF entry the same: 0.5 in the same block, 0.25 beside it, 0.125 else.
inline BloomSuppressCalib PlainCalib() {
  BloomSuppressCalib calib;
  calib.psf_coeff = 1.0F;
  calib.dist_neighbor_enabled = false;
  calib.pattern_enabled = false;
  calib.dist_pattern_enabled = false;
  calib.dist_gate_m = 0.25F;
  calib.source_min_dist_m = 2.0F;
  calib.edge_neighbor_threshold_m = 0.25F;
  calib.min_n = 5;
  calib.threshold = 235.0F;
  std::fill(std::begin(calib.psf_same_block), std::end(calib.psf_same_block), 0.5F);
  std::fill(std::begin(calib.psf_adjacent_block), std::end(calib.psf_adjacent_block), 0.25F);
  std::fill(std::begin(calib.psf_diagonal_block), std::end(calib.psf_diagonal_block), 0.125F);
  return calib;
}

inline LidarEcho& PutEcho(LidarFrame& frame, int row, int col, float dist, float power,
                          int slot = 0) {
  LidarEcho& echo = EchoAt(frame, row, col, slot);
  echo.dist_raw = dist;
  echo.dist_proc = dist;
  echo.refl_raw = 40.0F;
  echo.refl_proc = 40.0F;
  echo.cogh = 100.0F;
  echo.power = power;
  return echo;
}

inline LidarEcho& PutSource(LidarFrame& frame, int row, int col, float dist, float power) {
  LidarEcho& echo = PutEcho(frame, row, col, dist, power);
  echo.highRefl = true;
  return echo;
}

// Any content at all: no access is out of bounds, and the trace's printing changes nothing.
inline float RandomValue(std::mt19937& random) {
  static constexpr float kOdd[] = {0.0F,
                                   -0.0F,
                                   std::numeric_limits<float>::quiet_NaN(),
                                   std::numeric_limits<float>::infinity(),
                                   -std::numeric_limits<float>::infinity(),
                                   -3.0F,
                                   3e38F,
                                   -3e38F,
                                   1e-40F};
  if (random() % 8 == 0) return kOdd[random() % std::size(kOdd)];
  return static_cast<float>(random() % 40) * 0.25F;
}

inline void FillAtRandom(LidarFrame& frame, std::mt19937& random) {
  for (std::vector<LidarPoint>& row : frame.points) {
    for (LidarPoint& point : row) {
      for (LidarEcho& echo : point.echoes) {
        echo.dist_raw = RandomValue(random);
        echo.dist_proc = RandomValue(random);
        echo.refl_proc = RandomValue(random);
        echo.cogh = RandomValue(random);
        echo.power = RandomValue(random);
        echo.highRefl = random() % 6 == 0;
        echo.highReflBlooming = random() % 6 == 0;
      }
    }
  }
}

}  // namespace kerul::lidar::bloom_test
