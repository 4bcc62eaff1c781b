#include "pixel_story/plot_frame.h"

#include <algorithm>
#include <cmath>

namespace kerul::lidar::story {

HeightRange HeightRangeOf(const Plot& plot) noexcept {
  HeightRange range{0.0F, 0.0F};
  const auto take = [&range](float y) {
    if (!std::isfinite(y)) return;
    range.low = std::min(range.low, y);
    range.high = std::max(range.high, y);
  };
  for (const float bar : plot.bars) take(bar);
  for (const Plot::Level& level : plot.levels) take(level.y);
  // Too flat, or too high for an axis with numbers.
  const float height = range.high - range.low;
  if (!(height > 1e-30F) || !std::isfinite(height)) return {};
  return range;
}

bool IsMarked(const Plot& plot, std::size_t bar) noexcept {
  return std::find(plot.marked.begin(), plot.marked.end(), bar) != plot.marked.end();
}

}  // namespace kerul::lidar::story
