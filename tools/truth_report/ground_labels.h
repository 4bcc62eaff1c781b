// Ground labels held against the truth.
#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "kerul_lidar/frame_collector.h"
#include "sensor_simulator/frame_simulator.h"

namespace kerul::lidar::report {

// Bands of pixel rows; row 0 looks down the most. Labels end at row 107: the smallest ground
// distance of higher rows is 99 m.
inline constexpr std::array<int, 6> kGroundBandEdges = {0, 20, 40, 60, 84, 216};
inline constexpr std::size_t kGroundBands = kGroundBandEdges.size() - 1;

// Published returns of echo slot 0.
struct GroundBand {
  std::size_t ground = 0;  // on the ground
  std::size_t right = 0;   // of these, labelled
  std::size_t other = 0;   // on something else, or false
  std::size_t wrong = 0;   // of these, labelled
};

struct GroundLabels {
  std::array<GroundBand, kGroundBands> bands{};
  std::vector<double> range_errors_m;  // of returns on the ground, published minus true
  GroundBand All() const noexcept;
};

void CountGroundLabels(const simulator::SimulatedFrame& truth, const CollectedFrame& published,
                       GroundLabels& labels);

}  // namespace kerul::lidar::report
