// The node's frame once more, built from the same datagrams by the node's own operations, so that
// each step can be looked at. What the node does when is not worked out here: it is told.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "MIPI_reader/node/row_passes.h"
#include "MIPI_reader/node/rows/stale_pixels.h"
#include "MIPI_reader/parser/lidar_parser.h"
#include "pixel_story/watched_node.h"

namespace kerul::lidar::story {

// A datagram on its way into the frame.
struct PacketMoment {
  const UdpPacket& packet;
  int packet_index;                           // in the frame, 0..6911 for a sound packet
  const std::vector<LidarPoint>& parsed;      // nine, as the parser gave them
  const std::vector<LidarPoint>& calibrated;  // the same nine as they go into the frame
};

// One pass over one miniflash row. `before` and `after` hold the pass's rows in sight: the row
// itself, the one above and the one below. Other rows of `before` are out of date.
struct PassMoment {
  RowPass pass;
  int m_row;
  const LidarFrame& before;
  const LidarFrame& after;
  const RowPassSettings& settings;
};

// Pixel rows that the passes over miniflash row `m_row` look at, first and one past the last; not
// cut down to the frame.
struct RowsInSight {
  int first;
  int end;
};
RowsInSight RowsInSightOf(int m_row, int row_height) noexcept;

// Copies these rows, as far as the frame has them, between frames of one size.
void CopyRows(const LidarFrame& from, RowsInSight rows, LidarFrame& to);

class FrameTwin {
 public:
  using PassHook = std::function<void(const PassMoment&)>;

  // `parts` must outlive it.
  explicit FrameTwin(const NodeParts& parts);

  // False for a datagram that the node does not take. Nothing is put into the frame yet.
  bool Parse(const UdpPacket& packet);
  int ParsedFrameId() const noexcept { return frame_id_; }
  bool ClosesFrame();  // the parsed one has the frame's last place

  // Calibrates the parsed points and puts them into the frame.
  PacketMoment Take(const UdpPacket& packet);

  // Makes the row and those in sight what the passes find. Before RunRow.
  void SettleRow(int m_row);
  // Runs the passes over the row; `hook` is called after each, and may be empty.
  void RunRow(int m_row, const PassHook& hook);

  // The row's packets in the order in which they are published, with the clock's bytes zero.
  std::vector<std::vector<std::uint8_t>> EncodeRow(int m_row);

  // What closing the frame leaves for the next one.
  void Reset(int frame_id);

  const LidarFrame& Frame() const noexcept { return frame_; }
  RowPassSettings SettingsOf(int m_row) const;

 private:
  const NodeParts& parts_;
  LidarParserQDV11 parser_;
  LidarFrame frame_;
  LidarFrame before_;  // the rows in sight before the pass in hand
  StalePixels stale_pixels_;
  std::vector<LidarPoint> parsed_;
  std::vector<LidarPoint> calibrated_;
  int packet_index_ = -1;
  int frame_id_ = 0;
};

// A published packet without the time when it was built.
std::vector<std::uint8_t> Timeless(const std::uint8_t* bytes, std::size_t length);

}  // namespace kerul::lidar::story
