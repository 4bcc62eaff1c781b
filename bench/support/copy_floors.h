// What cannot be undercut: moving the bytes.
#pragma once

#include <vector>

#include "MIPI_reader/parser/lidar_point.h"
#include "support/bench_input.h"

namespace kerul::lidar::bench {

// Copies one record by explicit vector loads and stores of 16 bytes. A plain assignment is no
// floor: g++ makes a slow string instruction of it.
void CopyRecord(const LidarPoint& from, LidarPoint& to) noexcept;

// Holds the two copies' memory.
class CopyFloors {
 public:
  CopyFloors();

  // A frame's raw packets from memory to memory.
  void CopyPackets(const FramePackets& packets) noexcept;
  // A frame's records, nine at a time out of a small buffer to their places in a frame, in the
  // order in which packets fill it.
  void CopyRecords() noexcept;

 private:
  std::vector<std::uint8_t> packet_memory_;
  std::vector<LidarPoint> packet_points_;
  std::vector<std::vector<LidarPoint>> rows_;
  std::vector<std::pair<int, int>> places_;  // row and column of each record, in packet order
};

}  // namespace kerul::lidar::bench
