// Keeps a process alive when a mapped object loses its pages.
//
// Whoever may write to a shared-memory object may also make it shorter. The next access to a page
// that is gone raises SIGBUS, which ends the process. A guarded range becomes private, zeroed
// memory instead, all of it, and the interrupted access goes on there.
#pragma once

#include <cstddef>

namespace kerul::lidar {

class BusErrorGuard {
 public:
  BusErrorGuard() = default;
  ~BusErrorGuard();
  BusErrorGuard(const BusErrorGuard&) = delete;
  BusErrorGuard& operator=(const BusErrorGuard&) = delete;

  // Guards the mapping of `bytes` bytes at `begin` from now on, in place of the one guarded before.
  // The first call installs the process's SIGBUS handler, which passes faults elsewhere on to the
  // handler before it. False when the process already guards 64 mappings, the largest number.
  bool Watch(void* begin, std::size_t bytes) noexcept;
  // To be called before the mapping is removed.
  void Release() noexcept;
  // Whether the guarded range has lost pages and is now private memory.
  bool PagesLost() const noexcept;

 private:
  int place_ = -1;
};

}  // namespace kerul::lidar
