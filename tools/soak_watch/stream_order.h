// Whether published packets come in the order in which the sensor sends.
#pragma once

#include <cstdint>

#include "kerul_lidar/point_packet_view.h"

namespace kerul::lidar {

struct StreamOrderCounts {
  std::uint64_t packets = 0;
  std::uint64_t frames = 0;             // begun
  std::uint64_t frames_backwards = 0;   // of these, whose id lies up to 127 behind the one before
  std::uint64_t packets_backwards = 0;  // not behind the packet before in their frame
};

class StreamOrder {
 public:
  // The view must be valid. A frame is what has one frame id and one sequence base.
  void Take(const PointPacketView& packet) noexcept;
  const StreamOrderCounts& Counts() const noexcept { return counts_; }

 private:
  StreamOrderCounts counts_;
  std::uint8_t frame_id_ = 0;
  std::uint32_t sequence_base_ = 0;
  int place_ = -1;  // of the packet before in its frame: two for each block
};

}  // namespace kerul::lidar
