// The binary messages of the live stream: frame, directions, pull. docs/formats.md has them byte by
// byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "config/transform_param.h"
#include "kerul_lidar/directions.h"
#include "kerul_lidar/frame.h"

namespace kerul::lidar::web {

inline constexpr std::size_t kFrameHeaderBytes = 96;
inline constexpr std::uint8_t kFlagsPlane = 1;  // bit of FrameHeader::planes and Pull::planes
inline constexpr std::size_t kPixels = std::size_t{kFrameRows} * kFrameCols;
// Range, reflectivity and flags of two echoes.
inline constexpr std::size_t kLargestFrameBytes = kFrameHeaderBytes + kMaxEchoes * kPixels * 5;

// Times: microseconds of this machine's system clock since the epoch.
struct FrameHeader {
  std::uint8_t planes = 0;
  int echoes = 1;  // 1 or 2
  int unit_mm = 4;
  std::uint32_t serial = 0;
  double first_us = 0.0;
  double last_us = 0.0;
  double taken_us = 0.0;
  double pulled_us = 0.0;
  double sent_us = 0.0;
  double asked_ms = 0.0;  // the client's clock
  std::uint8_t frame_id = 0;
  std::uint8_t return_code = 0;
  std::uint8_t output_mode = 0;
  bool after_restart = false;
  std::uint16_t known_flags = 0;
  std::uint16_t missing_blocks = 0;
  std::uint32_t missing_frames = 0;
  std::uint32_t lost_packets = 0;
  std::uint32_t carries = 0;

  std::size_t PointCount() const noexcept { return static_cast<std::size_t>(echoes) * kPixels; }
  std::size_t MessageBytes() const noexcept {
    const std::size_t bytes_of_point = (planes & kFlagsPlane) != 0 ? 5 : 3;
    return kFrameHeaderBytes + PointCount() * bytes_of_point;
  }
};

// A message and the room before it that the WebSocket library writes its own header into.
struct FrameMessage {
  std::vector<char> bytes;
  std::size_t begin = 0;  // of the message
  FrameHeader header;     // as encoded: with the flags plane

  char* Message() noexcept { return bytes.data() + begin; }
  std::span<const char> View() const noexcept { return std::span(bytes).subspan(begin); }
};

// Encodes the frame with its flags, which stand last: a message without them is the beginning of
// this one with other planes in the header. Reuses the memory of `message`.
void EncodeFrame(const Frame& frame, std::uint32_t serial, double taken_us, std::size_t room_before,
                 FrameMessage& message);

struct Pull {
  std::uint8_t planes = 0;
  double asked_ms = 0.0;
  double pulled_us = 0.0;  // when it came
};

// Nothing for anything that is no pull.
std::optional<Pull> ReadPull(std::span<const std::uint8_t> bytes);

// Writes what belongs to one answer into the header of an encoded frame, and gives the length of
// that answer's message.
std::size_t AddressFrame(FrameMessage& message, const Pull& pull, double sent_us);

// Reads a whole frame message from outside. Nothing if its length or its header cannot be.
std::optional<FrameHeader> ReadFrameHeader(std::span<const char> message);

// `mount` may be null.
std::vector<char> EncodeDirections(const Directions& directions, const TransformParam* mount,
                                   std::size_t room_before);

}  // namespace kerul::lidar::web
