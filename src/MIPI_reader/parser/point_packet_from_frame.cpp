#include <chrono>
#include <iostream>

#include "MIPI_reader/parser/echo_metrics.h"
#include "MIPI_reader/parser/lidar_parser.h"
#include "MIPI_reader/parser/point_packet_encoder.h"

namespace {

using kerul::lidar::LidarPoint;
namespace point_packet = kerul::lidar::point_packet;

kerul::lidar::WallTime ReadWallClock() noexcept {
  using std::chrono::duration_cast;
  using std::chrono::microseconds;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto micros = duration_cast<microseconds>(now).count();
  return {static_cast<std::uint32_t>(micros / 1000000),
          static_cast<std::uint32_t>(micros % 1000000)};
}

// Prints the line about the traced pixel when it lies in this block.
void TraceEcho(const LidarParserQDV11& parser, const kerul::lidar::FrameRows& rows,
               int packet_index, int echo, const std::uint8_t* packet) {
  const auto [first_row, first_col] = kerul::lidar::OriginOfBlock(packet_index);
  const int row = parser.debug_row;
  const int col = parser.debug_col;
  const bool inside = row >= first_row && row < first_row + point_packet::kBlockSide &&
                      col >= first_col && col < first_col + point_packet::kBlockSide;
  const LidarPoint* point = kerul::lidar::FindPoint(rows, row, col);
  if (!inside || point == nullptr) return;
  const int index = (col - first_col) * point_packet::kBlockSide + (row - first_row);
  const std::uint8_t* bytes =
      packet + point_packet::kPointsOffset + index * point_packet::kPointBytes;
  kerul::lidar::PrintEchoMetrics(std::cout, {row, col, index, echo}, point->echoes[echo], bytes[2]);
}

}  // namespace

int LidarParserQDV11::GetPacket_7_10_FromFrame(const kerul::lidar::FrameRows& rows, int echo,
                                               kerul::lidar::UdpPacket& packet,
                                               const int& packet_index, const int& frame_id,
                                               const int& output_mode, const int& echo_output_code,
                                               std::uint8_t marker) {
  kerul::lidar::WritePointPacketHeader(
      {.height = mrow_height * miniflash_rows,
       .width = col_groups * group_width,
       .blocks_per_column = miniflash_rows,
       .blocks_per_row = col_groups,
       .marker = marker,
       .output_mode = output_mode,
       .packet_index = packet_index,
       .frame_id = frame_id,
       .echo_output_code = echo_output_code,
       .time = ReadWallClock(),
       .sequence = kerul::lidar::PointPacketSequence(udp_seq_base, packet_index, marker)},
      packet.buffer);
  if (echo < 0 || echo >= kerul::lidar::kEchoSlots || echo >= LidarPoint::echo_num) return -1;

  kerul::lidar::WritePoints(rows, angle_grid, packet_index, echo, output_mode, packet.buffer);
  if (echo_metrics_debug && echo == debug_echo &&
      kerul::lidar::OutputMode{output_mode} == kerul::lidar::OutputMode::kReflectivity) {
    TraceEcho(*this, rows, packet_index, echo, packet.buffer);
  }

  // The frame's last block: the next frame counts on from as many packets as this one has sent.
  if (packet_index == packet_count / 4 - 1) {
    if (marker == point_packet::kMarkerOnly)
      udp_seq_base += static_cast<std::uint32_t>(packet_count / 4);
    if (marker == point_packet::kMarkerSecond)
      udp_seq_base += static_cast<std::uint32_t>(packet_count / 2);
  }
  return point_packet::kBytes;
}
