// From the 17 samples of one echo window to range and pulse measures. The innermost loop of the
// node: single precision, every sum in one fixed order, no allocation.
#pragma once

#include <cstdint>

#include "MIPI_reader/parser/cogw_filter.h"
#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

// What the computation reads besides the point: constant during a packet.
struct EchoSettings {
  std::int32_t baseline_samples = 1;  // head samples averaged for the baseline, 1..17
  float baseline_rise_gate = 0.0F;    // level units at 160 shots
  float baseline_rise_limit = 0.0F;   // level units at 160 shots
  bool clip_side_peaks = false;       // cut all peaks but the highest
  bool keep_bins = false;             // keep the raw samples in `bins`
  std::uint16_t cogw_high_mode = 2;   // 1 always computes the high width, 2 above the gate curve
  // Pulse-width curves, 641 entries by normalised peak; null without a filter.
  const CogwLimits* cogw_limits = nullptr;
};

// Fills the echo record of slot `echo` (0 or 1) and writes nothing else.
//   samples  17 samples of the window; the first is bin `peak_addr` of the range histogram
//   point    shot_ratio and detect_threshold are read. Of the echo, peak_addr (bins), noise (raw
//            units) and baseline (level units) are read; all else is in its reset state.
// A window whose peak ratio is not above 0.7 keeps dist_raw 0, and its peak and baseline are not
// divided by shot_ratio. Cannot fail: every comparison takes NaN as not above.
void ComputeEcho(const EchoSettings& settings, const std::uint16_t* samples, LidarPoint& point,
                 int echo) noexcept;

}  // namespace kerul::lidar
