#include "MIPI_reader/node/rows/stale_pixels.h"

#include <algorithm>
#include <bit>

namespace kerul::lidar {

StalePixels::StalePixels(int height, int width)
    : height_(height),
      width_(width),
      words_per_row_((width + 63) / 64),
      words_(static_cast<std::size_t>(height * words_per_row_), 0),
      may_be_bright_(static_cast<std::size_t>(height), 1) {}

void StalePixels::MarkAllStale() noexcept {
  std::fill(words_.begin(), words_.end(), ~std::uint64_t{0});
  std::fill(may_be_bright_.begin(), may_be_bright_.end(), std::uint8_t{0});
  if (width_ % 64 == 0) return;
  const std::uint64_t last_word = (std::uint64_t{1} << (width_ % 64)) - 1;
  for (int row = 0; row < height_; ++row) words_[WordIndex(row, width_ - 1)] = last_word;
}

void StalePixels::ResetRows(LidarFrame& frame, int first_row, int end_row) noexcept {
  end_row = std::min(end_row, height_);
  for (int row = std::max(first_row, 0); row < end_row; ++row) {
    std::vector<LidarPoint>& points = frame.points[static_cast<std::size_t>(row)];
    for (int word = 0; word < words_per_row_; ++word) {
      std::uint64_t& stale = words_[WordIndex(row, 64 * word)];
      if (stale != 0) may_be_bright_[static_cast<std::size_t>(row)] = 1;
      for (; stale != 0; stale &= stale - 1) {
        const int col = 64 * word + std::countr_zero(stale);
        points[static_cast<std::size_t>(col)].ResetEchoes();
      }
    }
  }
}

bool StalePixels::MayHoldBright(std::int64_t row) const noexcept {
  if (row < 0 || row >= height_ || may_be_bright_[static_cast<std::size_t>(row)] != 0) return true;
  const auto first = words_.begin() + static_cast<std::ptrdiff_t>(row) * words_per_row_;
  return std::any_of(first, first + words_per_row_, [](std::uint64_t word) { return word != 0; });
}

std::uint32_t StalePixels::PossiblyBrightRows(std::int64_t first_row) const noexcept {
  std::uint32_t rows = 0;
  for (int i = 0; i < 32; ++i) {
    if (MayHoldBright(first_row + i)) rows |= std::uint32_t{1} << i;
  }
  return rows;
}

}  // namespace kerul::lidar
