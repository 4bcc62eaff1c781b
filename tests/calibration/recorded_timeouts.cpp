#include "calibration/recorded_timeouts.h"

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cstring>

namespace kerul::lidar {
namespace {

thread_local RecordedTimeouts* noting = nullptr;

}  // namespace

RecordedTimeouts::RecordedTimeouts() { noting = this; }

RecordedTimeouts::~RecordedTimeouts() { noting = nullptr; }

}  // namespace kerul::lidar

extern "C" int setsockopt(int fd, int level, int option, const void* value,
                          socklen_t size) noexcept {
  using kerul::lidar::noting;
  const bool timeout = option == SO_RCVTIMEO || option == SO_SNDTIMEO;
  if (noting != nullptr && level == SOL_SOCKET && timeout && size == sizeof(timeval)) {
    timeval given{};
    std::memcpy(&given, value, sizeof(given));
    (option == SO_RCVTIMEO ? noting->receiving : noting->sending)
        .push_back(given.tv_sec * 1000000 + given.tv_usec);
  }
  using Call = int(int, int, int, const void*, socklen_t);
  return reinterpret_cast<Call*>(::dlsym(RTLD_NEXT, "setsockopt"))(fd, level, option, value, size);
}
