// Curves by pulse height, as the range and the reflectivity calibration read them.
#pragma once

#include <algorithm>
#include <span>

#include "lanes/truncation.h"

namespace kerul::lidar {

// What was read where: value = (upper - lower) * fraction + lower.
struct CurveReading {
  int index;       // of the lower entry, after clamping
  float fraction;  // of the way to the next entry, taken before clamping
  float lower;
  float upper;
  float value;
};

// Linear between the entries around `height` (level units, entry i at height i). At or above the
// last entry, infinity included, gives the last entry. Below 0 the entries are clamped to the
// first, after the fraction was taken with the unclamped index. NaN gives NaN. `curve` must not be
// empty.
inline CurveReading ReadCurve(std::span<const float> curve, float height) noexcept {
  const int last = static_cast<int>(curve.size()) - 1;
  if (height >= static_cast<float>(last)) {
    const float value = curve[static_cast<std::size_t>(last)];
    return {.index = last, .fraction = 0.0F, .lower = value, .upper = value, .value = value};
  }
  // Not above `last` here, so that one more does not overflow.
  const int index = TruncateToInt32(height);
  const float fraction = height - static_cast<float>(index);
  const int clamped = std::clamp(index, 0, last);
  const float lower = curve[static_cast<std::size_t>(clamped)];
  const float upper = curve[static_cast<std::size_t>(std::clamp(index + 1, 0, last))];
  return {.index = clamped,
          .fraction = fraction,
          .lower = lower,
          .upper = upper,
          .value = (upper - lower) * fraction + lower};
}

}  // namespace kerul::lidar
