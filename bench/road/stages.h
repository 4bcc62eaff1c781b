// The node's road taken apart: the same work in the same order, a clock read between the stages.
#pragma once

#include <array>
#include <string_view>
#include <vector>

#include "support/bench_node.h"

namespace kerul::lidar::bench {

enum class Stage {
  kReceive,
  kParse,
  kCalibrate,
  kCopy,
  kStale,
  kGround,
  kNeighbours,
  kShotNoise,
  kBloom,
  kOrder,
  kRecord,
  kForward,
  kReset,
};
inline constexpr int kStages = 13;
std::string_view StageName(int stage);

using StageTimes = std::array<double, kStages>;  // ms of thread time per frame

// Runs one frame through the node's own operations. Packets are taken sixteen at a time, so that a
// clock read costs little and the points are still in the first cache. The reads' own cost is
// subtracted. Frames must come with rising frame ids.
class StagedRoad {
 public:
  explicit StagedRoad(BenchNode& node);
  StageTimes Run(const FramePackets& packets);
  // The first `rows` miniflash rows of a frame, which then stays open. Nothing is measured.
  void RunRows(const FramePackets& packets, int rows);

 private:
  void TakePackets(const FramePackets& packets, std::size_t first);
  void DecodeInPlanes();
  void DecodeInRecords();
  void FinishRow(int m_row);
  template <typename Work>
  void Measure(Stage stage, Work&& work);

  LidarNodeTestAccess node_;
  std::vector<UdpPacket> datagrams_;
  std::vector<std::vector<LidarPoint>> points_;  // by packet
  std::vector<PacketPlanes> planes_;             // likewise
  std::vector<LidarNodeTestAccess::PixelRecords> records_;
  int frame_id_ = 0;
  double clock_cost_ms_ = 0.0;
  StageTimes times_{};
};

// What a frame holds when it comes out of the calibration.
struct FrameMix {
  double first_echoes = 0.0;   // share of the pixels with a valid echo 0
  double second_echoes = 0.0;  // with a valid echo 1
  int bright_pixels = 0;       // echo 0 of a high-reflectivity target
};
FrameMix MixOf(const FramePackets& packets, LidarNodeTestAccess node);

}  // namespace kerul::lidar::bench
