#include "mcap/byte_source.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace kerul::lidar::mcap {

bool MemorySource::Read(std::uint64_t at, std::span<std::uint8_t> into) {
  if (at > bytes_.size() || into.size() > bytes_.size() - at) return false;
  const auto from = bytes_.subspan(static_cast<std::size_t>(at), into.size());
  std::copy(from.begin(), from.end(), into.begin());
  return true;
}

FileSource::~FileSource() {
  if (fd_ >= 0) close(fd_);
}

bool FileSource::Open(const std::string& path, std::string& error) {
  if (fd_ >= 0) close(fd_);
  struct stat status {};
  fd_ = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd_ < 0 || fstat(fd_, &status) != 0) {
    error = std::strerror(errno);
    return false;
  }
  if (!S_ISREG(status.st_mode)) {
    error = "not a plain file";
    return false;
  }
  size_ = static_cast<std::uint64_t>(status.st_size);
  return true;
}

bool FileSource::IsLocked() const {
  if (flock(fd_, LOCK_SH | LOCK_NB) != 0) return errno == EWOULDBLOCK;
  flock(fd_, LOCK_UN);
  return false;
}

bool FileSource::Read(std::uint64_t at, std::span<std::uint8_t> into) {
  if (at > size_ || into.size() > size_ - at) return false;
  while (!into.empty()) {
    const ssize_t count = pread(fd_, into.data(), into.size(), static_cast<off_t>(at));
    if (count == 0 || (count < 0 && errno != EINTR)) return false;
    if (count < 0) continue;
    into = into.subspan(static_cast<std::size_t>(count));
    at += static_cast<std::uint64_t>(count);
  }
  return true;
}

}  // namespace kerul::lidar::mcap
