// Capture files put together frame by frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string_view>
#include <vector>

namespace kerul::lidar::testing {

using Bytes = std::vector<std::uint8_t>;

// Collects Ethernet frames, a millisecond apart, for a capture file of the classic format.
class FrameList {
 public:
  // kept: bytes that the capture holds of the frame; all of them by default.
  void Add(const Bytes& frame, std::size_t kept = SIZE_MAX);
  // A datagram from the sensor to the broadcast address.
  void AddUdp(std::span<const std::uint8_t> payload, std::uint16_t dest_port);

  void Write(const std::filesystem::path& path) const;

 private:
  Bytes records_;
  std::uint32_t count_ = 0;
};

// The frame of such a datagram.
Bytes UdpFrame(std::span<const std::uint8_t> payload, std::uint16_t dest_port);

// An ICMP message "port unreachable" that quotes the first bytes of an Ethernet frame's packet.
Bytes PortUnreachableFrame(const Bytes& quoted_frame, std::size_t quoted_bytes);

// One side's segments of a TCP connection between 192.168.10.1 and the sensor at 192.168.10.160.
class TcpConversation {
 public:
  TcpConversation(std::uint16_t client_port, std::uint16_t sensor_port)
      : client_port_(client_port), sensor_port_(sensor_port) {}

  Bytes FromClient(std::span<const std::uint8_t> payload) { return Segment(payload, true); }
  Bytes FromSensor(std::span<const std::uint8_t> payload) { return Segment(payload, false); }

 private:
  Bytes Segment(std::span<const std::uint8_t> payload, bool from_client);

  std::uint16_t client_port_;
  std::uint16_t sensor_port_;
  std::uint32_t client_sent_ = 1000;
  std::uint32_t sensor_sent_ = 5000;
};

}  // namespace kerul::lidar::testing
