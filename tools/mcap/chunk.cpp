#include "mcap/chunk.h"

#include <algorithm>

#include "mcap/record_bytes.h"

namespace kerul::lidar::mcap {
namespace {

void AppendIndexes(const std::map<std::uint16_t, MessageIndex>& indexes, Chunk& chunk) {
  const std::size_t begin = chunk.bytes.size();
  for (const auto& [channel, index] : indexes) {
    chunk.index.message_index_offsets[channel] = chunk.bytes.size();
    chunk.message_counts[channel] = index.entries.size();
    Append(index, chunk.bytes);
  }
  chunk.index.message_index_length = chunk.bytes.size() - begin;
}

}  // namespace

void ChunkBuilder::Add(const MessageHeader& header, std::span<const std::uint8_t> data) {
  const std::uint64_t time = header.log_time_ns;
  start_time_ns_ = Empty() ? time : std::min(start_time_ns_, time);
  end_time_ns_ = Empty() ? time : std::max(end_time_ns_, time);
  MessageIndex& index = indexes_[header.channel_id];
  index.channel_id = header.channel_id;
  index.entries.push_back({time, plain_.size()});
  Append(header, data, plain_);
}

Chunk ChunkBuilder::Finish() {
  Bytes stored;
  compressor_.Append(plain_, stored);
  Chunk chunk;
  chunk.index.start_time_ns = start_time_ns_;
  chunk.index.end_time_ns = end_time_ns_;
  chunk.index.compression = CompressionName(compressor_.Kind());
  chunk.index.stored_size = stored.size();
  chunk.index.plain_size = plain_.size();
  const ChunkHeader header{start_time_ns_,          end_time_ns_, plain_.size(), Crc32(0, plain_),
                           chunk.index.compression, stored.size()};
  AppendHead(header, chunk.bytes);
  chunk.bytes.insert(chunk.bytes.end(), stored.begin(), stored.end());
  chunk.index.chunk_length = chunk.bytes.size();
  AppendIndexes(indexes_, chunk);
  plain_.clear();
  indexes_.clear();
  return chunk;
}

}  // namespace kerul::lidar::mcap
