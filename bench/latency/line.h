// One sensor's line: a sender at the sensor's pace, the node behind its own socket, its ring.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "support/bench_node.h"

namespace kerul::lidar::bench {

struct Latencies {
  std::vector<double> own;     // us, since the row's own last datagram
  std::vector<double> needed;  // us, since the last datagram that the row waits for
  int lost_rows = 0;           // rows that published nothing, as datagrams were lost
  std::uint64_t dropped = 0;   // datagrams that the node's socket had no room for
  double node_ms = 0.0;        // processor time of the node's thread, system calls included

  void Add(const Latencies& more);
};

class Line {
 public:
  // Throws std::runtime_error when there is no socket for it.
  explicit Line(const simulator::CalibrationBlobs& calibration);

  // Sends `frame_count` frames, a row's datagrams at once, from the caller's thread and blocks so
  // long. Reads the ring after each frame.
  Latencies Send(const std::vector<FramePackets>& frames, int frame_count,
                 std::chrono::steady_clock::time_point start,
                 std::chrono::steady_clock::duration period);

 private:
  BenchNode node_;
};

}  // namespace kerul::lidar::bench
