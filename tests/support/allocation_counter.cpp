#include "support/allocation_counter.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> allocations{0};

}  // namespace

long AllocationCount() { return allocations; }

void* operator new(std::size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  ++allocations;
  const auto unit = static_cast<std::size_t>(alignment);
  // A multiple of the alignment, as aligned_alloc asks for.
  const std::size_t rounded = (std::max<std::size_t>(size, 1) + unit - 1) / unit * unit;
  if (void* memory = std::aligned_alloc(unit, rounded)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
  std::free(memory);
}
