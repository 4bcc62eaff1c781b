// False returns around highly reflective targets.
#pragma once

#include "config/bloom_suppress_calib.h"
#include "reference/records.h"

namespace reference {

using kerul::lidar::BloomSuppressCalib;

// Marks and, with filter_enable, filters miniflash row `m_row` in place.
void SuppressHighReflBlooming(LidarFrame& frame, int m_row, const BloomSuppressCalib& calib,
                              bool filter_enable);

// 0.5..1.5 by the spread of the ranges in the 6 x 6 block at (first_row, first_col).
float DistStdGain(const FrameRows& rows, int first_row, int first_col, int echo,
                  const BloomSuppressCalib& calib);

// 0.4..1.6 by what lies across the block's four edges. end_row is exclusive.
float EdgeNeighborGain(const FrameRows& rows, int height, int width, int first_row, int end_row,
                       int first_col, int echo, float threshold);

// Score 0..1 of the power around (row, col) against the template; -1 (or NaN): no score.
float PatternMatchPower(const LidarFrame& frame, int row, int col, int echo,
                        const BloomSuppressCalib& calib);

}  // namespace reference
