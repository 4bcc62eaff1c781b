// lidar_web beside a running node: which loss shows where.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <fstream>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "process_fixture.h"

namespace kerul::lidar::testing {
namespace {

const std::string kWebProgram = KERUL_BINARY_DIR "/tools/lidar_web";
constexpr long kPacketsOfFrame = 6912;

class WebLoss : public IsolatedProcessTest {
 protected:
  void SetUp() override {
    IsolatedProcessTest::SetUp();
    if (IsSkipped()) return;
    if (access(kWebProgram.c_str(), X_OK) != 0) GTEST_SKIP() << "lidar_web is not built";
    const std::string command =
        "exec " + kNodeProgram + " --cali_path " + CalibrationDirectory() + " >node.log 2>&1";
    node_ = std::make_unique<ChildProcess>(std::vector<std::string>{"/bin/sh", "-c", command},
                                           Directory());
    ASSERT_TRUE(WaitUntilRunning(*node_));
    web_ = std::make_unique<ChildProcess>(
        std::vector<std::string>{kWebProgram, "--node-log", "node.log"}, Directory());
    ASSERT_TRUE(web_->WaitFor(Stream::kOut, "http://127.0.0.1:8710/"));
  }

  // In the shell's own way, as no program for it need be there.
  std::string Scrape() const {
    ChildProcess get(
        {"/bin/bash", "-c",
         "exec 3<>/dev/tcp/127.0.0.1/8710 && "
         "printf 'GET /metrics HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n' "
         ">&3 && timeout 5 cat <&3"},
        Directory());
    get.WaitForExit();
    return get.Out();
  }
  // -1 for a sample that is not there.
  long Metric(const std::string& sample) const {
    const std::string text = Scrape();
    const std::size_t at = text.find("\n" + sample + " ");
    return at == std::string::npos ? -1 : std::stol(text.substr(at + sample.size() + 2));
  }
  long Lost(const std::string& place) const {
    return Metric("kerul_lidar_lost_raw_packets_total{place=\"" + place + "\"}");
  }

  // The last word of the node's line in the kernel's own table, in the network of the test.
  long KernelDrops() const {
    std::ifstream table("/proc/thread-self/net/udp");
    for (std::string line; std::getline(table, line);) {
      if (line.find(":0940 ") == std::string::npos) continue;
      const std::size_t end = line.find_last_not_of(' ');
      return std::stol(line.substr(line.find_last_of(' ', end) + 1));
    }
    return -1;
  }

  // From the node's line for each frame: packets that frames after the first one did not have, with
  // those of whole frames that never came.
  long MissingPackets() const {
    std::ifstream log(Directory() / "node.log");
    const std::regex frame_line("frame_id: ([0-9]+), received_count:([0-9]+)");
    long missing = 0;
    int id = -1;
    for (std::string line; std::getline(log, line);) {
      std::smatch match;
      if (!std::regex_search(line, match, frame_line)) continue;
      const int next = std::stoi(match[1]);
      if (id >= 0) {
        missing += kPacketsOfFrame - std::stol(match[2]);
        missing += ((next - id + 255) % 256) * kPacketsOfFrame;
      }
      id = next;
    }
    return missing;
  }

  std::unique_ptr<ChildProcess> node_;
  std::unique_ptr<ChildProcess> web_;
};

TEST_F(WebLoss, LossOnTheWayIsLostBeforeTheHostAndNowhereElse) {
  constexpr int kFrames = 24;
  const auto stream = StartSimulator({"--quiet", "--loop", "2", "--rate", "4", "--frames",
                                      std::to_string(kFrames), "--loss", "0.01"});
  ASSERT_EQ(stream->WaitForExit(), 0);
  const long kernel_drops = KernelDrops();
  EXPECT_EQ(Lost("kernel"), kernel_drops);
  node_->Interrupt();  // what it holds back it tells at its end
  EXPECT_TRUE(WaitUntil([&] { return Lost("before_host") + kernel_drops == MissingPackets(); }))
      << Lost("before_host") << " before the host, " << kernel_drops << " in the kernel, "
      << MissingPackets() << " missing";
  // One in a hundred of the frames after the first, five standard deviations either way. The last
  // frame may not be closed.
  const double expected = 0.01 * kPacketsOfFrame * (kFrames - 1);
  EXPECT_NEAR(static_cast<double>(Lost("before_host")), expected, 5 * std::sqrt(expected) + 70);
  EXPECT_EQ(Metric("kerul_lidar_lost_point_packets_total{place=\"ring\"}"), 0);
  // Where a packet of the last row is missing, the node leaves out the last two rows of blocks, and
  // nothing else.
  EXPECT_EQ(Metric("kerul_lidar_missing_blocks_total"),
            2 * 48 * Metric("kerul_lidar_frames_total{state=\"incomplete\"}"));
  EXPECT_EQ(Metric("kerul_lidar_missing_frames_total"), 0);
}

TEST_F(WebLoss, WhatAStoppedNodeLosesIsTheKernelsCount) {
  const auto stream = StartSimulator({"--quiet", "--loop", "2", "--rate", "10"});
  ASSERT_TRUE(
      WaitUntil([&] { return Metric("kerul_lidar_frames_total{state=\"complete\"}") > 2; }));
  EXPECT_GT(Metric("kerul_lidar_node_resident_memory_bytes"), 1'000'000);
  node_->Signal(SIGSTOP);
  const long before = KernelDrops();
  ASSERT_TRUE(WaitUntil([&] { return KernelDrops() > before + 2 * kPacketsOfFrame; }));
  node_->Signal(SIGCONT);
  ASSERT_TRUE(WaitUntil([&] { return Metric("kerul_lidar_missing_frames_total") > 0; }));
  stream->Interrupt();
  EXPECT_GT(Lost("kernel"), before + 2 * kPacketsOfFrame);
  EXPECT_EQ(Lost("kernel"), KernelDrops());
  node_->Interrupt();
  EXPECT_TRUE(WaitUntil([&] { return Metric("kerul_lidar_node_up") == 0; }));
  EXPECT_EQ(Lost("before_host"), 0);
  EXPECT_EQ(Metric("kerul_lidar_lost_point_packets_total{place=\"ring\"}"), 0);
}

}  // namespace
}  // namespace kerul::lidar::testing
