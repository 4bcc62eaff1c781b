// Erases doubtful echoes of 6 x 6 blocks whose edges do not fit the blocks beside them.
#pragma once

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

// Works in place on miniflash row `m_row` (pixel rows 6 m_row .. 6 m_row + 5) of a grid that is
// `block_columns` blocks of 6 columns wide. dist_gate_m: ranges across a block edge that differ by
// at least this, metres, do not fit. Judges by echo 0 (dist_proc, peak). Nothing happens unless
// more than eight blocks of the row are suspect. Then their echoes with bit 0 of cogw_flag set
// lose dist_raw, refl_raw, dist_proc, refl_proc and get shot_noise_group_point.
// Blocks and rows outside the grid are skipped. Allocates two small bit vectors.
void FilterShotNoise(FrameRows& rows, int m_row, int block_columns, float dist_gate_m);

}  // namespace kerul::lidar
