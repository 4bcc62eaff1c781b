// Takes the place of setsockopt in this program and notes which time-outs sockets are given.
#pragma once

#include <vector>

namespace kerul::lidar {

// While it lives, the time-outs set on its own thread are noted, in microseconds. Calls are passed
// on.
class RecordedTimeouts {
 public:
  RecordedTimeouts();
  ~RecordedTimeouts();
  RecordedTimeouts(const RecordedTimeouts&) = delete;
  RecordedTimeouts& operator=(const RecordedTimeouts&) = delete;

  std::vector<long> receiving;
  std::vector<long> sending;
};

}  // namespace kerul::lidar
