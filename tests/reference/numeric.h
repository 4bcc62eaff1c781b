// The small numeric rules that several algorithms share.
#pragma once

#include <cstddef>
#include <cstdint>

namespace reference {

// Toward zero; NaN and whatever does not fit 32 bits give 0x80000000.
inline std::int32_t Truncate(double value) {
  if (value != value) return INT32_MIN;
  if (value >= 2147483648.0) return INT32_MIN;
  if (value <= -2147483649.0) return INT32_MIN;
  return static_cast<std::int32_t>(value);
}

// The larger and the smaller of two; the first one stays when they do not compare (NaN).
inline float Larger(float first, float second) { return first < second ? second : first; }
inline float Smaller(float first, float second) { return second < first ? second : first; }

// Nearest valid index of a table with `size` entries, size above 0.
inline std::size_t NearestIndex(std::int64_t index, std::size_t size) {
  if (index < 0) return 0;
  if (index >= static_cast<std::int64_t>(size)) return size - 1;
  return static_cast<std::size_t>(index);
}

// Number of a pixel in the tables that stand tile by tile: 48 tiles of 6 x 6 pixels to a row of
// tiles, the pixels of a tile column by column.
inline int PixelTableIndex(int row, int col) {
  const int tile = (row / 6) * 48 + (col / 6);
  return tile * 36 + (col % 6) * 6 + (row % 6);
}

}  // namespace reference
