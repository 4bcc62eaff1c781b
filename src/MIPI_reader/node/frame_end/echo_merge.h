// Merges the raw windows of two or four pixels into the echo of a pixel between them.
#pragma once

#include <cstdint>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

// The three sources of a triple, then the one left out.
inline constexpr std::int32_t kTriples[4][4] = {
    {0, 1, 2, 3}, {0, 1, 3, 2}, {0, 2, 3, 1}, {1, 2, 3, 0}};

// Sums `count` windows of 17 samples on a common axis, each centred on its address in bins (low 12
// bits of samples and addresses count). Writes the 17 samples around the largest sum to `out`,
// limited to 4095, and gives the axis position of that sum, -8 .. 4103; the lowest wins a tie.
// Fewer than two windows, or two whose addresses differ by more than 16, give zeros and 0. Three
// and more are not tested for their distance.
int MergeWindowsOnAxis(const std::uint16_t* const* windows, const int* addresses, int count,
                       std::uint16_t* out) noexcept;

// Chooses which of four sources belong together and merges their windows of slot `echo` (0 or 1).
// Takes all four when three lie close together and the fourth reaches one of them, else those
// three, else none. Gives the centre in the low 32 bits and, above them, a four-bit mask of the
// sources, bit i for source i.
std::uint64_t PickAndMergeFour(const LidarPoint* const* points, int echo,
                               std::uint16_t* out) noexcept;

// The merged pixel of 2 or 4 sources; any other count, or sources that do not belong together, give
// a default point. LidarPoint::echo_num decides whether slot 1 is merged. In each merged slot, sets
// bins, peak_addr (here the centre of the window, low 12 bits) and totsum (see the source). Means
// of the sources: pixel_word22, pixel_word11, and slot 0's echosum and noise. The caller sets the
// range.
LidarPoint MergePoints(const LidarPoint* const* points, int count) noexcept;

}  // namespace kerul::lidar
