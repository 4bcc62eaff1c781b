// Keeps, smooths, erases or fills each echo by what the eight pixels around it show.
#pragma once

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

// Works in place on the pixel rows first_row .. first_row + row_count - 1 of the grid, reading one
// row above and below where they exist. Scan order is rows, columns, echo slots ascending, and an
// erased echo is empty for whatever is scanned after it. Needs dist_proc and refl_proc primed.
// Writes dist_raw, refl_raw, dist_proc, refl_proc, fill_point. Allocates nothing, cannot fail.
void ValidateNeighbours(FrameRows& rows, int first_row, int row_count) noexcept;

}  // namespace kerul::lidar
