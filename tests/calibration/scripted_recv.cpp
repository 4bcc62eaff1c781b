#include "calibration/scripted_recv.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace kerul::lidar {
namespace {

thread_local ScriptedRecv* active = nullptr;

}  // namespace

ScriptedRecv::ScriptedRecv(std::vector<int> script) : script_(std::move(script)) { active = this; }

ScriptedRecv::~ScriptedRecv() { active = nullptr; }

ssize_t ScriptedRecv::Call(int descriptor, void* buffer, std::size_t size, int flags) {
  const std::size_t call = asked_.size();
  asked_.push_back(size);
  if (call >= script_.size()) return recvfrom(descriptor, buffer, size, flags, nullptr, nullptr);
  if (script_[call] == 0) return 0;
  if (script_[call] < 0) {
    errno = EAGAIN;
    return -1;
  }
  const std::size_t wanted = std::min(size, static_cast<std::size_t>(script_[call]));
  return recvfrom(descriptor, buffer, wanted, flags | MSG_WAITALL, nullptr, nullptr);
}

}  // namespace kerul::lidar

// The definition of the program comes before that of the C library.
extern "C" ssize_t recv(int descriptor, void* buffer, std::size_t size, int flags) {
  if (kerul::lidar::active != nullptr) {
    return kerul::lidar::active->Call(descriptor, buffer, size, flags);
  }
  return recvfrom(descriptor, buffer, size, flags, nullptr, nullptr);
}
