#include "config/color_map.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <limits>

namespace {

using Colour = std::array<float, 3>;

TEST(ColorMap, GoesFromBlueToRed) {
  const ColorMap map;
  EXPECT_EQ(map.At(0.0F), (Colour{0.0F, 0.0F, 255.0F}));
  EXPECT_EQ(map.At(1.0F), (Colour{255.0F, 0.0F, 0.0F}));
}

TEST(ColorMap, IsLinearBetweenItsAnchors) {
  const ColorMap map;
  struct Stretch {
    double from;
    double to;
    std::array<double, 3> from_rgb;
    std::array<double, 3> to_rgb;
  };
  const std::array<Stretch, 4> stretches{{{0.0, 0.1, {0, 0, 255}, {0, 255, 255}},
                                          {0.1, 0.3, {0, 255, 255}, {0, 255, 0}},
                                          {0.3, 0.6, {0, 255, 0}, {255, 255, 0}},
                                          {0.6, 1.0, {255, 255, 0}, {255, 0, 0}}}};
  int compared = 0;
  for (std::size_t i = 0; i < map.ramp.size(); ++i) {
    const double position = static_cast<double>(i) / 255.0;
    for (const Stretch& s : stretches) {
      if (position < s.from || position > s.to) continue;
      for (std::size_t c = 0; c < 3; ++c) {
        const double expected =
            s.from_rgb[c] + (s.to_rgb[c] - s.from_rgb[c]) * (position - s.from) / (s.to - s.from);
        // Float against double: a few roundings of 1.5e-5 on values of at most 255.
        EXPECT_NEAR(static_cast<double>(map.ramp[i][c]), expected, 1e-3) << i;
        ++compared;
      }
    }
  }
  EXPECT_GE(compared, 256 * 3);
}

TEST(ColorMap, TakesTheNearestEntry) {
  const ColorMap map;
  EXPECT_EQ(&map.At(10.4F / 255.0F), &map.ramp[10]);
  EXPECT_EQ(&map.At(10.6F / 255.0F), &map.ramp[11]);
  EXPECT_EQ(&map.At(0.99999F), &map.ramp[255]);
}

TEST(ColorMap, ClampsWhatLiesOutside) {
  const ColorMap map;
  const float infinity = std::numeric_limits<float>::infinity();
  EXPECT_EQ(&map.At(-0.5F), &map.ramp[0]);
  EXPECT_EQ(&map.At(-infinity), &map.ramp[0]);
  EXPECT_EQ(&map.At(1.5F), &map.ramp[255]);
  EXPECT_EQ(&map.At(infinity), &map.ramp[255]);
}

TEST(ColorMap, NaNGivesTheFirstEntry) {
  const ColorMap map;
  EXPECT_EQ(&map.At(std::numeric_limits<float>::quiet_NaN()), &map.ramp[0]);
}

}  // namespace
