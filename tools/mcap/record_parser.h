// Records read from bytes that may hold anything.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "mcap/records.h"

namespace kerul::lidar::mcap {

// `content`: what follows the record's opcode and length. False when it is shorter than its own
// lengths say. Bytes after the last field are left alone: later versions may add some.
template <class Record>
bool Parse(std::span<const std::uint8_t> content, Record& record);
// The rest of the content is the message's data or the chunk's stored records, a view of `content`.
bool Parse(std::span<const std::uint8_t> content, MessageHeader& record,
           std::span<const std::uint8_t>& data);
bool Parse(std::span<const std::uint8_t> content, ChunkHeader& record,
           std::span<const std::uint8_t>& stored);

// Opcode and content length; null for fewer than 9 bytes.
struct RecordHead {
  Opcode opcode = Opcode::kHeader;  // may be a value without a name
  std::uint64_t content_bytes = 0;
};
std::optional<RecordHead> ParseHead(std::span<const std::uint8_t> bytes);

// Goes through records in memory.
class RecordCursor {
 public:
  explicit RecordCursor(std::span<const std::uint8_t> records) : rest_(records) {}

  // False at the end, and for a record that reaches beyond it: Left() is then not 0.
  bool Next(Opcode& opcode, std::span<const std::uint8_t>& content);
  std::size_t Left() const noexcept { return rest_.size(); }

 private:
  std::span<const std::uint8_t> rest_;
};

}  // namespace kerul::lidar::mcap
