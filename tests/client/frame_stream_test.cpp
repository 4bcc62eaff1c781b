#include "kerul_lidar/frame_stream.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "client/loopback_sender.h"
#include "client/plain_angle_record.h"
#include "client/point_packet_by_hand.h"
#include "kerul_lidar/udp_point_receiver.h"
#include "output/shm_test_name.h"
#include "output/shm_udp_writer.h"

namespace kerul::lidar {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kNow{0};
constexpr milliseconds kLong{5000};
// Longer than a reader's interval between two looks for a ring.
constexpr milliseconds kLook{30};

// Packets of whole frames, except for the blocks of [skip_from, skip_to).
struct FrameOf {
  int id = 0;
  std::uint32_t sequence_base = 0;
  int skip_from = 0;
  int skip_to = 0;
};

void Publish(const FrameOf& frame, const std::function<void(const PacketBytes&)>& send) {
  PacketFields fields;
  fields.frame_id = frame.id;
  fields.sequence_base = frame.sequence_base;
  for (fields.block = 0; fields.block < 1728; ++fields.block) {
    if (fields.block < frame.skip_from || fields.block >= frame.skip_to) send(MakePacket(fields));
  }
}

// A node's ring that a test writes.
class Ring {
 public:
  explicit Ring(std::uint32_t slots = 8192) : slots_(slots) { Restart(); }
  void Restart() {
    writer_.reset();
    writer_ = std::make_unique<ShmUdpWriter>(name_.c_str(), 20 + slots_ * 1508);
    ASSERT_TRUE(writer_->Open());
  }
  void Write(const FrameOf& frame) {
    Publish(frame, [this](const PacketBytes& bytes) {
      ASSERT_TRUE(writer_->WriteOne(bytes.data(), static_cast<std::uint16_t>(bytes.size())));
    });
  }
  void WriteJunk() {
    const std::uint8_t junk[3] = {1, 2, 3};
    ASSERT_TRUE(writer_->WriteOne(junk, 3));
  }
  const std::string& Name() const { return name_.str(); }

 private:
  ShmTestName name_;
  std::uint32_t slots_;
  std::unique_ptr<ShmUdpWriter> writer_;
};

TEST(FrameStream, FramesOfTheRingComeOutOneByOne) {
  Ring ring;
  FrameStream stream(ring.Name(), RingStart::kOldest);
  ring.Write({.id = 7, .sequence_base = 0});
  ring.Write({.id = 8, .sequence_base = 1728});
  const Frame* frame = stream.Next(kNow);
  ASSERT_NE(frame, nullptr) << "what stands ready needs no waiting";
  EXPECT_EQ(frame->id, 7);
  EXPECT_TRUE(frame->IsComplete());
  EXPECT_EQ(frame->range_m[0], 1.0F);
  EXPECT_EQ(frame->reflectivity[0], 10);
  EXPECT_FALSE(frame->HasPoints());
  frame = stream.Next(kNow);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->id, 8);
  EXPECT_EQ(stream.Next(kNow), nullptr);
  EXPECT_EQ(stream.Counts().complete, 2U);
  EXPECT_EQ(stream.Counts().packets, 3456U);
  EXPECT_EQ(stream.Counts().missing_frames + stream.Counts().lost_packets, 0U);
  EXPECT_EQ(stream.Counts().restarts, 0U);
}

TEST(FrameStream, ASilentStreamGivesNullInTimeAndGoesOnAfterwards) {
  Ring ring;
  FrameStream stream(ring.Name(), RingStart::kOldest);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(stream.Next(milliseconds(60)), nullptr);
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(60));
  ring.Write({.id = 7});
  EXPECT_NE(stream.Next(kLong), nullptr);
  EXPECT_EQ(stream.Next(milliseconds(20)), nullptr);
  ring.Write({.id = 8, .sequence_base = 1728});
  const Frame* frame = stream.Next(kLong);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->missing_frames, 0);
}

TEST(FrameStream, ARingThatComesLaterIsFound) {
  ShmTestName name;
  FrameStream stream(name.str(), RingStart::kOldest);
  EXPECT_EQ(stream.Next(kNow), nullptr);
  EXPECT_EQ(stream.Describe(), "ring " + name.str() + " (not there)");
  ShmUdpWriter writer(name.c_str(), 20 + 8192 * 1508);
  ASSERT_TRUE(writer.Open());
  Publish({.id = 3}, [&](const PacketBytes& bytes) { writer.WriteOne(bytes.data(), 249); });
  EXPECT_NE(stream.Next(kLong), nullptr);
  EXPECT_EQ(stream.Describe(), "ring " + name.str());
}

TEST(FrameStream, AFrameWithBlocksMissingComesWhenTheNextBegins) {
  Ring ring;
  FrameStream stream(ring.Name(), RingStart::kOldest);
  ring.Write({.id = 7, .sequence_base = 0, .skip_from = 100, .skip_to = 105});
  EXPECT_EQ(stream.Next(kNow), nullptr);
  ring.Write({.id = 8, .sequence_base = 1728});
  const Frame* frame = stream.Next(kNow);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->id, 7);
  EXPECT_EQ(frame->missing_blocks, 5);
  EXPECT_FALSE(frame->IsComplete());
  EXPECT_EQ(stream.Counts().incomplete, 1U);
  frame = stream.Next(kNow);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->missing_blocks, 0);
}

TEST(FrameStream, AFrameThatHadBegunBeforeIsPassedOver) {
  Ring ring;
  FrameStream stream(ring.Name(), RingStart::kOldest);
  ring.Write({.id = 7, .sequence_base = 0, .skip_from = 0, .skip_to = 900});
  ring.Write({.id = 8, .sequence_base = 1728});
  const Frame* frame = stream.Next(kNow);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->id, 8);
  EXPECT_EQ(stream.Counts().incomplete, 0U);
}

TEST(FrameStream, FrameIdsThatNobodyPublishedAreTold) {
  Ring ring;
  FrameStream stream(ring.Name(), RingStart::kOldest);
  ring.Write({.id = 7, .sequence_base = 0});
  ring.Write({.id = 11, .sequence_base = 1728});
  ASSERT_NE(stream.Next(kNow), nullptr);
  const Frame* frame = stream.Next(kNow);
  ASSERT_NE(frame, nullptr);
  EXPECT_TRUE(frame->IsComplete());
  EXPECT_EQ(frame->missing_frames, 3);
  EXPECT_EQ(frame->lost_packets, 0U);
  EXPECT_EQ(stream.Counts().missing_frames, 3U);
}

TEST(FrameStream, PacketsThatTheRingHasOverwrittenAreTold) {
  Ring ring(2000);
  FrameStream stream(ring.Name(), RingStart::kOldest);
  ring.Write({.id = 7, .sequence_base = 0});
  ASSERT_NE(stream.Next(kNow), nullptr);
  for (int i = 1; i <= 3; ++i) {
    ring.Write({.id = 7 + i, .sequence_base = static_cast<std::uint32_t>(1728 * i)});
  }
  std::uint64_t lost = 0;
  int missing_blocks = 0;
  int frames = 0;
  while (const Frame* frame = stream.Next(kNow)) {
    lost += frame->lost_packets;
    missing_blocks += frame->missing_blocks;
    ++frames;
  }
  EXPECT_GT(frames, 0);
  // The ring holds the last 2000 of 5184 packets, and the reader skips an eighth of it.
  EXPECT_EQ(stream.Counts().lost_packets, 5184U - 2000U + 250U);
  EXPECT_EQ(lost, stream.Counts().lost_packets);
  EXPECT_EQ(stream.Counts().packets + stream.Counts().lost_packets, 4U * 1728U);
  // Frames 8 and 9 were hardly met, and 10 whole.
  EXPECT_EQ(static_cast<std::uint64_t>(missing_blocks) + 1728U * stream.Counts().missing_frames,
            stream.Counts().lost_packets);
}

TEST(FrameStream, ARestartedNodeIsFollowedAndItsIdsAreNoGap) {
  Ring ring;
  FrameStream stream(ring.Name(), RingStart::kOldest);
  ring.Write({.id = 20, .sequence_base = 0});
  // In hand when the node goes.
  ring.Write({.id = 21, .sequence_base = 1728, .skip_from = 1000, .skip_to = 1728});
  const Frame* frame = stream.Next(kNow);
  ASSERT_NE(frame, nullptr);
  EXPECT_FALSE(frame->after_restart);
  EXPECT_EQ(stream.Next(kNow), nullptr);
  std::this_thread::sleep_for(kLook);
  ring.Restart();
  ring.Write({.id = 0, .sequence_base = 0});
  ring.Write({.id = 60, .sequence_base = 1728});
  frame = stream.Next(kLong);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->id, 0);
  EXPECT_TRUE(frame->IsComplete());
  EXPECT_TRUE(frame->after_restart);
  EXPECT_EQ(frame->missing_frames, 0);
  frame = stream.Next(kLong);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->id, 60);
  EXPECT_FALSE(frame->after_restart);
  EXPECT_EQ(frame->missing_frames, 0) << "a node's first frame is 0 whatever its id";
  EXPECT_EQ(stream.Counts().restarts, 1U);
  EXPECT_EQ(stream.Counts().complete, 3U);
}

TEST(FrameStream, WhatIsNoPointPacketIsCountedAndPassedOver) {
  Ring ring;
  FrameStream stream(ring.Name(), RingStart::kOldest);
  ring.WriteJunk();
  ring.Write({.id = 7});
  EXPECT_NE(stream.Next(kNow), nullptr);
  EXPECT_EQ(stream.Counts().invalid, 1U);
}

TEST(FrameStream, StrangersWhoNeverStopDoNotHoldACallerWhoDoesNotWait) {
  Ring ring;
  FrameStream stream(ring.Name(), RingStart::kOldest);
  for (int i = 0; i < 8000; ++i) ring.WriteJunk();
  EXPECT_EQ(stream.Next(kNow), nullptr);
  EXPECT_LT(stream.Counts().invalid, 8000U);
  EXPECT_GT(stream.Counts().invalid, 3456U) << "a frame that stands ready is not cut in two";
}

TEST(FrameStream, ARingThatIsMadeShorterIsOutlivedWhereAskedFor) {
  Ring ring;
  FrameStream stream(ring.Name(), RingStart::kOldest);
  stream.SurviveShortening();
  ring.Write({.id = 7});
  ASSERT_NE(stream.Next(kNow), nullptr);
  ASSERT_EQ(truncate(("/dev/shm" + ring.Name()).c_str(), 0), 0);
  EXPECT_EQ(stream.Next(milliseconds(50)), nullptr);
  ring.Restart();
  ring.Write({.id = 0});
  EXPECT_NE(stream.Next(kLong), nullptr);
}

// --- UDP ---

// One block of a frame each, so that any socket buffer holds them.
void SendBlock(const LoopbackSender& sender, int id, std::uint32_t sequence_base, int block) {
  PacketFields fields;
  fields.frame_id = id;
  fields.sequence_base = sequence_base;
  fields.block = block;
  sender.Send(MakePacket(fields));
}

TEST(FrameStream, DatagramsAreTakenAndTheirLossIsToldByTheSequence) {
  const std::uint16_t port = FreePort();
  FrameStream stream;
  ASSERT_TRUE(stream.OpenUdp(port)) << stream.Error();
  EXPECT_EQ(stream.Describe(), "UDP port " + std::to_string(port));
  const LoopbackSender sender(port);
  SendBlock(sender, 7, 0, 0);
  SendBlock(sender, 7, 0, 4);
  SendBlock(sender, 8, 1728, 0);
  const Frame* frame = stream.Next(kLong);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->id, 7);
  EXPECT_EQ(frame->missing_blocks, 1726);
  // 1, 2, 3 and 5 to 1727.
  EXPECT_EQ(frame->lost_packets, 3U + 1723U);
}

TEST(FrameStream, ASenderThatCountsElsewhereIsARestart) {
  const std::uint16_t port = FreePort();
  FrameStream stream;
  ASSERT_TRUE(stream.OpenUdp(port)) << stream.Error();
  const LoopbackSender sender(port);
  SendBlock(sender, 7, 5000000, 0);
  SendBlock(sender, 40, 1000, 0);
  SendBlock(sender, 41, 2728, 0);
  const Frame* frame = stream.Next(kLong);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->id, 40) << "the old sender's frame is never finished";
  EXPECT_TRUE(frame->after_restart);
  EXPECT_EQ(stream.Counts().restarts, 1U);
  EXPECT_EQ(stream.Counts().missing_frames, 0U);
}

TEST(FrameStream, APortThatCannotBeOpenedLeavesTheStreamAsItWas) {
  UdpPointReceiver taken;
  ASSERT_TRUE(taken.Open(0));
  Ring ring;
  FrameStream stream(ring.Name(), RingStart::kOldest);
  EXPECT_FALSE(stream.OpenUdp(taken.Port()));
  EXPECT_EQ(stream.Error(), "bind: Address already in use");
  ring.Write({.id = 7});
  EXPECT_NE(stream.Next(kNow), nullptr);
}

// --- Points ---

TEST(FrameStream, AnAngleRecordGivesPointsAndTheMountingMovesThem) {
  Ring ring;
  FrameStream stream(ring.Name(), RingStart::kOldest);
  ASSERT_TRUE(stream.SetAngleRecord(BytesOf(PlainRecord()).data(), 78));
  ring.Write({.id = 7, .sequence_base = 0});
  const Frame* frame = stream.Next(kNow);
  ASSERT_NE(frame, nullptr);
  ASSERT_TRUE(frame->HasPoints());
  // Row 108 and column 144 begin a block: its point 0, 250 units away.
  const std::size_t ahead = 108 * 288 + 144;
  EXPECT_EQ(frame->x_m[ahead], 1.0F);
  EXPECT_EQ(frame->y_m[ahead], 0.0F);
  // 100 columns further, point 24 of its block: 274 units at 200 / 340 to the right.
  EXPECT_NEAR(frame->y_m[ahead + 100], -1.096 * std::sin(200.0 / 340.0), 1e-3);

  TransformParam mount;
  mount.z = 2.0;
  mount.yaw = std::acos(0.0);  // a quarter turn to the left
  stream.SetMount(mount);
  ring.Write({.id = 8, .sequence_base = 1728});
  frame = stream.Next(kNow);
  ASSERT_NE(frame, nullptr);
  EXPECT_NEAR(frame->x_m[ahead], 0.0F, 1e-6);
  EXPECT_NEAR(frame->y_m[ahead], 1.0F, 1e-6);
  EXPECT_NEAR(frame->z_m[ahead], 2.0F, 1e-6);
}

TEST(FrameStream, ACalibrationThatIsNoneLeavesTheDirectionsAsTheyWere) {
  Ring ring;
  FrameStream stream(ring.Name(), RingStart::kOldest);
  const std::vector<std::uint8_t> record = BytesOf(PlainRecord());
  ASSERT_TRUE(stream.SetAngleRecord(record.data(), 78));
  EXPECT_FALSE(stream.SetAngleRecord(record.data(), 77));
  EXPECT_EQ(stream.Error().find("angle record: "), 0U) << stream.Error();
  EXPECT_FALSE(stream.LoadDirections("/nowhere"));
  EXPECT_EQ(stream.Error(), "no Lidar-*_angle_calib.dat and no *_head.bin in /nowhere");
  ring.Write({.id = 7, .sequence_base = 0});
  const Frame* frame = stream.Next(kNow);
  ASSERT_NE(frame, nullptr);
  EXPECT_TRUE(frame->HasPoints());
}

}  // namespace
}  // namespace kerul::lidar
