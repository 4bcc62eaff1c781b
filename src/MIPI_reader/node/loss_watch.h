// What of the sensor's packets did not come, in figures and at most once a second.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace kerul::lidar {

// Told of each frame as it closes. The first one after the start, and after a replay began again,
// gives no line: the node may have joined in the middle of it.
class LossWatch {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  struct ClosedFrame {
    int frame_id = 0;
    int packets = 0;                   // different ones that came
    int packets_of_frame = 0;          // that a whole frame has
    int skipped_ids = 0;               // frame ids between this frame and the next one that came
    std::uint64_t kernel_dropped = 0;  // datagrams, since the socket was opened
  };

  // The line to print, empty for none: nothing was lost, or the last line is less than a second
  // old. What is held back then is in the next one.
  std::string Look(const ClosedFrame& frame, TimePoint now);
  // What is still held back, empty for nothing.
  std::string Rest();
  void Restart() noexcept { has_joined_ = false; }

 private:
  std::uint64_t NewlyDropped(std::uint64_t total) noexcept;

  bool has_joined_ = false;
  TimePoint next_line_{};
  std::uint64_t kernel_dropped_before_ = 0;
  // Since the last line.
  std::uint64_t frames_ = 0;
  std::uint64_t short_frames_ = 0;
  std::uint64_t missing_packets_ = 0;
  std::uint64_t skipped_ids_ = 0;
  std::uint64_t dropped_ = 0;
  ClosedFrame last_short_;
};

}  // namespace kerul::lidar
