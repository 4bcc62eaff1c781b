// Merges the raw windows of two or four pixels into the echo of a pixel between them.
#pragma once

#include <cstdint>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

// The three sources of a triple, then the one left out.
inline constexpr std::int32_t kTriples[4][4] = {
    {0, 1, 2, 3}, {0, 1, 3, 2}, {0, 2, 3, 1}, {1, 2, 3, 0}};

// Sums `count` windows of 17 samples on a common axis, each centred on its address (low 12 bits of
// both count). Writes the 17 samples around the largest sum to `out`, limited to 4095, and gives
// the axis position of that sum. Nothing to merge gives zeros and 0.
int MergeWindowsOnAxis(const std::uint16_t* const* windows, const int* addresses, int count,
                       std::uint16_t* out);

// Chooses which of four sources belong together and merges their windows of slot `echo`. Gives the
// centre in the low 32 bits and the four-bit mask of the sources above them.
std::uint64_t PickAndMergeFour(const LidarPoint* const* points, int echo, std::uint16_t* out);

// The merged pixel of 2 or 4 sources; any other count gives a default point. Sets bins, peak_addr,
// totsum and the told means only.
LidarPoint MergePoints(const LidarPoint* const* points, int count);

}  // namespace kerul::lidar
