// lidar_dds, another maker's subscriber and a node's ring, in a network of their own.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "client/point_packet_by_hand.h"
#include "kerul_lidar/frame_stream.h"
#include "output/shm_udp_writer.h"
#include "support/child_process.h"
#include "support/isolation.h"
#include "support/temp_dir.h"

namespace kerul::lidar::testing {

inline const std::string kCloudType = "sensor_msgs::msg::dds_::PointCloud2_";
inline const std::string kImageType = "sensor_msgs::msg::dds_::Image_";

// A ring and a node that publishes what a test wants, random but the same in each run.
class PretendedNode {
 public:
  explicit PretendedNode(const std::string& ring_name);
  // A restarted node: a new ring of the same name.
  void Restart();
  // One frame of one echo in output mode 12: three of four pixels have a return, every row has a
  // time of its own.
  void PublishFrame();

 private:
  std::string name_;
  std::unique_ptr<ShmUdpWriter> writer_;
  std::mt19937 random_{1};
  int published_ = 0;
};

// Skipped where namespaces are not permitted.
class DdsTest : public ::testing::Test {
 protected:
  void SetUp() override;

  std::unique_ptr<ChildProcess> StartBridge(const std::vector<std::string>& arguments = {}) const;
  // Starts a subscriber that writes to a file of this name in the directory.
  std::unique_ptr<ChildProcess> StartListener(const std::string& topic, const std::string& type,
                                              const std::string& file,
                                              const std::string& reliability = "reliable") const;
  std::string File(const std::string& name) const { return directory_.File(name); }
  // Runs a script of the decoder's folder, arguments[0]; what it prints is `output`.
  bool RunDecoder(const std::vector<std::string>& arguments, std::string& output) const;

  Isolation isolation_;
  TempDir directory_;
};

// Both know of each other: nothing that is published from now on is missed.
bool AreConnected(ChildProcess& bridge, ChildProcess& listener, int subscribers = 1);

// What lidar_dds says at its end.
std::string Summary(int frames, int published, int left_out);

// Calls `publish` so many times, ten times a second.
template <class Publish>
void TenASecond(int times, Publish publish) {
  auto next = std::chrono::steady_clock::now();
  for (int i = 0; i < times; ++i) {
    std::this_thread::sleep_until(next);
    publish();
    next += std::chrono::milliseconds(100);
  }
}

}  // namespace kerul::lidar::testing
