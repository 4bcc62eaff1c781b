// What a pass did to the returns of a frame: published without it and with it, by the truth.
#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "kerul_lidar/frame_collector.h"
#include "sensor_simulator/frame_simulator.h"

namespace kerul::lidar::report {

inline constexpr std::size_t kKinds = 11;  // values of ReturnKind

struct Fate {
  std::size_t before = 0;   // published without the pass
  std::size_t removed = 0;  // of these, not published with it (or replaced by a filled return)
  std::size_t marked = 0;   // of these, marked as bloom, published or not
  std::size_t dimmed = 0;   // of those kept, with a lower reflectivity
  Fate& operator+=(const Fate& other) noexcept;
};

// Synthetic returns that fill holes.
struct FillCounts {
  std::size_t right = 0;    // at the range of a surface that the pixel looks at
  std::size_t wrong = 0;    // elsewhere
  std::size_t unknown = 0;  // the truth knows no surface there: dead pixel, or none of two peaks
};

struct FateCounts {
  std::array<Fate, kKinds> by_kind{};
  Fate isolated_noise;          // of the noise, returns that no neighbour agreed with before
  Fate weak;                    // of the surfaces, returns whose peak missed the detection level
  Fate first_crosstalk;         // of the crosstalk, returns in the first slot
  Fate first_narrow_crosstalk;  // of these, pulses below the low width curve
  // Of the bloom, returns without the mark that have no recognised retro-reflector within the 3 x 3
  // blocks around them, where the pass looks for one.
  std::size_t bloom_without_source = 0;
  FillCounts filled;
  // Relative reflectivity errors of surfaces that the pass marked and kept, without and with it.
  std::vector<double> marked_error_before;
  std::vector<double> marked_error_after;

  // All surfaces but retro-reflectors.
  Fate Surfaces() const noexcept;
  const Fate& Of(simulator::ReturnKind kind) const noexcept {
    return by_kind[static_cast<std::size_t>(kind)];
  }
};

// Both frames come from the same packets; slots are those of the truth.
void CountFates(const simulator::SimulatedFrame& truth, const CollectedFrame& before,
                const CollectedFrame& after, FateCounts& counts);

// No echo of the eight neighbours lies within 0.4 m or 4 % of the range, whichever is more.
bool IsIsolated(const CollectedFrame& frame, int echo, int row, int col) noexcept;

}  // namespace kerul::lidar::report
