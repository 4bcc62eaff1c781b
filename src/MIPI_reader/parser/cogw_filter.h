// Pulse-width curves of the echo computation.
#pragma once

#include <vector>

namespace kerul::lidar {

inline constexpr int kCogwCurveEntries = 641;  // indexed by the normalised peak, 0..640

// Three curves of 641 entries each, bins of width by pulse peak.
struct CogwFilter {
  std::vector<float> cogw_low_curve;   // a cogw below it sets bit 0 of cogw_flag
  std::vector<float> cogw_gate_curve;  // a cogw above it by more than 0.1 asks for the high width
  std::vector<float> cogw_high_curve;  // limit of cogw_high

  // Throws std::runtime_error when a curve does not have 641 entries or holds a NaN; the message
  // then names the first such index.
  CogwFilter(std::vector<float> low, std::vector<float> gate, std::vector<float> high);
};

}  // namespace kerul::lidar
