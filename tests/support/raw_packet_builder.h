// Builds raw sensor packets by hand, one field at a time.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar::testing {

inline constexpr int kRawPacketBytes = 692;
inline constexpr int kPacketsPerFrame = 6912;
inline constexpr int kPacketsPerMrow = 192;

// The 48 samples of a pixel block; both echoes empty to begin with.
struct RawPixel {
  std::array<std::uint16_t, 48> samples{};
  RawPixel() { samples[1] = samples[2] = 2000; }
  void SetPixelId(int id) { samples[3] = static_cast<std::uint16_t>(id); }
  void SetNoise(int noise) {
    samples[4] = static_cast<std::uint16_t>(noise >> 12);
    samples[5] = static_cast<std::uint16_t>(noise & 0xFFF);
  }
  // A triangle of the given height on the window's centre, over a flat floor.
  void SetPulse(int echo, int peak_addr, int height, int floor) {
    samples[static_cast<std::size_t>(1 + echo)] = static_cast<std::uint16_t>(peak_addr);
    const std::size_t first = static_cast<std::size_t>(19 * echo + 10);
    for (std::size_t i = 0; i < 17; ++i) samples[first + i] = static_cast<std::uint16_t>(floor);
    samples[first + 7] = static_cast<std::uint16_t>(floor + height / 2);
    samples[first + 8] = static_cast<std::uint16_t>(floor + height);
    samples[first + 9] = static_cast<std::uint16_t>(floor + height / 2);
  }
};

// Two samples share three bytes: the high eight bits of each, then both low nibbles.
inline void PackPixel(const RawPixel& pixel, std::uint8_t* block) {
  for (std::size_t i = 0; i < 24; ++i) {
    const unsigned even = pixel.samples[2 * i];
    const unsigned odd = pixel.samples[2 * i + 1];
    block[3 * i] = static_cast<std::uint8_t>(even >> 4);
    block[3 * i + 1] = static_cast<std::uint8_t>(odd >> 4);
    block[3 * i + 2] = static_cast<std::uint8_t>((even & 0xF) | ((odd & 0xF) << 4));
  }
}

// The packet at place `index` (0..6911) of frame `frame_id`; its nine pixels carry `prototype`'s
// samples and their own ids.
inline UdpPacket MakeRawPacket(int frame_id, int index, const RawPixel& prototype = {}) {
  UdpPacket packet{};
  packet.length = kRawPacketBytes;
  std::uint8_t* b = packet.buffer;
  b[0] = 0xEE;
  b[1] = 0xFF;
  b[2] = 7;
  b[3] = 11;
  b[12] = 9;
  b[673] = static_cast<std::uint8_t>(index / kPacketsPerMrow);
  b[671] = static_cast<std::uint8_t>(index % kPacketsPerMrow / 48);
  b[674] = static_cast<std::uint8_t>(index % 8);
  b[675] = static_cast<std::uint8_t>(frame_id);
  const std::uint32_t sequence = static_cast<std::uint32_t>(index + 1);
  std::memcpy(b + 688, &sequence, sizeof(sequence));
  const int run = index % 48 / 8;
  for (int i = 0; i < 9; ++i) {
    RawPixel pixel = prototype;
    pixel.SetPixelId(run * 72 + index % 8 * 9 + i);
    PackPixel(pixel, b + 20 + 72 * i);
  }
  return packet;
}

}  // namespace kerul::lidar::testing
