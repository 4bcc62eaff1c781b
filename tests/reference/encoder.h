// Point records to published packets.
#pragma once

#include <cstdint>

#include "reference/parser.h"

namespace reference {

struct WallClock {
  std::uint32_t seconds = 0;
  std::uint32_t microseconds = 0;
};

// What the packet is to say about itself.
struct PacketRequest {
  int echo = 0;          // slot, 0 or 1
  int packet_index = 0;  // block, 0..1727
  int frame_id = 0;      // low byte is published
  int output_mode = 0;
  int echo_output_code = 0;
  int marker = 0;  // 0 only packet, 1 first of two, 2 second of two
};

// Fills packet.buffer; gives 249, or -1 (points not written, sequence base not moved) when
// LidarPoint::echo_num has no such slot. Bytes without a meaning stay as they are.
int EncodePacket(Parser& parser, const FrameRows& rows, UdpPacket& packet,
                 const PacketRequest& request, const WallClock& clock);

// Entry of `xyz`, 0.0 outside.
float AngleAt(const kerul::lidar::AngleCalibGrid& grid, int plane, int row, int col);
std::uint8_t EncodeAngle(float value);

}  // namespace reference
