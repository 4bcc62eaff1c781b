#include "support/allocation_counter.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> allocations{0};

void* Allocate(std::size_t size) noexcept {
  ++allocations;
  return std::malloc(std::max<std::size_t>(size, 1));
}

void* Allocate(std::size_t size, std::align_val_t alignment) noexcept {
  ++allocations;
  const auto unit = static_cast<std::size_t>(alignment);
  // A multiple of the alignment, as aligned_alloc asks for.
  return std::aligned_alloc(unit, (std::max<std::size_t>(size, 1) + unit - 1) / unit * unit);
}

void* OrThrow(void* memory) {
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

long AllocationCount() { return allocations; }

// Every form: the sanitizers bring their own of each that is not given here.
void* operator new(std::size_t size) { return OrThrow(Allocate(size)); }
void* operator new[](std::size_t size) { return OrThrow(Allocate(size)); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new(std::size_t size, std::align_val_t at) { return OrThrow(Allocate(size, at)); }
void* operator new[](std::size_t size, std::align_val_t at) { return OrThrow(Allocate(size, at)); }

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
