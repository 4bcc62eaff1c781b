#include "lidar_web/frame_message.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "kerul_lidar/mounting.h"
#include "kerul_lidar/point_payload.h"
#include "support/byte_output.h"

namespace kerul::lidar::web {
namespace {

constexpr std::uint8_t kPullKind = 1;
constexpr std::uint8_t kDirectionsKind = 1;
constexpr std::uint8_t kFrameKind = 2;
constexpr std::size_t kPullBytes = 16;
constexpr std::size_t kAskedInPull = 8;
constexpr std::size_t kDirectionsHeaderBytes = 16;
// In a frame's header.
constexpr std::size_t kPlanesOffset = 1;
constexpr std::size_t kPulledOffset = 32;
constexpr std::size_t kSentOffset = 40;
constexpr std::size_t kAskedOffset = 48;
constexpr std::size_t kFrameIdOffset = 56;

template <class T>
T Get(std::span<const char> bytes, std::size_t offset) {
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

template <class T>
T Clipped(std::uint64_t count) {
  return static_cast<T>(std::min<std::uint64_t>(count, std::numeric_limits<T>::max()));
}

void PutHeader(char* at, const FrameHeader& header) {
  std::memset(at, 0, kFrameHeaderBytes);
  at = PutNumber(PutNumber(at, kFrameKind), header.planes);
  at = PutNumber(at, static_cast<std::uint8_t>(header.echoes));
  at = PutNumber(at, static_cast<std::uint8_t>(header.unit_mm));
  at = PutNumber(at, header.serial);
  for (const double time : {header.first_us, header.last_us, header.taken_us, header.pulled_us,
                            header.sent_us, header.asked_ms}) {
    at = PutNumber(at, time);
  }
  for (const std::uint8_t byte : {header.frame_id, header.return_code, header.output_mode}) {
    at = PutNumber(at, byte);
  }
  at = PutNumber(at, static_cast<std::uint8_t>(header.after_restart ? 1 : 0));
  at = PutNumber(PutNumber(at, header.known_flags), header.missing_blocks);
  at = PutNumber(PutNumber(at, header.missing_frames), header.lost_packets);
  PutNumber(at, header.carries);
}

FrameHeader HeaderOf(const Frame& frame, std::uint32_t serial, double taken_us) {
  FrameHeader header;
  header.planes = kFlagsPlane;
  header.echoes = frame.echoes;
  header.serial = serial;
  header.first_us = static_cast<double>(frame.first_timestamp_us);
  header.last_us = static_cast<double>(frame.last_timestamp_us);
  header.taken_us = taken_us;
  header.frame_id = frame.id;
  header.return_code = static_cast<std::uint8_t>(frame.return_code);
  header.output_mode = static_cast<std::uint8_t>(frame.output_mode);
  header.after_restart = frame.after_restart;
  header.known_flags = frame.known_flags;
  header.missing_blocks = static_cast<std::uint16_t>(frame.missing_blocks);
  header.missing_frames = static_cast<std::uint32_t>(frame.missing_frames);
  header.lost_packets = Clipped<std::uint32_t>(frame.lost_packets);
  header.carries = frame.carries;
  return header;
}

// The published distance: the range is its product with the unit, rounded to a float.
std::uint16_t Distance(float range_m, float units_per_metre) {
  return static_cast<std::uint16_t>(range_m * units_per_metre + 0.5F);
}

}  // namespace

void EncodeFrame(const Frame& frame, std::uint32_t serial, double taken_us, std::size_t room_before,
                 FrameMessage& message) {
  message.header = HeaderOf(frame, serial, taken_us);
  message.begin = room_before;
  message.bytes.resize(room_before + message.header.MessageBytes());
  PutHeader(message.Message(), message.header);
  const std::size_t count = frame.PointCount();
  const float units_per_metre = 1000.0F / static_cast<float>(message.header.unit_mm);
  char* at = message.Message() + kFrameHeaderBytes;
  for (std::size_t i = 0; i < count; ++i) {
    at = PutNumber(at, Distance(frame.range_m[i], units_per_metre));
  }
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint8_t* payload = frame.payload.data() + i * point_packet::kPayloadBytes;
    at = PutNumber(at, PointIntensity(frame.output_mode, payload));
  }
  std::memcpy(at, frame.flags.data(), count * sizeof frame.flags[0]);
}

std::optional<Pull> ReadPull(std::span<const std::uint8_t> bytes) {
  constexpr std::size_t kZerosBegin = 2;
  if (bytes.size() != kPullBytes || bytes[0] != kPullKind) return std::nullopt;
  if ((bytes[1] & ~unsigned{kFlagsPlane}) != 0) return std::nullopt;
  for (std::size_t i = kZerosBegin; i < kAskedInPull; ++i) {
    if (bytes[i] != 0) return std::nullopt;
  }
  Pull pull{.planes = bytes[1]};
  std::memcpy(&pull.asked_ms, bytes.data() + kAskedInPull, sizeof pull.asked_ms);
  return pull;
}

std::size_t AddressFrame(FrameMessage& message, const Pull& pull, double sent_us) {
  FrameHeader header = message.header;
  header.planes = pull.planes & message.header.planes;
  char* const at = message.Message();
  PutNumber(at + kPlanesOffset, header.planes);
  PutNumber(at + kPulledOffset, pull.pulled_us);
  PutNumber(at + kSentOffset, sent_us);
  PutNumber(at + kAskedOffset, pull.asked_ms);
  return header.MessageBytes();
}

std::optional<FrameHeader> ReadFrameHeader(std::span<const char> message) {
  if (message.size() < kFrameHeaderBytes) return std::nullopt;
  const auto byte = [&](std::size_t offset) { return Get<std::uint8_t>(message, offset); };
  FrameHeader header;
  header.planes = byte(kPlanesOffset);
  header.echoes = byte(2);
  header.unit_mm = byte(3);
  if (byte(0) != kFrameKind || (header.planes & ~unsigned{kFlagsPlane}) != 0) return std::nullopt;
  if (header.echoes < 1 || header.echoes > kMaxEchoes || header.unit_mm == 0) return std::nullopt;
  if (message.size() != header.MessageBytes()) return std::nullopt;
  header.serial = Get<std::uint32_t>(message, 4);
  header.first_us = Get<double>(message, 8);
  header.last_us = Get<double>(message, 16);
  header.taken_us = Get<double>(message, 24);
  header.pulled_us = Get<double>(message, kPulledOffset);
  header.sent_us = Get<double>(message, kSentOffset);
  header.asked_ms = Get<double>(message, kAskedOffset);
  header.frame_id = byte(kFrameIdOffset);
  header.return_code = byte(kFrameIdOffset + 1);
  header.output_mode = byte(kFrameIdOffset + 2);
  header.after_restart = byte(kFrameIdOffset + 3) != 0;
  header.known_flags = Get<std::uint16_t>(message, 60);
  header.missing_blocks = Get<std::uint16_t>(message, 62);
  header.missing_frames = Get<std::uint32_t>(message, 64);
  header.lost_packets = Get<std::uint32_t>(message, 68);
  header.carries = Get<std::uint32_t>(message, 72);
  return header;
}

std::vector<char> EncodeDirections(const Directions& directions, const TransformParam* mount,
                                   std::size_t room_before) {
  std::vector<char> bytes(room_before + kDirectionsHeaderBytes +
                          directions.unit.size() * sizeof(Point3));
  char* at = bytes.data() + room_before;
  PutNumber(at, kDirectionsKind);
  TransformParam turn;
  if (mount != nullptr) {
    turn = *mount;
    PutNumber(at + 4, static_cast<float>(mount->x));
    PutNumber(at + 8, static_cast<float>(mount->y));
    PutNumber(at + 12, static_cast<float>(mount->z));
  }
  turn.x = turn.y = turn.z = 0.0;
  at += kDirectionsHeaderBytes;
  for (const Point3& unit : directions.unit) {
    const Point3 turned = mount == nullptr ? unit : Mounted(turn, unit);
    for (const float value : turned) at = PutNumber(at, value);
  }
  return bytes;
}

}  // namespace kerul::lidar::web
