// Goes through an MCAP file from the front, record by record, whatever its bytes are.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mcap/byte_source.h"
#include "mcap/records.h"

namespace kerul::lidar::mcap {

// What a file may ask for before it is not believed.
struct ReadLimits {
  std::uint64_t record_bytes = std::uint64_t{256} << 20;      // a record that is taken as a whole
  std::uint64_t plain_bytes = std::uint64_t{256} << 20;       // a chunk's records, decompressed
  std::uint64_t description_bytes = std::uint64_t{16} << 20;  // all schemas and channels
};

struct RecordPlace {
  Opcode opcode = Opcode::kHeader;  // may be a value without a name
  std::uint64_t at = 0;             // of the opcode
  std::uint64_t content_bytes = 0;
  std::uint64_t ContentAt() const noexcept { return at + kRecordHeaderBytes; }
  std::uint64_t End() const noexcept { return ContentAt() + content_bytes; }
};

class FileWalk {
 public:
  explicit FileWalk(ByteSource& source, const ReadLimits& limits = {})
      : source_(source), limits_(limits) {}

  // Checks the magic. False with the reason in `error`.
  bool Begin(std::string& error);
  // False at the end: after the footer, at the end of the file, or before a record that reaches
  // beyond it. Finished() and Position() tell which.
  bool Next(RecordPlace& place);
  // The content of a record that Next gave. False with the reason in `error` when it is longer than
  // the limit or cannot be read.
  bool Read(const RecordPlace& place, Bytes& content, std::string& error);
  // A chunk's records, decompressed; they have the size and the CRC that the chunk tells. False
  // with the reason in `error`.
  bool ReadChunk(const RecordPlace& place, ChunkHeader& header, Bytes& records, std::string& error);

  // A footer came, and the magic after it.
  bool Finished() const noexcept { return finished_; }
  // Where the next record begins, or would.
  std::uint64_t Position() const noexcept { return position_; }

 private:
  ByteSource& source_;
  ReadLimits limits_;
  std::uint64_t position_ = 0;
  bool footer_passed_ = false;
  bool finished_ = false;
  Bytes content_;
};

// The records of a chunk, from its record's content. False with the reason in `error`.
bool UnpackChunk(std::span<const std::uint8_t> content, const ReadLimits& limits,
                 ChunkHeader& header, Bytes& records, std::string& error);

}  // namespace kerul::lidar::mcap
