// A node on its own worker replays a capture over and over. The program has no switch for it, so
// the node runs inside the test.
#include <sys/mman.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "process_fixture.h"
#include "ring_tap.h"
#include "sensor_simulator/capture_file.h"
#include "sensor_simulator/stream_runner.h"
#include "support/node_fixture.h"

namespace kerul::lidar::testing {
namespace {

namespace fs = std::filesystem;

const std::string kRewindLine = "[LidarNode][A_node] pcap EOF, rewind loop playback\n";
const std::string kRewindMark = "\n\033[1;34m########loop pcap########\033[0m\n";
const std::string kClosedLine = "[LidarNode][A_node] the udp source has been closed\n";

int CountOf(const std::string& text, const std::string& part) {
  int count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

class CaptureReplay : public ::testing::Test {
 protected:
  CaptureReplay() {
    simulator::WriteBlobs(SensorBlobs(), directory_.path());
    config_.data_source = 2;
    config_.pcap_path = Capture();
    config_.shm_name = UniqueShmName("replay");
    config_.shm_size = shm_ring::kHeaderBytes + 16384U * shm_ring::kStride;
  }
  ~CaptureReplay() override { shm_unlink(config_.shm_name.c_str()); }

  std::string Capture() const { return (directory_.path() / "run.pcap").string(); }
  std::string Calibration() const { return (directory_.path() / kSensorId).string(); }
  std::unique_ptr<LidarNode> MakeNode() const {
    return std::make_unique<LidarNode>("A_node", config_, Calibration());
  }

  // Datagrams that are none of the sensor's: foreign, too short, of nothing.
  void WriteForeignDatagrams() const {
    simulator::CaptureWriter writer(Capture(), {});
    std::vector<std::uint8_t> payload(700, 0x55);
    writer.Write(1, payload);
    payload.assign({0xEE, 0xFF, 7, 11, 0, 0, 0, 0, 0, 0});
    writer.Write(2, payload);
    payload.assign({0xFF, 0xEE, 7, 11, 0, 0, 0, 0, 0, 0, 0, 0});
    writer.Write(3, payload);
    writer.Close();
  }

  TempDir directory_;
  DefaultConfig config_ = default_config::kConfig;
};

// Puts so many frames without a payload after every hundredth record of a capture. The node waits
// at each of them.
void SlowDown(const std::string& path, int empty_frames) {
  std::ifstream whole(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(whole), {}};
  whole.close();
  simulator::CaptureWriter(path, {}).Write(1, {});
  std::ifstream one(path, std::ios::binary);
  const std::string header_and_empty{std::istreambuf_iterator<char>(one), {}};
  one.close();
  constexpr std::size_t kHeader = 24;
  const std::string empty = header_and_empty.substr(kHeader);
  constexpr std::size_t kRecord = 16 + 42 + 692;
  ASSERT_EQ((bytes.size() - kHeader) % kRecord, 0U);
  std::ofstream slow(path, std::ios::binary);
  slow << bytes.substr(0, kHeader);
  for (std::size_t at = kHeader, i = 0; at < bytes.size(); at += kRecord, ++i) {
    slow << bytes.substr(at, kRecord);
    for (int k = 0; i % 100 == 0 && k < empty_frames; ++k) slow << empty;
  }
}

// Frames 10 and 11, over and over.
TEST_F(CaptureReplay, EveryPassGivesTheSameFrames) {
  simulator::StreamOptions stream;
  stream.capture_path = Capture();
  stream.first_frame = 10;
  stream.frames = 2;
  stream.progress = false;
  const std::atomic<bool> stop{false};
  std::ostringstream nowhere;
  ASSERT_EQ(simulator::RunStream(stream, stop, nowhere).datagrams, 2U * 6912U);
  // A fifth of a second for a frame, so that a busy machine's reader falls nine frames behind only
  // when it is held up for two seconds.
  ASSERT_NO_FATAL_FAILURE(SlowDown(Capture(), 20));

  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  std::unique_ptr<LidarNode> node = MakeNode();
  RingTap tap(config_.shm_name.c_str());
  std::vector<CollectedFrame> frames;
  for (int i = 0; i < 6; ++i) {
    const CollectedFrame* frame = tap.NextComplete();
    if (frame == nullptr) break;
    frames.push_back(*frame);
  }
  node->RequestStop();
  node->JoinWorker();
  node.reset();
  const std::string err = ::testing::internal::GetCapturedStderr();
  const std::string out = ::testing::internal::GetCapturedStdout();

  // The first frame of all goes out under 0; a rewind keeps the id that the frame's end expected.
  ASSERT_EQ(frames.size(), 6U) << out;
  std::vector<int> ids;
  for (const CollectedFrame& frame : frames) ids.push_back(frame.key.frame_id);
  EXPECT_EQ(ids, (std::vector<int>{0, 11, 12, 11, 12, 11}));
  EXPECT_GT(CountReturns(frames[0]), 216 * 288 / 4);
  const auto same = [](const FramePoint& a, const FramePoint& b) {
    return a.distance == b.distance && a.payload == b.payload;
  };
  for (std::size_t i = 2; i < frames.size(); ++i) {
    EXPECT_TRUE(std::equal(frames[i].points.begin(), frames[i].points.end(),
                           frames[i % 2].points.begin(), same))
        << "frame " << i;
  }
  EXPECT_EQ(tap.Ring().lost, 0U);

  const std::string open = "[INFO] Trying to open pcap file: \"" + Capture() +
                           "\"\n[LidarNode][A_node] pcap=" + Capture() + "\n";
  EXPECT_EQ(out.substr(0, open.size()), open);
  // Two frame lines to a pass, the rewind between passes.
  const std::regex passes(
      "(等效解包FPS: [0-9.e+]+, frame_id: 11, received_count:6912\n"
      "等效解包FPS: [0-9.e+]+, frame_id: 12, received_count:6912\n"
      "\\[LidarNode\\]\\[A_node\\] pcap EOF, rewind loop playback\n){2,}"
      "(等效解包FPS: [0-9.e+]+, frame_id: 1[12], received_count:6912\n)*"
      "Source::Close\\(\\)\n");
  EXPECT_TRUE(std::regex_match(out.substr(out.find("等效解包FPS")), passes)) << out;
  std::string marks;
  for (int i = CountOf(out, kRewindLine); i > 0; --i) marks += kRewindMark;
  EXPECT_EQ(err, marks);
}

TEST_F(CaptureReplay, WithoutADatagramOfTheSensorTheNodeEndsByItself) {
  WriteForeignDatagrams();
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  const auto begin = std::chrono::steady_clock::now();
  std::unique_ptr<LidarNode> node = MakeNode();
  node->JoinWorker();
  const auto time = std::chrono::steady_clock::now() - begin;
  node.reset();
  const std::string err = ::testing::internal::GetCapturedStderr();
  const std::string out = ::testing::internal::GetCapturedStdout();
  const std::string tail = kRewindLine + kClosedLine + "Source::Close()\n";
  ASSERT_GE(out.size(), tail.size());
  EXPECT_EQ(out.substr(out.size() - tail.size()), tail);
  EXPECT_EQ(CountOf(out, kRewindLine), 1);
  EXPECT_EQ(err, kRewindMark);
  // 20000 tries with 100 microseconds between them.
  EXPECT_GE(time, std::chrono::seconds(2));
}

// A capture that ends inside a record never counts as ended: the reads fail until the node throws,
// and nothing catches that.
TEST_F(CaptureReplay, ACutCaptureEndsTheProcess) {
  constexpr std::uintmax_t kInsideHeader = 24 + 8;
  constexpr std::uintmax_t kInsideFrame = 24 + 16 + 100;
  for (const std::uintmax_t size : {kInsideHeader, kInsideFrame}) {
    WriteForeignDatagrams();
    fs::resize_file(Capture(), size);
    EXPECT_EXIT(MakeNode()->JoinWorker(), ::testing::KilledBySignal(SIGABRT),
                "Failed to receive packet in max_retry_times");
  }
}

}  // namespace
}  // namespace kerul::lidar::testing
