// The fuzzer's bytes as a reader takes them: from the front, zeros after the end.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>

namespace kerul::lidar::fuzz {

// What must hold for every input. Otherwise ends the program, which the fuzzer takes for a finding.
inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

class ByteInput {
 public:
  ByteInput(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

  bool Empty() const noexcept { return rest_.empty(); }
  std::size_t Left() const noexcept { return rest_.size(); }
  // At most `count` bytes.
  std::span<const std::uint8_t> Take(std::size_t count) noexcept {
    const std::span<const std::uint8_t> taken = rest_.first(std::min(count, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return taken;
  }
  std::uint8_t Byte() noexcept {
    const auto taken = Take(1);
    return taken.empty() ? std::uint8_t{0} : taken.front();
  }
  unsigned Word() noexcept {
    const unsigned low = Byte();
    return low | (unsigned{Byte()} << 8);
  }
  bool Flag() noexcept { return (Byte() & 1U) != 0; }

 private:
  std::span<const std::uint8_t> rest_;
};

}  // namespace kerul::lidar::fuzz
