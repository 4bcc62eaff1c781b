#include "lidar_view/viewer_app.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <sstream>
#include <thread>

#include "client/loopback_sender.h"
#include "output/shm_test_name.h"
#include "output/shm_udp_writer.h"
#include "support/temp_dir.h"
#include "tools/lidar_view/sample_frame.h"

namespace kerul::lidar::view {
namespace {

using ::testing::HasSubstr;

// Sends frames of one echo until it goes away, some twenty-five a second.
class FrameSender {
 public:
  using Send = std::function<void(const PacketBytes&)>;
  FrameSender(Send send, int skipped_block)
      : thread_([this, send = std::move(send), skipped_block] { Run(send, skipped_block); }) {}
  ~FrameSender() {
    stop_ = true;
    thread_.join();
  }
  FrameSender(const FrameSender&) = delete;
  FrameSender& operator=(const FrameSender&) = delete;

 private:
  void Run(const Send& send, int skipped_block) {
    PacketFields fields;
    while (!stop_) {
      for (fields.block = 0; fields.block < 1728; ++fields.block) {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        const auto us = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
        fields.seconds = static_cast<std::uint32_t>(us / 1000000);
        fields.microseconds = static_cast<std::uint32_t>(us % 1000000);
        if (fields.block != skipped_block) send(MakePacket(fields));
        if (fields.block % 96 == 95) std::this_thread::sleep_for(std::chrono::milliseconds(2));
      }
      fields.frame_id = (fields.frame_id + 1) % 256;
      fields.sequence_base += 1728;
    }
  }
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

struct Outcome {
  int exit_status = -1;
  std::string out;
  std::string err;
};

Outcome RunWith(const ViewerOptions& options, bool overwrite = false) {
  std::ostringstream out;
  std::ostringstream err;
  const std::atomic<bool> stop{false};
  const int exit_status = RunViewer(options, stop, overwrite, out, err);
  return {exit_status, out.str(), err.str()};
}

long ValueOf(const std::string& summary, const std::string& key) {
  const std::size_t at = summary.find(key + "=");
  EXPECT_NE(at, std::string::npos) << key;
  return std::stol(summary.substr(at + key.size() + 1));
}

class RingStream {
 public:
  explicit RingStream(int skipped_block = -1)
      : writer_(name_.c_str(), 20 + 20000 * 1508), opened_(writer_.Open()) {
    sender_.emplace([this](const PacketBytes& bytes) { writer_.WriteOne(bytes.data(), 249); },
                    skipped_block);
  }
  const char* Name() const { return name_.c_str(); }

 private:
  ShmTestName name_;
  ShmUdpWriter writer_;
  bool opened_;
  std::optional<FrameSender> sender_;
};

TEST(Viewer, FramesOfTheRingAreShownAndWritten) {
  const RingStream stream;
  const testing::TempDir folder;
  ViewerOptions options;
  options.shm_name = stream.Name();
  options.limits.complete_frames = 3;
  options.limits.seconds = 20.0;
  options.files = {folder.File("f.png"), folder.File("f.pcd"), folder.File("f.ply"),
                   folder.File("f.las"), PcdNumbers::kFloats};
  options.summary = folder.File("s.txt");
  options.mount = true;
  const Outcome outcome = RunWith(options);
  EXPECT_EQ(outcome.exit_status, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(testing::ReadFile(options.files.png).substr(1, 3), "PNG");
  EXPECT_THAT(testing::ReadFile(options.files.pcd), HasSubstr("POINTS 62208\n"));
  EXPECT_THAT(testing::ReadFile(options.files.pcd), HasSubstr("TYPE F F F F F F F F\n"));
  EXPECT_THAT(testing::ReadFile(options.files.ply), HasSubstr("element vertex 62208\n"));
  EXPECT_EQ(testing::ReadFile(options.files.las).size(), 227U + 62208 * 28);
  const std::string summary = testing::ReadFile(options.summary);
  EXPECT_EQ(ValueOf(summary, "complete"), 3);
  EXPECT_EQ(ValueOf(summary, "incomplete"), 0);
  EXPECT_EQ(ValueOf(summary, "lost"), 0);
  EXPECT_GE(ValueOf(summary, "packets"), 3 * 1728);
}

TEST(Viewer, FramesOfAUdpStreamAreCollected) {
  const std::uint16_t port = FreePort();
  const LoopbackSender socket(port);
  const FrameSender sender([&](const PacketBytes& bytes) { socket.Send(bytes); }, -1);
  ViewerOptions options;
  options.udp_port = port;
  options.limits.complete_frames = 2;
  options.limits.seconds = 20.0;
  const Outcome outcome = RunWith(options);
  EXPECT_EQ(outcome.exit_status, 0) << outcome.err;
}

TEST(Viewer, AStreamThatAlwaysLacksABlockIsAFailureWithItsNumbers) {
  const RingStream stream(500);
  const testing::TempDir folder;
  ViewerOptions options;
  options.shm_name = stream.Name();
  options.limits.seconds = 0.5;
  options.files.png = folder.File("f.png");
  options.summary = folder.File("s.txt");
  const Outcome outcome = RunWith(options);
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("lidar_view: no complete frame came from ring /kerul_test_"));
  EXPECT_THAT(outcome.err, HasSubstr(" packets, "));
  EXPECT_FALSE(std::filesystem::exists(options.files.png));
  const std::string summary = testing::ReadFile(options.summary);
  EXPECT_EQ(ValueOf(summary, "complete"), 0);
  EXPECT_GT(ValueOf(summary, "incomplete"), 0);
}

TEST(Viewer, AUdpStreamsLossIsCountedByItsSequence) {
  const std::uint16_t port = FreePort();
  const LoopbackSender socket(port);
  const FrameSender sender([&](const PacketBytes& bytes) { socket.Send(bytes); }, 500);
  const testing::TempDir folder;
  ViewerOptions options;
  options.udp_port = port;
  options.limits.seconds = 0.5;
  options.summary = folder.File("s.txt");
  EXPECT_EQ(RunWith(options).exit_status, 1);
  EXPECT_GT(ValueOf(testing::ReadFile(options.summary), "lost"), 0);
}

TEST(Viewer, AMissingRingIsSaidSo) {
  const ShmTestName name;
  ViewerOptions options;
  options.shm_name = name.str();
  options.limits.seconds = 0.05;
  const Outcome outcome = RunWith(options);
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_EQ(outcome.err, "lidar_view: no complete frame came from ring " + name.str() +
                             " (not there): no packets\n");
}

TEST(Viewer, DatagramsThatAreNoPointPacketsAreCounted) {
  const std::uint16_t port = FreePort();
  const LoopbackSender socket(port);
  const FrameSender sender(
      [&](PacketBytes bytes) {
        bytes[0] = 0;
        socket.Send(bytes);
      },
      -1);
  ViewerOptions options;
  options.udp_port = port;
  options.limits.seconds = 0.2;
  const Outcome outcome = RunWith(options);
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_THAT(outcome.err, HasSubstr(": 0 packets, 0 incomplete frames, 0 packets lost, "));
  EXPECT_THAT(outcome.err, ::testing::Not(HasSubstr(" 0 not point packets")));
}

TEST(Viewer, StatusComesOnceASecondInLinesOrOverItself) {
  const RingStream stream;
  ViewerOptions options;
  options.shm_name = stream.Name();
  options.limits.seconds = 1.2;
  const Outcome lines = RunWith(options);
  EXPECT_EQ(lines.out.substr(0, 9), "frames/s ");
  EXPECT_EQ(std::count(lines.out.begin(), lines.out.end(), '\n'), 1);
  const Outcome terminal = RunWith(options, true);
  EXPECT_EQ(terminal.out.substr(0, 13), "\r\033[Kframes/s ");
  EXPECT_EQ(terminal.out.back(), '\n');
}

TEST(Viewer, AStopRequestEndsIt) {
  const ShmTestName name;
  ViewerOptions options;
  options.shm_name = name.str();
  std::ostringstream out;
  std::ostringstream err;
  const std::atomic<bool> stop{true};
  EXPECT_EQ(RunViewer(options, stop, false, out, err), 1);
}

TEST(Viewer, ATakenPortIsAFailure) {
  UdpPointReceiver taken;
  ASSERT_TRUE(taken.Open(0));
  ViewerOptions options;
  options.udp_port = taken.Port();
  const Outcome outcome = RunWith(options);
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_EQ(outcome.err, "lidar_view: cannot open UDP port " + std::to_string(taken.Port()) +
                             ": bind: Address already in use\n");
}

TEST(Viewer, AFolderWithoutCalibrationIsAFailureAtOnce) {
  const testing::TempDir folder;
  ViewerOptions options;
  options.calib_dir = folder.path().string();
  const Outcome outcome = RunWith(options);
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_EQ(outcome.err, "lidar_view: no Lidar-*_angle_calib.dat and no *_head.bin in " +
                             folder.path().string() + "\n");
}

TEST(Viewer, FilesThatCannotBeWrittenAreNamedEach) {
  const RingStream stream;
  const testing::TempDir folder;
  ViewerOptions options;
  options.shm_name = stream.Name();
  options.limits.complete_frames = 1;
  options.limits.seconds = 20.0;
  options.files = {folder.File("no/f.png"), folder.File("no/f.pcd"), folder.File("no/f.ply"),
                   folder.File("no/f.las"), PcdNumbers::kPacked};
  options.summary = folder.File("no/s.txt");
  const Outcome outcome = RunWith(options);
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("lidar_view: cannot write " + options.summary +
                                     ": No such file or directory\n"));
  EXPECT_THAT(outcome.err, HasSubstr("lidar_view: cannot write " + options.files.pcd +
                                     ": No such file or directory\n"));
  EXPECT_THAT(outcome.err, HasSubstr("lidar_view: cannot write " + options.files.ply +
                                     ": No such file or directory\n"));
  EXPECT_THAT(outcome.err, HasSubstr("lidar_view: cannot write " + options.files.las +
                                     ": No such file or directory\n"));
  EXPECT_THAT(outcome.err, HasSubstr("lidar_view: cannot write " + options.files.png + ": "));
}

struct Parsed {
  bool go_on = false;
  int exit_status = -1;
  ViewerOptions options;
};

Parsed Parse(std::vector<const char*> arguments) {
  arguments.insert(arguments.begin(), "lidar_view");
  Parsed parsed;
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  parsed.go_on = ParseOptions(static_cast<int>(arguments.size()), arguments.data(), parsed.options,
                              parsed.exit_status);
  ::testing::internal::GetCapturedStdout();
  ::testing::internal::GetCapturedStderr();
  return parsed;
}

TEST(ViewerOptions, DefaultsAreTheRingWithoutLimits) {
  const Parsed parsed = Parse({});
  EXPECT_TRUE(parsed.go_on);
  EXPECT_EQ(parsed.options.shm_name, "");
  EXPECT_EQ(parsed.options.udp_port, 0);
  EXPECT_EQ(parsed.options.limits.seconds, 0.0);
  EXPECT_EQ(parsed.options.limits.complete_frames, 0U);
  EXPECT_FALSE(parsed.options.mount);
  EXPECT_EQ(parsed.options.files.pcd_numbers, PcdNumbers::kPacked);
  EXPECT_EQ(parsed.options.picture.colouring, Colouring::kReflectivity);
}

TEST(ViewerOptions, EachOneIsTaken) {
  const Parsed parsed =
      Parse({"--udp",     "7000",  "--group", "239.1.1.1", "--seconds",   "1.5",         "--frames",
             "9",         "--png", "a",       "--pcd",     "b",           "--ply",       "c",
             "--summary", "d",     "--calib", "e",         "--mount",     "--max-range", "25",
             "--color",   "flags", "--las",   "f",         "--pcd-floats"});
  ASSERT_TRUE(parsed.go_on);
  EXPECT_EQ(parsed.options.files.las, "f");
  EXPECT_EQ(parsed.options.files.pcd_numbers, PcdNumbers::kFloats);
  EXPECT_EQ(parsed.options.udp_port, 7000);
  EXPECT_EQ(parsed.options.multicast_group, "239.1.1.1");
  EXPECT_EQ(parsed.options.limits.seconds, 1.5);
  EXPECT_EQ(parsed.options.limits.complete_frames, 9U);
  EXPECT_EQ(parsed.options.files.png, "a");
  EXPECT_EQ(parsed.options.files.pcd, "b");
  EXPECT_EQ(parsed.options.files.ply, "c");
  EXPECT_EQ(parsed.options.summary, "d");
  EXPECT_EQ(parsed.options.calib_dir, "e");
  EXPECT_TRUE(parsed.options.mount);
  EXPECT_EQ(parsed.options.picture.max_range_m, 25.0F);
  EXPECT_EQ(parsed.options.picture.colouring, Colouring::kFlags);
}

TEST(ViewerOptions, HelpEndsWellAndErrorsEndWithOne) {
  const Parsed help = Parse({"--help"});
  EXPECT_FALSE(help.go_on);
  EXPECT_EQ(help.exit_status, 0);
  const std::vector<std::vector<const char*>> wrong{{"--bogus"},
                                                    {"--udp", "0"},
                                                    {"--udp", "65536"},
                                                    {"--shm", "a", "--udp", "7"},
                                                    {"--group", "1.2.3.4"},
                                                    {"--seconds", "0"},
                                                    {"--frames", "-1"},
                                                    {"--max-range", "0"},
                                                    {"--color", "blue"}};
  int refused = 0;
  for (const std::vector<const char*>& arguments : wrong) {
    const Parsed parsed = Parse(arguments);
    EXPECT_FALSE(parsed.go_on) << arguments[0];
    EXPECT_EQ(parsed.exit_status, 1) << arguments[0];
    ++refused;
  }
  EXPECT_EQ(refused, 9);
}

}  // namespace
}  // namespace kerul::lidar::view
