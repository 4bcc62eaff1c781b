// The packet loop's waits, what it asks of its source, and what it measures.
#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "pause_recorder.h"
#include "source/pcap_source.h"
#include "support/node_fixture.h"

namespace kerul::lidar::testing {
namespace {

using std::chrono::microseconds;
using Pauses = std::vector<microseconds>;

constexpr microseconds kRetryPause{100};
constexpr microseconds kReplayFramePause{50000};
constexpr int kLastPacket = kPacketsPerFrame - 1;

// What the node asked for.
struct Request {
  std::uint16_t length = 0;
  int flags = 0;
  int timeout_us = 0;
  bool operator==(const Request&) const = default;
};
constexpr Request kRequest{1500, 0, 1000};

// Gives these results in turn, with these first bytes.
struct Answer {
  int result = 0;
  std::uint8_t first = 0;
  std::uint8_t second = 0;
};

// A source that answers by a list and keeps the requests. Its type is open.
class AnsweringSource : public ScriptedSource {
 public:
  std::deque<Answer> answers;
  std::vector<Request> requests;

  int Receive(UdpPacket& packet, std::uint16_t length, int flags, int timeout_us) override {
    requests.push_back({length, flags, timeout_us});
    if (answers.empty()) return 0;
    const Answer answer = answers.front();
    answers.pop_front();
    packet.buffer[0] = answer.first;
    packet.buffer[1] = answer.second;
    return answer.result;
  }
};

// A capture that has ended and, once rewound, gives nothing but a result.
class EndedCapture : public PcapSource {
 public:
  explicit EndedCapture(std::vector<Request>& requests) : PcapSource(""), requests_(requests) {}

  int result = -1;
  int packet_at = -1;  // the request, counted from 0, that is given a sensor's datagram
  bool IsOpened() override { return false; }
  int Receive(UdpPacket& packet, std::uint16_t length, int flags, int timeout_us) override {
    requests_.push_back({length, flags, timeout_us});
    if (static_cast<int>(requests_.size()) - 1 == packet_at) {
      packet.buffer[0] = 0xEE;
      packet.buffer[1] = 0xFF;
      return 11;
    }
    return requests_.size() <= 10 ? -1 : result;
  }

 private:
  std::vector<Request>& requests_;
};

class PacketLoopWaits : public NodeFixture {
 protected:
  void SetUp() override {
    DefaultConfig config = TestConfig();
    config.calib_enable = false;
    StartNode(config);
  }

  // A source with these answers in place of the scripted one.
  AnsweringSource& Answering(const std::string& type, std::deque<Answer> answers) {
    auto source = std::make_unique<AnsweringSource>();
    AnsweringSource& kept = *source;
    kept.type = type;
    kept.answers = std::move(answers);
    Access().source() = std::move(source);
    return kept;
  }
  EndedCapture& Ended(std::vector<Request>& requests) {
    auto source = std::make_unique<EndedCapture>(requests);
    EndedCapture& kept = *source;
    Access().source() = std::move(source);
    return kept;
  }

  int TakePacket() {
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    UdpPacket packet{};
    const int length = Access().GetOnePacket(packet);
    ::testing::internal::GetCapturedStderr();
    out_ = ::testing::internal::GetCapturedStdout();
    return length;
  }
  std::string CloseFrame(int frame_id) {
    ::testing::internal::CaptureStdout();
    Access().ResetFrame(frame_id);
    return ::testing::internal::GetCapturedStdout();
  }

  PauseRecorder pauses_;
  std::string out_;
};

// ---- Pauses.

TEST_F(PacketLoopWaits, NothingAndAFailedReadPauseForAHundredMicroseconds) {
  AnsweringSource& source = Answering("UDP", {{0}, {-1}, {-1}, {0}, {692, 0xEE, 0xFF}});
  EXPECT_EQ(TakePacket(), 692);
  EXPECT_EQ(pauses_.Take(), Pauses(4, kRetryPause));
  EXPECT_EQ(source.requests.size(), 5U);
}

TEST_F(PacketLoopWaits, EveryOtherLostTryIsFollowedAtOnce) {
  Answering("PCAP", {{-2}, {-42}, {10, 0xEE, 0xFF}, {692, 1, 2}, {1}, {2}, {692, 0xEE, 0xFF}});
  EXPECT_EQ(TakePacket(), 692);
  EXPECT_EQ(pauses_.Take(), Pauses{});
}

TEST_F(PacketLoopWaits, AnIdleSourcePausesAfterEachOfItsTenTries) {
  Answering("UDP", {});
  EXPECT_EQ(TakePacket(), 0);
  EXPECT_EQ(pauses_.Take(), Pauses(10, kRetryPause));
}

TEST_F(PacketLoopWaits, OnlyACapturePausesAtTheFramesEnd) {
  for (const char* type : {"UDP", "SCRIPT", "NONE"}) {
    source_->type = type;
    CloseFrame(8);
    EXPECT_EQ(pauses_.Take(), Pauses{}) << type;
  }
  source_->type = "PCAP";
  CloseFrame(9);
  EXPECT_EQ(pauses_.Take(), Pauses{kReplayFramePause});
}

// ---- What is asked of the source.

TEST_F(PacketLoopWaits, ADatagramIsAskedForWithRoomForTheLargestAndAMillisecond) {
  AnsweringSource& source = Answering("UDP", {{0}, {-1}, {-7}, {692, 0xEE, 0xFF}});
  EXPECT_EQ(TakePacket(), 692);
  EXPECT_EQ(source.requests, std::vector<Request>(4, kRequest));
}

TEST_F(PacketLoopWaits, ARewoundCaptureIsAskedTwentyThousandTimesInTheSameWay) {
  std::vector<Request> requests;
  Ended(requests);
  Access().running() = true;
  EXPECT_EQ(TakePacket(), -1);
  EXPECT_EQ(requests, std::vector<Request>(10 + 20000, kRequest));
  EXPECT_EQ(pauses_.Take(), Pauses(10 + 20000, kRetryPause));
  EXPECT_EQ(out_,
            "[LidarNode][A_node] pcap EOF, rewind loop playback\n"
            "[LidarNode][A_node] the udp source has been closed\n");
  EXPECT_FALSE(Access().running());
}

TEST_F(PacketLoopWaits, TheLastOfTheTwentyThousandTriesCountsToo) {
  std::vector<Request> requests;
  Ended(requests).packet_at = 10 + 20000 - 1;
  EXPECT_EQ(TakePacket(), 11);
  EXPECT_EQ(requests.size(), 20010U);
}

TEST_F(PacketLoopWaits, ARewoundCaptureWithoutADatagramThatFitsGivesItsLastResult) {
  std::vector<Request> requests;
  Ended(requests).result = 2;
  Access().running() = true;
  EXPECT_EQ(TakePacket(), 2);
  EXPECT_EQ(requests.size(), 20010U);
  EXPECT_TRUE(Access().running());
}

TEST_F(PacketLoopWaits, EitherByteOfTheMagicMayBeTheWrongOne) {
  AnsweringSource& source = Answering(
      "PCAP", {{692, 0xED, 0xFF}, {692, 0xEE, 0xFE}, {692, 0x00, 0xFF}, {692, 0xEE, 0xFF}});
  EXPECT_EQ(TakePacket(), 692);
  EXPECT_EQ(source.requests.size(), 4U);
}

// ---- The rate that is printed.

// The time of earlier packets is kept: a frame that took 1e9 seconds so far prints their inverse.
TEST_F(PacketLoopWaits, TheTimesOfAFramesPacketsAddUpAndBeginAnewWithTheNext) {
  Access().frame_busy_ns() = 1'000'000'000'000'000'000;
  const std::string first = Play({MakeRawPacket(9, 0), MakeRawPacket(9, kLastPacket)});
  // Below the sixth digit the two packets do not show.
  EXPECT_EQ(first, "等效解包FPS: 1e-09, frame_id: 10, received_count:2\n");
  EXPECT_EQ(Access().frame_busy_ns(), 0);
  const std::string second = Play({MakeRawPacket(10, 0), MakeRawPacket(10, kLastPacket)});
  EXPECT_EQ(second.find("等效解包FPS: 1e-09,"), std::string::npos) << second;
}

TEST_F(PacketLoopWaits, EachPacketCountsTheTimeFromItsOwnStart) {
  Play({MakeRawPacket(9, 0)});
  const std::int64_t one = Access().frame_busy_ns();
  EXPECT_GT(one, 0);
  // Long ago: the time between two packets is not time spent on them.
  Access().packet_start_time() = {};
  Play({MakeRawPacket(9, 1)});
  EXPECT_GT(Access().frame_busy_ns(), one);
  EXPECT_LT(Access().frame_busy_ns(), std::chrono::nanoseconds(std::chrono::hours(1)).count());
}

TEST_F(PacketLoopWaits, AClosedFrameStartsTheTimeAnew) {
  const auto before = std::chrono::system_clock::now();
  Access().packet_start_time() = {};
  CloseFrame(8);
  EXPECT_GE(Access().packet_start_time(), before - std::chrono::seconds(1));
}

// ---- The maps of ranges.

TEST_F(PacketLoopWaits, AClosedFrameLeavesAMapOfZerosWhateverTheOtherMapHeld) {
  Access().cur_dist_map().assign(216 * 288, 3.5F);
  Access().prev_dist_map().assign(216 * 288, 9.0F);
  CloseFrame(8);
  EXPECT_EQ(Access().prev_dist_map(), std::vector<float>(216 * 288, 3.5F));
  EXPECT_EQ(Access().cur_dist_map(), std::vector<float>(216 * 288, 0.0F));
  EXPECT_TRUE(Access().prev_dist_map_valid());
}

class DistanceMap : public NodeFixture {};

// The range that is published, which the ordering of the echoes takes from the slot of the nearer.
TEST_F(DistanceMap, HoldsTheRangesOfTheRowAfterAllPasses) {
  DefaultConfig config = TestConfig();
  config.neighbor_check_enable = false;
  StartNode(config);
  for (int row = 6; row < 12; ++row) {
    for (int col = 0; col < 288; ++col) {
      LidarPoint& point =
          Access().frame().points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
      const int nearer = col % 2;
      point.echoes[1 - nearer].dist_raw = 20.0F;
      point.echoes[nearer].dist_raw = static_cast<float>(row) + static_cast<float>(col) / 512.0F;
      point.echoes[1].peak = 100.0F;
    }
  }
  Access().frame().points[5][0].echoes[0].dist_proc = 7.0F;
  Access().frame().points[12][0].echoes[0].dist_proc = 7.0F;
  Access().ProcessMiniflashRow(1);
  std::size_t at = 0;
  for (int row = 0; row < 216; ++row) {
    for (int col = 0; col < 288; ++col, ++at) {
      const float expected =
          row >= 6 && row < 12 ? static_cast<float>(row) + static_cast<float>(col) / 512.0F : 0.0F;
      ASSERT_EQ(Access().cur_dist_map()[at], expected) << row << " " << col;
    }
  }
}

// An echo that a pass erases is none in the map either.
TEST_F(DistanceMap, HoldsNoRangeThatAPassHasErased) {
  StartNode(TestConfig());
  Access().frame().points[8][100].echoes[0].dist_raw = 5.0F;  // alone
  Access().ProcessMiniflashRow(1);
  EXPECT_EQ(Access().cur_dist_map(), std::vector<float>(216 * 288, 0.0F));
}

}  // namespace
}  // namespace kerul::lidar::testing
