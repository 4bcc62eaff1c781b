// The part of a wanted run of pixel rows that exists in the grid.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

// Rows begin .. end - 1; empty when begin == end.
struct RowRange {
  std::size_t begin = 0;
  std::size_t end = 0;
};

// Cuts the rows first .. first + count - 1 down to those of the grid. Any values are fine: a
// negative first loses the rows before the grid, a count below 1 gives an empty range. 64 bits
// wide so that callers can multiply row numbers without a thought of overflow.
inline RowRange ClipRows(const FrameRows& rows, std::int64_t first, std::int64_t count) noexcept {
  const auto height = static_cast<std::int64_t>(rows.size());
  const std::int64_t begin = std::clamp<std::int64_t>(first, 0, height);
  const std::int64_t end = std::clamp<std::int64_t>(first + count, begin, height);
  return {static_cast<std::size_t>(begin), static_cast<std::size_t>(end)};
}

}  // namespace kerul::lidar
