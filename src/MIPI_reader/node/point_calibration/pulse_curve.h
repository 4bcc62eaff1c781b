// Curves by pulse height, as the range and the reflectivity calibration read them.
#pragma once

#include <algorithm>
#include <span>

#include "lanes/truncation.h"

namespace kerul::lidar {

// Linear between the entries around `height` (level units, entry i at height i). At or above the
// last entry, infinity included, gives the last entry. Below 0 the entries are clamped to the
// first, after the fraction was taken with the unclamped index. NaN gives NaN. `curve` must not be
// empty.
inline float CurveAt(std::span<const float> curve, float height) noexcept {
  const int last = static_cast<int>(curve.size()) - 1;
  if (height >= static_cast<float>(last)) return curve[static_cast<std::size_t>(last)];
  // Not above `last` here, so that one more does not overflow.
  const int index = TruncateToInt32(height);
  const float fraction = height - static_cast<float>(index);
  const float lower = curve[static_cast<std::size_t>(std::clamp(index, 0, last))];
  const float upper = curve[static_cast<std::size_t>(std::clamp(index + 1, 0, last))];
  return (upper - lower) * fraction + lower;
}

}  // namespace kerul::lidar
