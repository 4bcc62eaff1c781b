#include "sensor_simulator/stream_faults.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <set>
#include <stdexcept>

namespace kerul::lidar::simulator {
namespace {

std::vector<RawPacket> Packets(std::size_t count) {
  std::vector<RawPacket> packets(count);
  for (std::size_t i = 0; i < count; ++i) {
    RawPacket& packet = packets[i];
    packet[0] = 0xEE;
    packet[1] = 0xFF;
    packet[2] = 7;
    packet[3] = 11;
    packet[4] = static_cast<std::uint8_t>(i);
    packet[5] = static_cast<std::uint8_t>(i >> 8);
    packet[675] = 9;
  }
  return packets;
}

std::size_t NumberOf(const Datagram& datagram) {
  return static_cast<std::size_t>(datagram[4] | datagram[5] << 8);
}

std::vector<Datagram> Faulty(const FaultRates& rates, std::size_t count, FaultCounts* counts) {
  FaultInjector faults(rates, 11);
  std::vector<Datagram> datagrams = faults.Apply(Packets(count));
  if (counts != nullptr) *counts = faults.counts();
  return datagrams;
}

TEST(FaultInjector, WithoutFaultsEveryPacketPassesUnchanged) {
  const std::vector<RawPacket> packets = Packets(500);
  FaultInjector faults({}, 1);
  const std::vector<Datagram> datagrams = faults.Apply(packets);
  ASSERT_EQ(datagrams.size(), packets.size());
  for (std::size_t i = 0; i < packets.size(); ++i) {
    ASSERT_TRUE(
        std::equal(packets[i].begin(), packets[i].end(), datagrams[i].begin(), datagrams[i].end()));
  }
}

TEST(FaultInjector, LossTakesItsShareAndLeavesTheOrder) {
  FaultRates rates;
  rates.loss = 0.25;
  FaultCounts counts;
  const std::vector<Datagram> datagrams = Faulty(rates, 8000, &counts);
  EXPECT_EQ(datagrams.size() + counts.lost, 8000U);
  // Standard deviation of the number lost is 39.
  EXPECT_NEAR(static_cast<double>(counts.lost), 2000.0, 200.0);
  EXPECT_TRUE(std::is_sorted(datagrams.begin(), datagrams.end(), [](const auto& a, const auto& b) {
    return NumberOf(a) < NumberOf(b);
  }));
}

TEST(FaultInjector, ARateOfOneHitsEveryPacket) {
  FaultRates rates;
  rates.loss = 1.0;
  EXPECT_TRUE(Faulty(rates, 100, nullptr).empty());
}

TEST(FaultInjector, ADuplicateFollowsItsPacket) {
  FaultRates rates;
  rates.duplicate = 1.0;
  const std::vector<Datagram> datagrams = Faulty(rates, 100, nullptr);
  ASSERT_EQ(datagrams.size(), 200U);
  for (std::size_t i = 0; i < datagrams.size(); i += 2) {
    EXPECT_EQ(datagrams[i], datagrams[i + 1]);
    EXPECT_EQ(NumberOf(datagrams[i]), i / 2);
  }
}

TEST(FaultInjector, ReorderingKeepsEveryPacketAndMovesSome) {
  FaultRates rates;
  rates.reorder = 0.1;
  FaultCounts counts;
  const std::vector<Datagram> datagrams = Faulty(rates, 1000, &counts);
  std::set<std::size_t> numbers;
  std::size_t moved = 0;
  for (std::size_t i = 0; i < datagrams.size(); ++i) {
    numbers.insert(NumberOf(datagrams[i]));
    if (NumberOf(datagrams[i]) != i) ++moved;
  }
  EXPECT_EQ(numbers.size(), 1000U);
  EXPECT_GT(counts.reordered, 50U);
  EXPECT_GT(moved, 100U);
}

TEST(FaultInjector, AFrameJumpMovesTheIdOfThisAndAllLaterFrames) {
  FaultRates rates;
  rates.frame_jump = 1.0;
  FaultInjector faults(rates, 5);
  std::uint8_t last = 9;
  for (int frame = 0; frame < 20; ++frame) {
    const std::vector<Datagram> datagrams = faults.Apply(Packets(3));
    const std::uint8_t id = datagrams[0][675];
    EXPECT_NE(id, last);
    EXPECT_EQ(datagrams[2][675], id);
    last = id;
  }
  EXPECT_EQ(faults.counts().jumps, 20U);
}

TEST(FaultInjector, ForeignDatagramsStandBesideTheStreamAndNeverBeginAsItDoes) {
  FaultRates rates;
  rates.foreign = 1.0;
  const std::vector<Datagram> datagrams = Faulty(rates, 1000, nullptr);
  ASSERT_EQ(datagrams.size(), 2000U);
  for (std::size_t i = 0; i < datagrams.size(); i += 2) {
    ASSERT_FALSE(datagrams[i].empty());
    ASSERT_LE(datagrams[i].size(), 1472U);
    ASSERT_NE(datagrams[i][0], 0xEE);
    ASSERT_EQ(NumberOf(datagrams[i + 1]), i / 2);
  }
}

TEST(FaultInjector, AnotherVersionIsSevenTen) {
  FaultRates rates;
  rates.other_version = 1.0;
  for (const Datagram& datagram : Faulty(rates, 50, nullptr)) {
    EXPECT_EQ(datagram[2], 7);
    EXPECT_EQ(datagram[3], 10);
  }
}

TEST(FaultInjector, CutDatagramsAreShorterThanAPacketAndNeverEmpty) {
  FaultRates rates;
  rates.short_datagram = 1.0;
  std::set<std::size_t> lengths;
  for (const Datagram& datagram : Faulty(rates, 2000, nullptr)) {
    ASSERT_GE(datagram.size(), 1U);
    ASSERT_LT(datagram.size(), kRawPacketBytes);
    lengths.insert(datagram.size());
  }
  EXPECT_GT(lengths.size(), 400U);
}

TEST(FaultInjector, TheSameSeedSpoilsTheSamePackets) {
  FaultRates rates;
  rates.loss = 0.1;
  rates.duplicate = 0.1;
  rates.reorder = 0.1;
  rates.foreign = 0.1;
  rates.short_datagram = 0.1;
  FaultInjector first(rates, 77);
  FaultInjector again(rates, 77);
  FaultInjector other(rates, 78);
  const std::vector<Datagram> datagrams = first.Apply(Packets(1000));
  EXPECT_EQ(datagrams, again.Apply(Packets(1000)));
  EXPECT_NE(datagrams, other.Apply(Packets(1000)));
}

TEST(FaultInjector, RatesOutsideZeroToOneAreRefused) {
  FaultRates rates;
  rates.loss = 1.01;
  EXPECT_THROW(FaultInjector(rates, 1), std::invalid_argument);
  rates.loss = -0.01;
  EXPECT_THROW(FaultInjector(rates, 1), std::invalid_argument);
  rates.loss = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THROW(FaultInjector(rates, 1), std::invalid_argument);
}

}  // namespace
}  // namespace kerul::lidar::simulator
