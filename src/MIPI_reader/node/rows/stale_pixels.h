// Which pixels of the frame still hold the frame before, and which rows can hold a bright target.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

// Closing a frame would reset 18 MB of points, and the next frame overwrites nearly all of them. So
// the reset is put off. Closing only marks every pixel stale, and a packet's copy makes its pixels
// fresh. A row about to be read has its stale pixels reset first. For the row passes, the
// upsampling and the export this is the same as a reset at the close.
//
// The copies also show which pixel rows can hold an echo 0 with highRefl; the others need not be
// searched. A row is ruled out only when every one of its pixels was copied from a packet since the
// last MarkAllStale. Any other row may hold one.
class StalePixels {
 public:
  StalePixels() = default;
  // All pixels of a height x width grid are fresh.
  StalePixels(int height, int width);

  void MarkAllStale() noexcept;
  // A packet's pixel has been copied into the frame. It must lie in the grid. `bright`: highRefl of
  // its echo 0.
  void MarkFresh(int row, int col, bool bright) noexcept {
    words_[WordIndex(row, col)] &= ~(std::uint64_t{1} << (col % 64));
    may_be_bright_[static_cast<std::size_t>(row)] |= static_cast<std::uint8_t>(bright);
  }
  // Resets the stale pixels of rows [first_row, end_row), as far as they lie in the grid, and marks
  // them fresh.
  void ResetRows(LidarFrame& frame, int first_row, int end_row) noexcept;
  // Bit i is clear when row first_row + i lies in the grid and certainly holds no echo 0 with
  // highRefl. For i 0..31.
  std::uint32_t PossiblyBrightRows(std::int64_t first_row) const noexcept;

 private:
  bool MayHoldBright(std::int64_t row) const noexcept;
  std::size_t WordIndex(int row, int col) const noexcept {
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(words_per_row_) +
           static_cast<std::size_t>(col / 64);
  }

  int height_ = 0;
  int width_ = 0;
  int words_per_row_ = 0;
  std::vector<std::uint64_t> words_;  // a bit per pixel, 1 is stale; bits past the width stay 0
  // By row: a bright pixel was copied, or a pixel did not come by a copy.
  std::vector<std::uint8_t> may_be_bright_;
};

}  // namespace kerul::lidar
