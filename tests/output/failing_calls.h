// Lets calls of the operating system fail on request. This test program's definitions stand before
// the library's; without a request they pass every call on.
#pragma once

namespace kerul::lidar {

// An errno for each call that is to fail, 0 to pass it on. While one lives, all calls follow it.
struct FailingCalls {
  FailingCalls();
  ~FailingCalls();
  FailingCalls(const FailingCalls&) = delete;
  FailingCalls& operator=(const FailingCalls&) = delete;

  int ftruncate = 0;
  int fstat = 0;
  int mmap = 0;
};

}  // namespace kerul::lidar
