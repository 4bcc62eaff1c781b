#include "kerul_lidar/frame_collector.h"

#include <algorithm>

namespace kerul::lidar {
namespace {

FrameKey KeyOf(const PointPacketView& packet) noexcept {
  return {packet.FrameId(), packet.SequenceBase(), packet.EchoCount(), packet.Mode()};
}

}  // namespace

CollectedFrame::CollectedFrame()
    : points(static_cast<std::size_t>(kMaxEchoes * kFrameRows * kFrameCols)) {}

int CollectedFrame::MissingBlocks() const noexcept {
  int missing = 0;
  for (int echo = 0; echo < key.echoes; ++echo) {
    missing += kBlocksPerFrame - static_cast<int>(present[static_cast<std::size_t>(echo)].count());
  }
  return missing;
}

const CollectedFrame* FrameCollector::Add(const PointPacketView& packet) {
  const FrameKey key = KeyOf(packet);
  if (has_closed_ && key == closed_key_) {
    ++statistics_.late;
    return nullptr;
  }
  const CollectedFrame* closed = nullptr;
  if (open_ && key != frames_[static_cast<std::size_t>(in_hand_)].key) closed = Close();
  if (!open_) Begin(key, packet);
  Store(packet);
  // A frame closed by this packet leaves no room for it to complete another: a frame is many.
  if (closed != nullptr) return closed;
  return frames_[static_cast<std::size_t>(in_hand_)].IsComplete() ? Close() : nullptr;
}

const CollectedFrame* FrameCollector::Flush() { return open_ ? Close() : nullptr; }

void FrameCollector::Restart() {
  open_ = false;
  seen_any_ = false;
  has_closed_ = false;
  ids_.Restart();
}

const CollectedFrame* FrameCollector::Close() {
  const CollectedFrame& frame = frames_[static_cast<std::size_t>(in_hand_)];
  const int missing = frame.MissingBlocks();
  if (missing == 0) {
    ++statistics_.complete;
  } else if (!frame.joined_midway) {
    ++statistics_.incomplete;
    statistics_.missing_blocks += static_cast<std::uint64_t>(missing);
  }
  closed_key_ = frame.key;
  has_closed_ = true;
  open_ = false;
  in_hand_ = 1 - in_hand_;
  return &frame;
}

void FrameCollector::Begin(const FrameKey& key, const PointPacketView& packet) {
  CollectedFrame& frame = frames_[static_cast<std::size_t>(in_hand_)];
  frame.key = key;
  frame.return_code = packet.ReturnCode();
  frame.unit_mm = packet.UnitMm();
  for (auto& blocks : frame.present) blocks.reset();
  frame.packets = 0;
  frame.duplicates = 0;
  frame.first_timestamp_us = packet.TimestampUs();
  frame.row_timestamp_us.fill(0);
  frame.missing_ids_before = ids_.Take(key.frame_id);
  statistics_.missing_frame_ids = ids_.missing;
  frame.joined_midway = !seen_any_ && (packet.Block() != 0 || packet.Echo() != 0);
  std::fill(frame.points.begin(), frame.points.end(), FramePoint{});
  open_ = true;
  seen_any_ = true;
}

void FrameCollector::Store(const PointPacketView& packet) {
  CollectedFrame& frame = frames_[static_cast<std::size_t>(in_hand_)];
  auto& blocks = frame.present[static_cast<std::size_t>(packet.Echo())];
  const auto block = static_cast<std::size_t>(packet.Block());
  if (blocks[block]) {
    ++frame.duplicates;
    ++statistics_.duplicates;
  }
  blocks[block] = true;
  ++frame.packets;
  frame.last_timestamp_us = packet.TimestampUs();
  std::int64_t& row_timestamp_us =
      frame.row_timestamp_us[static_cast<std::size_t>(packet.BlockRow())];
  if (row_timestamp_us == 0) row_timestamp_us = frame.last_timestamp_us;
  for (int i = 0; i < kPointsPerPacket; ++i) {
    const PacketPoint point = packet.Point(i);
    FramePoint& to = frame.points[CollectedFrame::Index(packet.Echo(), point.row, point.col)];
    to.distance = point.distance;
    std::copy_n(point.payload, point_packet::kPayloadBytes, to.payload.begin());
  }
}

}  // namespace kerul::lidar
