// Builds raw packets for tests, written from the wire format and apart from the parser.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

using BlockSamples = std::array<std::uint16_t, 48>;

// Samples of a pixel without echoes: both window addresses are beyond the last bin.
inline BlockSamples EmptyPixel(int pixel_id) {
  BlockSamples samples{};
  samples[1] = 4095;
  samples[2] = 4095;
  samples[3] = static_cast<std::uint16_t>(pixel_id);
  return samples;
}

// Writes 48 samples of 12 bits as 72 bytes, nibble by nibble.
inline void PackBlock(const BlockSamples& samples, std::uint8_t* block) {
  for (int i = 0; i < 48; i += 2) {
    const int even = samples[static_cast<std::size_t>(i)];
    const int odd = samples[static_cast<std::size_t>(i + 1)];
    *block++ = static_cast<std::uint8_t>(even / 16);
    *block++ = static_cast<std::uint8_t>(odd / 16);
    *block++ = static_cast<std::uint8_t>(odd % 16 * 16 + even % 16);
  }
}

// A sound packet of nine empty pixels, ids 0 to 8.
inline UdpPacket RawPacket() {
  UdpPacket packet{};
  packet.buffer[0] = 0xEE;
  packet.buffer[1] = 0xFF;
  packet.buffer[2] = 7;
  packet.buffer[3] = 11;
  packet.buffer[12] = 9;
  packet.length = 692;
  for (int i = 0; i < 9; ++i) PackBlock(EmptyPixel(i), packet.buffer + 20 + 72 * i);
  return packet;
}

inline void SetBlock(UdpPacket& packet, int block, const BlockSamples& samples) {
  PackBlock(samples, packet.buffer + 20 + 72 * block);
}

inline void SetSequence(UdpPacket& packet, std::uint32_t sequence) {
  for (int i = 0; i < 4; ++i) {
    packet.buffer[688 + i] = static_cast<std::uint8_t>(sequence >> (8 * i));
  }
}

// A triangle of 17 samples around sample 8: 50, 100, 50.
inline std::array<std::uint16_t, 17> TriangleWindow() {
  std::array<std::uint16_t, 17> window{};
  window[7] = 50;
  window[8] = 100;
  window[9] = 50;
  return window;
}

inline void SetWindow(BlockSamples& samples, int echo, const std::array<std::uint16_t, 17>& window,
                      int peak_addr) {
  samples[static_cast<std::size_t>(1 + echo)] = static_cast<std::uint16_t>(peak_addr);
  std::copy(window.begin(), window.end(), samples.begin() + 10 + 19 * echo);
}

}  // namespace kerul::lidar
