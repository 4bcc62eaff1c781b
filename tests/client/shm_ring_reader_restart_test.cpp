// The ring reader when the ring is replaced, and while nothing comes.

#include <gtest/gtest.h>
#include <time.h>

#include <chrono>
#include <thread>

#include "client/ring_by_hand.h"
#include "client/ring_reading.h"
#include "kerul_lidar/shm_ring_reader.h"

namespace kerul::lidar {
namespace {

using std::chrono::milliseconds;

TEST(ShmRingReaderReplacement, TheOldRingIsReadToItsEndThenTheNewFromOne) {
  RingByHand ring(8);
  ShmRingReader reader = AttachedReader(ring);
  ring.PutPackets(1, 5);
  ReceivedPacket packet;
  ASSERT_TRUE(reader.TryNext(packet));
  ring.Recreate();
  ring.PutPackets(1, 3);
  std::this_thread::sleep_for(kLookInterval);
  Numbers taken;
  while (reader.Next(packet, kLookInterval)) taken.push_back(packet.number);
  EXPECT_EQ(taken, (Numbers{2, 3, 4, 5, 1, 2, 3}));
  EXPECT_EQ(reader.Statistics().replaced, 1U);
  EXPECT_EQ(reader.Statistics().attached, 2U);
  EXPECT_EQ(reader.Statistics().lost, 0U);
}

TEST(ShmRingReaderReplacement, WhatTheNewRingLostBeforeItWasSeenIsCounted) {
  RingByHand ring(4);
  ShmRingReader reader = AttachedReader(ring);
  ring.Recreate();
  ring.PutPackets(1, 9);
  std::this_thread::sleep_for(kLookInterval);
  ReceivedPacket packet;
  Numbers taken;
  while (reader.Next(packet, kLookInterval)) taken.push_back(packet.number);
  EXPECT_EQ(taken, (Numbers{7, 8, 9}));
  EXPECT_EQ(reader.Statistics().lost, 6U);
}

TEST(ShmRingReaderReplacement, AWriterStillAliveOnTheOldObjectDoesNotHoldTheReader) {
  const ShmTestName name;
  ShmUdpWriter old_writer(name.c_str(), 20 + 64 * 1508);
  ASSERT_TRUE(old_writer.Open());
  ShmRingReader reader(name.c_str());
  ReceivedPacket packet;
  EXPECT_FALSE(reader.TryNext(packet));
  ShmUdpWriter new_writer(name.c_str(), 20 + 64 * 1508);
  ASSERT_TRUE(new_writer.Open());
  const std::uint8_t old_byte = 1;
  const std::uint8_t new_byte = 2;
  ASSERT_TRUE(new_writer.WriteOne(&new_byte, 1));
  bool came_over = false;
  const auto deadline = std::chrono::steady_clock::now() + kLong;
  while (!came_over && std::chrono::steady_clock::now() < deadline) {
    ASSERT_TRUE(old_writer.WriteOne(&old_byte, 1));
    came_over = reader.Next(packet, milliseconds(1)) && packet.bytes[0] == new_byte;
  }
  EXPECT_TRUE(came_over);
  EXPECT_EQ(packet.number, 1U);
}

TEST(ShmRingReaderReplacement, AnUnlinkedObjectWithoutSuccessorIsStillRead) {
  RingByHand ring(4);
  ShmRingReader reader = AttachedReader(ring);
  shm_unlink(ring.Name());
  std::this_thread::sleep_for(kLookInterval);
  EXPECT_EQ(TakeAll(reader), Numbers{});
  ring.PutPackets(1, 2);
  EXPECT_EQ(TakeAll(reader), (Numbers{1, 2}));
}

TEST(ShmRingReaderReplacement, ALargerSuccessorIsMappedWhole) {
  const ShmTestName name;
  ShmUdpWriter small(name.c_str(), 3036);
  ASSERT_TRUE(small.Open());
  ShmRingReader reader(name.c_str());
  ReceivedPacket packet;
  EXPECT_FALSE(reader.TryNext(packet));
  ShmUdpWriter large(name.c_str(), 20 + 100 * 1508);
  ASSERT_TRUE(large.Open());
  const std::uint8_t byte = 3;
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(large.WriteOne(&byte, 1));
  for (std::uint32_t n = 1; n <= 100; ++n) {
    ASSERT_TRUE(reader.Next(packet, kLong));
    ASSERT_EQ(packet.number, n);
  }
}

TEST(ShmRingReaderReplacement, ASuccessorThatIsNotReadyIsTriedAgain) {
  RingByHand ring(4);
  ShmRingReader reader = AttachedReader(ring);
  ring.Recreate();
  ring.Data()[0] = 0;  // the writer has not come to its header yet
  ReceivedPacket packet;
  EXPECT_FALSE(reader.Next(packet, 2 * kLookInterval));
  EXPECT_FALSE(reader.IsAttached());
  ring.Data()[0] = 0x53;
  ring.PutPackets(1, 2);
  ASSERT_TRUE(reader.Next(packet, kLong));
  EXPECT_EQ(packet.number, 1U);
}

TEST(ShmRingReaderWait, WaitingEndsAtTheTimeout) {
  RingByHand ring(4);
  ShmRingReader reader = AttachedReader(ring);
  ReceivedPacket packet;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(reader.Next(packet, milliseconds(50)));
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(50));
  EXPECT_FALSE(reader.Next(packet, milliseconds(0)));
}

TEST(ShmRingReaderWait, WaitingLeavesTheProcessorAlone) {
  RingByHand ring(4);
  ShmRingReader reader = AttachedReader(ring);
  const auto cpu_ms = [] {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
  };
  ReceivedPacket packet;
  const double before = cpu_ms();
  EXPECT_FALSE(reader.Next(packet, milliseconds(500)));
  // A spinning wait would take all 500 ms; a fifth leaves room for a sanitizer's slowness.
  EXPECT_LT(cpu_ms() - before, 100.0);
}

TEST(ShmRingReaderWait, APacketEndsTheWait) {
  RingByHand ring(4);
  ShmRingReader reader = AttachedReader(ring);
  std::thread later([&] {
    std::this_thread::sleep_for(milliseconds(20));
    ring.PutPackets(1, 1);
  });
  ReceivedPacket packet;
  EXPECT_TRUE(reader.Next(packet, kLong));
  later.join();
  EXPECT_EQ(packet.number, 1U);
}

}  // namespace
}  // namespace kerul::lidar
