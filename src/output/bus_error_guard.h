// Keeps a process alive when a mapped object loses its pages.
//
// Whoever may write to a shared-memory object may also make it shorter. The next touch of a page
// that is gone raises SIGBUS, which ends a process. A guarded range becomes private, zeroed memory
// instead, as a whole, and the interrupted access goes on there.
#pragma once

#include <cstddef>

namespace kerul::lidar {

class BusErrorGuard {
 public:
  BusErrorGuard() = default;
  ~BusErrorGuard();
  BusErrorGuard(const BusErrorGuard&) = delete;
  BusErrorGuard& operator=(const BusErrorGuard&) = delete;

  // Guards the mapping of `bytes` bytes at `begin` from now on, instead of one guarded before. The
  // first call installs the process's SIGBUS handler; faults elsewhere go on to the one that stood
  // there. False when the process guards its largest number of mappings, 64, already.
  bool Watch(void* begin, std::size_t bytes) noexcept;
  // To be called before the mapping is removed.
  void Release() noexcept;
  // Whether the guarded range has lost pages and is private memory by now.
  bool PagesLost() const noexcept;

 private:
  int place_ = -1;
};

}  // namespace kerul::lidar
