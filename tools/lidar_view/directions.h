// Which way each pixel looks, also without a calibration.
#pragma once

#include <string>

#include "kerul_lidar/directions.h"

namespace kerul::lidar::view {

// From the calibration in `calib_dir`, or from the default camera model when that is empty. False
// with the reason in `error`.
bool LoadDirectionsOrDefault(const std::string& calib_dir, Directions& directions,
                             std::string& error);

}  // namespace kerul::lidar::view
