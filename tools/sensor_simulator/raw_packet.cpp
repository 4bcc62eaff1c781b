#include "sensor_simulator/raw_packet.h"

#include <algorithm>

namespace kerul::lidar::simulator {
namespace {

constexpr std::size_t kBlocksOffset = 20;
constexpr std::uint32_t kDieTemperature = 0x2C8;  // any plausible 11-bit reading

void Put16(std::uint8_t* bytes, std::uint32_t value) noexcept {
  bytes[0] = static_cast<std::uint8_t>(value);
  bytes[1] = static_cast<std::uint8_t>(value >> 8);
}

void Put32(std::uint8_t* bytes, std::uint32_t value) noexcept {
  Put16(bytes, value);
  Put16(bytes + 2, value >> 16);
}

void EncodePixel(const PixelReadout& pixel, int pixel_id, std::uint8_t* bytes) noexcept {
  std::array<std::uint16_t, kPixelBlockSamples> s{};
  s[1] = pixel.peak_addr[0];
  s[2] = pixel.peak_addr[1];
  s[3] = static_cast<std::uint16_t>(pixel_id);
  s[4] = static_cast<std::uint16_t>(pixel.noise >> 12);
  s[5] = pixel.noise & 0xFFF;
  s[6] = static_cast<std::uint16_t>(pixel.total_counts >> 12);
  s[7] = static_cast<std::uint16_t>(pixel.total_counts & 0xFFF);
  s[8] = kDieTemperature;
  std::copy(pixel.samples[0].begin(), pixel.samples[0].end(), s.begin() + 10);
  std::copy(pixel.samples[1].begin(), pixel.samples[1].end(), s.begin() + 29);
  PackPixelBlock(s, bytes);
}

RawPacket EncodePacket(const SimulatedFrame& frame, int packet_index) noexcept {
  RawPacket packet{};
  const PacketPlace place = PlaceOfPacket(packet_index);
  packet[0] = 0xEE;
  packet[1] = 0xFF;
  packet[2] = 7;
  packet[3] = 11;
  packet[12] = kPacketPixels;
  Put16(&packet[13], 1);
  packet[15] = 1;
  for (int block = 0; block < kPacketPixels; ++block) {
    const int pixel_id = PixelIdOfBlock(place, block);
    const GridPlace grid = PlaceOfPixelId(place.group, place.slot, pixel_id);
    EncodePixel(frame.pixels[static_cast<std::size_t>(PixelIndex(grid.row, grid.col))], pixel_id,
                &packet[kBlocksOffset + kPixelBlockBytes * static_cast<std::size_t>(block)]);
  }
  packet[671] = static_cast<std::uint8_t>(place.slot);
  packet[672] = static_cast<std::uint8_t>(place.run * kSubpackets + place.subpacket);
  packet[673] = static_cast<std::uint8_t>(place.group);
  packet[674] = static_cast<std::uint8_t>(place.subpacket);
  Put16(&packet[676], 100);
  return packet;
}

}  // namespace

void PackPixelBlock(const std::array<std::uint16_t, kPixelBlockSamples>& samples,
                    std::uint8_t* bytes) noexcept {
  for (std::size_t i = 0; i < samples.size(); i += 2) {
    const std::uint16_t even = samples[i];
    const std::uint16_t odd = samples[i + 1];
    *bytes++ = static_cast<std::uint8_t>(even >> 4);
    *bytes++ = static_cast<std::uint8_t>(odd >> 4);
    *bytes++ = static_cast<std::uint8_t>((even & 0xF) | (odd & 0xF) << 4);
  }
}

std::vector<RawPacket> EncodeFrame(const SimulatedFrame& frame) {
  std::vector<RawPacket> packets;
  packets.reserve(static_cast<std::size_t>(kPacketsPerFrame));
  for (int i = 0; i < kPacketsPerFrame; ++i) packets.push_back(EncodePacket(frame, i));
  StampFrame(packets, frame.number, frame.time_s);
  return packets;
}

void StampFrame(std::vector<RawPacket>& packets, std::uint32_t frame_number,
                double time_s) noexcept {
  constexpr double kPacketMicros = 13.0;
  std::uint32_t sequence = frame_number * static_cast<std::uint32_t>(kPacketsPerFrame);
  double micros = time_s * 1e6;
  for (RawPacket& packet : packets) {
    packet[675] = static_cast<std::uint8_t>(frame_number);
    // Microseconds since the sensor's start; wraps with its 32 bits.
    Put32(&packet[684], static_cast<std::uint32_t>(static_cast<std::uint64_t>(micros)));
    Put32(&packet[688], sequence);
    ++sequence;
    micros += kPacketMicros;
  }
}

}  // namespace kerul::lidar::simulator
