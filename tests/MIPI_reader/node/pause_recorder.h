// Takes the place of the pauses of a thread, so that a test sees how long each was meant to be and
// does not depend on the machine's speed.
#pragma once

#include <chrono>
#include <vector>

namespace kerul::lidar::testing {

// While it lives, std::this_thread::sleep_for of this thread returns at once and is noted. One at
// a time in a thread.
class PauseRecorder {
 public:
  PauseRecorder();
  ~PauseRecorder();
  PauseRecorder(const PauseRecorder&) = delete;
  PauseRecorder& operator=(const PauseRecorder&) = delete;

  // The pauses since the last call, in their order.
  std::vector<std::chrono::microseconds> Take();
};

}  // namespace kerul::lidar::testing
