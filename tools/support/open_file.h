#pragma once

#include <unistd.h>

#include <utility>

namespace kerul::lidar {

// Owns a file descriptor and closes it; -1 is none.
class OpenFile {
 public:
  explicit OpenFile(int fd = -1) noexcept : fd_(fd) {}
  ~OpenFile() { Close(); }
  OpenFile(OpenFile&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  OpenFile& operator=(OpenFile&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  int Fd() const noexcept { return fd_; }
  bool IsOpen() const noexcept { return fd_ >= 0; }
  void Close() noexcept {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }

 private:
  int fd_;
};

}  // namespace kerul::lidar
