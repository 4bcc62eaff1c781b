// The whole chain of programs: simulated sensor, network, node, ring, consumer.
#include <gmock/gmock.h>
#include <sys/mman.h>

#include <chrono>
#include <csignal>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "process_fixture.h"
#include "ring_mapping.h"
#include "ring_tap.h"
#include "start_log.h"

namespace kerul::lidar::testing {
namespace {

using ::testing::HasSubstr;

constexpr int kPixels = 216 * 288;
const std::string kInterruptLine = "Interrupt signal (2) received.\n";
const std::string kWholeFrame = ", received_count:6912\n";

class LiveRun : public IsolatedProcessTest {
 protected:
  // A stream that lasts as long as the object, at a rate that a slow machine carries.
  std::unique_ptr<ChildProcess> StartStream(std::vector<std::string> more = {},
                                            const std::string& frames_per_second = "4") const {
    more.insert(more.end(), {"--quiet", "--loop", "2", "--rate", frames_per_second});
    return StartSimulator(more);
  }
};

// Half of what a street shows: ground and walls almost everywhere, above them the sky.
bool ShowsTheScene(const CollectedFrame& frame) { return CountReturns(frame) > kPixels / 4; }

// The next complete frame that shows the scene, from the given ring or a later one; null when time
// ends before. A node that starts in the middle of the sensor's frame, or a machine that loses
// datagrams, publishes frames with less in them.
const CollectedFrame* NextScene(RingTap& tap, std::uint64_t ring = 1) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (const CollectedFrame* frame = tap.NextComplete()) {
    if (tap.Ring().attached >= ring && ShowsTheScene(*frame)) return frame;
    if (std::chrono::steady_clock::now() >= deadline) break;
  }
  return nullptr;
}

TEST_F(LiveRun, CompleteFramesArriveInOrder) {
  const auto node = StartCalibratedNode();
  // So slow that a frame without a lost datagram comes in time on a busy machine too.
  const auto stream = StartStream({}, "1");
  RingTap tap;
  // The first frame is published under 0, whether or not all of it has come.
  const CollectedFrame* first = tap.NextFrame();
  ASSERT_NE(first, nullptr) << node->Out() << node->Err() << stream->Err();
  EXPECT_EQ(first->key.frame_id, 0);
  std::vector<int> ids{0};
  for (int i = 0; i < 4; ++i) {
    const CollectedFrame* frame = NextScene(tap);
    ASSERT_NE(frame, nullptr) << node->Out() << node->Err() << stream->Err();
    EXPECT_EQ(frame->packets, 1728U + frame->duplicates);
    // The default plan: the preferred echo alone, in units of 4 mm.
    EXPECT_EQ(frame->key.echoes, 1);
    EXPECT_EQ(frame->key.output_mode, 0);
    EXPECT_EQ(frame->return_code, 1);
    EXPECT_EQ(frame->unit_mm, 4);
    EXPECT_LT(CountReturns(*frame), kPixels);
    ids.push_back(frame->key.frame_id);
  }
  for (std::size_t i = 1; i < ids.size(); ++i) EXPECT_GT(ids[i], ids[i - 1]);
  EXPECT_EQ(tap.Refused(), 0U);
  EXPECT_EQ(tap.Ring().torn, 0U);
  EXPECT_EQ(tap.Ring().malformed, 0U);
  // At least one of them without a datagram lost on the way.
  EXPECT_TRUE(node->WaitFor(Stream::kOut, kWholeFrame));

  EXPECT_EQ(node->Interrupt(), 0);
  EXPECT_EQ(stream->Interrupt(), 0);
  EXPECT_EQ(WithoutLosses(node->Err()), "");
  // Nothing else than the start, frame lines after it, and the end.
  const std::string start = StartLog(kSensorId, "local_cache", kSensorId);
  EXPECT_EQ(node->Out().substr(0, start.size()), start);
  EXPECT_EQ(WithoutFrameLines(node->Out()), start + kInterruptLine + kClosingLines);
}

// Lost, repeated, reordered, foreign and cut datagrams: the node goes on. Frames have gaps then:
// the last rows wait for packets that never come, and where the frame's last packet comes early or
// twice, a frame of its own with next to nothing in it follows.
TEST_F(LiveRun, AFaultyStreamIsCarried) {
  const auto node = StartCalibratedNode();
  const auto stream =
      StartStream({"--loss", "0.02", "--duplicate", "0.02", "--reorder", "0.02", "--foreign",
                   "0.002", "--other-version", "0.01", "--short", "0.01"});
  RingTap tap;
  int filled = 0;
  while (filled < 4) {
    const CollectedFrame* frame = tap.NextFrame();
    ASSERT_NE(frame, nullptr) << node->Out() << node->Err() << stream->Err();
    if (ShowsTheScene(*frame)) ++filled;
  }
  EXPECT_EQ(tap.Refused(), 0U);
  EXPECT_TRUE(node->WaitFor(Stream::kOut, "[DEBUG] UDP header doesn't match 0xEE, 0xFF"));
  EXPECT_TRUE(node->WaitFor(Stream::kErr, "] raw packets lost in "));
  EXPECT_EQ(node->Interrupt(), 0);
  EXPECT_EQ(WithoutLosses(node->Err()), "");
}

// The node stands still for a while, and the kernel's buffer overflows.
TEST_F(LiveRun, DatagramsThatTheKernelDropsAreToldInFigures) {
  const auto node = StartCalibratedNode();
  const auto stream = StartSimulator({"--quiet", "--loop", "2", "--rate", "20"});
  RingTap tap;
  for (int i = 0; i < 2; ++i) ASSERT_NE(tap.NextFrame(), nullptr);
  node->Signal(SIGSTOP);
  std::this_thread::sleep_for(std::chrono::seconds(2));
  node->Signal(SIGCONT);
  std::smatch figures;
  const std::regex told(
      "\\[WARN\\] \\[LidarNode\\]\\[QNDR_001_node\\] raw packets lost in [0-9]+ frames: [0-9]+ of "
      "them "
      "closed without [0-9]+ packets( \\(the last, frame_id [0-9]+, with [0-9]+ of 6912\\))?, "
      "[0-9]+ frame ids never came, ([0-9]{4,}) datagrams dropped by the kernel\n");
  ASSERT_TRUE(WaitUntil([&] { return std::regex_search(node->Err(), told); })) << node->Err();
  EXPECT_EQ(node->Interrupt(), 0);
  EXPECT_EQ(WithoutLosses(node->Err()), "");
}

TEST_F(LiveRun, AnInterruptWhileStreamingEndsWellAndLeavesTheRing) {
  const auto node = StartCalibratedNode();
  const auto stream = StartStream();
  RingTap tap;
  ASSERT_NE(tap.NextComplete(), nullptr);
  EXPECT_EQ(node->Interrupt(), 0);
  EXPECT_EQ(WithoutFrameLines(node->Out()),
            StartLog(kSensorId, "local_cache", kSensorId) + kInterruptLine + kClosingLines);
  EXPECT_EQ(WithoutLosses(node->Err()), "");
  const RingMapping ring;
  ASSERT_TRUE(ring.Exists());
  EXPECT_TRUE(ring.HeaderIsRight());
  EXPECT_GE(ring.Word(4), 1728U);  // packets written
  // A reader that starts now can still read what it holds.
  RingTap late;
  ASSERT_NE(late.NextComplete(), nullptr);
  EXPECT_EQ(late.Ring().lost, 0U);
}

TEST_F(LiveRun, AReaderFindsTheRingOfARestartedNode) {
  const auto stream = StartStream();
  RingTap tap;
  for (std::uint64_t run = 1; run <= 2; ++run) {
    const auto node = StartCalibratedNode();
    ASSERT_NE(NextScene(tap, run), nullptr) << node->Out() << node->Err();
    EXPECT_EQ(node->Interrupt(), 0);
  }
  EXPECT_EQ(tap.Ring().replaced, 1U);
  EXPECT_EQ(tap.Ring().torn, 0U);
  EXPECT_EQ(tap.Refused(), 0U);
}

// Killed without warning, anywhere from its first instruction to the middle of a frame.
TEST_F(LiveRun, AKilledNodesSuccessorIsFoundByTheReader) {
  const auto stream = StartStream();
  CalibrationDirectory();
  RingTap tap;
  std::mt19937 random(7);
  std::uniform_int_distribution<int> life_ms(0, 700);
  for (int round = 0; round < 6; ++round) {
    const auto node = StartNode({"--cali_path", kSensorId});
    // The reader looks on while the node lives.
    tap.NextComplete(std::chrono::milliseconds(life_ms(random)));
    node->Signal(SIGKILL);
    ASSERT_EQ(node->WaitForExit(), 128 + SIGKILL);
    EXPECT_EQ(WithoutLosses(node->Err()), "");
  }
  const auto node = StartCalibratedNode();
  // The ring that was followed last belonged to a node that is gone.
  ASSERT_NE(NextScene(tap, tap.Ring().attached + 1), nullptr) << node->Out() << node->Err();
  EXPECT_EQ(tap.Refused(), 0U);
  EXPECT_EQ(tap.Ring().malformed, 0U);
  EXPECT_EQ(node->Interrupt(), 0);
}

TEST_F(LiveRun, AnOverwrittenRingHeaderIsRepairedWhileFramesGoOn) {
  const auto node = StartCalibratedNode();
  const auto stream = StartStream();
  RingTap tap;
  ASSERT_NE(tap.NextComplete(), nullptr);
  RingMapping ring;
  ASSERT_TRUE(ring.Exists());
  EXPECT_EQ(ring.Word(8), 1U);  // the first boot of the ring

  struct Damage {
    std::size_t at;
    std::uint8_t value;
    std::size_t count;
  };
  const std::vector<Damage> damages{{0, 0, 1},        // magic
                                    {2, 9, 1},        // version
                                    {12, 0, 4},       // no slots
                                    {12, 0xFF, 4},    // more slots than there is room for
                                    {16, 0, 2},       // stride
                                    {18, 0xFF, 2},    // room for a packet
                                    {0, 0xFF, 20},    // all of it
                                    {0, 0, 100000}};  // and slots after it
  std::uint32_t boots = 1;
  for (const Damage& damage : damages) {
    SCOPED_TRACE(boots);
    ring.Overwrite(damage.at, damage.value, damage.count);
    ++boots;
    ASSERT_TRUE(WaitUntil([&] { return ring.HeaderIsRight() && ring.Word(8) == boots; }));
  }
  ASSERT_EQ(boots, 1 + damages.size());

  // Old and new readers get whole frames again.
  RingTap late;
  for (RingTap* reader : {&tap, &late}) {
    ASSERT_NE(NextScene(*reader), nullptr);
  }
  EXPECT_GE(tap.Ring().rebuilt, 1U);
  EXPECT_EQ(tap.Refused(), 0U);
  EXPECT_EQ(node->Interrupt(), 0);
  EXPECT_THAT(node->Err(), HasSubstr("something has overwritten its header, it was rebuilt"));
}

// No later reader could find a ring without a name.
TEST_F(LiveRun, ARemovedRingIsMadeAnewWhileTheNodeRuns) {
  const auto stream = StartStream();
  RingTap tap;
  const auto node = StartCalibratedNode();
  ASSERT_NE(tap.NextComplete(), nullptr);
  ASSERT_EQ(shm_unlink(kRing), 0);
  ASSERT_NE(NextScene(tap, 2), nullptr) << node->Err();
  EXPECT_EQ(tap.Ring().replaced, 1U);
  RingTap late;
  ASSERT_NE(late.NextComplete(), nullptr);
  EXPECT_EQ(node->Interrupt(), 0);
  EXPECT_EQ(WithoutLosses(node->Err()),
            "[WARN] ring /kerul_lidar_udp_shm: its object was removed, making a new one\n");
}

}  // namespace
}  // namespace kerul::lidar::testing
