#include "mcap/record_parser.h"

namespace kerul::lidar::mcap {
namespace {

// Takes fields from the front. After the first that does not fit, all are zero or empty.
class Fields {
 public:
  explicit Fields(std::span<const std::uint8_t> bytes) : rest_(bytes) {}

  bool Sound() const noexcept { return sound_; }
  bool Empty() const noexcept { return rest_.empty(); }
  std::span<const std::uint8_t> Rest() const noexcept { return rest_; }

  std::span<const std::uint8_t> Bytes(std::uint64_t count) {
    if (count > rest_.size()) sound_ = false;
    if (!sound_) {
      rest_ = {};
      return {};
    }
    const auto taken = rest_.first(static_cast<std::size_t>(count));
    rest_ = rest_.subspan(taken.size());
    return taken;
  }
  template <class Integer>
  void Take(Integer& value) {
    std::uint64_t sum = 0;
    int shift = 0;
    for (const std::uint8_t byte : Bytes(sizeof value)) {
      sum |= std::uint64_t{byte} << shift;
      shift += 8;
    }
    value = static_cast<Integer>(sum);
  }
  void Take(std::string& text) {
    const auto bytes = Block();
    text.assign(bytes.begin(), bytes.end());
  }
  // What an array, map or string holds.
  std::span<const std::uint8_t> Block() {
    std::uint32_t length = 0;
    Take(length);
    return Bytes(length);
  }
  template <class Key, class Value>
  void Take(std::map<Key, Value>& map) {
    Fields entries(Block());
    map.clear();
    while (!entries.Empty()) {
      Key key{};
      Value value{};
      entries.Take(key);
      entries.Take(value);
      if (entries.Sound()) map[key] = value;
    }
    sound_ = sound_ && entries.Sound();
  }

 private:
  std::span<const std::uint8_t> rest_;
  bool sound_ = true;
};

}  // namespace

bool Parse(std::span<const std::uint8_t> content, Header& record) {
  Fields fields(content);
  fields.Take(record.profile);
  fields.Take(record.library);
  return fields.Sound();
}

bool Parse(std::span<const std::uint8_t> content, Footer& record) {
  Fields fields(content);
  fields.Take(record.summary_start);
  fields.Take(record.summary_offset_start);
  fields.Take(record.summary_crc);
  return fields.Sound();
}

bool Parse(std::span<const std::uint8_t> content, Schema& record) {
  Fields fields(content);
  fields.Take(record.id);
  fields.Take(record.name);
  fields.Take(record.encoding);
  fields.Take(record.data);
  return fields.Sound();
}

bool Parse(std::span<const std::uint8_t> content, Channel& record) {
  Fields fields(content);
  fields.Take(record.id);
  fields.Take(record.schema_id);
  fields.Take(record.topic);
  fields.Take(record.message_encoding);
  Fields entries(fields.Block());
  record.metadata.clear();
  while (!entries.Empty()) {
    auto& [key, value] = record.metadata.emplace_back();
    entries.Take(key);
    entries.Take(value);
  }
  return fields.Sound() && entries.Sound();
}

bool Parse(std::span<const std::uint8_t> content, MessageIndex& record) {
  Fields fields(content);
  fields.Take(record.channel_id);
  Fields entries(fields.Block());
  record.entries.clear();
  while (!entries.Empty()) {
    MessageIndexEntry& entry = record.entries.emplace_back();
    entries.Take(entry.log_time_ns);
    entries.Take(entry.offset);
  }
  return fields.Sound() && entries.Sound();
}

bool Parse(std::span<const std::uint8_t> content, ChunkIndex& record) {
  Fields fields(content);
  fields.Take(record.start_time_ns);
  fields.Take(record.end_time_ns);
  fields.Take(record.chunk_start);
  fields.Take(record.chunk_length);
  fields.Take(record.message_index_offsets);
  fields.Take(record.message_index_length);
  fields.Take(record.compression);
  fields.Take(record.stored_size);
  fields.Take(record.plain_size);
  return fields.Sound();
}

bool Parse(std::span<const std::uint8_t> content, Statistics& record) {
  Fields fields(content);
  fields.Take(record.message_count);
  fields.Take(record.schema_count);
  fields.Take(record.channel_count);
  fields.Take(record.attachment_count);
  fields.Take(record.metadata_count);
  fields.Take(record.chunk_count);
  fields.Take(record.start_time_ns);
  fields.Take(record.end_time_ns);
  fields.Take(record.channel_message_counts);
  return fields.Sound();
}

bool Parse(std::span<const std::uint8_t> content, SummaryOffset& record) {
  Fields fields(content);
  std::uint8_t opcode = 0;
  fields.Take(opcode);
  record.opcode = static_cast<Opcode>(opcode);
  fields.Take(record.start);
  fields.Take(record.length);
  return fields.Sound();
}

bool ParseDataEnd(std::span<const std::uint8_t> content, std::uint32_t& data_crc) {
  Fields fields(content);
  fields.Take(data_crc);
  return fields.Sound();
}

bool Parse(std::span<const std::uint8_t> content, MessageHeader& record,
           std::span<const std::uint8_t>& data) {
  Fields fields(content);
  fields.Take(record.channel_id);
  fields.Take(record.sequence);
  fields.Take(record.log_time_ns);
  fields.Take(record.publish_time_ns);
  data = fields.Rest();
  return fields.Sound();
}

bool Parse(std::span<const std::uint8_t> content, ChunkHeader& record,
           std::span<const std::uint8_t>& stored) {
  Fields fields(content);
  fields.Take(record.start_time_ns);
  fields.Take(record.end_time_ns);
  fields.Take(record.plain_size);
  fields.Take(record.plain_crc);
  fields.Take(record.compression);
  fields.Take(record.stored_size);
  stored = fields.Bytes(record.stored_size);
  return fields.Sound();
}

std::optional<RecordHead> ParseHead(std::span<const std::uint8_t> bytes) {
  Fields fields(bytes);
  std::uint8_t opcode = 0;
  RecordHead head;
  fields.Take(opcode);
  fields.Take(head.content_bytes);
  head.opcode = static_cast<Opcode>(opcode);
  if (!fields.Sound()) return std::nullopt;
  return head;
}

bool RecordCursor::Next(Opcode& opcode, std::span<const std::uint8_t>& content) {
  const auto head = ParseHead(rest_);
  if (!head) return false;
  const auto after = rest_.subspan(kRecordHeaderBytes);
  if (head->content_bytes > after.size()) return false;
  opcode = head->opcode;
  content = after.first(static_cast<std::size_t>(head->content_bytes));
  rest_ = after.subspan(content.size());
  return true;
}

}  // namespace kerul::lidar::mcap
