// The published point packet, version 7.10: layout and encoding arithmetic. 249 bytes, 36 points of
// 5 bytes, no checksum. Integers are little-endian except the seconds, which are big-endian.
// Nothing here reads a clock, allocates or prints.
#pragma once

#include <array>
#include <cstdint>

#include "MIPI_reader/parser/lidar_point.h"
#include "calibration/angle_calib.h"

namespace kerul::lidar {

namespace point_packet {

inline constexpr int kBytes = 249;
inline constexpr int kVersionMajor = 7;
inline constexpr int kVersionMinor = 10;
inline constexpr int kUnitMillimetres = 4;  // distance unit
// In single precision, deliberately: slightly above 0.004, so that 1.0 m gives 249.
inline constexpr float kUnitMetres = static_cast<float>(kUnitMillimetres) / 1000.0F;
inline constexpr int kPoints = 36;
inline constexpr int kPointBytes = 5;  // distance 2, payload 3
inline constexpr int kBlockSide = 6;   // a packet covers 6 x 6 pixels, column by column
inline constexpr int kBlocksPerRow = 48;

inline constexpr int kMagicOffset = 0;
inline constexpr int kVersionOffset = 2;
inline constexpr int kHeightOffset = 6;
inline constexpr int kWidthOffset = 8;
inline constexpr int kBlocksPerColumnOffset = 10;
inline constexpr int kBlocksPerRowOffset = 11;
inline constexpr int kMarkerOffset = 12;
inline constexpr int kUnitOffset = 13;
inline constexpr int kPointCountOffset = 14;
inline constexpr int kPointsOffset = 20;
inline constexpr int kOutputModeOffset = 203;
inline constexpr int kTailOffset = 204;
inline constexpr int kBlockRowOffset = 207;
inline constexpr int kBlockColOffset = 208;
inline constexpr int kFrameIdOffset = 209;
inline constexpr int kReturnCodeOffset = 211;
inline constexpr int kSecondsOffset = 216;
inline constexpr int kMicrosecondsOffset = 220;
inline constexpr int kSequenceOffset = 225;

static_assert(kPointsOffset + kPoints * kPointBytes <= kOutputModeOffset);
static_assert(kSequenceOffset + 4 <= kBytes && kBytes <= kMaxDatagramBytes);

}  // namespace point_packet

// Modes that are more than a choice of payload: only the first limits the published range, only the
// second reads the angle grid.
inline constexpr int kOutputModeReflectivity = 0;
inline constexpr int kOutputModeDirection = 10;

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
  std::uint8_t marker;  // 0 the only packet of its block, 1 first of two, 2 second of two
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

// At most 9: as it stands. Above: two decimal digits packed, tens in the high nibble; of what does
// not fit the low byte is kept.
std::uint8_t EncodeReturnCode(int code) noexcept;

// Range in metres to units of 4 mm, low 16 bits. Mode 0 alone publishes 0 outside 0.05 to 40 m.
std::uint16_t EncodeDistance(float dist_proc, int output_mode) noexcept;

using PayloadBytes = std::array<std::uint8_t, 3>;

// The payload of every mode that reads the point, which is every mode but 10. `echo` 0 or 1.
PayloadBytes EncodePayload(const LidarPoint& point, int echo, int output_mode) noexcept;

// The payload of mode 10: direction of the pixel; zeros for an invalid grid or a place outside it.
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
// rows do not hold are written as no return. `grid` is read in mode 10 only.
void WritePoints(const FrameRows& rows, const AngleCalibGrid& grid, int packet_index, int echo,
                 int output_mode, std::uint8_t* packet) noexcept;

}  // namespace kerul::lidar
