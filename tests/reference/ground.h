// Labels the ground echoes of a miniflash row.
#pragma once

#include "MIPI_reader/node/ground/ground_labelling.h"
#include "calibration/angle_calib.h"
#include "reference/records.h"

namespace reference {

using kerul::lidar::AngleCalibGrid;
using kerul::lidar::GroundSettings;

struct Direction {
  float x = 0.0F;
  float y = 0.0F;
  float z = 0.0F;
  bool usable = false;
};

// The ray of a pixel out of `unit_xyz`.
Direction RayDirection(const AngleCalibGrid& grid, int row, int col);

// In place on echo 0 of miniflash row `m_row`: the distance stage always, the plane stage when
// plane_enable is set and the grid is valid.
void Ground(LidarFrame& frame, int m_row, const GroundSettings& settings,
            const AngleCalibGrid& grid);

// Factor 0.4..1 for the angle of incidence; 1.0 when it cannot tell. `distances`: `count` ranges,
// at most 5, down column `col` from row `row` + first_offset on.
float ProcessGroundVertSeed(const float* distances, int count, int row, int col, int first_offset,
                            const AngleCalibGrid& grid);

}  // namespace reference
