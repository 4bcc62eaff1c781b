#include "pixel_story/frame_twin.h"

#include <algorithm>
#include <utility>

#include "MIPI_reader/node/point_calibration/packet_calibrator.h"
#include "MIPI_reader/parser/point_packet_layout.h"

namespace kerul::lidar::story {
namespace {

constexpr std::size_t kClockBytes = 8;  // seconds and microseconds

}  // namespace

RowsInSight RowsInSightOf(int m_row, int row_height) noexcept {
  return {(m_row - 1) * row_height, (m_row + 2) * row_height};
}

void CopyRows(const LidarFrame& from, RowsInSight rows, LidarFrame& to) {
  for (int row = std::max(rows.first, 0); row < std::min(rows.end, from.height); ++row) {
    to.points[static_cast<std::size_t>(row)] = from.points[static_cast<std::size_t>(row)];
  }
}

std::vector<std::uint8_t> Timeless(const std::uint8_t* bytes, std::size_t length) {
  std::vector<std::uint8_t> packet(bytes, bytes + length);
  if (packet.size() >= point_packet::kSecondsOffset + kClockBytes) {
    std::fill_n(packet.begin() + point_packet::kSecondsOffset, kClockBytes, std::uint8_t{0});
  }
  return packet;
}

FrameTwin::FrameTwin(const NodeParts& parts)
    : parts_(parts),
      parser_(parts.parser),
      frame_(parser_.Height(), parser_.Width(), parts.config.echo_num),
      before_(frame_),
      stale_pixels_(frame_.height, frame_.width) {
  parser_.packet_debug = false;
  parser_.echo_metrics_debug = false;
}

bool FrameTwin::Parse(const UdpPacket& packet) {
  packet_index_ = parser_.ParsePacket(packet, parsed_, frame_id_, parts_.config.echo_num);
  return packet_index_ != -1;
}

bool FrameTwin::ClosesFrame() { return packet_index_ == parser_.GetNPacketPerFrame() - 1; }

PacketMoment FrameTwin::Take(const UdpPacket& packet) {
  calibrated_ = parsed_;
  if (parts_.config.calib_enable) parts_.calibrator.Calibrate(calibrated_);
  for (const LidarPoint& point : calibrated_) {
    if (point.row < 0 || point.row >= frame_.height || point.col < 0 || point.col >= frame_.width) {
      continue;
    }
    frame_.points[static_cast<std::size_t>(point.row)][static_cast<std::size_t>(point.col)] = point;
    stale_pixels_.MarkFresh(point.row, point.col, point.echoes[0].highRefl);
  }
  return {packet, packet_index_, parsed_, calibrated_};
}

RowPassSettings FrameTwin::SettingsOf(int m_row) const {
  RowPassSettings settings = MakeRowPassSettings(parts_.config, {.ground = parts_.ground,
                                                                 .angle_grid = parts_.angle_grid,
                                                                 .bloom = parts_.bloom,
                                                                 .echo_plan = parts_.echo_plan});
  settings.row_height = parser_.mrow_height;
  settings.block_columns = parser_.col_groups;
  settings.bloom_trace = {};
  settings.possibly_bright_rows =
      stale_pixels_.PossiblyBrightRows(RowsInSightOf(m_row, parser_.mrow_height).first);
  return settings;
}

void FrameTwin::SettleRow(int m_row) {
  const RowsInSight in_sight = RowsInSightOf(m_row, parser_.mrow_height);
  stale_pixels_.ResetRows(frame_, in_sight.first, in_sight.end);
}

void FrameTwin::RunRow(int m_row, const PassHook& hook) {
  const RowsInSight in_sight = RowsInSightOf(m_row, parser_.mrow_height);
  const RowPassSettings settings = SettingsOf(m_row);
  if (!hook) {
    RunRowPasses(frame_, m_row, settings, NoRowHook{});
    return;
  }
  CopyRows(frame_, in_sight, before_);
  RunRowPasses(frame_, m_row, settings, [&](RowPass pass, const LidarFrame& after) {
    hook({pass, m_row, before_, after, settings});
    CopyRows(after, in_sight, before_);
  });
}

std::vector<std::vector<std::uint8_t>> FrameTwin::EncodeRow(int m_row) {
  std::vector<std::vector<std::uint8_t>> packets;
  UdpPacket packet{};
  const int first_index = m_row * parser_.col_groups;
  const auto encode = [&](int index, int echo, std::uint8_t marker) {
    const int length = parser_.GetPacket_7_10_FromFrame(frame_.points, echo, packet, index,
                                                        frame_.frame_id, parts_.config.output_mode,
                                                        parts_.config.echo_output_code, marker);
    if (length > 0) packets.push_back(Timeless(packet.buffer, static_cast<std::size_t>(length)));
  };
  for (int index = first_index; index < first_index + parser_.col_groups; ++index) {
    if (parts_.echo_plan.count < 2) {
      encode(index, 0, point_packet::kMarkerOnly);
    } else {
      encode(index, 0, point_packet::kMarkerFirst);
      encode(index, 1, point_packet::kMarkerSecond);
    }
  }
  return packets;
}

void FrameTwin::Reset(int frame_id) {
  frame_.frame_id = static_cast<std::uint8_t>(frame_id);
  stale_pixels_.MarkAllStale();
}

}  // namespace kerul::lidar::story
