// A frame as points in space.
#pragma once

#include <vector>

#include "config/transform_param.h"
#include "kerul_lidar/frame_collector.h"
#include "lidar_view/directions.h"
#include "support/cloud_point.h"

namespace kerul::lidar::view {

// All returns of the frame, echo by echo, row by row. Pixels without return or direction give none.
// `mount`, if not null, takes them from the sensor's frame to the carrier's: rotation, then offset.
std::vector<CloudPoint> MakeViewPoints(const CollectedFrame& frame, const Directions& directions,
                                       const TransformParam* mount);

}  // namespace kerul::lidar::view
