#include "soak_watch/stream_order.h"

#include <gtest/gtest.h>

#include "client/point_packet_by_hand.h"

namespace kerul::lidar {
namespace {

void Take(StreamOrder& order, const PacketFields& fields) {
  const PacketBytes bytes = MakePacket(fields);
  PointPacketView view;
  ASSERT_EQ(view.Parse(bytes.data(), bytes.size()), PointPacketError::kNone);
  order.Take(view);
}

TEST(StreamOrder, FramesInOrderWithBlocksInOrderCountNothingBackwards) {
  StreamOrder order;
  for (const int frame_id : {254, 255, 0, 3}) {
    for (const int block : {0, 1, 48, 1727}) {
      Take(order, {.block = block, .frame_id = frame_id});
    }
  }
  EXPECT_EQ(order.Counts().packets, 16U);
  EXPECT_EQ(order.Counts().frames, 4U);
  EXPECT_EQ(order.Counts().frames_missing, 2U);
  EXPECT_EQ(order.Counts().frames_backwards, 0U);
  EXPECT_EQ(order.Counts().packets_backwards, 0U);
}

TEST(StreamOrder, TheSecondEchoComesBehindTheFirstOfItsBlock) {
  StreamOrder order;
  for (const int block : {0, 1}) {
    for (const int marker : {1, 2}) Take(order, {.block = block, .marker = marker});
  }
  EXPECT_EQ(order.Counts().packets_backwards, 0U);
  Take(order, {.block = 1, .marker = 1});
  EXPECT_EQ(order.Counts().packets_backwards, 1U);
}

TEST(StreamOrder, ARepeatedBlockAndAnEarlierOneAreBackwards) {
  StreamOrder order;
  for (const int block : {5, 5, 6, 4}) Take(order, {.block = block});
  EXPECT_EQ(order.Counts().packets_backwards, 2U);
  EXPECT_EQ(order.Counts().frames, 1U);
}

TEST(StreamOrder, AFrameIdThatFallsIsBackwardsAndOneThatWrapsIsNot) {
  StreamOrder order;
  for (const int frame_id : {10, 9, 250, 4, 132, 5}) Take(order, {.frame_id = frame_id});
  EXPECT_EQ(order.Counts().frames, 6U);
  // 10 to 9 (255 on), 9 to 250 (241 on), 132 to 5 (129 on); 4 to 132 is 128 on.
  EXPECT_EQ(order.Counts().frames_backwards, 3U);
  // 250 to 4 (10 on) and 4 to 132 (128 on).
  EXPECT_EQ(order.Counts().frames_missing, 9U + 127U);
}

TEST(StreamOrder, NoFrameIsMissingBetweenTwoNodes) {
  StreamOrder order;
  for (const int frame_id : {7, 8}) Take(order, {.frame_id = frame_id});
  order.Restart();
  for (const int frame_id : {20, 22}) Take(order, {.frame_id = frame_id});
  EXPECT_EQ(order.Counts().frames_missing, 1U);
}

TEST(StreamOrder, TheSameFrameIdWithAnotherSequenceBaseIsAnotherFrame) {
  StreamOrder order;
  Take(order, {.block = 7, .sequence_base = 0});
  Take(order, {.block = 3, .sequence_base = 1728});
  EXPECT_EQ(order.Counts().frames, 2U);
  EXPECT_EQ(order.Counts().frames_backwards, 0U);
  EXPECT_EQ(order.Counts().packets_backwards, 0U);
}

}  // namespace
}  // namespace kerul::lidar
