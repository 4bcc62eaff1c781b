// What the forms of the first ground stage share: its numbers, and how the vector forms are called.
#pragma once

#include <cstdint>

#include "MIPI_reader/node/ground/ground_settings.h"
#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar::ground {

inline constexpr int kReach = 2;  // pixels looked at on every side
inline constexpr int kWindow = 2 * kReach + 1;
inline constexpr int kMaxTooNear = 1;       // of a column window
inline constexpr float kMinCentre = 1e-6F;  // metres

// ---- The vector forms ----

// Wider rows and rows of unlike width are left to the scalar form.
inline constexpr int kMaxColumns = 320;
// As many rows as a miniflash row has.
inline constexpr int kMaxRows = 6;

// Rows to test, kReach more above and below.
struct RowRun {
  const LidarPoint* lines[kMaxRows + 2 * kReach] = {};  // the first tested is lines[kReach]
  int row_count = 0;                                    // 1..kMaxRows
  int columns = 0;                                      // 1..kMaxColumns
  float min_dist = 0.0F;                                // metres; ground is not nearer
};

// Which pixels of the run pass all tests of the stage, a bit per column. The kReach columns at
// either end never do.
struct GroundBits {
  std::uint64_t rows[kMaxRows][kMaxColumns / 64];
};

void FindGroundPlain(const RowRun& run, const GroundSettings& settings, GroundBits& bits) noexcept;
void FindGroundAvx2(const RowRun& run, const GroundSettings& settings, GroundBits& bits) noexcept;
void FindGroundAvx512(const RowRun& run, const GroundSettings& settings, GroundBits& bits) noexcept;

}  // namespace kerul::lidar::ground
