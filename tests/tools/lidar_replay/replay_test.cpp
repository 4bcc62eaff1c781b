#include "lidar_replay/replay.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "MIPI_reader/node/lidar_node.h"
#include "config/default_config.h"
#include "kerul_lidar/shm_ring_reader.h"
#include "output/shm_layout.h"
#include "output/shm_test_name.h"
#include "sensor_simulator/calibration_blobs.h"
#include "sensor_simulator/capture_file.h"
#include "sensor_simulator/frame_simulator.h"
#include "sensor_simulator/stream_runner.h"
#include "support/child_process.h"
#include "support/temp_dir.h"

namespace kerul::lidar::replay {
namespace {

namespace fs = std::filesystem;
using kerul::lidar::testing::ChildProcess;
using kerul::lidar::testing::Stream;
using kerul::lidar::testing::TempDir;

using Bytes = std::vector<std::uint8_t>;

// A published packet without the time when it was built.
Bytes Timeless(const ReceivedPacket& packet) {
  Bytes bytes(packet.bytes, packet.bytes + packet.length);
  if (bytes.size() == 249) std::fill_n(bytes.begin() + 216, 8, std::uint8_t{0});
  return bytes;
}

class ReplayTest : public ::testing::Test {
 protected:
  ReplayTest() {
    simulator::WriteBlobs(simulator::MakeBlobs(simulator::SimulatorOptions{}), directory_.path());
    simulator::StreamOptions stream;
    stream.capture_path = Capture();
    stream.first_frame = 10;
    stream.frames = 2;
    stream.progress = false;
    const std::atomic<bool> stop{false};
    std::ostringstream nowhere;
    EXPECT_EQ(simulator::RunStream(stream, stop, nowhere).datagrams, 2U * 6912U);
  }
  std::string Capture() const { return (directory_.path() / "run.pcap").string(); }
  std::string Calibration() const { return (directory_.path() / "SIM-0001").string(); }

  std::vector<Bytes> Played() const {
    std::vector<Bytes> packets;
    ::testing::internal::CaptureStdout();
    EXPECT_TRUE(Replay(Capture(), Calibration(), [&](const ReceivedPacket& packet) {
      packets.push_back(Timeless(packet));
      return true;
    }));
    ::testing::internal::GetCapturedStdout();
    return packets;
  }

  TempDir directory_;
};

TEST_F(ReplayTest, PublishesWhatANodePublishesThatReplaysTheCaptureItself) {
  const ShmTestName name;
  DefaultConfig config = default_config::kConfig;
  config.data_source = 2;
  config.pcap_path = Capture();
  config.shm_name = name.str();
  config.shm_size = shm_ring::kHeaderBytes + 65536U * shm_ring::kStride;
  std::vector<Bytes> published;
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  {
    LidarNode node("A_node", config, Calibration());
    ShmRingReader reader(name.c_str(), RingStart::kOldest);
    ReceivedPacket packet;
    while (published.size() < 3456 && reader.Next(packet, testing::kPatience)) {
      published.push_back(Timeless(packet));
    }
    node.RequestStop();
    node.JoinWorker();
  }
  ::testing::internal::GetCapturedStdout();
  ::testing::internal::GetCapturedStderr();
  ASSERT_EQ(published.size(), 3456U);
  const std::vector<Bytes> played = Played();
  ASSERT_EQ(played.size(), 3456U) << "once, and then no more";
  for (std::size_t i = 0; i < played.size(); ++i) ASSERT_EQ(played[i], published[i]) << i;
}

TEST_F(ReplayTest, DatagramsThatAreNotTheSensorsArePassedOver) {
  const std::vector<Bytes> plain = Played();
  std::ifstream whole(Capture(), std::ios::binary);
  const std::string run{std::istreambuf_iterator<char>(whole), {}};
  {
    simulator::CaptureWriter writer(Capture(), {});
    for (int i = 0; i < 50; ++i) writer.Write(1, Bytes(700, 0x55));
    writer.Write(2, Bytes{0xEE, 0xFF, 7, 11, 0, 0, 0, 0, 0, 0});
    writer.Close();
  }
  std::ofstream(Capture(), std::ios::binary | std::ios::app) << run.substr(24);
  const std::vector<Bytes> played = Played();
  ASSERT_EQ(played.size(), 3456U);
  EXPECT_EQ(played, plain);
}

TEST_F(ReplayTest, ACutCaptureGivesWhatIsWholeAndSaysSo) {
  // Frame 10 and half of frame 11, cut within a record.
  fs::resize_file(Capture(), 24 + (6912 + 3456) * std::uintmax_t{16 + 42 + 692} + 100);
  ::testing::internal::CaptureStderr();
  const std::vector<Bytes> played = Played();
  EXPECT_NE(::testing::internal::GetCapturedStderr().find("cut in its last record"),
            std::string::npos);
  EXPECT_GT(played.size(), 1728U);
  EXPECT_LT(played.size(), 3456U);
}

TEST_F(ReplayTest, EndsWhenNothingMoreIsWanted) {
  int taken = 0;
  ::testing::internal::CaptureStdout();
  EXPECT_FALSE(
      Replay(Capture(), Calibration(), [&](const ReceivedPacket&) { return ++taken < 5; }));
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(taken, 5);
}

TEST_F(ReplayTest, WhatCannotBeUsedIsThrown) {
  const auto any = [](const ReceivedPacket&) { return true; };
  EXPECT_THROW(Replay(Capture(), "/nowhere", any), std::runtime_error);
  ::testing::internal::CaptureStdout();
  EXPECT_THROW(Replay("/nowhere.pcap", Calibration(), any), std::runtime_error);
  ::testing::internal::GetCapturedStdout();
}

TEST_F(ReplayTest, TheProgramWritesPacketsAndNothingElse) {
  const std::string program = KERUL_BINARY_DIR "/tools/lidar_replay";
  ChildProcess good({program, Capture(), "--cali_path", Calibration()}, directory_.path());
  EXPECT_EQ(good.WaitForExit(), 0) << good.Err();
  EXPECT_EQ(good.Out().size(), 3456U * 249U);
  EXPECT_EQ(good.Err(), "");
  EXPECT_FALSE(fs::exists("/dev/shm/lidar_replay_" + std::to_string(good.pid()) + "_0"));
  ChildProcess bad({program, Capture(), "--cali_path", "/nowhere"}, directory_.path());
  EXPECT_EQ(bad.WaitForExit(), 1);
  EXPECT_EQ(bad.Out(), "");
  EXPECT_EQ(bad.Err(), "lidar_replay: cali_path is not a valid directory: /nowhere\n");
}

// The pipe holds some 260 packets of 3456, so the program waits for its reader.
TEST_F(ReplayTest, AProgramThatIsTerminatedTakesItsRingAlong) {
  ChildProcess program(
      {KERUL_BINARY_DIR "/tools/lidar_replay", Capture(), "--cali_path", Calibration()},
      directory_.path());
  const std::string ring = "/dev/shm/lidar_replay_" + std::to_string(program.pid()) + "_0";
  // EE FF and the version begin the first packet.
  ASSERT_TRUE(program.WaitFor(Stream::kOut, "\xEE\xFF\x07\x0A"));
  EXPECT_TRUE(fs::exists(ring));
  program.Signal(SIGTERM);
  EXPECT_EQ(program.WaitForExit(), 1);
  EXPECT_FALSE(fs::exists(ring));
}

}  // namespace
}  // namespace kerul::lidar::replay
