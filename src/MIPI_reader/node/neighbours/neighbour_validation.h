// Keeps, smooths, erases or fills each echo by what the eight pixels around it show.
#pragma once

#include <cstdint>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

// Offsets of the eight neighbours. Group A is the half of the ring that the scan has passed, group
// B the half still to come; entry i of both lies point-symmetric about the pixel, and the two are
// used as a pair: falling diagonal, column, rising diagonal, row.
inline constexpr std::int32_t kGrpADr[4] = {-1, -1, -1, 0};
inline constexpr std::int32_t kGrpADc[4] = {-1, 0, 1, -1};
inline constexpr std::int32_t kGrpBDr[4] = {1, 1, 1, 0};
inline constexpr std::int32_t kGrpBDc[4] = {1, 0, -1, 1};

// Works in place on the pixel rows first_row .. first_row + row_count - 1 of the grid, as far as
// they exist, reading one row above and below where they exist. Scan order is rows, columns, echo
// slots ascending, and an erased echo is empty for whatever is scanned after it. Needs dist_proc
// and refl_proc primed. Any content of the records is safe, NaN and infinite values too.
// Writes dist_raw, refl_raw, dist_proc, refl_proc, fill_point. Allocates nothing, cannot fail.
void ValidateNeighbours(FrameRows& rows, int first_row, int row_count) noexcept;

// The same after PrimeProcessedFields of these rows, in one go over the records.
void PrimeAndValidateNeighbours(FrameRows& rows, int first_row, int row_count) noexcept;

}  // namespace kerul::lidar
