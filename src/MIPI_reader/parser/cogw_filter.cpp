#include "MIPI_reader/parser/cogw_filter.h"

#include <cmath>
#include <stdexcept>
#include <string>
#include <utility>

namespace kerul::lidar {

CogwFilter::CogwFilter(std::vector<float> low, std::vector<float> gate, std::vector<float> high)
    : cogw_low_curve(std::move(low)),
      cogw_gate_curve(std::move(gate)),
      cogw_high_curve(std::move(high)) {
  constexpr std::size_t kEntries = kCogwCurveEntries;
  if (cogw_low_curve.size() != kEntries || cogw_gate_curve.size() != kEntries ||
      cogw_high_curve.size() != kEntries) {
    throw std::runtime_error("Invalid cogw filter data (expect peak range 0..640)");
  }
  limits_.reserve(kEntries);
  for (std::size_t i = 0; i < kEntries; ++i) {
    if (std::isnan(cogw_low_curve[i]) || std::isnan(cogw_gate_curve[i]) ||
        std::isnan(cogw_high_curve[i])) {
      throw std::runtime_error("Invalid cogw filter data: missing curve at peak=" +
                               std::to_string(i));
    }
    limits_.push_back({cogw_low_curve[i], cogw_gate_curve[i], cogw_high_curve[i]});
  }
}

}  // namespace kerul::lidar
