// Labels ground echoes of a miniflash row and draws them to a fitted plane.
#pragma once

#include "MIPI_reader/node/ground/ground_settings.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "calibration/angle_calib.h"

namespace kerul::lidar {

// Works in place on echo 0 of miniflash row `m_row`, which is `mrow_height` pixel rows high; reads
// two pixel rows around it. The first stage always runs, the plane stage when plane_enable and the
// grid is valid.
void LabelGround(LidarFrame& frame, int m_row, int mrow_height, const GroundSettings& settings,
                 const AngleCalibGrid& grid);

}  // namespace kerul::lidar
