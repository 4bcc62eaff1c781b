// Correction of a ground echo's reflectivity for the angle at which its ray meets the ground.
#pragma once

#include "calibration/angle_calib.h"

namespace kerul::lidar {

// Factor 0.4..1 by which a ground echo's reflectivity is too low for its angle of incidence; 1.0
// when it cannot tell. `distances`: `count` ranges (at most 5) down column `col`, from row
// `row` + first_offset on.
float EstimateGroundReflScale(const float* distances, int count, int row, int col, int first_offset,
                              const AngleCalibGrid& grid) noexcept;

}  // namespace kerul::lidar
