#include "config/color_map.h"

#include <cmath>
#include <cstddef>

namespace {

std::array<float, 3> ColourAt(float position) noexcept {
  std::size_t upper = 1;
  while (upper + 1 < ColorMap::kAnchors.size() && position > ColorMap::kAnchors[upper].position) {
    ++upper;
  }
  const ColorMap::Anchor& from = ColorMap::kAnchors[upper - 1];
  const ColorMap::Anchor& to = ColorMap::kAnchors[upper];
  const float share = (position - from.position) / (to.position - from.position);
  std::array<float, 3> colour{};
  for (std::size_t i = 0; i < colour.size(); ++i) {
    colour[i] = from.rgb[i] + (to.rgb[i] - from.rgb[i]) * share;
  }
  return colour;
}

}  // namespace

ColorMap::ColorMap() noexcept : ramp{} {
  for (std::size_t i = 0; i < ramp.size(); ++i) {
    ramp[i] = ColourAt(static_cast<float>(i) / static_cast<float>(kRampEntries - 1));
  }
}

const std::array<float, 3>& ColorMap::At(float value) const noexcept {
  // Negated so that NaN is caught too.
  if (!(value > 0.0F)) return ramp.front();
  if (value >= 1.0F) return ramp.back();
  return ramp[static_cast<std::size_t>(std::lround(value * static_cast<float>(kRampEntries - 1)))];
}
