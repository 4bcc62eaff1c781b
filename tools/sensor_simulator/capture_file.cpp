#include "sensor_simulator/capture_file.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace kerul::lidar::simulator {
namespace {

constexpr std::size_t kEthernetBytes = 14;
constexpr std::size_t kIpBytes = 20;
constexpr std::size_t kUdpBytes = 8;
constexpr std::size_t kLongestPayload = 1472;
constexpr std::uint8_t kUdpProtocol = 17;

void PutBig16(std::uint8_t* bytes, std::size_t value) noexcept {
  bytes[0] = static_cast<std::uint8_t>(value >> 8);
  bytes[1] = static_cast<std::uint8_t>(value);
}

std::uint32_t SumWords(std::span<const std::uint8_t> bytes, std::uint32_t sum) noexcept {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    sum += static_cast<std::uint32_t>(bytes[i]) << (i % 2 == 0 ? 8 : 0);
  }
  return sum;
}

// One's complement of the one's complement sum.
std::uint16_t FoldChecksum(std::uint32_t sum) noexcept {
  while (sum >> 16 != 0) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<std::uint16_t>(~sum & 0xFFFF);
}

void PutAddress(const std::string& text, std::uint8_t* bytes) {
  in_addr address{};
  if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
    throw std::invalid_argument("not an IPv4 address: " + text);
  }
  std::memcpy(bytes, &address, sizeof address);
}

void PutEthernet(std::uint8_t* frame, const std::uint8_t* dest_ip) noexcept {
  const bool broadcast =
      std::all_of(dest_ip, dest_ip + 4, [](std::uint8_t b) { return b == 0xFF; });
  if (broadcast) {
    std::fill_n(frame, 6, std::uint8_t{0xFF});
  } else if (dest_ip[0] >= 224 && dest_ip[0] < 240) {
    const std::uint8_t group[6] = {
        0x01, 0x00, 0x5E, static_cast<std::uint8_t>(dest_ip[1] & 0x7F), dest_ip[2], dest_ip[3]};
    std::copy_n(group, 6, frame);
  }
  // A locally administered address for the sensor.
  const std::uint8_t sensor[6] = {0x02, 0x4B, 0x4C, 0x00, 0x00, 0x01};
  std::copy_n(sensor, 6, frame + 6);
  PutBig16(frame + 12, 0x0800);
}

std::uint16_t UdpChecksum(const std::uint8_t* ip, std::span<const std::uint8_t> segment) noexcept {
  std::uint32_t sum = SumWords({ip + 12, 8}, 0);
  sum += kUdpProtocol + static_cast<std::uint32_t>(segment.size());
  const std::uint16_t checksum = FoldChecksum(SumWords(segment, sum));
  return checksum == 0 ? 0xFFFF : checksum;  // 0 would mean that there is none
}

}  // namespace

std::vector<std::uint8_t> BuildUdpFrame(const CaptureEndpoints& endpoints,
                                        std::span<const std::uint8_t> payload,
                                        std::uint16_t identification) {
  if (payload.size() > kLongestPayload) {
    throw std::invalid_argument("payload does not fit one Ethernet frame");
  }
  std::vector<std::uint8_t> frame(kEthernetBytes + kIpBytes + kUdpBytes + payload.size());
  std::uint8_t* ip = frame.data() + kEthernetBytes;
  std::uint8_t* udp = ip + kIpBytes;
  std::copy(payload.begin(), payload.end(), udp + kUdpBytes);

  ip[0] = 0x45;
  PutBig16(ip + 2, kIpBytes + kUdpBytes + payload.size());
  PutBig16(ip + 4, identification);
  ip[6] = 0x40;  // may not be cut
  ip[8] = 64;
  ip[9] = kUdpProtocol;
  PutAddress(endpoints.source_ip, ip + 12);
  PutAddress(endpoints.dest_ip, ip + 16);
  PutBig16(ip + 10, FoldChecksum(SumWords({ip, kIpBytes}, 0)));

  PutBig16(udp, endpoints.source_port);
  PutBig16(udp + 2, endpoints.dest_port);
  PutBig16(udp + 4, kUdpBytes + payload.size());
  PutBig16(udp + 6, UdpChecksum(ip, {udp, kUdpBytes + payload.size()}));
  PutEthernet(frame.data(), ip + 16);
  return frame;
}

CaptureWriter::CaptureWriter(const std::string& path, const CaptureEndpoints& endpoints)
    : path_(path), endpoints_(endpoints), file_(path, std::ios::binary | std::ios::trunc) {
  // Magic, version 2.4, zone, accuracy, longest frame, Ethernet.
  const std::uint32_t header[6] = {0xA1B2C3D4, 0x00040002, 0, 0, 65535, 1};
  file_.write(reinterpret_cast<const char*>(header), sizeof header);
  if (!file_) throw std::runtime_error("cannot write " + path_);
}

void CaptureWriter::Write(std::uint64_t time_us, std::span<const std::uint8_t> payload) {
  const std::vector<std::uint8_t> frame = BuildUdpFrame(endpoints_, payload, identification_++);
  const auto length = static_cast<std::uint32_t>(frame.size());
  const std::uint32_t record[4] = {static_cast<std::uint32_t>(time_us / 1000000),
                                   static_cast<std::uint32_t>(time_us % 1000000), length, length};
  file_.write(reinterpret_cast<const char*>(record), sizeof record);
  file_.write(reinterpret_cast<const char*>(frame.data()), static_cast<std::streamsize>(length));
  if (!file_) throw std::runtime_error("cannot write " + path_);
}

void CaptureWriter::Close() {
  file_.close();
  if (!file_) throw std::runtime_error("cannot write " + path_);
}

}  // namespace kerul::lidar::simulator
