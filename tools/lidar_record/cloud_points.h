// What stands in a recorded cloud, as points for files and as a frame for the picture.
#pragma once

#include <string>
#include <vector>

#include "kerul_lidar/frame_collector.h"
#include "ros_messages/cloud_reader.h"
#include "support/cloud_point.h"

namespace kerul::lidar::record {

// All points with finite x, y and z. Fields that the cloud does not have are 0. False with the
// reason in `error` without x, y and z.
bool MakePoints(const ros::CloudView& cloud, std::vector<CloudPoint>& points, std::string& error);

// The pixels of a cloud of the node's, in 4 mm as the node publishes them. Values outside what a
// frame can hold are left out. False with the reason in `error` without range, row and col.
bool MakeFrame(const ros::CloudView& cloud, CollectedFrame& frame, std::string& error);

}  // namespace kerul::lidar::record
