#include "pause_recorder.h"

#include <cerrno>
#include <ctime>
#include <utility>

namespace {

thread_local bool recording = false;
thread_local std::vector<std::chrono::microseconds> pauses;

}  // namespace

// In place of the C library's: the program's own definition comes first.
extern "C" int nanosleep(const timespec* duration, timespec* remaining) {
  if (!recording) {
    const int error = clock_nanosleep(CLOCK_MONOTONIC, 0, duration, remaining);
    if (error == 0) return 0;
    errno = error;
    return -1;
  }
  const auto pause =
      std::chrono::seconds(duration->tv_sec) + std::chrono::nanoseconds(duration->tv_nsec);
  pauses.push_back(std::chrono::ceil<std::chrono::microseconds>(pause));
  return 0;
}

namespace kerul::lidar::testing {

PauseRecorder::PauseRecorder() { recording = true; }

PauseRecorder::~PauseRecorder() {
  recording = false;
  pauses.clear();
}

std::vector<std::chrono::microseconds> PauseRecorder::Take() { return std::exchange(pauses, {}); }

}  // namespace kerul::lidar::testing
