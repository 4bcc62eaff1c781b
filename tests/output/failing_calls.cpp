#include "output/failing_calls.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace kerul::lidar {
namespace {

FailingCalls* failing_now = nullptr;

int ErrorOf(int FailingCalls::*call) { return failing_now == nullptr ? 0 : failing_now->*call; }

int Fail(int error) {
  errno = error;
  return -1;
}

}  // namespace

FailingCalls::FailingCalls() { failing_now = this; }

FailingCalls::~FailingCalls() { failing_now = nullptr; }

}  // namespace kerul::lidar

using kerul::lidar::ErrorOf;
using kerul::lidar::Fail;
using kerul::lidar::FailingCalls;

// Passed on as bare system calls: mmap is called before anything can be looked up, and by a signal
// handler.
extern "C" {

int ftruncate(int fd, off_t bytes) noexcept {
  if (const int error = ErrorOf(&FailingCalls::ftruncate); error != 0) return Fail(error);
  return static_cast<int>(::syscall(SYS_ftruncate, fd, bytes));
}

int fstat(int fd, struct stat* status) noexcept {
  if (const int error = ErrorOf(&FailingCalls::fstat); error != 0) return Fail(error);
  return ::fstatat(fd, "", status, AT_EMPTY_PATH);
}

// The thread sanitizer calls it before it can watch anything.
__attribute__((no_sanitize("thread"))) void* mmap(void* at, size_t bytes, int protection, int flags,
                                                  int fd, off_t offset) noexcept {
  if (kerul::lidar::failing_now != nullptr && kerul::lidar::failing_now->mmap != 0) {
    errno = kerul::lidar::failing_now->mmap;
    return MAP_FAILED;
  }
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the call's own result.
  return reinterpret_cast<void*>(::syscall(SYS_mmap, at, bytes, protection, flags, fd, offset));
}

}  // extern "C"
