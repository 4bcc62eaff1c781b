// Doubles a frame in both directions, filling the pixels between from raw windows.
#pragma once

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

// Resets `target` and fills it from `source`, frame id included. False, with nothing changed,
// unless the target has exactly twice the height and width of the source.
// A source pixel is placed by its own `row` and `col`, not by its place in the grid. A pixel that
// no packet filled takes part as the frame reset left it. Measured pixels go to (2 row, 2 col);
// pixels between them carry the merged windows, a dist_proc of 1.2 m in slot 0 and no dist_raw. The
// target's first and last row and column stay reset. Needs points with `bins` kept.
bool UpsampleFrame(const LidarFrame& source, LidarFrame& target) noexcept;

}  // namespace kerul::lidar
