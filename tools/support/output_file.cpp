#include "support/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace kerul::lidar {
namespace {

constexpr mode_t kNewFileMode = 0666;  // less the umask

// 0 or the error's number. Closes `fd` in any case.
int WriteAndClose(int fd, std::span<const char> bytes) {
  int error = 0;
  while (!bytes.empty() && error == 0) {
    const ssize_t written = write(fd, bytes.data(), bytes.size());
    if (written > 0) {
      bytes = bytes.subspan(static_cast<std::size_t>(written));
    } else if (written < 0 && errno != EINTR) {
      error = errno;
    }
  }
  if (close(fd) != 0 && error == 0) error = errno;
  return error;
}

int WriteInPlace(const std::string& path, std::span<const char> bytes) {
  const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  return fd < 0 ? errno : WriteAndClose(fd, bytes);
}

// `old` is what stands there now, null for nothing: the new file has its rights.
int WriteBeside(const std::string& path, std::span<const char> bytes, const struct stat* old) {
  const std::string beside = path + ".part" + std::to_string(getpid());
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  const int fd = open(beside.c_str(), kFlags, kNewFileMode);
  if (fd < 0) return errno;
  int error = 0;
  if (old != nullptr && fchmod(fd, old->st_mode & 07777) != 0) error = errno;
  const int write_error = WriteAndClose(fd, bytes);
  if (error == 0) error = write_error;
  if (error == 0 && std::rename(beside.c_str(), path.c_str()) != 0) error = errno;
  if (error != 0) unlink(beside.c_str());
  return error;
}

int Write(const std::string& path, std::span<const char> bytes) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    return errno == ENOENT ? WriteBeside(path, bytes, nullptr) : errno;
  }
  if (!S_ISREG(status.st_mode)) return WriteInPlace(path, bytes);
  std::error_code error;
  const std::filesystem::path target = std::filesystem::canonical(path, error);
  if (error) return error.value();
  if (access(target.c_str(), W_OK) != 0) return errno;
  return WriteBeside(target.string(), bytes, &status);
}

}  // namespace

bool WriteOutputFile(const std::string& path, std::span<const char> bytes, std::string& error) {
  const int number = Write(path, bytes);
  if (number == 0) return true;
  error = std::strerror(number);
  return false;
}

}  // namespace kerul::lidar
