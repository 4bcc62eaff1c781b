#include "kerul_lidar/shm_ring_reader.h"

#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <vector>

#include "client/ring_by_hand.h"
#include "client/ring_reading.h"

namespace kerul::lidar {
namespace {

using std::chrono::milliseconds;

TEST(ShmRingReaderAttach, WithoutAnObjectThereIsNothing) {
  const ShmTestName name;
  ShmRingReader reader(name.c_str());
  ReceivedPacket packet;
  EXPECT_FALSE(reader.TryNext(packet));
  EXPECT_FALSE(reader.IsAttached());
}

TEST(ShmRingReaderAttach, ARingThatAppearsLaterIsFound) {
  const ShmTestName name;
  ShmRingReader reader(name.c_str(), RingStart::kOldest);
  ReceivedPacket packet;
  EXPECT_FALSE(reader.Next(packet, milliseconds(5)));
  ShmUdpWriter writer(name.c_str(), 3036);
  ASSERT_TRUE(writer.Open());
  const std::uint8_t byte = 9;
  ASSERT_TRUE(writer.WriteOne(&byte, 1));
  ASSERT_TRUE(reader.Next(packet, kLong));
  EXPECT_EQ(packet.number, 1U);
  EXPECT_EQ(packet.length, 1);
  EXPECT_EQ(packet.bytes[0], 9);
}

TEST(ShmRingReaderAttach, AHeaderWithAnyWrongFieldIsLeftAlone) {
  int refused = 0;
  const auto refuses = [&](std::size_t offset, std::uint16_t value) {
    RingByHand ring(3);
    ring.PutU16(offset, value);
    ShmRingReader reader(ring.Name());
    ReceivedPacket packet;
    EXPECT_FALSE(reader.TryNext(packet));
    EXPECT_FALSE(reader.IsAttached()) << offset << " " << value;
    refused += !reader.IsAttached();
  };
  refuses(0, 0x4852);  // magic 0
  refuses(0, 0x4953);  // magic 1
  refuses(2, 2);       // version
  refuses(12, 0);      // slots
  refuses(12, 1);      //
  refuses(12, 4);      // more slots than fit
  refuses(16, 1507);   // stride
  refuses(16, 1512);   // does not fit
  refuses(18, 0);      // max_payload
  refuses(18, 1501);   //
  EXPECT_EQ(refused, 10);
}

TEST(ShmRingReaderAttach, AStrideThatIsNotWholeWordsIsLeftAlone) {
  RingByHand ring(3);
  ring.PutU32(12, 2);
  ring.PutU16(16, 1510);
  ShmRingReader reader(ring.Name());
  ReceivedPacket packet;
  EXPECT_FALSE(reader.TryNext(packet));
  EXPECT_FALSE(reader.IsAttached());
}

TEST(ShmRingReaderAttach, AHeadThatItsSlotContradictsIsLeftAlone) {
  RingByHand ring(4);
  ring.PutPackets(1, 3);
  ring.SetHead(0x70000001);
  ShmRingReader reader(ring.Name());
  ReceivedPacket packet;
  EXPECT_FALSE(reader.TryNext(packet));
  EXPECT_FALSE(reader.IsAttached());
  ring.SetHead(3);
  EXPECT_FALSE(reader.Next(packet, kLookInterval));
  EXPECT_TRUE(reader.IsAttached());
  ring.PutPackets(4, 4);
  EXPECT_EQ(TakeAll(reader), Numbers{4});
}

TEST(ShmRingReaderAttach, TheNewestStartTakesOnlyWhatComesLater) {
  RingByHand ring(4);
  ring.PutPackets(1, 3);
  ShmRingReader reader(ring.Name());
  EXPECT_EQ(TakeAll(reader), Numbers{});
  ring.PutPackets(4, 5);
  EXPECT_EQ(TakeAll(reader), (Numbers{4, 5}));
  EXPECT_EQ(reader.Statistics().lost, 0U);
}

TEST(ShmRingReaderAttach, TheOldestStartTakesWhatIsStillHeld) {
  RingByHand ring(4);
  ring.PutPackets(1, 3);
  ShmRingReader early(ring.Name(), RingStart::kOldest);
  EXPECT_EQ(TakeAll(early), (Numbers{1, 2, 3}));
  ring.PutPackets(4, 10);
  ShmRingReader late(ring.Name(), RingStart::kOldest);
  EXPECT_EQ(TakeAll(late), (Numbers{7, 8, 9, 10}));
  EXPECT_EQ(late.Statistics().lost, 0U);
}

TEST(ShmRingReaderFollow, PacketsComeInOrderAndOnce) {
  RingByHand ring(4);
  ShmRingReader reader = AttachedReader(ring);
  Numbers taken;
  for (std::uint32_t n = 1; n <= 20; ++n) {
    ring.PutPackets(n, n);
    if (n % 3 != 0) continue;
    for (const std::uint32_t number : TakeAll(reader)) taken.push_back(number);
  }
  ASSERT_EQ(taken.size(), 18U);
  for (std::uint32_t i = 0; i < 18; ++i) EXPECT_EQ(taken[i], i + 1);
  EXPECT_EQ(reader.Statistics().accepted, 18U);
  EXPECT_EQ(reader.Statistics().lost, 0U);
}

TEST(ShmRingReaderFollow, AFullRingIsReadToItsLastSlot) {
  RingByHand ring(4);
  ShmRingReader reader = AttachedReader(ring);
  ring.PutPackets(1, 4);
  EXPECT_EQ(TakeAll(reader), (Numbers{1, 2, 3, 4}));
}

TEST(ShmRingReaderFollow, OnePacketTooManyLosesTheOldest) {
  RingByHand ring(4);
  ShmRingReader reader = AttachedReader(ring);
  ring.PutPackets(1, 5);
  // Packet 1 is gone; the reader goes on one slot ahead of the oldest left, which 2 is.
  EXPECT_EQ(TakeAll(reader), (Numbers{3, 4, 5}));
  EXPECT_EQ(reader.Statistics().lost, 2U);
}

TEST(ShmRingReaderFollow, AnOvertakenReaderGoesOnAnEighthAheadOfTheOldest) {
  RingByHand ring(64);
  ShmRingReader reader = AttachedReader(ring);
  ring.PutPackets(1, 1000);
  const Numbers taken = TakeAll(reader);
  // Held: 937..1000. An eighth of 64 slots further on: 945.
  ASSERT_EQ(taken.size(), 56U);
  EXPECT_EQ(taken.front(), 945U);
  EXPECT_EQ(taken.back(), 1000U);
  EXPECT_EQ(reader.Statistics().lost, 944U);
  EXPECT_EQ(reader.NextNumber(), 1001U);
}

TEST(ShmRingReaderFollow, TheSmallestRingWorksToo) {
  RingByHand ring(2);
  ShmRingReader reader = AttachedReader(ring);
  ring.PutPackets(1, 7);
  EXPECT_EQ(TakeAll(reader), Numbers{7});
  EXPECT_EQ(reader.Statistics().lost, 6U);
}

TEST(ShmRingReaderFollow, ASlotBeingOverwrittenIsLostAndTheRestComes) {
  RingByHand ring(4);
  ShmRingReader reader = AttachedReader(ring);
  ring.PutPackets(1, 4);
  ring.PutU32(ring.SlotOf(5), 0);  // the writer has marked slot 0 for packet 5
  EXPECT_EQ(TakeAll(reader), (Numbers{2, 3, 4}));
  EXPECT_EQ(reader.Statistics().lost, 1U);
  ring.PutPackets(5, 5);
  EXPECT_EQ(TakeAll(reader), Numbers{5});
  EXPECT_EQ(reader.Statistics().lost, 1U);
}

TEST(ShmRingReaderFollow, ASlotWithoutHeadIsNotYetPublished) {
  RingByHand ring(4);
  ShmRingReader reader = AttachedReader(ring);
  ring.PutPacket(1);
  EXPECT_EQ(TakeAll(reader), Numbers{});
  ring.SetHead(1);
  EXPECT_EQ(TakeAll(reader), Numbers{1});
}

TEST(ShmRingReaderFollow, ALengthOutsideTheSlotIsMalformed) {
  RingByHand ring(4);
  ShmRingReader reader = AttachedReader(ring);
  ring.PutPackets(1, 4);
  ring.PutU16(ring.SlotOf(1) + 4, 0);
  ring.PutU16(ring.SlotOf(2) + 4, 1501);
  ring.PutU16(ring.SlotOf(3) + 4, 65535);
  EXPECT_EQ(TakeAll(reader), Numbers{4});
  EXPECT_EQ(reader.Statistics().malformed, 3U);
  EXPECT_EQ(reader.Statistics().lost, 3U);
}

TEST(ShmRingReaderFollow, TheLongestPacketComesWhole) {
  RingByHand ring(3);
  ShmRingReader reader = AttachedReader(ring);
  ring.PutPacket(1);
  ring.PutU16(ring.SlotOf(1) + 4, 1500);
  for (std::size_t i = 0; i < 1500; ++i) {
    ring.Data()[ring.SlotOf(1) + 8 + i] = static_cast<std::uint8_t>(i % 251);
  }
  ring.SetHead(1);
  ReceivedPacket packet;
  ASSERT_TRUE(reader.TryNext(packet));
  ASSERT_EQ(packet.length, 1500);
  for (std::size_t i = 0; i < 1500; ++i) ASSERT_EQ(packet.bytes[i], i % 251) << i;
}

TEST(ShmRingReaderFollow, NumbersWrapAndOnlyNumberZeroIsLost) {
  RingByHand ring(5);  // does not divide 2^32: the slot numbers jump at the wrap
  constexpr std::uint32_t kLast = std::numeric_limits<std::uint32_t>::max();
  ring.PutPackets(kLast - 3, kLast - 2);
  ShmRingReader reader(ring.Name());
  EXPECT_EQ(TakeAll(reader), Numbers{});
  ring.PutPackets(kLast - 1, kLast);
  EXPECT_EQ(TakeAll(reader), (Numbers{kLast - 1, kLast}));
  ring.PutPacket(0);
  ring.SetHead(0);
  EXPECT_EQ(TakeAll(reader), Numbers{});
  ring.PutPackets(1, 3);
  EXPECT_EQ(TakeAll(reader), (Numbers{1, 2, 3}));
  EXPECT_EQ(reader.Statistics().lost, 1U);
}

TEST(ShmRingReaderHeader, AHeadTooHighLosesNothing) {
  RingByHand ring(4);
  ShmRingReader reader = AttachedReader(ring);
  ring.PutPackets(1, 2);
  for (const std::uint32_t head : {9U, 3U, 1000000U, 0x7FFFFFFFU}) {
    ring.SetHead(head);
    TakeAll(reader);
  }
  EXPECT_EQ(reader.Statistics().accepted, 2U);
  EXPECT_EQ(reader.Statistics().lost, 0U);
  ring.PutPackets(3, 6);
  EXPECT_EQ(TakeAll(reader), (Numbers{3, 4, 5, 6}));
  EXPECT_EQ(reader.Statistics().lost, 0U);
}

TEST(ShmRingReaderHeader, AHeadTooLowRepeatsNothing) {
  RingByHand ring(4);
  ShmRingReader reader = AttachedReader(ring);
  ring.PutPackets(1, 4);
  EXPECT_EQ(TakeAll(reader), (Numbers{1, 2, 3, 4}));
  for (const std::uint32_t head : {0U, 1U, 3U, 0x90000000U}) {
    ring.SetHead(head);
    EXPECT_EQ(TakeAll(reader), Numbers{});
  }
  ring.PutPackets(5, 6);
  EXPECT_EQ(TakeAll(reader), (Numbers{5, 6}));
  EXPECT_EQ(reader.Statistics().lost, 0U);
}

TEST(ShmRingReaderHeader, ABrokenHeaderIsWaitedOutAndCountedOnce) {
  RingByHand ring(4);
  ShmRingReader reader = AttachedReader(ring);
  ring.PutPackets(1, 2);
  ring.Data()[2] = 77;
  EXPECT_EQ(TakeAll(reader), Numbers{});
  EXPECT_EQ(TakeAll(reader), Numbers{});
  EXPECT_EQ(reader.Statistics().header_faults, 1U);
  ring.Data()[2] = 3;
  EXPECT_EQ(TakeAll(reader), (Numbers{1, 2}));
  ring.PutU16(18, 0);
  EXPECT_EQ(TakeAll(reader), Numbers{});
  EXPECT_EQ(reader.Statistics().header_faults, 2U);
}

TEST(ShmRingReaderHeader, AnOverwrittenBootIdAloneCostsNothing) {
  RingByHand ring(4);
  ShmRingReader reader = AttachedReader(ring);
  ring.PutPackets(1, 2);
  EXPECT_EQ(TakeAll(reader), (Numbers{1, 2}));
  ring.SetBootId(0xDEADBEEF);
  ring.PutPackets(3, 5);
  EXPECT_EQ(TakeAll(reader), (Numbers{3, 4, 5}));
  EXPECT_EQ(reader.Statistics().rebuilt, 1U);
  EXPECT_EQ(reader.Statistics().lost, 0U);
}

TEST(ShmRingReaderHeader, ASmallerRingInTheHeaderIsFollowedLikeTheWriterDoes) {
  RingByHand ring(4);
  ShmRingReader reader = AttachedReader(ring);
  ring.PutPackets(1, 3);
  EXPECT_EQ(TakeAll(reader), (Numbers{1, 2, 3}));
  ring.PutU32(12, 2);
  ring.PutU32(20 + 1508, 4);  // packet 4 of two slots
  ring.PutU16(20 + 1508 + 4, 4);
  std::memset(ring.Data() + 20 + 1508 + 8, 4, 4);
  ring.SetHead(4);
  EXPECT_EQ(TakeAll(reader), Numbers{4});
  EXPECT_EQ(reader.Statistics().header_faults, 1U);
}

TEST(ShmRingReaderRebuild, TheWritersRepairLosesWhatWasNotReadAndGoesOn) {
  const ShmTestName name;
  ShmUdpWriter writer(name.c_str(), 20 + 8 * 1508);
  ASSERT_TRUE(writer.Open());
  ShmRingReader reader(name.c_str());
  const std::uint8_t bytes[4] = {5, 5, 5, 5};
  ReceivedPacket packet;
  EXPECT_FALSE(reader.TryNext(packet));
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(writer.WriteOne(bytes, 4));
  ASSERT_TRUE(reader.TryNext(packet));
  ASSERT_TRUE(reader.TryNext(packet));
  writer.Data()[1] = 0;
  ASSERT_TRUE(writer.WriteOne(bytes, 4));  // number 6, in an empty ring
  ASSERT_TRUE(reader.TryNext(packet));
  EXPECT_EQ(packet.number, 6U);
  EXPECT_EQ(reader.Statistics().rebuilt, 1U);
  EXPECT_EQ(reader.Statistics().lost, 3U);
  EXPECT_EQ(reader.Statistics().accepted, 3U);
}

TEST(ShmRingReaderRebuild, TheRepairWithoutAPacketYetIsWaitedOut) {
  RingByHand ring(4);
  ShmRingReader reader = AttachedReader(ring);
  ring.PutPackets(1, 3);
  EXPECT_EQ(TakeAll(reader), (Numbers{1, 2, 3}));
  ShmUdpInitRing(ring.Data(), 20 + 4 * 1508);  // head 0, new boot id
  EXPECT_EQ(TakeAll(reader), Numbers{});
  ring.PutPackets(4, 4);
  EXPECT_EQ(TakeAll(reader), Numbers{4});
  EXPECT_EQ(reader.Statistics().lost, 0U);
}

TEST(ShmRingReaderRebuild, NumbersThatBeginAgainInPlaceAreFollowedFromOne) {
  RingByHand ring(4);
  ShmRingReader reader = AttachedReader(ring);
  ring.PutPackets(1, 10);
  TakeAll(reader);
  const std::uint64_t lost = reader.Statistics().lost;
  ShmUdpInitRing(ring.Data(), 20 + 4 * 1508);
  EXPECT_EQ(TakeAll(reader), Numbers{});
  ring.PutPackets(1, 3);
  EXPECT_EQ(TakeAll(reader), (Numbers{1, 2, 3}));
  EXPECT_EQ(reader.Statistics().lost, lost);
  EXPECT_EQ(reader.Statistics().rebuilt, 1U);
}

}  // namespace
}  // namespace kerul::lidar
