// Float to integer with a defined result for every input.
#pragma once

#include <cstdint>

namespace kerul::lidar {

// Truncates toward zero. NaN, infinities and what does not fit 32 bits give 0x80000000, as the
// x86-64 conversion does; the caller then takes the low bits that its field holds.
constexpr std::int32_t TruncateToInt32(double value) noexcept {
  // Negated so that NaN fails the test too.
  if (!(value > -2147483649.0 && value < 2147483648.0)) return INT32_MIN;
  return static_cast<std::int32_t>(value);
}

// Widening is exact, so the one form serves both.
constexpr std::int32_t TruncateToInt32(float value) noexcept {
  return TruncateToInt32(static_cast<double>(value));
}

}  // namespace kerul::lidar
