#include "point_packet_view.h"

namespace kerul::lidar {
namespace {

constexpr int kFirstPoint = 20;
constexpr int kPointBytes = 5;

int ReadU16(const std::uint8_t* at) noexcept { return at[0] | (at[1] << 8); }

std::uint32_t ReadU32(const std::uint8_t* at) noexcept {
  return std::uint32_t{at[0]} | (std::uint32_t{at[1]} << 8) | (std::uint32_t{at[2]} << 16) |
         (std::uint32_t{at[3]} << 24);
}

std::uint32_t ReadU32BigEndian(const std::uint8_t* at) noexcept {
  return std::uint32_t{at[3]} | (std::uint32_t{at[2]} << 8) | (std::uint32_t{at[1]} << 16) |
         (std::uint32_t{at[0]} << 24);
}

bool HasTail(const std::uint8_t* bytes) noexcept {
  return bytes[204] == 0xDD && bytes[205] == 0xEE && bytes[206] == 0xFF;
}

bool HasFrameGeometry(const std::uint8_t* bytes) noexcept {
  return ReadU16(bytes + 6) == kFrameRows && ReadU16(bytes + 8) == kFrameCols &&
         bytes[10] == kBlockRows && bytes[11] == kBlockCols && bytes[13] != 0 &&
         ReadU16(bytes + 14) == kPointsPerPacket;
}

PointPacketError Check(const std::uint8_t* bytes, std::size_t length) noexcept {
  if (bytes == nullptr || length != kPointPacketBytes) return PointPacketError::kLength;
  if (bytes[0] != 0xEE || bytes[1] != 0xFF) return PointPacketError::kMagic;
  if (bytes[2] != 7 || bytes[3] != 10) return PointPacketError::kVersion;
  if (!HasTail(bytes)) return PointPacketError::kTail;
  if (!HasFrameGeometry(bytes)) return PointPacketError::kGeometry;
  if (bytes[12] > 2) return PointPacketError::kMarker;
  if (bytes[207] >= kBlockRows || bytes[208] >= kBlockCols) return PointPacketError::kBlock;
  return PointPacketError::kNone;
}

}  // namespace

const char* PointPacketErrorName(PointPacketError error) noexcept {
  switch (error) {
    case PointPacketError::kNone:
      return "none";
    case PointPacketError::kLength:
      return "length";
    case PointPacketError::kMagic:
      return "magic";
    case PointPacketError::kVersion:
      return "version";
    case PointPacketError::kTail:
      return "tail";
    case PointPacketError::kGeometry:
      return "geometry";
    case PointPacketError::kMarker:
      return "marker";
    case PointPacketError::kBlock:
      return "block";
  }
  return "unknown";
}

PointPacketError PointPacketView::Parse(const std::uint8_t* bytes, std::size_t length) noexcept {
  const PointPacketError error = Check(bytes, length);
  bytes_ = error == PointPacketError::kNone ? bytes : nullptr;
  return error;
}

std::int64_t PointPacketView::TimestampUs() const noexcept {
  return std::int64_t{ReadU32BigEndian(bytes_ + 216)} * 1'000'000 + ReadU32(bytes_ + 220);
}

std::uint32_t PointPacketView::Sequence() const noexcept { return ReadU32(bytes_ + 225); }

std::uint32_t PointPacketView::SequenceBase() const noexcept {
  const int before = EchoCount() == 1 ? Block() : 2 * Block() + Echo();
  return Sequence() - static_cast<std::uint32_t>(before);
}

PacketPoint PointPacketView::Point(int index) const noexcept {
  const std::uint8_t* point = bytes_ + kFirstPoint + index * kPointBytes;
  return {BlockRow() * kBlockPixels + index % kBlockPixels,
          BlockCol() * kBlockPixels + index / kBlockPixels,
          static_cast<std::uint16_t>(ReadU16(point)), point + 2};
}

}  // namespace kerul::lidar
