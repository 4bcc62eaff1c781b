// Which pixels of the frame still hold the frame before, and which rows can hold a bright target.
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
//
// The copies also tell which pixel rows can hold an echo 0 with highRefl at all, so that the others
// need not be searched. Only what is certain counts: a row of which every pixel has come by such a
// copy since the last MarkAllStale. Any other row can hold one, however its content came there.
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
  std::vector<std::uint64_t> words_;  // a bit per pixel, 1 is stale; bits behind the width stay 0
  // By row: a bright pixel was copied, or a pixel did not come by a copy.
  std::vector<std::uint8_t> may_be_bright_;
};

}  // namespace kerul::lidar
