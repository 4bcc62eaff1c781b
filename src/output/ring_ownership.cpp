#include "output/ring_ownership.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <thread>

namespace kerul::lidar {
namespace {

// Regions are at most 4 GiB.
constexpr off_t kWriterBytes = off_t{1} << 40;
constexpr off_t kRefusalByte = kWriterBytes;

struct flock WholeObject(short type) noexcept {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_len = kWriterBytes;
  return lock;
}

struct flock Refusal(short type) noexcept {
  struct flock lock = WholeObject(type);
  lock.l_start = kRefusalByte;
  lock.l_len = 1;
  return lock;
}

int OpenToLook(const std::string& object_name) noexcept {
  return shm_open(object_name.c_str(), O_RDONLY | O_NONBLOCK, 0);
}

}  // namespace

bool LockAsWriter(int fd) noexcept {
  struct flock lock = WholeObject(F_WRLCK);
  return fcntl(fd, F_OFD_SETLK, &lock) == 0;
}

// Asks for a reader's lock: only a writer's lock conflicts with it, so no reader can pass for a
// writer.
bool WriterLives(int fd) noexcept {
  struct flock lock = WholeObject(F_RDLCK);
  return fcntl(fd, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

bool RingWriterLives(const std::string& object_name) noexcept {
  const int fd = OpenToLook(object_name);
  if (fd < 0) return false;
  const bool lives = WriterLives(fd);
  close(fd);
  return lives;
}

// A lock of the process, not of the descriptor: the system tells its holder.
void ShowRefusal(const std::string& object_name, std::chrono::milliseconds shows) {
  const int fd = OpenToLook(object_name);
  if (fd < 0) return;
  struct flock lock = Refusal(F_RDLCK);
  if (fcntl(fd, F_SETLK, &lock) == 0) std::this_thread::sleep_for(shows);
  close(fd);
}

pid_t RefusedProcess(int fd) noexcept {
  struct flock lock = Refusal(F_WRLCK);
  if (fcntl(fd, F_OFD_GETLK, &lock) != 0 || lock.l_type == F_UNLCK) return 0;
  return lock.l_pid > 0 ? lock.l_pid : -1;
}

}  // namespace kerul::lidar
