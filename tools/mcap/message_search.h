// Finds one message of an MCAP file.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "mcap/file_walk.h"
#include "mcap/records.h"

namespace kerul::lidar::mcap {

// Whether the messages of a channel count. `schema` is empty for a channel without one.
using ChannelFilter = std::function<bool(const Schema& schema, const Channel& channel)>;

struct FoundMessage {
  Channel channel;
  MessageHeader header;
  Bytes data;
};

// Message `number` of those that count, from 0, as they stand in the file. Chunks before it are
// passed over unread where the message index after them tells how many they hold, so a damaged one
// does not shift the count. False with the reason in `error`.
bool FindMessage(ByteSource& source, const ReadLimits& limits, const ChannelFilter& counts,
                 std::uint64_t number, FoundMessage& message, std::string& error);

}  // namespace kerul::lidar::mcap
