#include "mcap/file_walk.h"

#include <algorithm>
#include <array>

#include "mcap/compression.h"
#include "mcap/record_bytes.h"
#include "mcap/record_parser.h"

namespace kerul::lidar::mcap {
namespace {

bool IsMagicAt(ByteSource& source, std::uint64_t at) {
  std::array<std::uint8_t, kMagic.size()> bytes{};
  return source.Read(at, bytes) && bytes == kMagic;
}

}  // namespace

bool FileWalk::Begin(std::string& error) {
  footer_passed_ = finished_ = false;
  if (!IsMagicAt(source_, 0)) {
    error = "it is not an MCAP file";
    return false;
  }
  position_ = kMagic.size();
  return true;
}

bool FileWalk::Next(RecordPlace& place) {
  if (footer_passed_) return false;
  std::array<std::uint8_t, kRecordHeaderBytes> bytes{};
  if (!source_.Read(position_, bytes)) return false;
  const auto head = ParseHead(bytes);
  const std::uint64_t room = source_.Size() - position_ - kRecordHeaderBytes;
  constexpr Opcode kNoOpcode{0};
  if (!head || head->opcode == kNoOpcode || head->content_bytes > room) return false;
  place = {head->opcode, position_, head->content_bytes};
  position_ = place.End();
  if (place.opcode == Opcode::kFooter) {
    footer_passed_ = true;
    finished_ = IsMagicAt(source_, position_);
  }
  return true;
}

bool FileWalk::Read(const RecordPlace& place, Bytes& content, std::string& error) {
  if (place.content_bytes > limits_.record_bytes) {
    error = "it is longer than " + std::to_string(limits_.record_bytes) + " bytes";
    return false;
  }
  content.resize(static_cast<std::size_t>(place.content_bytes));
  if (source_.Read(place.ContentAt(), content)) return true;
  error = "it cannot be read";
  return false;
}

bool FileWalk::ReadChunk(const RecordPlace& place, ChunkHeader& header, Bytes& records,
                         std::string& error) {
  return Read(place, content_, error) && UnpackChunk(content_, limits_, header, records, error);
}

bool UnpackChunk(std::span<const std::uint8_t> content, const ReadLimits& limits,
                 ChunkHeader& header, Bytes& records, std::string& error) {
  std::span<const std::uint8_t> stored;
  if (!Parse(content, header, stored)) {
    error = "it is shorter than its lengths say";
    return false;
  }
  if (header.plain_size > limits.plain_bytes) {
    error = "it holds more than " + std::to_string(limits.plain_bytes) + " bytes";
    return false;
  }
  const auto plain_size = static_cast<std::size_t>(header.plain_size);
  if (!Decompress(header.compression, stored, plain_size, records, error)) return false;
  if (header.plain_crc == 0 || header.plain_crc == Crc32(0, records)) return true;
  error = "its CRC does not match";
  return false;
}

}  // namespace kerul::lidar::mcap
