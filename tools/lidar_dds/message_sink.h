// Where the messages of a frame go.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace kerul::lidar::dds {

// The messages that a frame can have; indices of MessageSet.
enum MessageKind : std::size_t { kCloud, kRangeImage, kReflectivityImage };
inline constexpr std::size_t kMessageKinds = 3;

// Serialised messages of one frame; an empty one is not sent.
using MessageSet = std::array<std::vector<std::uint8_t>, kMessageKinds>;

class MessageSink {
 public:
  virtual ~MessageSink() = default;
  // Sends one message. May wait for slow subscribers. False when it was not sent.
  virtual bool Write(MessageKind kind, std::span<const std::uint8_t> message) = 0;
  // How many subscribe to the messages of this kind.
  virtual int Subscribers(MessageKind kind) = 0;
};

}  // namespace kerul::lidar::dds
