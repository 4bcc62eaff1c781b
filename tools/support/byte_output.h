// Numbers appended to the bytes of a binary file or message.
#pragma once

#include <bit>
#include <cstring>
#include <type_traits>

namespace kerul::lidar {

// The formats are little-endian, as every host this runs on.
static_assert(std::endian::native == std::endian::little);

// Writes `value` without padding and gives the place after it; the room is the caller's.
template <typename T>
char* PutNumber(char* at, T value) noexcept {
  static_assert(std::is_arithmetic_v<T>);
  std::memcpy(at, &value, sizeof value);
  return at + sizeof value;
}

}  // namespace kerul::lidar
