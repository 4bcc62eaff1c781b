// Which pixels of the frame still hold the frame before.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

// Closing a frame resets 18 MB of points of which the next frame overwrites nearly all. So the
// reset is put off: closing only marks every pixel stale, a packet's copy makes its pixels fresh,
// and a row that is about to be looked at has the rest reset first. To whoever reads a frame
// through the row passes, the upsampling or the export, this is the same as a reset at the close.
class StalePixels {
 public:
  StalePixels() = default;
  // All pixels of a height x width grid are fresh.
  StalePixels(int height, int width);

  void MarkAllStale() noexcept;
  // The pixel must lie in the grid.
  void MarkFresh(int row, int col) noexcept {
    words_[WordIndex(row, col)] &= ~(std::uint64_t{1} << (col % 64));
  }
  // Resets the stale pixels of rows [first_row, end_row), as far as they lie in the grid, and marks
  // them fresh.
  void ResetRows(LidarFrame& frame, int first_row, int end_row) noexcept;

 private:
  std::size_t WordIndex(int row, int col) const noexcept {
    return static_cast<std::size_t>(row * words_per_row_ + col / 64);
  }

  int height_ = 0;
  int width_ = 0;
  int words_per_row_ = 0;
  std::vector<std::uint64_t> words_;  // a bit per pixel, 1 is stale; bits behind the width stay 0
};

}  // namespace kerul::lidar
