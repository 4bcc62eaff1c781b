#include "lidar_dds/bridge.h"

#include <gtest/gtest.h>

#include <atomic>
#include <sstream>
#include <string>
#include <vector>

#include "client/point_packet_by_hand.h"
#include "output/shm_test_name.h"
#include "output/shm_udp_writer.h"
#include "tools/lidar_dds/recording_sink.h"

namespace kerul::lidar::dds {
namespace {

// A node's ring, and the stream that reads it from its first packet on.
class Ring {
 public:
  Ring() : writer_(name_.c_str(), 20 + 8192 * 1508), stream(name_.str(), RingStart::kOldest) {
    EXPECT_TRUE(writer_.Open());
  }
  void WriteFrame(int id) {
    PacketFields fields;
    fields.frame_id = id;
    fields.sequence_base = static_cast<std::uint32_t>(1728 * id);
    for (fields.block = 0; fields.block < 1728; ++fields.block) {
      ASSERT_TRUE(writer_.WriteOne(MakePacket(fields).data(), 249));
    }
  }

 private:
  ShmTestName name_;
  ShmUdpWriter writer_;

 public:
  FrameStream stream;
};

// As small as a message gets: one pixel.
BridgeOptions OfFrames(std::uint64_t frames) {
  BridgeOptions options;
  options.messages.every_row = 216;
  options.messages.every_col = 288;
  options.frames = frames;
  return options;
}

const std::atomic<bool> kGoOn{false};

TEST(Bridge, EveryFrameIsWrittenOnce) {
  Ring ring;
  RecordingSink sink;
  std::ostringstream out;
  // Two, for which there is room however slowly they are written.
  ring.WriteFrame(0);
  ring.WriteFrame(1);
  const BridgeResult result = RunBridge(OfFrames(2), ring.stream, sink, kGoOn, false, out);
  EXPECT_EQ(result.stream.complete, 2U);
  EXPECT_EQ(result.published, 2U);
  EXPECT_EQ(result.left_out, 0U);
  EXPECT_TRUE(sink.written[kRangeImage].empty()) << "not asked for";
  ASSERT_EQ(sink.written[kCloud].size(), 2U);
  EXPECT_EQ(sink.written[kCloud][0].size(), 309U) << "a cloud of one point, frame id lidar";
}

TEST(Bridge, ARefusedMessageIsAFrameLeftOut) {
  Ring ring;
  RecordingSink sink;
  sink.refuses = true;
  std::ostringstream out;
  ring.WriteFrame(0);
  const BridgeResult result = RunBridge(OfFrames(1), ring.stream, sink, kGoOn, false, out);
  EXPECT_EQ(result.published, 0U);
  EXPECT_EQ(result.left_out, 1U);
}

TEST(Bridge, WhatNobodySubscribesToIsNotWritten) {
  Ring ring;
  RecordingSink sink;
  sink.subscribers = {0, 2, 0};
  std::ostringstream out;
  ring.WriteFrame(0);
  BridgeOptions options = OfFrames(1);
  options.images = true;
  const BridgeResult result = RunBridge(options, ring.stream, sink, kGoOn, false, out);
  EXPECT_TRUE(sink.written[kCloud].empty());
  EXPECT_EQ(sink.written[kRangeImage].size(), 1U);
  EXPECT_TRUE(sink.written[kReflectivityImage].empty());
  EXPECT_EQ(result.published, 1U);

  sink.subscribers = {0, 0, 0};
  ring.WriteFrame(1);
  const BridgeResult nobody = RunBridge(OfFrames(2), ring.stream, sink, kGoOn, false, out);
  EXPECT_EQ(nobody.stream.complete, 2U);
  EXPECT_EQ(nobody.published + nobody.left_out, 0U);
}

TEST(Bridge, ItStopsInTimeWithoutAnyFrameAndTellsHowItGoes) {
  Ring ring;
  RecordingSink sink;
  std::ostringstream out;
  BridgeOptions options;
  options.seconds = 1.2;
  const BridgeResult result = RunBridge(options, ring.stream, sink, kGoOn, false, out);
  EXPECT_EQ(result.stream.complete, 0U);
  EXPECT_EQ(out.str(),
            "frames/s 0.0  published 0  left out 0  subscribers 1  lost 0  incomplete 0  "
            "missing 0\n");
}

}  // namespace
}  // namespace kerul::lidar::dds
