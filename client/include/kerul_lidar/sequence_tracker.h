// Counts what is missing between packets by their sequence numbers, for streams whose transport
// does not number them.
#pragma once

#include <cstdint>

namespace kerul::lidar {

struct SequenceTracker {
  std::uint64_t lost = 0;        // numbers that were passed over
  std::uint64_t late = 0;        // packets below the newest one: repeated, reordered or renumbered
  std::uint64_t begun_anew = 0;  // of the late ones: far from the newest, another sender's count
  std::uint32_t newest = 0;
  bool started = false;

  // A gap of more numbers than this is a new count, not a loss: some 300 frames of one echo.
  static constexpr std::uint32_t kLargestGap = 1U << 19;

  void Take(std::uint32_t sequence) noexcept {
    const std::uint32_t step = sequence - newest;  // modulo 2^32
    if (!started || step == 1) {
      newest = sequence;
    } else if (step >= 1 && step <= kLargestGap) {
      lost += step - 1;
      newest = sequence;
    } else {
      ++late;
      // A short way back is a straggler or a row sent again.
      if (newest - sequence > kLargestGap) {
        ++begun_anew;
        newest = sequence;
      }
    }
    started = true;
  }
};

}  // namespace kerul::lidar
