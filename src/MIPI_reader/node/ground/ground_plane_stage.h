// Second ground stage: labels by a plane fitted through the points of the first stage.
#pragma once

#include "MIPI_reader/node/ground/ground_settings.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "calibration/angle_calib.h"

namespace kerul::lidar {

// Works in place on echo 0 of miniflash row `m_row`: writes `ground` of every pixel and draws
// dist_raw of ground pixels along their rays to the plane. dist_proc stays. The fit also takes
// the last two pixel rows of the previous miniflash row. With too few points or no valid plane,
// nothing changes. Allocates the point vectors of the fit.
void LabelGroundByPlane(FrameRows& rows, int m_row, int mrow_height, const GroundSettings& settings,
                        const AngleCalibGrid& grid);

}  // namespace kerul::lidar
