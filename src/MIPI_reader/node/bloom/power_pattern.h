// How far the power around an echo follows the template of a real target.
#pragma once

#include "MIPI_reader/parser/lidar_point.h"
#include "config/bloom_suppress_calib.h"

namespace kerul::lidar {

inline constexpr int kPatternReach = 2;  // the window around an echo is 5 x 5

// Over the samples around an echo.
struct PatternSums {
  int n = 0;
  float s = 0.0F;
  float t = 0.0F;
  float ss = 0.0F;
  float tt = 0.0F;
  float st = 0.0F;

  void Add(float power, float expected) noexcept {
    ++n;
    s += power;
    t += expected;
    ss += power * power;
    tt += expected * expected;
    st += power * expected;
  }
};

// Score 0..1 from the sums, -1 when there is no score: fewer than min_n samples, or no variance.
float ScoreOf(const PatternSums& sums, int min_n) noexcept;

// Score 0..1 from the 5 x 5 pixels around (row, col), clamped into the frame, of echo slot `echo`;
// -1 when there is no score. Reads dist_gate_m and min_n of `calib`. Prints when `debug`.
float MatchPowerPattern(const LidarFrame& frame, int row, int col, int echo,
                        const float (&power_template)[kTemplateSide][kTemplateSide],
                        const BloomSuppressCalib& calib, bool debug);

}  // namespace kerul::lidar
