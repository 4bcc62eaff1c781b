// Seeded raw packets with pulses, flat tops, side peaks, empty windows and plain noise in them.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "MIPI_reader/parser/lidar_point.h"
#include "support/raw_packet_builder.h"

namespace kerul::lidar::testing {

// Random numbers in closed ranges.
class RandomSource {
 public:
  explicit RandomSource(unsigned seed) : engine_(seed) {}

  int Int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(engine_); }
  float Float(float lo, float hi) { return std::uniform_real_distribution<float>(lo, hi)(engine_); }
  bool OneIn(int n) { return Int(1, n) == 1; }
  std::vector<float> Table(std::size_t size, float lo, float hi) {
    std::vector<float> table(size);
    for (float& entry : table) entry = Float(lo, hi);
    return table;
  }

 private:
  std::mt19937 engine_;
};

// 17 samples of 12 bits over a background level.
inline void FillWindow(RandomSource& random, float background, std::uint16_t* window) {
  const int kind = random.Int(0, 5);
  const float height = kind == 0 ? 0.0F : random.Float(0.0F, random.OneIn(2) ? 300.0F : 5000.0F);
  const float centre = random.Float(7.0F, 9.0F);
  const float width = random.Float(0.5F, 3.0F);
  const float spread = std::sqrt(background);
  for (int i = 0; i < kWindowSamples; ++i) {
    const float off = static_cast<float>(i) - centre;
    float value = background + random.Float(-spread, spread) +
                  height * std::exp(-off * off / (2.0F * width * width));
    if (kind == 1 && i > 4 && i < 12) value = height;           // flat top
    if (kind == 2 && (i == 2 || i == 14)) value += height / 2;  // side peaks
    if (kind == 3) value = random.Float(0.0F, 4095.0F);
    window[i] = static_cast<std::uint16_t>(std::clamp(value, 0.0F, 4095.0F));
  }
}

inline BlockSamples RandomBlock(RandomSource& random) {
  BlockSamples samples;
  const auto number = [&](int lo, int hi) {
    return static_cast<std::uint16_t>(random.Int(lo, hi));
  };
  for (std::uint16_t& sample : samples) sample = number(0, 4095);
  for (const std::size_t address : {1U, 2U}) {
    samples[address] = number(0, random.OneIn(2) ? 1100 : 60);
  }
  if (!random.OneIn(40)) samples[3] = number(0, 431);
  if (!random.OneIn(10)) samples[4] = 0;
  if (!random.OneIn(3)) samples[5] = number(0, 300);
  const float background = static_cast<float>(samples[5]) * random.Float(0.05F, 0.15F);
  FillWindow(random, background, &samples[10]);
  FillWindow(random, background, &samples[29]);
  return samples;
}

// A packet that is taken; its place is now and then outside the frame.
inline UdpPacket RandomRawPacket(RandomSource& random) {
  UdpPacket packet = RawPacket();
  const auto byte = [&](int offset, int value) {
    packet.buffer[offset] = static_cast<std::uint8_t>(value);
  };
  for (int block = 0; block < 9; ++block) SetBlock(packet, block, RandomBlock(random));
  byte(671, random.OneIn(50) ? random.Int(0, 255) : random.Int(0, 3));
  byte(673, random.OneIn(50) ? random.Int(0, 255) : random.Int(0, 35));
  byte(674, random.Int(0, 7));
  byte(675, random.Int(0, 255));
  for (int i = 688; i < 691; ++i) byte(i, random.Int(0, 3));
  return packet;
}

}  // namespace kerul::lidar::testing
