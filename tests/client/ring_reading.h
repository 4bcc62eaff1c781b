// What the tests of the ring reader share.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include "client/ring_by_hand.h"
#include "kerul_lidar/shm_ring_reader.h"

namespace kerul::lidar {

using Numbers = std::vector<std::uint32_t>;

inline constexpr std::chrono::milliseconds kLong{2000};
// Longer than the reader's interval between two looks at the name.
inline constexpr std::chrono::milliseconds kLookInterval{30};

// The numbers of all packets that are ready, each checked for the bytes that PutPacket writes.
inline Numbers TakeAll(ShmRingReader& reader) {
  Numbers numbers;
  ReceivedPacket packet;
  while (reader.TryNext(packet)) {
    EXPECT_EQ(packet.length, 4);
    EXPECT_EQ(packet.bytes[0], packet.number & 0xFF);
    EXPECT_EQ(packet.bytes[3], packet.number & 0xFF);
    numbers.push_back(packet.number);
  }
  return numbers;
}

// A reader that has attached to the ring while it was empty.
inline ShmRingReader AttachedReader(const RingByHand& ring) {
  ShmRingReader reader(ring.Name());
  ReceivedPacket packet;
  EXPECT_FALSE(reader.TryNext(packet));
  EXPECT_TRUE(reader.IsAttached());
  return reader;
}

}  // namespace kerul::lidar
