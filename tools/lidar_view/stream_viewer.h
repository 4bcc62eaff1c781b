// Follows the stream: counts, collects frames, keeps the latest complete one, tells how it goes.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "kerul_lidar/frame_collector.h"
#include "kerul_lidar/packet_input.h"
#include "lidar_view/status_line.h"

namespace kerul::lidar::view {

// When to stop by itself; 0 is never.
struct ViewLimits {
  double seconds = 0.0;
  std::uint64_t complete_frames = 0;
};

class StreamViewer {
 public:
  explicit StreamViewer(PacketInput& input) : input_(input) {}

  // Reads until a limit is reached or `stop` is set. `show_status` gets the status line once a
  // second.
  void Run(const ViewLimits& limits, const std::atomic<bool>& stop,
           const std::function<void(const std::string&)>& show_status);

  const ViewCounts& Counts() const noexcept { return counts_; }
  double Seconds() const noexcept { return seconds_; }
  // Null while none came.
  const CollectedFrame* LatestComplete() const noexcept {
    return counts_.complete == 0 ? nullptr : &latest_;
  }

 private:
  void Take(const ReceivedPacket& packet);
  void UpdateCounts();

  PacketInput& input_;
  FrameCollector collector_;
  CollectedFrame latest_;
  ViewCounts counts_;
  std::uint64_t restarts_ = 0;
  double seconds_ = 0.0;
};

}  // namespace kerul::lidar::view
