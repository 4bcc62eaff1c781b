// The passes over a finished miniflash row, in place on the frame.
#pragma once

#include "reference/records.h"

namespace reference {

// Keeps and smooths, erases, or fills each echo of the six pixel rows by its eight neighbours.
void NeighborMiniflashRow(LidarFrame& frame, int m_row);

// Erases doubtful echoes of blocks that do not fit those beside them. Blocks past the frame's width
// are left out.
void ApplyShotNoiseMiniflashRow(LidarFrame& frame, int m_row, int block_columns, float dist_gate);

}  // namespace reference
