// Raw sensor packets by hand, one field at a time; written from the wire format and apart from the
// parser.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar::testing {

inline constexpr int kRawPacketBytes = 692;
inline constexpr int kPacketsPerFrame = 6912;
inline constexpr int kPacketsPerMrow = 192;

// ---- Pixels ----

// The samples of a pixel's block, 12 bits each.
using BlockSamples = std::array<std::uint16_t, 48>;
using EchoWindow = std::array<std::uint16_t, 17>;

// No echoes: both window addresses are beyond the last bin.
inline BlockSamples EmptyPixel(int pixel_id) {
  BlockSamples samples{};
  samples[1] = samples[2] = 2000;
  samples[3] = static_cast<std::uint16_t>(pixel_id);
  return samples;
}

inline void SetWindow(BlockSamples& samples, int echo, const EchoWindow& window, int peak_addr) {
  samples[static_cast<std::size_t>(1 + echo)] = static_cast<std::uint16_t>(peak_addr);
  std::copy(window.begin(), window.end(), samples.begin() + 10 + 19 * echo);
}

// Of the given height on sample 8, half of it on either side, over a flat floor.
inline EchoWindow TriangleWindow(int height = 100, int floor = 0) {
  EchoWindow window;
  window.fill(static_cast<std::uint16_t>(floor));
  window[7] = window[9] = static_cast<std::uint16_t>(floor + height / 2);
  window[8] = static_cast<std::uint16_t>(floor + height);
  return window;
}

// A pixel's block; empty to begin with.
struct RawPixel {
  BlockSamples samples = EmptyPixel(0);

  void SetPixelId(int id) { samples[3] = static_cast<std::uint16_t>(id); }
  void SetNoise(int noise) {
    samples[4] = static_cast<std::uint16_t>(noise >> 12);
    samples[5] = static_cast<std::uint16_t>(noise & 0xFFF);
  }
  void SetPulse(int echo, int peak_addr, int height, int floor) {
    SetWindow(samples, echo, TriangleWindow(height, floor), peak_addr);
  }
};

// Two samples share three bytes: the high eight bits of each, then both low nibbles.
inline void PackBlock(const BlockSamples& samples, std::uint8_t* block) {
  for (std::size_t i = 0; i < samples.size(); i += 2) {
    const int even = samples[i];
    const int odd = samples[i + 1];
    *block++ = static_cast<std::uint8_t>(even / 16);
    *block++ = static_cast<std::uint8_t>(odd / 16);
    *block++ = static_cast<std::uint8_t>(odd % 16 * 16 + even % 16);
  }
}

// ---- Packets ----

inline void SetBlock(UdpPacket& packet, int block, const BlockSamples& samples) {
  PackBlock(samples, packet.buffer + 20 + 72 * block);
}

inline void SetSequence(UdpPacket& packet, std::uint32_t sequence) {
  for (int i = 0; i < 4; ++i) {
    packet.buffer[688 + i] = static_cast<std::uint8_t>(sequence >> (8 * i));
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
  SetSequence(packet, static_cast<std::uint32_t>(index + 1));
  const int run = index % 48 / 8;
  for (int i = 0; i < 9; ++i) {
    RawPixel pixel = prototype;
    pixel.SetPixelId(run * 72 + index % 8 * 9 + i);
    SetBlock(packet, i, pixel.samples);
  }
  return packet;
}

// A sound packet of nine empty pixels, ids 0 to 8, and without a sequence number.
inline UdpPacket RawPacket() {
  UdpPacket packet = MakeRawPacket(0, 0);
  SetSequence(packet, 0);
  return packet;
}

}  // namespace kerul::lidar::testing
