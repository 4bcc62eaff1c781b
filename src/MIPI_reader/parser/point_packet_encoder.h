// Writes the published point packet, version 7.10 (point_packet_layout.h). Nothing here reads a
// clock, allocates or prints. An output mode is any number: see OutputMode for those with a name.
#pragma once

#include <array>
#include <cstdint>

#include "MIPI_reader/parser/lidar_point.h"
#include "MIPI_reader/parser/point_packet_layout.h"
#include "calibration/angle_calib.h"

namespace kerul::lidar {

static_assert(point_packet::kBytes <= kMaxDatagramBytes);

// System clock time since the epoch.
struct WallTime {
  std::uint32_t seconds;
  std::uint32_t microseconds;  // within the second
};

// All that a packet says besides its points. Frame sizes in pixels and blocks.
struct PointPacketHeader {
  int height;
  int width;
  int blocks_per_column;
  int blocks_per_row;
  std::uint8_t marker;  // point_packet::kMarker...
  int output_mode;
  int packet_index;  // block number, row by row, 0..1727 in a sound call
  int frame_id;
  int echo_output_code;
  WallTime time;
  std::uint32_t sequence;
};

// Writes the named bytes outside the points; the others keep what they hold.
void WritePointPacketHeader(const PointPacketHeader& header, std::uint8_t* packet) noexcept;

// Sequence number of a block's packet: counts without a gap, one or two packets a block.
std::uint32_t PointPacketSequence(std::uint32_t base, int packet_index,
                                  std::uint8_t marker) noexcept;

// Up to 9 the number itself. Above: two packed decimal digits, tens in the high nibble; of what
// does not fit, the low byte is kept.
std::uint8_t EncodeReturnCode(int code) noexcept;

// The span of published ranges in the one mode that consumers measure with, metres; both limits are
// outside. Deliberate: the near one is the float, a bit above 0.05.
inline constexpr float kNearestPublished = 0.05F;
inline constexpr float kFarthestPublished = 40.0F;

// False where kReflectivity, and no other mode, publishes 0 instead of the range.
inline bool IsPublishedRange(float dist_proc, int output_mode) noexcept {
  return OutputMode{output_mode} != OutputMode::kReflectivity ||
         !(dist_proc <= kNearestPublished || dist_proc >= kFarthestPublished);
}

// Range in metres to units of 4 mm, low 16 bits; 0 where it is not published.
std::uint16_t EncodeDistance(float dist_proc, int output_mode) noexcept;

using PayloadBytes = std::array<std::uint8_t, point_packet::kPayloadBytes>;

// The payload of every mode that reads the point, which is every mode but kDirection. `echo` 0
// or 1.
PayloadBytes EncodePayload(const LidarPoint& point, int echo, int output_mode) noexcept;

// The payload of kDirection: the pixel's direction, zeros outside the grid or for an invalid one.
PayloadBytes EncodeDirection(const AngleCalibGrid& grid, int row, int col) noexcept;

// Pixel of a block's first point: six rows of one column run down from here, then the next column.
struct BlockOrigin {
  int row;
  int col;
};
BlockOrigin OriginOfBlock(int packet_index) noexcept;

// Null for a pixel that the rows do not hold.
const LidarPoint* FindPoint(const FrameRows& rows, int row, int col) noexcept;

// Writes the 36 points of the block `packet_index` of echo slot `echo` (0 or 1). Pixels that the
// rows do not hold are written as no return. `grid` is read for kDirection only.
void WritePoints(const FrameRows& rows, const AngleCalibGrid& grid, int packet_index, int echo,
                 int output_mode, std::uint8_t* packet) noexcept;

}  // namespace kerul::lidar
