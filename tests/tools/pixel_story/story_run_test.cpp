#include "pixel_story/story_run.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "lidar_replay/replay.h"
#include "pixel_story/frame_states.h"
#include "sensor_simulator/capture_file.h"
#include "story_fixture.h"

namespace kerul::lidar::story {
namespace {

using PointBytes = std::array<std::uint8_t, 5>;

PointBytes BytesOf(const PublishedPoint& point) {
  return {static_cast<std::uint8_t>(point.distance & 0xFF),
          static_cast<std::uint8_t>(point.distance >> 8), point.payload[0], point.payload[1],
          point.payload[2]};
}

std::string WriteCapture(const testing::TempDir& directory, const Stream& stream) {
  simulator::CaptureWriter writer(directory.File("run.pcap"), {});
  for (const UdpPacket& packet : stream) writer.Write(1, {packet.buffer, 692});
  writer.Close();
  return directory.File("run.pcap");
}

// What a replay of the capture publishes for a pixel of the frame with this number, in the order of
// the packets: read from the packet's bytes, which hold 6 x 6 pixels column by column.
std::vector<PointBytes> ReplayedPoints(const std::string& capture, int frame, int row, int col) {
  std::vector<PointBytes> points;
  ::testing::internal::CaptureStdout();
  replay::Replay(capture, CalibrationDir(), [&](const ReceivedPacket& packet) {
    if (packet.bytes[209] != frame || packet.bytes[207] != row / 6 || packet.bytes[208] != col / 6)
      return true;
    const std::uint8_t* bytes = packet.bytes + 20 + 5 * (col % 6 * 6 + row % 6);
    points.push_back({bytes[0], bytes[1], bytes[2], bytes[3], bytes[4]});
    return true;
  });
  ::testing::internal::GetCapturedStdout();
  return points;
}

TEST(StoryRun, EndsInTheBytesThatAReplayOfTheCapturePublishes) {
  const testing::TempDir directory;
  const Stream stream = SimulatedFrames("street", 2);
  const std::string capture = WriteCapture(directory, stream);
  FrameStates states;
  const StoryEnd end = RunStory({.feed = FeedOfCapture(capture),
                                 .cali_path = CalibrationDir(),
                                 .config = default_config::kConfig,
                                 .frame = 1},
                                {&states});
  EXPECT_EQ(end.packets, 6912);
  EXPECT_EQ(end.published_rows, 36);
  EXPECT_EQ(end.published_frame, 6);
  int filled = 0;
  for (const auto& [row, col] : {std::pair{0, 0}, {50, 100}, {107, 143}, {130, 211}, {215, 287}}) {
    const std::vector<PointBytes> replayed = ReplayedPoints(capture, 6, row, col);
    ASSERT_EQ(replayed.size(), 1U) << row << ',' << col;
    const PixelRecord& record = states.At(row, col);
    EXPECT_TRUE(record.row_ran);
    EXPECT_EQ(BytesOf(record.echoes[0].published), replayed[0]) << row << ',' << col;
    EXPECT_FALSE(record.echoes[1].published.there) << "one packet a block";
    filled += replayed[0][0] != 0 ? 1 : 0;
  }
  EXPECT_GE(filled, 2);
}

// A packet that comes four rows late completes its row when the schedule has passed it, and the
// rows after it run again. In the next frame packets are lost, repeated, and come a frame late; its
// last one is lost, so the third frame's first packet closes it. The run throws where it differs
// from the node.
TEST(StoryRun, FollowsTheNodeThroughLostRepeatedAndLatePackets) {
  constexpr std::size_t kFrame = 6912;
  constexpr std::size_t kHeldBack = 1000;
  const Stream stream = SimulatedFrames("retro", 3);
  Stream spoilt;
  for (std::size_t i = 0; i < stream.size(); ++i) {
    const bool second_frame = i / kFrame == 1;
    if (i == kHeldBack || i == 2 * kFrame - 1 || (second_frame && i % 97 == 0)) continue;
    spoilt.push_back(stream[i]);
    if (i == kHeldBack + 4 * 192) spoilt.push_back(stream[kHeldBack]);
    if (second_frame && i % 301 == 0) spoilt.push_back(stream[i]);
    if (second_frame && i % 1001 == 0) spoilt.push_back(stream[i - kFrame]);
  }
  std::array<StoryEnd, 3> ends;
  for (int frame = 0; frame < 3; ++frame) {
    FrameStates states;
    ::testing::internal::CaptureStderr();  // the node tells the loss
    ends[static_cast<std::size_t>(frame)] = RunStory(SourceOf(spoilt, frame), {&states});
    ::testing::internal::GetCapturedStderr();
  }
  EXPECT_EQ(ends[0].packets, 6912);
  EXPECT_GT(ends[0].published_rows, 36) << "rows ran again";
  EXPECT_LT(ends[1].packets, 6912);
  EXPECT_EQ(ends[1].published_rows, 36);
  EXPECT_EQ(ends[2].published_rows, 36);
}

// The text with which the run fails.
std::string FailureOf(StorySource source) {
  try {
    RunStory(std::move(source), {});
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

TEST(StoryRun, AFrameBeyondTheEndIsRefused) {
  const Stream stream = SimulatedFrames("empty", 1);
  EXPECT_EQ(FailureOf(SourceOf(stream, 1)), "there is no frame 1: the last one is 0");
  EXPECT_EQ(FailureOf(SourceOf(stream, 0)), "");
  EXPECT_EQ(FailureOf(SourceOf({}, 0)), "the stream holds no packet of the sensor");
}

// The stream ends within a frame: its rows that ran have stories.
TEST(StoryRun, AnUnfinishedFrameIsToldAsFarAsItRan) {
  Stream stream = SimulatedFrames("targets", 1);
  stream.resize(10 * 192 + 1);
  FrameStates states;
  const StoryEnd end = RunStory(SourceOf(stream, 0), {&states});
  EXPECT_EQ(end.packets, 10 * 192 + 1);
  EXPECT_EQ(end.published_rows, 9) << "a row runs when the next one is complete";
  EXPECT_TRUE(states.At(9 * 6 - 1, 0).row_ran);
  EXPECT_FALSE(states.At(9 * 6, 0).row_ran);
}

}  // namespace
}  // namespace kerul::lidar::story
