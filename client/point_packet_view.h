// Reads published point packets: 249 bytes, one block of 6 x 6 pixels of one echo.
//
// Layout, integers little-endian but for the seconds:
//   0 magic EE FF | 2 version 7, 10 | 6 u16 height | 8 u16 width | 10 u8 blocks per column
//   11 u8 blocks per row | 12 u8 marker | 13 u8 millimetres per distance unit
//   14 u16 points | 20 points of 5 bytes: u16 distance, 3 payload bytes | 203 u8 output mode
//   204 tail DD EE FF | 207 u8 block row | 208 u8 block column | 209 u8 frame id
//   211 u8 return code | 216 u32 seconds, big-endian | 220 u32 microseconds | 225 u32 sequence
#pragma once

#include <cstddef>
#include <cstdint>

namespace kerul::lidar {

inline constexpr int kPointPacketBytes = 249;
inline constexpr int kPointsPerPacket = 36;
inline constexpr int kBlockPixels = 6;  // a block is this high and this wide
inline constexpr int kFrameRows = 216;
inline constexpr int kFrameCols = 288;
inline constexpr int kBlockRows = kFrameRows / kBlockPixels;
inline constexpr int kBlockCols = kFrameCols / kBlockPixels;
inline constexpr int kBlocksPerFrame = kBlockRows * kBlockCols;
inline constexpr int kMaxEchoes = 2;

// Why bytes are not taken as a point packet. The checks are made in this order.
enum class PointPacketError : std::uint8_t {
  kNone,
  kLength,    // not 249 bytes
  kMagic,     // does not begin with EE FF
  kVersion,   // not 7.10
  kTail,      // no DD EE FF behind the points
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

// Looks at the caller's bytes and owns nothing: they must outlive the view and keep still.
// The accessors need a view whose Parse gave kNone.
class PointPacketView {
 public:
  // Checks `length` bytes at `bytes` and takes them on success; otherwise the view stays empty.
  PointPacketError Parse(const std::uint8_t* bytes, std::size_t length) noexcept;
  bool IsValid() const noexcept { return bytes_ != nullptr; }

  // 0 the only packet of its block, 1 first of two, 2 second of two.
  int Marker() const noexcept { return bytes_[12]; }
  // Echoes that the stream carries: 1 for marker 0, else 2.
  int EchoCount() const noexcept { return Marker() == 0 ? 1 : 2; }
  // Echo of this packet: 0, or 1 for marker 2.
  int Echo() const noexcept { return Marker() == 2 ? 1 : 0; }
  int UnitMm() const noexcept { return bytes_[13]; }
  int OutputMode() const noexcept { return bytes_[203]; }
  int BlockRow() const noexcept { return bytes_[207]; }
  int BlockCol() const noexcept { return bytes_[208]; }
  // 0..1727, row by row.
  int Block() const noexcept { return BlockRow() * kBlockCols + BlockCol(); }
  std::uint8_t FrameId() const noexcept { return bytes_[209]; }
  // Which echoes are published, as one or two decimal digits: 12 for the byte 0x12.
  int ReturnCode() const noexcept { return (bytes_[211] >> 4) * 10 + (bytes_[211] & 0xF); }
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
