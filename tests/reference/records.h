// A slow, literal form of every algorithm of the node, written apart from it. It shares the plain
// records with the node and calls nothing of it, so that the two can be compared.
//
// Throughout this folder: single precision unless double is written, sums in the order of the
// terms, loops over echo slots up to LidarPoint::echo_num.
#pragma once

#include "MIPI_reader/parser/lidar_point.h"

namespace reference {

using kerul::lidar::FrameRows;
using kerul::lidar::LidarEcho;
using kerul::lidar::LidarFrame;
using kerul::lidar::LidarPoint;
using kerul::lidar::UdpPacket;

// The echo reset: leaves row and col, and in each echo debug_flag and ground_refl_scale, alone, and
// touches the echo slots in use only.
void ResetPoint(LidarPoint& point);

// Allocates a frame and sets LidarPoint::echo_num.
LidarFrame MakeFrame(int height, int width, int echo_num);

// Echo reset of every point, mask cleared, received_count 0; frame_id stays.
void ResetFrame(LidarFrame& frame);

}  // namespace reference
