// The steps of a packet's calibration, told from what its scalar forms decided.
#pragma once

#include <vector>

#include "MIPI_reader/node/point_calibration/packet_calibrator.h"
#include "pixel_story/packet_road.h"
#include "pixel_story/story.h"

namespace kerul::lidar::story {

// "environment", "range_calibration", "high_threshold", "high_reflectivity" and "reflectivity",
// always all five. `steps` are those of the walk.
std::vector<Step> CalibrationStepsOf(const PacketRoad& road, const CalibrationSteps& steps,
                                     int slot);

}  // namespace kerul::lidar::story
