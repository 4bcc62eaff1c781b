// The time at which packets are worked on.
#pragma once

#include <chrono>
#include <cstdint>

namespace kerul::lidar {

// The system's time, read off the processor's counter. Two reads of the system's own clock per
// packet take 4 % of a frame's processing time, reads of the counter half of that. The rate is
// measured from one Set to the next. Before the second Set, and on processors without such a
// counter, Now asks the system.
class PacketClock {
 public:
  using TimePoint = std::chrono::system_clock::time_point;

  PacketClock() noexcept { Set(); }
  // Sets the time by the system's clock. To be called regularly, at least every few seconds.
  void Set() noexcept;
  TimePoint Now() const noexcept;

 private:
  TimePoint system_;                              // at the last Set
  std::chrono::steady_clock::time_point steady_;  // likewise, for the rate: never adjusted
  std::uint64_t ticks_ = 0;                       // likewise
  double ns_per_tick_ = 0.0;                      // 0: not known
};

}  // namespace kerul::lidar
