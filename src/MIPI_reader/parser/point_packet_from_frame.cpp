#include <chrono>
#include <iostream>

#include "MIPI_reader/parser/echo_metrics.h"
#include "MIPI_reader/parser/lidar_parser.h"
#include "MIPI_reader/parser/point_packet_encoder.h"

namespace {

using kerul::lidar::LidarPoint;
using kerul::lidar::PayloadBytes;
namespace point_packet = kerul::lidar::point_packet;

// Null for a pixel that the rows do not hold.
const LidarPoint* FindPoint(const kerul::lidar::FrameRows& rows, int row, int col) noexcept {
  if (row < 0 || static_cast<std::size_t>(row) >= rows.size()) return nullptr;
  const std::vector<LidarPoint>& pixels = rows[static_cast<std::size_t>(row)];
  if (col < 0 || static_cast<std::size_t>(col) >= pixels.size()) return nullptr;
  return &pixels[static_cast<std::size_t>(col)];
}

kerul::lidar::WallTime ReadWallClock() noexcept {
  using std::chrono::duration_cast;
  using std::chrono::microseconds;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto micros = duration_cast<microseconds>(now).count();
  return {static_cast<std::uint32_t>(micros / 1000000),
          static_cast<std::uint32_t>(micros % 1000000)};
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

  const int first_row = packet_index / point_packet::kBlocksPerRow * point_packet::kBlockSide;
  const int first_col = packet_index % point_packet::kBlocksPerRow * point_packet::kBlockSide;
  const bool traces = echo_metrics_debug && output_mode == kerul::lidar::kOutputModeReflectivity &&
                      echo == debug_echo;
  for (int i = 0; i < point_packet::kPoints; ++i) {
    const int row = first_row + i % point_packet::kBlockSide;
    const int col = first_col + i / point_packet::kBlockSide;
    std::uint8_t* bytes =
        packet.buffer + point_packet::kPointsOffset + i * point_packet::kPointBytes;
    const LidarPoint* point = FindPoint(rows, row, col);
    if (point == nullptr) {
      kerul::lidar::WritePoint(0, {}, bytes);
      continue;
    }
    const PayloadBytes payload = output_mode == kerul::lidar::kOutputModeDirection
                                     ? kerul::lidar::EncodeDirection(angle_grid, row, col)
                                     : kerul::lidar::EncodePayload(*point, echo, output_mode);
    kerul::lidar::WritePoint(
        kerul::lidar::EncodeDistance(point->echoes[echo].dist_proc, output_mode), payload, bytes);
    if (traces && debug_row >= 0 && debug_col >= 0 && debug_row == row && debug_col == col) {
      kerul::lidar::PrintEchoMetrics(std::cout, {row, col, i, echo}, point->echoes[echo],
                                     payload[0]);
    }
  }

  // The frame's last block: the next frame counts on from as many packets as this one has sent.
  if (packet_index == packet_count / 4 - 1) {
    if (marker == 0) udp_seq_base += static_cast<std::uint32_t>(packet_count / 4);
    if (marker == 2) udp_seq_base += static_cast<std::uint32_t>(packet_count / 2);
  }
  return point_packet::kBytes;
}
