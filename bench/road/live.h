// The node fed by its own socket source over the loopback interface.
#pragma once

#include <vector>

#include "road/both_roads.h"

namespace kerul::lidar::bench {

// Wall-clock ms per frame, entry i of both from the same round, nothing cold.
struct LiveTimes {
  std::vector<double> in_memory;
  std::vector<double> live;  // recvfrom included, the time of sending subtracted
};
// One packet in flight: each is sent when the node asks for it.
LiveTimes MeasureLive(BothRoads& roads, std::vector<FramePackets>& frames, int rounds);

struct CpuShare {
  double percent = 0.0;       // of one core, by the node's thread, system calls included
  double lost_percent = 0.0;  // of the raw packets sent
};
// Sends frames at a pace for `seconds` from a thread of its own.
CpuShare MeasureCpuShare(BenchNode& node, const std::vector<FramePackets>& frames,
                         double frames_per_second, double seconds);

}  // namespace kerul::lidar::bench
