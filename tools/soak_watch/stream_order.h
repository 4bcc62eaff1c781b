// Whether published packets come in the order in which the sensor sends.
#pragma once

#include <cstdint>

#include "kerul_lidar/frame_id_tracker.h"
#include "kerul_lidar/point_packet_view.h"

namespace kerul::lidar {

struct StreamOrderCounts {
  std::uint64_t packets = 0;
  std::uint64_t frames = 0;             // begun
  std::uint64_t frames_backwards = 0;   // of these, whose id lies up to 127 before the last one's
  std::uint64_t frames_missing = 0;     // ids passed over between one frame and the next
  std::uint64_t packets_backwards = 0;  // not after the packet before in their frame
};

class StreamOrder {
 public:
  // The view must be valid. A frame is what has one frame id and one sequence base.
  void Take(const PointPacketView& packet) noexcept;
  // The packets that follow are those of another node: no frame is missing in between.
  void Restart() noexcept { ids_.Restart(); }
  const StreamOrderCounts& Counts() const noexcept { return counts_; }

 private:
  StreamOrderCounts counts_;
  FrameIdTracker ids_;
  std::uint32_t sequence_base_ = 0;
  int place_ = -1;  // of the packet before in its frame: two for each block
};

}  // namespace kerul::lidar
