// Counts the frame ids that are passed over from one frame to the next: frames that were not
// published, or that were published but did not come.
#pragma once

#include <cstdint>

namespace kerul::lidar {

struct FrameIdTracker {
  std::uint64_t missing = 0;    // ids passed over
  std::uint64_t backwards = 0;  // frames whose id lies up to 127 before that of the frame before
  std::uint8_t newest = 0;
  bool started = false;

  // Ids count modulo 256, so a step of up to this many is forward.
  static constexpr int kLargestStep = 128;

  // Takes the id of a frame that begins. Gives the ids missing between it and the one before.
  int Take(std::uint8_t frame_id) noexcept {
    const int step = static_cast<std::uint8_t>(frame_id - newest);
    const bool is_backwards = started && step > kLargestStep;
    const bool is_gap = started && step > 1 && !is_backwards;
    if (is_backwards) ++backwards;
    // The node publishes its first frame under 0 whatever its id: no place to count from.
    started = frame_id != 0 || (started && !is_backwards);
    newest = frame_id;
    if (!is_gap) return 0;
    missing += static_cast<std::uint64_t>(step - 1);
    return step - 1;
  }
  // The stream begins anew: nothing is missing before the next frame. The counts stay.
  void Restart() noexcept { started = false; }
};

}  // namespace kerul::lidar
