#include "output/bus_error_guard.h"

#include <sys/mman.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>

namespace kerul::lidar {
namespace {

// The handler reads these while threads write them.
struct GuardedRange {
  std::atomic<bool> claimed{false};
  std::atomic<std::uintptr_t> begin{0};
  std::atomic<std::size_t> bytes{0};  // 0 while nothing is guarded
  std::atomic<bool> pages_lost{false};
};
// As long as a size, on every machine that this runs on.
static_assert(std::atomic<std::uintptr_t>::is_always_lock_free, "used by a signal handler");
static_assert(std::atomic<bool>::is_always_lock_free, "used by a signal handler");

std::array<GuardedRange, 64> guarded_ranges;
struct sigaction handler_before {};

// Puts zeroed private memory in the place of the guarded range that holds `address`. False when
// there is none. mmap is a bare system call on Linux, which a handler may make.
bool ReplaceRange(std::uintptr_t address) noexcept {
  for (GuardedRange& range : guarded_ranges) {
    const std::size_t bytes = range.bytes.load(std::memory_order_acquire);
    const std::uintptr_t begin = range.begin.load(std::memory_order_relaxed);
    if (bytes == 0 || address < begin || address - begin >= bytes) continue;
    constexpr int kFlags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED | MAP_NORESERVE;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the address comes out of a signal.
    void* const at = reinterpret_cast<void*>(begin);
    if (mmap(at, bytes, PROT_READ | PROT_WRITE, kFlags, -1, 0) == MAP_FAILED) return false;
    range.pages_lost.store(true, std::memory_order_relaxed);
    return true;
  }
  return false;
}

// What would have happened without the guard.
void PassOn(int number, siginfo_t* info, void* context) {
  if ((handler_before.sa_flags & SA_SIGINFO) != 0) {
    handler_before.sa_sigaction(number, info, context);
    return;
  }
  const bool sent = info->si_code <= 0;  // by a process, not by a fault
  if (handler_before.sa_handler == SIG_IGN && sent) return;
  if (handler_before.sa_handler != SIG_DFL && handler_before.sa_handler != SIG_IGN) {
    handler_before.sa_handler(number);
    return;
  }
  // A fault recurs on return, and a sent signal is raised again: both end the process.
  std::signal(number, SIG_DFL);
  if (sent) std::raise(number);
}

void OnBusError(int number, siginfo_t* info, void* context) {
  const int saved_errno = errno;
  const bool replaced =
      info->si_code > 0 && ReplaceRange(reinterpret_cast<std::uintptr_t>(info->si_addr));
  if (!replaced) PassOn(number, info, context);
  errno = saved_errno;
}

bool InstallHandler() noexcept {
  // Known before the handler can run.
  if (sigaction(SIGBUS, nullptr, &handler_before) != 0) return false;
  struct sigaction action {};
  action.sa_sigaction = OnBusError;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESTART;
  sigemptyset(&action.sa_mask);
  return sigaction(SIGBUS, &action, nullptr) == 0;
}

int ClaimPlace() noexcept {
  for (std::size_t i = 0; i < guarded_ranges.size(); ++i) {
    if (!guarded_ranges[i].claimed.exchange(true)) return static_cast<int>(i);
  }
  return -1;
}

GuardedRange& At(int place) noexcept { return guarded_ranges[static_cast<std::size_t>(place)]; }

}  // namespace

BusErrorGuard::~BusErrorGuard() { Release(); }

bool BusErrorGuard::Watch(void* begin, std::size_t bytes) noexcept {
  static const bool installed = InstallHandler();
  Release();
  if (!installed) return false;
  place_ = ClaimPlace();
  if (place_ < 0) return false;
  GuardedRange& range = At(place_);
  range.begin.store(reinterpret_cast<std::uintptr_t>(begin), std::memory_order_relaxed);
  range.pages_lost.store(false, std::memory_order_relaxed);
  range.bytes.store(bytes, std::memory_order_release);
  return true;
}

void BusErrorGuard::Release() noexcept {
  if (place_ < 0) return;
  At(place_).bytes.store(0, std::memory_order_release);
  At(place_).claimed.store(false, std::memory_order_release);
  place_ = -1;
}

bool BusErrorGuard::PagesLost() const noexcept {
  return place_ >= 0 && At(place_).pages_lost.load(std::memory_order_relaxed);
}

}  // namespace kerul::lidar
