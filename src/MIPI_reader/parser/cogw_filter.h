// Pulse-width curves of the echo computation.
#pragma once

#include <vector>

namespace kerul::lidar {

inline constexpr int kCogwCurveEntries = 641;  // indexed by the normalised peak, 0..640

// The three curves at one normalised peak, side by side so that lanes read them with one load.
struct alignas(16) CogwLimits {
  float low;
  float gate;
  float high;
};

// Three curves of 641 entries each, bins of width by pulse peak.
struct CogwFilter {
  const std::vector<float> cogw_low_curve;   // a cogw below it sets bit 0 of cogw_flag
  const std::vector<float> cogw_gate_curve;  // above it by over 0.1, cogw asks for the high width
  const std::vector<float> cogw_high_curve;  // limit of cogw_high

  // Throws std::runtime_error when a curve does not have 641 entries or holds a NaN; the message
  // then names the first such index.
  CogwFilter(std::vector<float> low, std::vector<float> gate, std::vector<float> high);

  // 641 entries by normalised peak, as long as the filter lives.
  const CogwLimits* Limits() const noexcept { return limits_.data(); }

 private:
  std::vector<CogwLimits> limits_;
};

}  // namespace kerul::lidar
