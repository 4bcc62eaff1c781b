// The camera model that is used when no calibration of the sensor is given.
#pragma once

#include "calibration/angle_calib.h"

namespace kerul::lidar::view {

// The simulated sensor's camera as its angle record. The simulator packs the same record byte by
// byte; this one needs its header alone.
QndrAngleDatRecord DefaultAngleRecord();

}  // namespace kerul::lidar::view
