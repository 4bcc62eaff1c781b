// Reads published point packets: one block of 6 x 6 pixels of one echo each. Where everything
// stands is told in point_packet_layout.h.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kerul_lidar/point_packet_layout.h"

namespace kerul::lidar {

inline constexpr int kPointPacketBytes = point_packet::kBytes;
inline constexpr int kPointsPerPacket = point_packet::kPoints;
inline constexpr int kBlockPixels = point_packet::kBlockSide;  // a block is this high and this wide
inline constexpr int kBlockRows = point_packet::kBlocksPerColumn;
inline constexpr int kBlockCols = point_packet::kBlocksPerRow;
inline constexpr int kFrameRows = kBlockRows * kBlockPixels;  // 216
inline constexpr int kFrameCols = kBlockCols * kBlockPixels;  // 288
inline constexpr int kBlocksPerFrame = kBlockRows * kBlockCols;
inline constexpr int kMaxEchoes = point_packet::kMaxEchoes;

// Why bytes are not taken as a point packet. The checks are made in this order.
enum class PointPacketError : std::uint8_t {
  kNone,
  kLength,    // not 249 bytes
  kMagic,     // does not begin with EE FF
  kVersion,   // not 7.10
  kTail,      // no DD EE FF after the points
  kGeometry,  // not 216 x 288 pixels in 36 x 48 blocks of 36 points, or distance unit 0
  kMarker,    // marker above 2
  kBlock,     // block row or column outside the frame
};

// A short name of the error for messages: "length", "magic", ...
const char* PointPacketErrorName(PointPacketError error) noexcept;

// One point of a packet with its pixel.
struct PacketPoint {
  std::int32_t row;             // 0..215
  std::int32_t col;             // 0..287
  std::uint16_t distance;       // in distance units, 0 is no return
  const std::uint8_t* payload;  // 3 bytes, inside the packet
};

// Looks at the caller's bytes and owns nothing: they must outlive the view and must not change.
// The accessors need a view whose Parse gave kNone.
class PointPacketView {
 public:
  // Checks `length` bytes at `bytes` and takes them on success; otherwise the view stays empty.
  PointPacketError Parse(const std::uint8_t* bytes, std::size_t length) noexcept;
  bool IsValid() const noexcept { return bytes_ != nullptr; }

  // point_packet::kMarkerOnly, kMarkerFirst or kMarkerSecond.
  int Marker() const noexcept { return bytes_[point_packet::kMarkerOffset]; }
  // Echoes that the stream carries.
  int EchoCount() const noexcept { return Marker() == point_packet::kMarkerOnly ? 1 : 2; }
  // Echo of this packet, 0 or 1.
  int Echo() const noexcept { return Marker() == point_packet::kMarkerSecond ? 1 : 0; }
  int UnitMm() const noexcept { return bytes_[point_packet::kUnitOffset]; }
  // What the payload bytes carry: a value of OutputMode, or a number without a name.
  int Mode() const noexcept { return bytes_[point_packet::kOutputModeOffset]; }
  int BlockRow() const noexcept { return bytes_[point_packet::kBlockRowOffset]; }
  int BlockCol() const noexcept { return bytes_[point_packet::kBlockColOffset]; }
  // 0..1727, row by row.
  int Block() const noexcept { return BlockRow() * kBlockCols + BlockCol(); }
  std::uint8_t FrameId() const noexcept { return bytes_[point_packet::kFrameIdOffset]; }
  // Which echoes are published, as one or two decimal digits: 12 for the byte 0x12.
  int ReturnCode() const noexcept;
  // When the packet was built, microseconds of the system clock since the epoch.
  std::int64_t TimestampUs() const noexcept;
  std::uint32_t Sequence() const noexcept;
  // Sequence number of the frame's first packet: one value for all packets of a frame.
  std::uint32_t SequenceBase() const noexcept;

  // Point 0..35: six rows of one column run down, then the next column.
  PacketPoint Point(int index) const noexcept;

 private:
  const std::uint8_t* bytes_ = nullptr;
};

}  // namespace kerul::lidar
