#include "tools/wireshark/capture_frames.h"

#include <algorithm>
#include <fstream>
#include <initializer_list>

#include "sensor_simulator/capture_file.h"

namespace kerul::lidar::testing {
namespace {

constexpr std::size_t kEthernetBytes = 14;

void Put(Bytes& bytes, std::initializer_list<unsigned> values) {
  for (const unsigned value : values) bytes.push_back(static_cast<std::uint8_t>(value));
}

void PutBig16(Bytes& bytes, std::size_t value) {
  Put(bytes, {static_cast<unsigned>(value >> 8U), static_cast<unsigned>(value & 0xFFU)});
}

void PutBig32(Bytes& bytes, std::uint32_t value) {
  PutBig16(bytes, value >> 16U);
  PutBig16(bytes, value & 0xFFFFU);
}

void PutLittle32(Bytes& bytes, std::uint32_t value) {
  for (unsigned shift = 0; shift < 32; shift += 8) Put(bytes, {(value >> shift) & 0xFFU});
}

void Append(Bytes& bytes, std::span<const std::uint8_t> more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}

// Ethernet and IPv4 headers; checksums are left 0, which tshark does not look at.
Bytes IpHeaders(unsigned protocol, std::size_t payload_bytes, std::initializer_list<unsigned> from,
                std::initializer_list<unsigned> to) {
  Bytes bytes(12, 0x02);
  Put(bytes, {0x08, 0x00, 0x45, 0x00});
  PutBig16(bytes, 20 + payload_bytes);
  Put(bytes, {0, 0, 0x40, 0, 64, protocol, 0, 0});
  Put(bytes, from);
  Put(bytes, to);
  return bytes;
}

}  // namespace

void FrameList::Add(const Bytes& frame, std::size_t kept) {
  const std::size_t held = std::min(kept, frame.size());
  PutLittle32(records_, count_ / 1000);
  PutLittle32(records_, count_ % 1000 * 1000);
  PutLittle32(records_, static_cast<std::uint32_t>(held));
  PutLittle32(records_, static_cast<std::uint32_t>(frame.size()));
  Append(records_, std::span(frame).first(held));
  ++count_;
}

void FrameList::AddUdp(std::span<const std::uint8_t> payload, std::uint16_t dest_port) {
  Add(UdpFrame(payload, dest_port));
}

void FrameList::Write(const std::filesystem::path& path) const {
  Bytes head;
  for (const std::uint32_t word : {0xA1B2C3D4U, 0x00040002U, 0U, 0U, 65535U, 1U}) {
    PutLittle32(head, word);
  }
  std::ofstream file(path, std::ios::binary);
  for (const Bytes* part : std::initializer_list<const Bytes*>{&head, &records_}) {
    file.write(reinterpret_cast<const char*>(part->data()),
               static_cast<std::streamsize>(part->size()));
  }
}

Bytes UdpFrame(std::span<const std::uint8_t> payload, std::uint16_t dest_port) {
  simulator::CaptureEndpoints endpoints;
  endpoints.source_port = 50000;  // none that the dissector knows
  endpoints.dest_port = dest_port;
  return simulator::BuildUdpFrame(endpoints, payload, 0);
}

Bytes PortUnreachableFrame(const Bytes& quoted_frame, std::size_t quoted_bytes) {
  Bytes frame = IpHeaders(1, 8 + quoted_bytes, {192, 168, 10, 1}, {192, 168, 10, 160});
  Put(frame, {3, 3, 0, 0, 0, 0, 0, 0});
  Append(frame, std::span(quoted_frame).subspan(kEthernetBytes, quoted_bytes));
  return frame;
}

Bytes TcpConversation::Segment(std::span<const std::uint8_t> payload, bool from_client) {
  Bytes frame = from_client
                    ? IpHeaders(6, 20 + payload.size(), {192, 168, 10, 1}, {192, 168, 10, 160})
                    : IpHeaders(6, 20 + payload.size(), {192, 168, 10, 160}, {192, 168, 10, 1});
  PutBig16(frame, from_client ? client_port_ : sensor_port_);
  PutBig16(frame, from_client ? sensor_port_ : client_port_);
  std::uint32_t& sent = from_client ? client_sent_ : sensor_sent_;
  PutBig32(frame, sent);
  PutBig32(frame, from_client ? sensor_sent_ : client_sent_);
  Put(frame, {0x50, 0x18, 0xFF, 0xFF, 0, 0, 0, 0});  // 20 bytes, PSH and ACK
  Append(frame, payload);
  sent += static_cast<std::uint32_t>(payload.size());
  return frame;
}

}  // namespace kerul::lidar::testing
