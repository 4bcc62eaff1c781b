// The clock of the packets' time stamps, where node and server share a machine.
#pragma once

#include <chrono>
#include <cstdint>

namespace kerul::lidar::web {

// Microseconds since the epoch.
inline std::int64_t SystemClockUs() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

}  // namespace kerul::lidar::web
