// A full disk for tests.
#pragma once

#include <sys/resource.h>

#include <csignal>

namespace kerul::lidar::mcap {

// Files of this process end at a size, as on a full disk.
class SizeLimit {
 public:
  explicit SizeLimit(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &before_);
    handler_ = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~SizeLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }

 private:
  rlimit before_{};
  void (*handler_)(int);
};

}  // namespace kerul::lidar::mcap
