// Puts point packets together to frames of 216 x 288 pixels of one or two echoes, and says what is
// missing: blocks of a frame, and whole frames by their ids.
//
// A frame is complete when all blocks that the node published have come. What the node itself did
// not get is not in the packets: pixels of lost raw packets are published as no return.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <vector>

#include "kerul_lidar/frame_id_tracker.h"
#include "kerul_lidar/point_packet_view.h"

namespace kerul::lidar {

// One echo of one pixel as it was published.
struct FramePoint {
  std::uint16_t distance = 0;  // in distance units, 0 is no return
  std::array<std::uint8_t, point_packet::kPayloadBytes> payload{};  // see point_payload.h
};

// What the packets of one frame have in common. Rows that are sent again have the same key. When a
// frame id comes twice in a row, the sequence bases differ.
struct FrameKey {
  std::uint8_t frame_id = 0;
  std::uint32_t sequence_base = 0;
  int echoes = 1;       // 1 or 2
  int output_mode = 0;  // a value of OutputMode, or a number without a name
  bool operator==(const FrameKey&) const = default;
};

struct CollectedFrame {
  FrameKey key;
  int return_code = 0;
  int unit_mm = 4;  // millimetres in a distance unit
  // Blocks received, by echo. Pixels of other blocks read as no return.
  std::array<std::bitset<kBlocksPerFrame>, kMaxEchoes> present;
  std::uint32_t packets = 0;            // packets taken, duplicates included
  std::uint32_t duplicates = 0;         // packets of a block already there; the later one counts
  std::int64_t first_timestamp_us = 0;  // time stamps of the packets taken first and last
  std::int64_t last_timestamp_us = 0;
  // Time stamp of the first packet taken of each miniflash row; 0 where none came.
  std::array<std::int64_t, kBlockRows> row_timestamp_us{};
  int missing_ids_before = 0;      // frame ids passed over between the frame before and this one
  bool joined_midway = false;      // the collector's first frame, which had begun before it
  std::vector<FramePoint> points;  // [echo][row][col], always room for two echoes

  CollectedFrame();
  const FramePoint& At(int echo, int row, int col) const noexcept {
    return points[Index(echo, row, col)];
  }
  float RangeM(const FramePoint& point) const noexcept {
    return static_cast<float>(point.distance * unit_mm) / 1000.0F;
  }
  // Blocks of all echoes that did not come.
  int MissingBlocks() const noexcept;
  bool IsComplete() const noexcept { return MissingBlocks() == 0; }

  static std::size_t Index(int echo, int row, int col) noexcept {
    const int line = echo * kFrameRows + row;
    return static_cast<std::size_t>(line) * kFrameCols + static_cast<std::size_t>(col);
  }
};

struct FrameStatistics {
  std::uint64_t complete = 0;
  std::uint64_t incomplete = 0;  // closed with blocks missing, but for a first frame joined late
  std::uint64_t missing_blocks = 0;  // of the incomplete ones
  std::uint64_t duplicates = 0;
  std::uint64_t missing_frame_ids = 0;  // passed over between one frame and the next
  std::uint64_t late = 0;               // packets of the frame that was closed last; dropped
};

class FrameCollector {
 public:
  // Takes one packet. Gives a frame when the packet completes it, or when the packet belongs to
  // another frame and so closes an incomplete one; otherwise null. The frame stays valid until the
  // next frame is given. Allocates nothing.
  const CollectedFrame* Add(const PointPacketView& packet);
  // Closes and gives the frame in hand, complete or not; null when there is none.
  const CollectedFrame* Flush();
  bool HasFrameInHand() const noexcept { return open_; }
  // Forgets the frame in hand without counting it: the stream begins anew.
  void Restart();

  const FrameStatistics& Statistics() const noexcept { return statistics_; }

 private:
  const CollectedFrame* Close();
  void Begin(const FrameKey& key, const PointPacketView& packet);
  void Store(const PointPacketView& packet);

  std::array<CollectedFrame, 2> frames_;  // one in hand, one given out
  int in_hand_ = 0;
  bool open_ = false;
  bool seen_any_ = false;
  bool has_closed_ = false;
  FrameKey closed_key_;  // of the frame closed last
  FrameIdTracker ids_;
  FrameStatistics statistics_;
};

}  // namespace kerul::lidar
