// How fast a running total grows.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>

namespace kerul::lidar::web {

class RateWindow {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  // Called whenever the total has grown, with times that do not fall.
  void Add(TimePoint now, std::uint64_t total);
  // Per second, over the last two seconds: from one addition to another, so that few large steps
  // give an even figure; falls when the next step is late, 0 after two seconds without one.
  double PerSecond(TimePoint now) const;

 private:
  struct Sample {
    TimePoint time;
    std::uint64_t total;
  };
  std::deque<Sample> samples_;
};

}  // namespace kerul::lidar::web
