// The time at which packets are worked on.
#pragma once

#include <chrono>
#include <cstdint>

namespace kerul::lidar {

// The system's time, read off the processor's counter. Two looks at the system's own clock for each
// packet take 4 % of the time that a frame takes, looks at the counter half of that. The rate is
// measured from one Set to the next; before the second one, and on processors without such a
// counter, Now asks the system.
class PacketClock {
 public:
  using TimePoint = std::chrono::system_clock::time_point;

  PacketClock() noexcept { Set(); }
  // Goes by the system's clock again. To be called now and then, at least once in some seconds.
  void Set() noexcept;
  TimePoint Now() const noexcept;

 private:
  TimePoint system_;                              // at the last Set
  std::chrono::steady_clock::time_point steady_;  // likewise, for the rate: nobody puts it right
  std::uint64_t ticks_ = 0;                       // likewise
  double ns_per_tick_ = 0.0;                      // 0: not known
};

}  // namespace kerul::lidar
