#include "mcap/message_search.h"

#include <map>
#include <optional>
#include <utility>

#include "mcap/record_parser.h"

namespace kerul::lidar::mcap {
namespace {

class Search {
 public:
  Search(ByteSource& source, const ReadLimits& limits, const ChannelFilter& counts,
         std::uint64_t number, FoundMessage& message)
      : walk_(source, limits),
        counts_(counts),
        left_(number),
        description_room_(limits.description_bytes),
        message_(message) {}

  bool Run(std::string& error) {
    if (!walk_.Begin(error)) return false;
    RecordPlace place;
    while (!found_ && error_.empty() && walk_.Next(place)) Take(place);
    if (!found_ && error_.empty()) EndChunk();
    if (found_) return true;
    error = error_.empty() ? "there are only " + std::to_string(passed_) : error_;
    return false;
  }

 private:
  void Take(const RecordPlace& place) {
    if (place.opcode == Opcode::kMessageIndex && chunk_) return TakeIndex(place);
    EndChunk();
    if (found_ || !error_.empty()) return;
    if (place.opcode == Opcode::kChunk) {
      chunk_ = place;
      return;
    }
    const bool is_wanted = place.opcode == Opcode::kSchema || place.opcode == Opcode::kChannel ||
                           place.opcode == Opcode::kMessage;
    std::string ignored;
    if (is_wanted && walk_.Read(place, content_, ignored)) TakeRecord(place.opcode, content_);
  }

  // How many messages of the open chunk count. An index of a channel that nobody has told of yet
  // means that the chunk itself does.
  void TakeIndex(const RecordPlace& place) {
    MessageIndex index;
    std::string ignored;
    if (!walk_.Read(place, content_, ignored) || !Parse(content_, index)) return;
    has_index_ = true;
    if (!known_.contains(index.channel_id)) {
      must_open_ = true;
    } else if (known_[index.channel_id]) {
      indexed_ += index.entries.size();
    }
  }

  // All that tells of the open chunk has been read.
  void EndChunk() {
    if (!chunk_) return;
    const RecordPlace place = *chunk_;
    chunk_.reset();
    const bool skip = has_index_ && !must_open_ && left_ >= indexed_;
    const std::uint64_t in_it = std::exchange(indexed_, 0);
    has_index_ = must_open_ = false;
    if (skip) {
      left_ -= in_it;
      passed_ += in_it;
      return;
    }
    ChunkHeader header;
    std::string reason;
    if (!walk_.ReadChunk(place, header, records_, reason)) {
      // With an index the message stands here; otherwise nothing tells what stood here.
      if (in_it > 0) error_ = "it stands in a damaged chunk: " + reason;
      return;
    }
    RecordCursor cursor(records_);
    Opcode opcode{};
    std::span<const std::uint8_t> content;
    while (!found_ && cursor.Next(opcode, content)) TakeRecord(opcode, content);
  }

  void TakeRecord(Opcode opcode, std::span<const std::uint8_t> content) {
    if (opcode == Opcode::kSchema) {
      Schema schema;
      if (!Parse(content, schema) || schemas_.contains(schema.id) || !HasRoom(content)) return;
      schemas_.emplace(schema.id, schema);
    } else if (opcode == Opcode::kChannel) {
      Channel channel;
      if (!Parse(content, channel) || known_.contains(channel.id) || !HasRoom(content)) return;
      known_[channel.id] = counts_(schemas_[channel.schema_id], channel);
      if (known_[channel.id]) channels_.emplace(channel.id, channel);
    } else if (opcode == Opcode::kMessage) {
      TakeMessage(content);
    }
  }

  bool HasRoom(std::span<const std::uint8_t> description) {
    const bool fits = description.size() <= description_room_;
    if (fits) description_room_ -= description.size();
    return fits;
  }

  void TakeMessage(std::span<const std::uint8_t> content) {
    std::span<const std::uint8_t> data;
    MessageHeader header;
    if (!Parse(content, header, data)) return;
    const auto channel = channels_.find(header.channel_id);
    if (channel == channels_.end()) return;
    if (left_ > 0) {
      --left_;
      ++passed_;
      return;
    }
    message_ = {channel->second, header, Bytes(data.begin(), data.end())};
    found_ = true;
  }

  FileWalk walk_;
  const ChannelFilter& counts_;
  std::uint64_t left_;
  std::uint64_t description_room_;
  std::uint64_t passed_ = 0;
  FoundMessage& message_;
  bool found_ = false;
  std::string error_;
  std::map<std::uint16_t, Schema> schemas_;
  std::map<std::uint16_t, bool> known_;        // channels told of: whether they count
  std::map<std::uint16_t, Channel> channels_;  // those that count
  std::optional<RecordPlace> chunk_;           // whose indexes are being read
  bool has_index_ = false;
  bool must_open_ = false;
  std::uint64_t indexed_ = 0;
  Bytes content_;
  Bytes records_;
};

}  // namespace

bool FindMessage(ByteSource& source, const ReadLimits& limits, const ChannelFilter& counts,
                 std::uint64_t number, FoundMessage& message, std::string& error) {
  return Search(source, limits, counts, number, message).Run(error);
}

}  // namespace kerul::lidar::mcap
