// Messages put together to a chunk.
#pragma once

#include <cstdint>
#include <map>
#include <span>

#include "mcap/compression.h"
#include "mcap/records.h"

namespace kerul::lidar::mcap {

// A chunk with the message indexes that follow it, as they stand in a file.
struct Chunk {
  Bytes bytes;
  // Offsets count from the begin of `bytes`.
  ChunkIndex index;
  std::map<std::uint16_t, std::uint64_t> message_counts;  // by channel
};

class ChunkBuilder {
 public:
  ChunkBuilder(Compression compression, int level) : compressor_(compression, level) {}

  void Add(const MessageHeader& header, std::span<const std::uint8_t> data);
  bool Empty() const noexcept { return indexes_.empty(); }
  std::size_t PlainBytes() const noexcept { return plain_.size(); }
  // Compresses what was added and begins anew. Needs at least one message.
  Chunk Finish();

 private:
  Compressor compressor_;
  Bytes plain_;
  std::map<std::uint16_t, MessageIndex> indexes_;  // by channel
  std::uint64_t start_time_ns_ = 0;
  std::uint64_t end_time_ns_ = 0;
};

}  // namespace kerul::lidar::mcap
