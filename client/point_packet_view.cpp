#include "kerul_lidar/point_packet_view.h"

#include <algorithm>
#include <iterator>

namespace kerul::lidar {
namespace {

using namespace point_packet;

constexpr int kLargestMarker = kMarkerSecond;

int ReadU16(const std::uint8_t* at) noexcept { return at[0] | (at[1] << 8); }

std::uint32_t ReadU32(const std::uint8_t* at) noexcept {
  return std::uint32_t{at[0]} | (std::uint32_t{at[1]} << 8) | (std::uint32_t{at[2]} << 16) |
         (std::uint32_t{at[3]} << 24);
}

std::uint32_t ReadU32BigEndian(const std::uint8_t* at) noexcept {
  return std::uint32_t{at[3]} | (std::uint32_t{at[2]} << 8) | (std::uint32_t{at[1]} << 16) |
         (std::uint32_t{at[0]} << 24);
}

bool HasFrameGeometry(const std::uint8_t* bytes) noexcept {
  return ReadU16(bytes + kHeightOffset) == kFrameRows &&
         ReadU16(bytes + kWidthOffset) == kFrameCols &&
         bytes[kBlocksPerColumnOffset] == kBlockRows && bytes[kBlocksPerRowOffset] == kBlockCols &&
         bytes[kUnitOffset] != 0 && ReadU16(bytes + kPointCountOffset) == kPointsPerPacket;
}

bool IsVersion(const std::uint8_t* bytes) noexcept {
  return bytes[kVersionOffset] == kVersionMajor && bytes[kVersionOffset + 1] == kVersionMinor;
}

PointPacketError Check(const std::uint8_t* bytes, std::size_t length) noexcept {
  if (bytes == nullptr || length != kPointPacketBytes) return PointPacketError::kLength;
  if (!std::equal(std::begin(kMagic), std::end(kMagic), bytes + kMagicOffset)) {
    return PointPacketError::kMagic;
  }
  if (!IsVersion(bytes)) return PointPacketError::kVersion;
  if (!std::equal(std::begin(kTail), std::end(kTail), bytes + kTailOffset)) {
    return PointPacketError::kTail;
  }
  if (!HasFrameGeometry(bytes)) return PointPacketError::kGeometry;
  if (bytes[kMarkerOffset] > kLargestMarker) return PointPacketError::kMarker;
  if (bytes[kBlockRowOffset] >= kBlockRows || bytes[kBlockColOffset] >= kBlockCols) {
    return PointPacketError::kBlock;
  }
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

int PointPacketView::ReturnCode() const noexcept {
  const int code = bytes_[kReturnCodeOffset];
  return (code >> 4) * 10 + (code & 0xF);
}

std::int64_t PointPacketView::TimestampUs() const noexcept {
  return std::int64_t{ReadU32BigEndian(bytes_ + kSecondsOffset)} * 1'000'000 +
         ReadU32(bytes_ + kMicrosecondsOffset);
}

std::uint32_t PointPacketView::Sequence() const noexcept {
  return ReadU32(bytes_ + kSequenceOffset);
}

std::uint32_t PointPacketView::SequenceBase() const noexcept {
  const int before = EchoCount() == 1 ? Block() : 2 * Block() + Echo();
  return Sequence() - static_cast<std::uint32_t>(before);
}

PacketPoint PointPacketView::Point(int index) const noexcept {
  const std::uint8_t* point = bytes_ + kPointsOffset + index * kPointBytes;
  return {BlockRow() * kBlockPixels + index % kBlockPixels,
          BlockCol() * kBlockPixels + index / kBlockPixels,
          static_cast<std::uint16_t>(ReadU16(point)), point + kPayloadOffset};
}

}  // namespace kerul::lidar
