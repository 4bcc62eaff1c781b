#include "soak_watch/stream_order.h"

namespace kerul::lidar {

void StreamOrder::Take(const PointPacketView& packet) noexcept {
  const int place = packet.Block() * kMaxEchoes + packet.Echo();
  const std::uint8_t frame_id = packet.FrameId();
  const std::uint32_t sequence_base = packet.SequenceBase();
  const bool first = counts_.packets == 0;
  ++counts_.packets;
  if (first || frame_id != ids_.newest || sequence_base != sequence_base_) {
    ++counts_.frames;
    ids_.Take(frame_id);
    counts_.frames_backwards = ids_.backwards;
    counts_.frames_missing = ids_.missing;
    sequence_base_ = sequence_base;
  } else if (place <= place_) {
    ++counts_.packets_backwards;
  }
  place_ = place;
}

}  // namespace kerul::lidar
