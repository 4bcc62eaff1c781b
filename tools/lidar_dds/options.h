// The command line.
#pragma once

#include "lidar_dds/bridge.h"
#include "lidar_dds/topics.h"
#include "ros_messages/stream_options.h"

namespace kerul::lidar::dds {

struct Options {
  ros::StreamOptions stream;
  BridgeOptions bridge;
  TopicOptions topics;
};

// Fills in the options. False when the program is to end now with `exit_status`: 0 after --help, 1
// after an error, both already printed.
bool ParseOptions(int argc, const char* const* argv, Options& options, int& exit_status);

}  // namespace kerul::lidar::dds
