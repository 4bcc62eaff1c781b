#include "sensor_simulator/raw_packet.h"

#include <gtest/gtest.h>

#include <set>

namespace kerul::lidar::simulator {
namespace {

using Samples = std::array<std::uint16_t, kPixelBlockSamples>;

// As a receiver unpacks them.
Samples Unpack(const std::uint8_t* bytes) {
  Samples samples{};
  for (std::size_t i = 0; i < samples.size(); i += 2, bytes += 3) {
    samples[i] = static_cast<std::uint16_t>(bytes[0] * 16 + (bytes[2] & 0x0F));
    samples[i + 1] = static_cast<std::uint16_t>(bytes[1] * 16 + (bytes[2] >> 4));
  }
  return samples;
}

std::uint32_t Read32(const RawPacket& packet, std::size_t offset) {
  return static_cast<std::uint32_t>(packet[offset]) |
         static_cast<std::uint32_t>(packet[offset + 1]) << 8 |
         static_cast<std::uint32_t>(packet[offset + 2]) << 16 |
         static_cast<std::uint32_t>(packet[offset + 3]) << 24;
}

// Every pixel different in every field.
SimulatedFrame NumberedFrame(std::uint32_t number) {
  SimulatedFrame frame;
  frame.number = number;
  frame.time_s = 0.1 * number;
  frame.pixels.resize(static_cast<std::size_t>(kPixels));
  for (std::size_t i = 0; i < frame.pixels.size(); ++i) {
    PixelReadout& pixel = frame.pixels[i];
    pixel.noise = static_cast<std::uint16_t>(i);
    pixel.total_counts = static_cast<std::uint32_t>(i * 67);
    pixel.peak_addr = {static_cast<std::uint16_t>(i % 1001), static_cast<std::uint16_t>(i % 997)};
    for (std::size_t echo = 0; echo < kEchoes; ++echo) {
      for (std::size_t k = 0; k < kWindow; ++k) {
        pixel.samples[echo][k] = static_cast<std::uint16_t>((i * 31 + echo * 17 + k) % 4096);
      }
    }
  }
  return frame;
}

TEST(RawPacket, TwoSamplesShareThreeBytes) {
  Samples samples{};
  samples[0] = 0xABC;
  samples[1] = 0x123;
  std::array<std::uint8_t, kPixelBlockBytes> bytes{};
  PackPixelBlock(samples, bytes.data());
  EXPECT_EQ(bytes[0], 0xAB);
  EXPECT_EQ(bytes[1], 0x12);
  EXPECT_EQ(bytes[2], 0x3C);
  EXPECT_EQ(bytes[3], 0);
}

TEST(RawPacket, PackedSamplesComeBackAsTheyWere) {
  Samples samples{};
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i] = static_cast<std::uint16_t>((i * 1237 + 4095) % 4096);
  }
  std::array<std::uint8_t, kPixelBlockBytes> bytes{};
  PackPixelBlock(samples, bytes.data());
  EXPECT_EQ(Unpack(bytes.data()), samples);
}

TEST(RawPacket, TheHeaderHasMagicVersionAndNinePixels) {
  const RawPacket packet = EncodeFrame(NumberedFrame(0)).front();
  EXPECT_EQ(packet[0], 0xEE);
  EXPECT_EQ(packet[1], 0xFF);
  EXPECT_EQ(packet[2], 7);
  EXPECT_EQ(packet[3], 11);
  EXPECT_EQ(packet[12], 9);
}

// Read back by the receiver's formulas, written out here once more.
TEST(RawPacket, AReceiverFindsEveryPixelInItsPlace) {
  const SimulatedFrame frame = NumberedFrame(3);
  const std::vector<RawPacket> packets = EncodeFrame(frame);
  ASSERT_EQ(packets.size(), 6912U);
  std::set<int> seen;
  for (const RawPacket& packet : packets) {
    const int slot = packet[671];
    const int group = packet[673];
    for (std::size_t block = 0; block < 9; ++block) {
      const Samples s = Unpack(&packet[20 + 72 * block]);
      const int row = (s[3] / 12 % 9) % 3 + group * 6 + ((s[3] / 108) & 1) * 3;
      const int col = (s[3] / 12 % 9) / 3 + slot * 6 + (s[3] % 12) * 24 + (s[3] / 216) * 3;
      const int index = row * 288 + col;
      ASSERT_TRUE(index >= 0 && index < 62208);
      ASSERT_TRUE(seen.insert(index).second);
      const PixelReadout& pixel = frame.pixels[static_cast<std::size_t>(index)];
      ASSERT_EQ(s[1], pixel.peak_addr[0]);
      ASSERT_EQ(s[2], pixel.peak_addr[1]);
      ASSERT_EQ(((s[4] << 12) & 0xFFFF) | s[5], pixel.noise);
      ASSERT_EQ(static_cast<std::uint32_t>(((s[6] << 12) & 0x3FF000) | s[7]), pixel.total_counts);
      for (std::size_t k = 0; k < 17; ++k) {
        ASSERT_EQ(s[10 + k], pixel.samples[0][k]);
        ASSERT_EQ(s[29 + k], pixel.samples[1][k]);
      }
    }
  }
  EXPECT_EQ(seen.size(), 62208U);
}

TEST(RawPacket, PacketsOfAFrameAreNumberedInOrder) {
  const std::vector<RawPacket> packets = EncodeFrame(NumberedFrame(300));
  int expected = 0;
  for (const RawPacket& packet : packets) {
    const Samples last = Unpack(&packet[20 + 72 * 8]);
    ASSERT_EQ(packet[673] * 192 + packet[671] * 48 + last[3] / 72 * 8 + packet[674], expected);
    ASSERT_EQ(packet[675], 300 % 256);
    ASSERT_EQ(Read32(packet, 688), 300U * 6912U + static_cast<std::uint32_t>(expected));
    ++expected;
  }
  EXPECT_EQ(expected, 6912);
  EXPECT_EQ(Read32(packets[0], 684), 30000000U);
}

TEST(RawPacket, StampingChangesIdTimeAndSequenceAndNothingElse) {
  std::vector<RawPacket> packets = EncodeFrame(NumberedFrame(1));
  std::vector<RawPacket> stamped = packets;
  StampFrame(stamped, 258, 25.8);
  EXPECT_EQ(stamped[5][675], 2);
  EXPECT_EQ(Read32(stamped[5], 688), 258U * 6912U + 5U);
  EXPECT_EQ(Read32(stamped[0], 684), 25800000U);
  StampFrame(stamped, 1, 0.1);
  EXPECT_EQ(stamped, packets);
}

TEST(RawPacket, SequenceNumbersWrapWithTheirThirtyTwoBits) {
  std::vector<RawPacket> packets = EncodeFrame(NumberedFrame(0));
  StampFrame(packets, 621379, 0.0);  // 621378 frames of 6912 packets fill 32 bits
  EXPECT_EQ(Read32(packets[0], 688), static_cast<std::uint32_t>(621379ULL * 6912ULL));
  EXPECT_LT(Read32(packets[0], 688), 6912U * 2U);
}

}  // namespace
}  // namespace kerul::lidar::simulator
