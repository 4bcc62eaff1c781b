// First ground stage: labels by how ranges rise up a column and stay level along a row.
#pragma once

#include "MIPI_reader/node/ground/ground_settings.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "calibration/angle_calib.h"

namespace kerul::lidar {

// Works in place on echo 0 of miniflash row `m_row`, rows and columns ascending: clears `ground`
// of every pixel and sets it where the ranges say so. With vert_seed_enable it writes
// ground_refl_scale; a scale below 0.999 corrects refl_raw and refl_proc; with smooth_enable it
// writes dist_proc and refl_proc. Reads two pixel rows and columns around. Allocates nothing.
void LabelGroundByRise(FrameRows& rows, int m_row, int mrow_height, const GroundSettings& settings,
                       const AngleCalibGrid& grid) noexcept;

}  // namespace kerul::lidar
