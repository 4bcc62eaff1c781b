// Blue-to-red colour ramp for pictures of ranges and reflectivities.
#pragma once

#include <array>

// Five anchors, linear between them.
struct ColorMap {
  struct Anchor {
    float position;            // 0..1
    std::array<float, 3> rgb;  // 0..255
  };
  static constexpr std::array<Anchor, 5> kAnchors{{{0.0F, {0.0F, 0.0F, 255.0F}},
                                                   {0.1F, {0.0F, 255.0F, 255.0F}},
                                                   {0.3F, {0.0F, 255.0F, 0.0F}},
                                                   {0.6F, {255.0F, 255.0F, 0.0F}},
                                                   {1.0F, {255.0F, 0.0F, 0.0F}}}};
  static constexpr int kRampEntries = 256;

  std::array<std::array<float, 3>, kRampEntries> ramp;

  ColorMap() noexcept;

  // Colour of `value`, clamped into 0..1; NaN gives the first entry.
  const std::array<float, 3>& At(float value) const noexcept;
};
