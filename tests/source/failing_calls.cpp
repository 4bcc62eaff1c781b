#include "source/failing_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace kerul::lidar {
namespace {

template <typename Function>
Function* Real(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

int ErrorOfOption(int level, int option) {
  const FailingCalls& failing = FailingCalls::Get();
  if (level != SOL_SOCKET) return 0;
  if (option == SO_REUSEADDR) return failing.set_reuse_address;
  if (option == SO_RCVTIMEO) return failing.set_receive_timeout;
  if (option == SO_BROADCAST) return failing.set_broadcast;
  return 0;
}

int Fail(int error) {
  errno = error;
  return -1;
}

}  // namespace

FailingCalls& FailingCalls::Get() {
  static FailingCalls failing;
  return failing;
}

}  // namespace kerul::lidar

using kerul::lidar::FailingCalls;

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
  if (FailingCalls::Get().socket != 0) return kerul::lidar::Fail(FailingCalls::Get().socket);
  return kerul::lidar::Real<int(int, int, int)>("socket")(domain, type, protocol);
}

int bind(int fd, const sockaddr* address, socklen_t size) noexcept {
  if (FailingCalls::Get().bind != 0) return kerul::lidar::Fail(FailingCalls::Get().bind);
  return kerul::lidar::Real<int(int, const sockaddr*, socklen_t)>("bind")(fd, address, size);
}

int fcntl(int fd, int command, ...) {
  std::va_list arguments;
  va_start(arguments, command);
  const long argument = va_arg(arguments, long);
  va_end(arguments);
  if (FailingCalls::Get().fcntl != 0) return kerul::lidar::Fail(FailingCalls::Get().fcntl);
  return kerul::lidar::Real<int(int, int, ...)>("fcntl")(fd, command, argument);
}

int setsockopt(int fd, int level, int option, const void* value, socklen_t size) noexcept {
  FailingCalls& failing = FailingCalls::Get();
  if (const int error = kerul::lidar::ErrorOfOption(level, option); error != 0) {
    return kerul::lidar::Fail(error);
  }
  if (level == IPPROTO_IP && option == IP_ADD_MEMBERSHIP && size == sizeof(ip_mreq)) {
    failing.joined.emplace();
    std::memcpy(&*failing.joined, value, sizeof(ip_mreq));
    if (failing.join_succeeds) return 0;
  }
  if (level == SOL_SOCKET && option == SO_RCVBUF && size == sizeof(int)) {
    failing.receive_buffer.emplace();
    std::memcpy(&*failing.receive_buffer, value, sizeof(int));
  }
  return kerul::lidar::Real<int(int, int, int, const void*, socklen_t)>("setsockopt")(
      fd, level, option, value, size);
}

int getsockopt(int fd, int level, int option, void* value, socklen_t* size) noexcept {
  const int error = FailingCalls::Get().get_receive_buffer;
  if (level == SOL_SOCKET && option == SO_RCVBUF && error != 0) return kerul::lidar::Fail(error);
  return kerul::lidar::Real<int(int, int, int, void*, socklen_t*)>("getsockopt")(fd, level, option,
                                                                                 value, size);
}

ssize_t sendto(int fd, const void* bytes, size_t size, int flags, const sockaddr* to,
               socklen_t to_size) {
  FailingCalls::Get().send_flags = flags;
  return kerul::lidar::Real<ssize_t(int, const void*, size_t, int, const sockaddr*, socklen_t)>(
      "sendto")(fd, bytes, size, flags, to, to_size);
}

}  // extern "C"
