// The camera model that stands in when no calibration of the sensor at hand is given.
#pragma once

#include "calibration/angle_calib.h"

namespace kerul::lidar::view {

// A fisheye of 576 x 576 sensor cells, read out 2 x 2, of which the middle 216 x 288 places are
// used: the simulated sensor's own camera.
QndrAngleDatRecord DefaultAngleRecord();

}  // namespace kerul::lidar::view
