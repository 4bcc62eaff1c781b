#include "mcap/record_bytes.h"

#include <zlib.h>

#include <cstring>
#include <string_view>

namespace kerul::lidar::mcap {
namespace {

// Appends integers and strings; the length of what is open is filled in when it is closed.
class Appender {
 public:
  explicit Appender(Bytes& out) : out_(out) {}

  template <class Integer>
  void Put(Integer value) {
    for (std::size_t i = 0; i < sizeof value; ++i) {
      out_.push_back(static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> (8 * i)));
    }
  }
  void Put(std::string_view text) {
    Put(static_cast<std::uint32_t>(text.size()));
    out_.insert(out_.end(), text.begin(), text.end());
  }
  void Put(std::span<const std::uint8_t> bytes) {
    out_.insert(out_.end(), bytes.begin(), bytes.end());
  }
  // `Length` is the type of the length; gives the place for Close.
  template <class Length>
  std::size_t Open() {
    Put(Length{0});
    return out_.size();
  }
  template <class Length>
  void Close(std::size_t opened, std::uint64_t still_to_come = 0) {
    const auto length = static_cast<Length>(out_.size() - opened + still_to_come);
    for (std::size_t i = 0; i < sizeof length; ++i) {
      out_[opened - sizeof length + i] =
          static_cast<std::uint8_t>(static_cast<std::uint64_t>(length) >> (8 * i));
    }
  }
  std::size_t OpenRecord(Opcode opcode) {
    Put(static_cast<std::uint8_t>(opcode));
    return Open<std::uint64_t>();
  }
  void CloseRecord(std::size_t opened, std::uint64_t still_to_come = 0) {
    Close<std::uint64_t>(opened, still_to_come);
  }
  template <class Key, class Value>
  void Put(const std::map<Key, Value>& map) {
    const std::size_t opened = Open<std::uint32_t>();
    for (const auto& [key, value] : map) {
      Put(key);
      Put(value);
    }
    Close<std::uint32_t>(opened);
  }

 private:
  Bytes& out_;
};

}  // namespace

void Append(const Header& record, Bytes& out) {
  Appender to(out);
  const std::size_t opened = to.OpenRecord(Opcode::kHeader);
  to.Put(std::string_view(record.profile));
  to.Put(std::string_view(record.library));
  to.CloseRecord(opened);
}

void Append(const Footer& record, Bytes& out) {
  Appender to(out);
  const std::size_t opened = to.OpenRecord(Opcode::kFooter);
  to.Put(record.summary_start);
  to.Put(record.summary_offset_start);
  to.Put(record.summary_crc);
  to.CloseRecord(opened);
}

void Append(const Schema& record, Bytes& out) {
  Appender to(out);
  const std::size_t opened = to.OpenRecord(Opcode::kSchema);
  to.Put(record.id);
  to.Put(std::string_view(record.name));
  to.Put(std::string_view(record.encoding));
  to.Put(std::string_view(record.data));
  to.CloseRecord(opened);
}

void Append(const Channel& record, Bytes& out) {
  Appender to(out);
  const std::size_t opened = to.OpenRecord(Opcode::kChannel);
  to.Put(record.id);
  to.Put(record.schema_id);
  to.Put(std::string_view(record.topic));
  to.Put(std::string_view(record.message_encoding));
  const std::size_t map = to.Open<std::uint32_t>();
  for (const auto& [key, value] : record.metadata) {
    to.Put(std::string_view(key));
    to.Put(std::string_view(value));
  }
  to.Close<std::uint32_t>(map);
  to.CloseRecord(opened);
}

void Append(const MessageHeader& record, std::span<const std::uint8_t> data, Bytes& out) {
  Appender to(out);
  const std::size_t opened = to.OpenRecord(Opcode::kMessage);
  to.Put(record.channel_id);
  to.Put(record.sequence);
  to.Put(record.log_time_ns);
  to.Put(record.publish_time_ns);
  to.Put(data);
  to.CloseRecord(opened);
}

void Append(const ChunkHeader& record, Bytes& out) {
  Appender to(out);
  const std::size_t opened = to.OpenRecord(Opcode::kChunk);
  to.Put(record.start_time_ns);
  to.Put(record.end_time_ns);
  to.Put(record.plain_size);
  to.Put(record.plain_crc);
  to.Put(std::string_view(record.compression));
  to.Put(record.stored_size);
  to.CloseRecord(opened, record.stored_size);
}

void Append(const MessageIndex& record, Bytes& out) {
  Appender to(out);
  const std::size_t opened = to.OpenRecord(Opcode::kMessageIndex);
  to.Put(record.channel_id);
  const std::size_t array = to.Open<std::uint32_t>();
  for (const MessageIndexEntry& entry : record.entries) {
    to.Put(entry.log_time_ns);
    to.Put(entry.offset);
  }
  to.Close<std::uint32_t>(array);
  to.CloseRecord(opened);
}

void Append(const ChunkIndex& record, Bytes& out) {
  Appender to(out);
  const std::size_t opened = to.OpenRecord(Opcode::kChunkIndex);
  to.Put(record.start_time_ns);
  to.Put(record.end_time_ns);
  to.Put(record.chunk_start);
  to.Put(record.chunk_length);
  to.Put(record.message_index_offsets);
  to.Put(record.message_index_length);
  to.Put(std::string_view(record.compression));
  to.Put(record.stored_size);
  to.Put(record.plain_size);
  to.CloseRecord(opened);
}

void Append(const Statistics& record, Bytes& out) {
  Appender to(out);
  const std::size_t opened = to.OpenRecord(Opcode::kStatistics);
  to.Put(record.message_count);
  to.Put(record.schema_count);
  to.Put(record.channel_count);
  to.Put(record.attachment_count);
  to.Put(record.metadata_count);
  to.Put(record.chunk_count);
  to.Put(record.start_time_ns);
  to.Put(record.end_time_ns);
  to.Put(record.channel_message_counts);
  to.CloseRecord(opened);
}

void Append(const SummaryOffset& record, Bytes& out) {
  Appender to(out);
  const std::size_t opened = to.OpenRecord(Opcode::kSummaryOffset);
  to.Put(static_cast<std::uint8_t>(record.opcode));
  to.Put(record.start);
  to.Put(record.length);
  to.CloseRecord(opened);
}

void AppendDataEnd(std::uint32_t data_crc, Bytes& out) {
  Appender to(out);
  const std::size_t opened = to.OpenRecord(Opcode::kDataEnd);
  to.Put(data_crc);
  to.CloseRecord(opened);
}

std::uint32_t Crc32(std::uint32_t crc, std::span<const std::uint8_t> bytes) noexcept {
  return static_cast<std::uint32_t>(crc32_z(crc, bytes.data(), bytes.size()));
}

}  // namespace kerul::lidar::mcap
