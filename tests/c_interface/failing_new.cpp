#include "c_interface/failing_new.h"

#include <cstdlib>
#include <limits>
#include <new>

namespace {

constexpr int kNever = std::numeric_limits<int>::max();
thread_local int successes_left = kNever;
thread_local bool struck = false;

}  // namespace

namespace kerul::lidar::testing {

FailingNew::FailingNew(int successes) noexcept {
  struck = false;
  successes_left = successes;
}
FailingNew::~FailingNew() { successes_left = kNever; }
bool FailingNew::Struck() const noexcept { return struck; }

}  // namespace kerul::lidar::testing

// The shared library takes these too: the program's come first.
void* operator new(std::size_t size) {
  if (successes_left != kNever && successes_left-- <= 0) {
    successes_left = 0;
    struck = true;
    throw std::bad_alloc();
  }
  void* memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
