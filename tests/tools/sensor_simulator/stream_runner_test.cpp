#include "sensor_simulator/stream_runner.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "calibration/rcx_client.h"
#include "sensor_simulator/calibration_blobs.h"
#include "sensor_simulator/truth_file.h"
#include "support/temp_dir.h"
#include "tools/sensor_simulator/programs.h"

namespace kerul::lidar::simulator {
namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

StreamOptions CaptureOptions(const std::string& path, std::uint64_t frames) {
  StreamOptions options;
  options.scene = "empty";
  options.capture_path = path;
  options.frames = frames;
  options.progress = false;
  return options;
}

StreamSummary RunQuietly(const StreamOptions& options) {
  const std::atomic<bool> stop{false};
  std::ostringstream progress;
  return RunStream(options, stop, progress);
}

// Frame id of the packet of a capture: headers of 24, 16 and 42 bytes, 692 bytes of packet.
int FrameId(const std::string& capture, std::size_t packet) {
  return static_cast<std::uint8_t>(capture[24 + (16 + 42 + 692) * packet + 16 + 42 + 675]);
}

TEST(RunStream, TheSameSeedGivesTheSameCaptureFile) {
  const testing::TempDir directory;
  StreamOptions options = CaptureOptions(directory.File("a.pcap"), 2);
  options.faults.loss = 0.01;
  options.faults.reorder = 0.01;
  const StreamSummary summary = RunQuietly(options);
  options.capture_path = directory.File("b.pcap");
  RunQuietly(options);
  EXPECT_EQ(summary.frames, 2U);
  EXPECT_EQ(summary.datagrams + summary.faults.lost, 2U * 6912U);
  EXPECT_GT(summary.faults.lost, 0U);
  EXPECT_EQ(ReadFile(directory.File("a.pcap")), ReadFile(directory.File("b.pcap")));
}

TEST(RunStream, AFileHoldsAsManyFramesAsWereAskedFor) {
  const testing::TempDir directory;
  StreamOptions options = CaptureOptions(directory.File("a.pcap"), 0);
  options.seconds = 0.3;
  options.first_frame = 254;
  EXPECT_EQ(RunQuietly(options).frames, 3U);
  const std::string capture = ReadFile(directory.File("a.pcap"));
  ASSERT_EQ(capture.size(), 24U + 3U * 6912U * (16 + 42 + 692));
  EXPECT_EQ(FrameId(capture, 0), 254);
  EXPECT_EQ(FrameId(capture, 6912), 255);
  EXPECT_EQ(FrameId(capture, 2 * 6912), 0);
}

TEST(RunStream, ALoopRepeatsItsFramesUnderNewIds) {
  const testing::TempDir directory;
  StreamOptions options = CaptureOptions(directory.File("a.pcap"), 5);
  options.loop = 2;
  EXPECT_EQ(RunQuietly(options).frames, 5U);
  const std::string capture = ReadFile(directory.File("a.pcap"));
  constexpr std::size_t kRecord = 16 + 42 + 692;
  const auto blocks = [&](std::size_t frame) {
    return capture.substr(24 + kRecord * 6912 * frame + 16 + 42 + 20, 648);
  };
  EXPECT_EQ(blocks(0), blocks(2));
  EXPECT_EQ(blocks(0), blocks(4));
  EXPECT_NE(blocks(0), blocks(1));
  for (std::size_t frame = 0; frame < 5; ++frame) {
    EXPECT_EQ(FrameId(capture, 6912 * frame), static_cast<int>(frame));
  }
}

TEST(RunStream, TheTruthStandsBesideTheStreamFrameByFrame) {
  const testing::TempDir directory;
  StreamOptions options = CaptureOptions(directory.File("a.pcap"), 2);
  options.truth_path = directory.File("truth");
  options.first_frame = 10;
  RunQuietly(options);
  const std::vector<SimulatedFrame> truth = ReadTruthFile(options.truth_path);
  ASSERT_EQ(truth.size(), 2U);
  EXPECT_EQ(truth[0].number, 10U);
  EXPECT_EQ(truth[1].number, 11U);
}

TEST(RunStream, ASetStopEndsTheStreamBeforeItsFirstFrame) {
  const testing::TempDir directory;
  const std::atomic<bool> stop{true};
  std::ostringstream progress;
  EXPECT_EQ(RunStream(CaptureOptions(directory.File("a.pcap"), 9), stop, progress).frames, 0U);
  EXPECT_EQ(std::filesystem::file_size(directory.File("a.pcap")), 24U);
}

TEST(RunStream, ProgressEndsWithTheWholeStreamsLine) {
  const testing::TempDir directory;
  StreamOptions options = CaptureOptions(directory.File("a.pcap"), 1);
  options.progress = true;
  const std::atomic<bool> stop{false};
  std::ostringstream progress;
  RunStream(options, stop, progress);
  EXPECT_NE(progress.str().find("\rframe 1  "), std::string::npos);
  EXPECT_EQ(progress.str().back(), '\n');
}

TEST(RunStream, LiveFramesKeepTheRate) {
  StreamOptions options;
  options.scene = "empty";
  options.dest_port = 9;  // nobody listens
  options.frames = 6;
  options.loop = 1;
  options.frames_per_second = 20.0;
  options.progress = false;
  const StreamSummary summary = RunQuietly(options);
  EXPECT_EQ(summary.datagrams, 6U * 6912U);
  // Five whole periods and most of the sixth.
  EXPECT_GE(summary.elapsed_s, 0.27);
}

TEST(RunStream, WhatMakesNoSenseIsRefused) {
  StreamOptions options;
  options.frames = 1;
  options.progress = false;
  options.scene = "garden";
  EXPECT_THROW(RunQuietly(options), std::invalid_argument);
  options.scene = "empty";
  options.frames_per_second = 0.0;
  EXPECT_THROW(RunQuietly(options), std::invalid_argument);
  options.frames_per_second = 10.0;
  options.capture_path = "/nowhere/a.pcap";
  EXPECT_THROW(RunQuietly(options), std::runtime_error);
}

// The program itself, when it was built.
class Program : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = std::string(KERUL_BINARY_DIR) + "/tools/sensor_simulator";
    if (!std::filesystem::exists(path_)) GTEST_SKIP() << path_ << " was not built";
  }
  std::string path_;
};

TEST_F(Program, HelpNamesEveryScene) {
  const CommandResult result = RunCommand(path_ + " --help");
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.output.find("street,retro,noise,crosstalk,targets,empty"), std::string::npos);
}

TEST_F(Program, WrongOptionsEndWithAFailure) {
  EXPECT_NE(RunCommand(path_ + " --scene garden 2>&1").status, 0);
  EXPECT_NE(RunCommand(path_ + " --loss 2 2>&1").status, 0);
  EXPECT_EQ(RunCommand(path_ + " --capture /tmp/never.pcap 2>&1").output,
            "--capture needs --frames or --seconds\n");
  const CommandResult result = RunCommand(path_ + " --frames 1 --capture /nowhere/a 2>&1");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "sensor_simulator: cannot write /nowhere/a\n");
}

TEST_F(Program, TsharkCountsThePacketsOfACapture) {
  if (!HasProgram("tshark")) GTEST_SKIP() << "tshark is not installed";
  const testing::TempDir directory;
  const std::string capture = directory.File("a.pcap");
  ASSERT_EQ(RunCommand(path_ + " --quiet --frames 1 --capture " + capture).status, 0);
  const CommandResult result =
      RunCommand("tshark -r " + capture + " -Y 'udp.length == 700' 2>/dev/null | wc -l");
  EXPECT_EQ(std::stoi(result.output), 6912);
}

TEST_F(Program, TheCommandServiceGivesTheSensorsOwnHeadPage) {
  // One line names the port; a signal ends the program after a second.
  std::FILE* program =
      popen(("timeout -s TERM 1 " + path_ + " --no-stream --serial 12 --rcx-port 0").c_str(), "r");
  ASSERT_NE(program, nullptr);
  int port = 0;
  EXPECT_EQ(std::fscanf(program, "command service of SIM-0012 on 127.0.0.1:%d", &port), 1);
  SimulatorOptions options;
  options.serial = 12;
  RcxClient client("127.0.0.1", port, 1.0);
  EXPECT_EQ(client.ReadIicRegMulti(0x40, 0xA02C, 256), MakeBlobs(options).head);
  pclose(program);
}

TEST_F(Program, CalibrationIsWrittenWithoutAStream) {
  const testing::TempDir directory;
  const CommandResult result =
      RunCommand(path_ + " --no-stream --serial 12 --calibration " + directory.path().string());
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(std::filesystem::file_size(directory.path() / "SIM-0012/para_read/SIM-0012_para2.bin"),
            168960U);
}

}  // namespace
}  // namespace kerul::lidar::simulator
