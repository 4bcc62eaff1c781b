// Names of shared-memory objects for tests: one of its own for each test, removed at its end.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <string>

namespace kerul::lidar {

class ShmTestName {
 public:
  ShmTestName()
      : name_("/kerul_test_" + std::to_string(getpid()) + "_" + std::to_string(NextCount())) {
    shm_unlink(name_.c_str());
  }
  ~ShmTestName() { shm_unlink(name_.c_str()); }
  ShmTestName(const ShmTestName&) = delete;
  ShmTestName& operator=(const ShmTestName&) = delete;

  const char* c_str() const { return name_.c_str(); }
  const std::string& str() const { return name_; }

 private:
  static int NextCount() {
    static std::atomic<int> count{0};
    return count++;
  }
  std::string name_;
};

}  // namespace kerul::lidar
