// The steps from a window's samples to its raw range, told from what the echo computation decided.
#pragma once

#include <vector>

#include "pixel_story/packet_road.h"
#include "pixel_story/story.h"

namespace kerul::lidar::story {

// "samples", "baseline", "thresholds", "edges", "centre" and "raw_range", always all six. The
// samples' step has a plot unless there is no window; that of the edges has one when there are any.
std::vector<Step> EchoSteps(const PacketRoad& road, int slot);

}  // namespace kerul::lidar::story
