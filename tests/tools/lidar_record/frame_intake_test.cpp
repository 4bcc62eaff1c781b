#include "lidar_record/frame_intake.h"

#include <gtest/gtest.h>

#include "lidar_record/channels.h"
#include "ros_messages/cloud_reader.h"
#include "tools/lidar_record/frame_ring.h"

namespace kerul::lidar::record {
namespace {

constexpr std::size_t kPlenty = std::size_t{1} << 30;

FrameStream HeldFrames(const FrameRing& ring) {
  return FrameStream(ring.Name(), RingStart::kOldest);
}

TEST(FrameIntake, MessagesCarryTheTimesOfTheirPackets) {
  FrameRing ring;
  ASSERT_TRUE(ring.IsOpen());
  for (int i = 0; i < 2; ++i) ring.WriteFrame();
  FrameStream stream = HeldFrames(ring);
  MessageQueue queue(kPlenty);
  FrameIntake intake({}, stream, queue);
  while (intake.TakeHeld()) {
  }
  EXPECT_EQ(intake.Counts().frames, 2U);
  for (std::uint32_t i = 0; i < 2; ++i) {
    QueuedMessage message;
    ASSERT_TRUE(queue.Take(message));
    EXPECT_EQ(message.header.channel_id, kCloudChannel);
    EXPECT_EQ(message.header.sequence, i);
    const std::uint64_t start = 1'700'000'000'000'000'000 + i * 100'000'000U;
    EXPECT_EQ(message.header.publish_time_ns, start);
    EXPECT_EQ(message.header.log_time_ns, start + 50'000'000);
    ros::CloudView cloud;
    std::string error;
    ASSERT_TRUE(ros::ParseCloud(message.data, cloud, error)) << error;
    EXPECT_EQ(cloud.stamp_nanosec, i * 100'000'000U);
    EXPECT_EQ(cloud.PointCount(), 62208U);
  }
}

// Nobody takes anything, as when the disk stands still: the first frame waits, and the stream is
// read to its end without a packet lost.
TEST(FrameIntake, AFullQueueLeavesFramesOutAndNeverHoldsUpTheReader) {
  FrameRing ring;
  for (int i = 0; i < 5; ++i) ring.WriteFrame();
  FrameStream stream = HeldFrames(ring);
  MessageQueue queue(1);
  FrameIntake intake({}, stream, queue);
  while (intake.Counts().frames < 5) intake.TakeNext(std::chrono::milliseconds(50));
  EXPECT_EQ(intake.Counts().left_out, 4U);
  EXPECT_EQ(stream.Counts().complete, 5U);
  EXPECT_EQ(stream.Counts().lost_packets, 0U);

  // The next one that has room tells by its number that four are missing.
  QueuedMessage message;
  ASSERT_TRUE(queue.Take(message));
  EXPECT_EQ(message.header.sequence, 0U);
  ring.WriteFrame();
  while (intake.Counts().frames < 6) intake.TakeNext(std::chrono::milliseconds(50));
  ASSERT_TRUE(queue.Take(message));
  EXPECT_EQ(message.header.sequence, 5U);
}

TEST(FrameIntake, WhatTheRingHoldsEndsWithIt) {
  const FrameRing ring;
  FrameStream stream = HeldFrames(ring);
  MessageQueue queue(kPlenty);
  FrameIntake intake({}, stream, queue);
  EXPECT_FALSE(intake.TakeHeld());
  EXPECT_EQ(intake.Counts().frames, 0U);
}

TEST(FrameIntake, AQueueThatNobodyEmptiesAnyMoreEndsTheTaking) {
  FrameRing ring;
  for (int i = 0; i < 3; ++i) ring.WriteFrame();
  FrameStream stream = HeldFrames(ring);
  MessageQueue queue(1);
  queue.CloseOutput();
  FrameIntake intake({}, stream, queue);
  EXPECT_FALSE(intake.TakeHeld());
}

}  // namespace
}  // namespace kerul::lidar::record
