// The simulator's run: frames are computed, spoilt on request, and sent or written.
#pragma once

#include <atomic>
#include <cstdint>
#include <iosfwd>
#include <string>

#include "sensor_simulator/capture_file.h"
#include "sensor_simulator/frame_simulator.h"
#include "sensor_simulator/stream_faults.h"

namespace kerul::lidar::simulator {

struct StreamOptions {
  std::string scene = "street";
  SimulatorOptions sensor;
  double frames_per_second = 10.0;
  std::uint32_t first_frame = 0;
  std::uint64_t frames = 0;  // 0: no limit
  double seconds = 0.0;      // 0: no limit; time of the stream
  std::uint32_t loop = 0;    // above 0: compute so many frames ahead and send them over and over
  std::string dest_ip = "127.0.0.1";
  std::uint16_t dest_port = 2368;
  std::string capture_path;  // not empty: write a capture instead of sending
  CaptureEndpoints capture;
  std::string truth_path;  // not empty: write the ground truth
  FaultRates faults;
  bool progress = true;
};

struct StreamSummary {
  std::uint64_t frames = 0;
  std::uint64_t datagrams = 0;
  std::uint64_t bytes = 0;
  std::uint64_t failed = 0;  // datagrams that the network refused
  double elapsed_s = 0.0;
  FaultCounts faults;
};

// Runs until the limits are reached or `stop` is set. progress: one line a second, written over
// the last one. Throws what scene, file or socket throw.
StreamSummary RunStream(const StreamOptions& options, const std::atomic<bool>& stop,
                        std::ostream& progress);

}  // namespace kerul::lidar::simulator
