// The end of a capture: the node goes back to where a start leaves it, and plays it again.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "sensor_simulator/capture_file.h"
#include "source/pcap_source.h"
#include "support/node_fixture.h"
#include "support/temp_dir.h"

namespace kerul::lidar::testing {
namespace {

const std::string kRewindLine = "[LidarNode][A_node] pcap EOF, rewind loop playback\n";
const std::string kRewindMark = "\n\033[1;34m########loop pcap########\033[0m\n";

// A capture that stops the node at one of its reads.
class StoppingCapture : public PcapSource {
 public:
  StoppingCapture(const std::string& path, LidarNode& node) : PcapSource(path), node_(node) {}

  int reads_left = 1 << 30;

  int Receive(UdpPacket& packet, std::uint16_t length, int flags, int timeout_us) override {
    if (reads_left-- > 0) return PcapSource::Receive(packet, length, flags, timeout_us);
    node_.RequestStop();
    return 0;
  }

 private:
  LidarNode& node_;
};

class CaptureRewind : public NodeFixture {
 protected:
  CaptureRewind() { config_.calib_enable = false; }

  std::string Capture() const { return (directory_.path() / "run.pcap").string(); }
  void WriteCapture(const std::vector<UdpPacket>& packets) const {
    simulator::CaptureWriter writer(Capture(), {});
    for (const UdpPacket& packet : packets) writer.Write(1, {packet.buffer, packet.length});
    writer.Close();
  }

  // A node on the capture in place of its source.
  StoppingCapture& Start() {
    StartNode(config_);
    auto capture = std::make_unique<StoppingCapture>(Capture(), *node_);
    StoppingCapture& source = *capture;
    Access().source() = std::move(capture);
    ::testing::internal::CaptureStdout();
    source.Open();
    ::testing::internal::GetCapturedStdout();
    return source;
  }

  // Gives the next packet; what it prints goes to out_ and err_.
  int TakePacket(UdpPacket& packet) {
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    int length = 0;
    try {
      length = Access().GetOnePacket(packet);
    } catch (const std::runtime_error& error) {
      failure_ = error.what();
    }
    err_ = ::testing::internal::GetCapturedStderr();
    out_ = ::testing::internal::GetCapturedStdout();
    return length;
  }

  LidarPoint& Pixel(int row, int col) {
    return Access().frame().points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
  }

  // Nothing as a start leaves it.
  void MarkEverything() {
    ::testing::internal::CaptureStdout();
    Access().ResetFrame(3);  // makes the map of before valid
    ::testing::internal::GetCapturedStdout();
    Access().next_mrow() = 20;
    Access().current_frame_id() = 7;
    Access().mrow_packet_count()[35] = 5;
    Access().mrow_packet_seen()[35][191] = true;
    std::fill(Access().cur_dist_map().begin(), Access().cur_dist_map().end(), 1.5F);
    std::fill(Access().prev_dist_map().begin(), Access().prev_dist_map().end(), 2.5F);
    for (LidarFrame* frame : {&Access().frame(), Access().upsampled_frame().get()}) {
      frame->frame_id = 99;
      frame->received_count = 55;
      frame->pixel_mask.assign(frame->pixel_mask.size(), true);
      for (std::vector<LidarPoint>& row : frame->points) {
        for (LidarPoint& point : row) point.echoes[0].dist_raw = point.echoes[1].peak = 3.0F;
      }
    }
    Access().upsampled_frame_written() = true;
    Access().frame_busy_ns() = 12345;
    Access().packet_start_time() = {};
    Access().export_file_seq() = 7;
  }

  static void ExpectReset(const LidarFrame& frame) {
    EXPECT_EQ(frame.received_count, 0);
    EXPECT_EQ(std::count(frame.pixel_mask.begin(), frame.pixel_mask.end(), true), 0);
    EXPECT_GT(frame.pixel_mask.size(), 0U);
    int filled = 0;
    for (const std::vector<LidarPoint>& row : frame.points) {
      for (const LidarPoint& point : row) {
        filled += point.echoes[0].dist_raw != 0.0F || point.echoes[1].peak != 0.0F;
      }
    }
    EXPECT_EQ(filled, 0);
  }

  TempDir directory_;
  DefaultConfig config_ = TestConfig();
  std::string out_;
  std::string err_;
  std::string failure_;
};

TEST_F(CaptureRewind, PutsTheNodeBackAndPlaysTheCaptureAgain) {
  WriteCapture({MakeRawPacket(9, 17), MakeRawPacket(9, 18)});
  Start();
  UdpPacket packet{};
  ASSERT_EQ(TakePacket(packet), 692);
  ASSERT_EQ(TakePacket(packet), 692);
  MarkEverything();
  ASSERT_TRUE(Access().prev_dist_map_valid());
  const auto before = std::chrono::system_clock::now();

  EXPECT_EQ(TakePacket(packet), 692);
  EXPECT_EQ(packet.length, 692);
  EXPECT_EQ(packet.buffer[674], 17 % 8);  // the first packet's place in its run
  EXPECT_EQ(out_, kRewindLine);
  EXPECT_EQ(err_, kRewindMark);
  EXPECT_EQ(Access().next_mrow(), 0);
  EXPECT_EQ(Access().current_frame_id(), -1);
  EXPECT_EQ(Access().mrow_packet_count(), std::vector<int>(36, 0));
  EXPECT_EQ(Access().mrow_packet_seen(),
            std::vector<std::vector<bool>>(36, std::vector<bool>(192, false)));
  EXPECT_EQ(Access().cur_dist_map(), std::vector<float>(216 * 288, 0.0F));
  EXPECT_EQ(Access().prev_dist_map(), std::vector<float>(216 * 288, 0.0F));
  EXPECT_FALSE(Access().prev_dist_map_valid());
  ExpectReset(Access().frame());
  ExpectReset(*Access().upsampled_frame());
  EXPECT_FALSE(Access().upsampled_frame_written());
  EXPECT_EQ(Access().frame_busy_ns(), 0);
  EXPECT_GE(Access().packet_start_time(), before - std::chrono::seconds(1));
  // What stays.
  EXPECT_EQ(Access().frame().frame_id, 99);
  EXPECT_EQ(Access().upsampled_frame()->frame_id, 99);
  EXPECT_EQ(Access().export_file_seq(), 7U);
}

TEST_F(CaptureRewind, WithoutADoubledFrameTheRestIsPutBack) {
  WriteCapture({MakeRawPacket(9, 17)});
  Start();
  Access().upsampled_frame().reset();
  UdpPacket packet{};
  TakePacket(packet);
  Access().next_mrow() = 20;
  EXPECT_EQ(TakePacket(packet), 692);
  EXPECT_EQ(out_, kRewindLine);
  EXPECT_EQ(Access().next_mrow(), 0);
}

// The last rows of one frame and the first rows of the next: each pass begins and ends in the
// middle of a frame, and nothing of a pass may show in the one after it.
TEST_F(CaptureRewind, ACaptureThatEndsInMidFrameShowsNothingOfItInTheNextPass) {
  config_.output_mode = 3;  // publishes every range there is
  RawPixel lit;
  lit.SetNoise(40);
  lit.SetPulse(0, 100, 2000, 20);
  constexpr int kLast = 34 * kPacketsPerMrow;
  std::vector<UdpPacket> packets;
  for (int i = kLast; i < kPacketsPerFrame; ++i) packets.push_back(MakeRawPacket(9, i));
  for (int i = 0; i < 2 * kPacketsPerMrow; ++i) packets.push_back(MakeRawPacket(10, i, lit));
  WriteCapture(packets);
  StoppingCapture& source = Start();
  // Two passes; the read at the end of the first gives nothing.
  const int count = static_cast<int>(packets.size());
  source.reads_left = 2 * count + 10;
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  Access().running() = true;
  node_->Run();
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), kRewindMark);
  const std::string out = ::testing::internal::GetCapturedStdout();

  int lit_rows = 0;
  for (const std::vector<std::uint8_t>& packet : TakePublished()) {
    if (packet[208] == 0) lit_rows += packet[20] + packet[21] > 0;
  }
  // A pass publishes the dark rows 0 to 33 that never came and the dark 34 and 35, then row 0 of
  // the frame that is cut off, which alone is lit.
  EXPECT_EQ(lit_rows, 2);
  const std::string closed = ", frame_id: 10, received_count:384\n";
  const std::size_t first = out.find(closed);
  ASSERT_NE(first, std::string::npos) << out;
  EXPECT_NE(out.find(closed, first + 1), std::string::npos) << out;
  EXPECT_EQ(Access().mrow_packet_count()[0], kPacketsPerMrow);
  EXPECT_EQ(Access().frame().received_count, 2 * kPacketsPerMrow);
}

// Such a capture never counts as ended.
TEST_F(CaptureRewind, ACaptureThatIsCutIsNotRewound) {
  constexpr std::uintmax_t kRecordBytes = 16 + 14 + 20 + 8 + 692;
  // Read as a record's header, which happens after a cut frame, its bytes ask for more than is
  // left.
  UdpPacket cut_packet = MakeRawPacket(9, 18);
  std::fill(cut_packet.buffer, cut_packet.buffer + cut_packet.length, std::uint8_t{0x55});
  for (const std::uintmax_t cut : {kRecordBytes - 8, std::uintmax_t{100}}) {
    SCOPED_TRACE(cut);
    WriteCapture({MakeRawPacket(9, 17), cut_packet});
    std::filesystem::resize_file(Capture(), 24 + 2 * kRecordBytes - cut);
    config_.shm_name = UniqueShmName("node");
    Start();
    UdpPacket packet{};
    ASSERT_EQ(TakePacket(packet), 692);
    MarkEverything();
    failure_.clear();
    TakePacket(packet);
    EXPECT_EQ(failure_, "Failed to receive packet in max_retry_times");
    EXPECT_EQ(out_, "");
    EXPECT_EQ(err_, "");
    EXPECT_EQ(Access().next_mrow(), 20);
    EXPECT_EQ(Access().current_frame_id(), 7);
    EXPECT_TRUE(Access().prev_dist_map_valid());
    EXPECT_EQ(Access().frame_busy_ns(), 12345);
    EXPECT_EQ(Pixel(215, 287).echoes[0].dist_raw, 3.0F);
  }
}

// Only a capture has a beginning to go back to, whatever another source says of itself.
TEST_F(CaptureRewind, AnotherSourceThatEndsIsNotRewound) {
  WriteCapture({});
  Start();
  auto source = std::make_unique<ScriptedSource>();
  source->type = "PCAP";
  source->result_at_end = -1;
  source->opened = false;
  Access().source() = std::move(source);
  MarkEverything();
  UdpPacket packet{};
  EXPECT_EQ(TakePacket(packet), -1);
  EXPECT_EQ(out_, "[LidarNode][A_node] the udp source has been closed\n");
  EXPECT_EQ(err_, "");
  EXPECT_EQ(Access().next_mrow(), 20);
}

}  // namespace
}  // namespace kerul::lidar::testing
