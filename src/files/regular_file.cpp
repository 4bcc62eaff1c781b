#include "files/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace kerul::lidar {
namespace {

// Up to the size that the file has now.
FileFault ReadAll(int fd, std::vector<std::uint8_t>& bytes) {
  struct stat status {};
  if (fstat(fd, &status) != 0) return FileFault::kReadFailed;
  if (!S_ISREG(status.st_mode)) return FileFault::kNotRegular;
  bytes.resize(static_cast<std::size_t>(status.st_size));
  std::size_t done = 0;
  ssize_t taken = 1;
  while (done < bytes.size() && taken != 0) {
    taken = read(fd, bytes.data() + done, bytes.size() - done);
    if (taken < 0 && errno != EINTR) break;
    if (taken > 0) done += static_cast<std::size_t>(taken);
  }
  const bool shorter = done < bytes.size();
  bytes.resize(done);
  if (taken < 0) return FileFault::kReadFailed;
  return shorter ? FileFault::kShorter : FileFault::kNone;
}

}  // namespace

FileFault ReadRegularFile(const std::string& path, std::vector<std::uint8_t>& bytes) {
  bytes.clear();
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  // A socket cannot be opened at all.
  if (fd < 0) return errno == ENXIO ? FileFault::kNotRegular : FileFault::kCannotOpen;
  const FileFault fault = ReadAll(fd, bytes);
  const int error = errno;
  close(fd);
  errno = error;
  return fault;
}

}  // namespace kerul::lidar
