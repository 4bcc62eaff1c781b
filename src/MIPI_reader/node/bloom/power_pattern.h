// How far the power around an echo follows the template of a real target.
#pragma once

#include "MIPI_reader/parser/lidar_point.h"
#include "config/bloom_suppress_calib.h"

namespace kerul::lidar {

// Score 0..1 from the 5 x 5 pixels around (row, col), clamped into the frame, of echo slot `echo`;
// -1 when there is no score. Reads dist_gate_m and min_n of `calib`. Prints when `debug`.
float MatchPowerPattern(const LidarFrame& frame, int row, int col, int echo,
                        const float (&power_template)[kTemplateSide][kTemplateSide],
                        const BloomSuppressCalib& calib, bool debug);

}  // namespace kerul::lidar
