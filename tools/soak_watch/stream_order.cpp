#include "soak_watch/stream_order.h"

namespace kerul::lidar {

void StreamOrder::Take(const PointPacketView& packet) noexcept {
  constexpr int kHalfOfTheIds = 128;
  const int place = packet.Block() * kMaxEchoes + packet.Echo();
  const std::uint8_t frame_id = packet.FrameId();
  const std::uint32_t sequence_base = packet.SequenceBase();
  const bool first = counts_.packets == 0;
  ++counts_.packets;
  if (first || frame_id != frame_id_ || sequence_base != sequence_base_) {
    ++counts_.frames;
    const auto step = static_cast<std::uint8_t>(frame_id - frame_id_);
    if (!first && step > kHalfOfTheIds) ++counts_.frames_backwards;
    frame_id_ = frame_id;
    sequence_base_ = sequence_base;
  } else if (place <= place_) {
    ++counts_.packets_backwards;
  }
  place_ = place;
}

}  // namespace kerul::lidar
