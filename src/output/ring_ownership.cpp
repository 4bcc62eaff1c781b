#include "output/ring_ownership.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace kerul::lidar {
namespace {

struct flock WholeObject(short type) noexcept {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return lock;
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
  const int fd = shm_open(object_name.c_str(), O_RDONLY | O_NONBLOCK, 0);
  if (fd < 0) return false;
  const bool lives = WriterLives(fd);
  close(fd);
  return lives;
}

}  // namespace kerul::lidar
