#include "files/file_set.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

namespace kerul::lidar {
namespace {

std::string NewName(const NewFile& file) { return file.path + ".new"; }

bool WriteAll(int fd, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
  return true;
}

void WriteUnderNewName(const NewFile& file) {
  const std::string name = NewName(file);
  ::unlink(name.c_str());  // what a crash left
  constexpr mode_t kMode = 0666;
  const int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kMode);
  if (fd < 0) throw std::runtime_error("cannot write " + file.path);
  const bool is_on_disk = WriteAll(fd, file.bytes) && ::fsync(fd) == 0;
  const bool is_closed = ::close(fd) == 0;
  if (!is_on_disk || !is_closed) throw std::runtime_error("write failed: " + file.path);
}

void GiveName(const NewFile& file) {
  if (std::rename(NewName(file).c_str(), file.path.c_str()) != 0) {
    throw std::runtime_error("cannot write " + file.path);
  }
}

// The names are on the disk too. Not every file system can do it, and nothing depends on it.
void SyncDirectoryOf(const NewFile& file) {
  const std::filesystem::path directory = std::filesystem::path(file.path).parent_path();
  const int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  ::fsync(fd);
  ::close(fd);
}

}  // namespace

void ReplaceFiles(std::span<const NewFile> files) {
  bool old_set_is_gone = false;
  try {
    for (const NewFile& file : files) WriteUnderNewName(file);
    old_set_is_gone = true;
    for (const NewFile& file : files) ::unlink(file.path.c_str());
    for (const NewFile& file : files) GiveName(file);
  } catch (...) {
    for (const NewFile& file : files) {
      ::unlink(NewName(file).c_str());
      if (old_set_is_gone) ::unlink(file.path.c_str());
    }
    throw;
  }
  if (!files.empty()) SyncDirectoryOf(files.front());
}

}  // namespace kerul::lidar
