// Frames for the viewer's tests, and a folder that goes away.
#pragma once

#include <cstdint>
#include <vector>

#include "client/point_packet_by_hand.h"
#include "kerul_lidar/frame_collector.h"
#include "lidar_view/directions.h"

namespace kerul::lidar::view {

// A complete frame of one echo in which every point is `distance` units away.
inline CollectedFrame UniformFrame(int mode, std::uint16_t distance,
                                   std::array<std::uint8_t, 3> payload) {
  CollectedFrame frame;
  frame.key.output_mode = mode;
  frame.present[0].set();
  for (FramePoint& point : frame.points) point = {distance, payload};
  return frame;
}

inline void SetPoint(CollectedFrame& frame, int echo, int row, int col, std::uint16_t distance,
                     std::array<std::uint8_t, 3> payload) {
  frame.points[CollectedFrame::Index(echo, row, col)] = {distance, payload};
}

// Every pixel looks straight ahead.
inline Directions StraightAhead() {
  Directions directions;
  directions.unit.assign(216 * 288, {1.0F, 0.0F, 0.0F});
  return directions;
}

}  // namespace kerul::lidar::view
