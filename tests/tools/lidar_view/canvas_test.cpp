#include "lidar_view/canvas.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace kerul::lidar::view {
namespace {

constexpr Rgb kBlack{0, 0, 0};
constexpr Rgb kRed{255, 0, 0};

int CountRed(const Canvas& canvas) {
  int red = 0;
  for (int y = 0; y < canvas.height; ++y) {
    for (int x = 0; x < canvas.width; ++x) red += canvas.Get(x, y) == kRed;
  }
  return red;
}

TEST(Canvas, BeginsInItsBackground) {
  const Canvas canvas(3, 2, kRed);
  EXPECT_EQ(canvas.rgb.size(), 18U);
  EXPECT_EQ(CountRed(canvas), 6);
}

TEST(Canvas, StrokesOutsideAreCutOff) {
  Canvas canvas(4, 3, kBlack);
  canvas.Set(-1, 0, kRed);
  canvas.Set(4, 0, kRed);
  canvas.Set(0, -1, kRed);
  canvas.Set(0, 3, kRed);
  EXPECT_EQ(CountRed(canvas), 0);
  canvas.FillRect(-5, -5, 6, 7, kRed);  // covers column 0, rows 0 and 1
  EXPECT_EQ(CountRed(canvas), 2);
  canvas.FillRect(3, 2, 100, 100, kRed);
  EXPECT_EQ(CountRed(canvas), 3);
  canvas.Text(2, -3, "8", kRed);
  canvas.Text(-100, 0, "8", kRed);
}

TEST(Canvas, TextDrawsItsDotsAndMovesOn) {
  Canvas canvas(12, 7, kBlack);
  canvas.Text(0, 0, "1-", kRed);
  // A one: the stroke down the middle, the flag, and the foot of three dots.
  EXPECT_EQ(canvas.Get(2, 0), kRed);
  EXPECT_EQ(canvas.Get(1, 1), kRed);
  EXPECT_EQ(canvas.Get(3, 6), kRed);
  EXPECT_EQ(canvas.Get(0, 0), kBlack);
  // A dash: five dots in the middle row, six further on.
  for (int x = 6; x < 11; ++x) EXPECT_EQ(canvas.Get(x, 3), kRed);
  EXPECT_EQ(CountRed(canvas), 10 + 5);
}

TEST(Canvas, EveryGlyphIsItsOwn) {
  const std::string characters = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ.,:-+/()";
  std::set<std::string> shapes;
  for (const char character : characters) {
    const std::uint8_t* rows = GlyphRows(character);
    ASSERT_NE(rows, nullptr) << character;
    shapes.insert(std::string(rows, rows + kGlyphHeight));
    for (int row = 0; row < kGlyphHeight; ++row) EXPECT_LT(rows[row], 32) << character;
  }
  EXPECT_EQ(shapes.size(), characters.size());
}

TEST(Canvas, SmallLettersAreCapitalsAndUnknownOnesAreGaps) {
  EXPECT_EQ(GlyphRows('q'), GlyphRows('Q'));
  EXPECT_EQ(GlyphRows(' '), nullptr);
  EXPECT_EQ(GlyphRows('\xFF'), nullptr);
}

}  // namespace
}  // namespace kerul::lidar::view
