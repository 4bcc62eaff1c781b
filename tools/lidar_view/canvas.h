// An RGB picture in memory with the few strokes that the frame's picture needs.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

namespace kerul::lidar::view {

using Rgb = std::array<std::uint8_t, 3>;

struct Canvas {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> rgb;  // row by row from the top, 3 bytes a pixel

  Canvas(int canvas_width, int canvas_height, Rgb background);
  // Strokes outside the canvas are cut off.
  void Set(int x, int y, Rgb colour) noexcept;
  Rgb Get(int x, int y) const noexcept;  // needs a place inside
  void FillRect(int x, int y, int rect_width, int rect_height, Rgb colour) noexcept;
  // Text of 5 x 7 dots a character, 6 apart, its upper left corner at (x, y). Small letters are
  // drawn as capitals; characters without a glyph leave a gap.
  void Text(int x, int y, std::string_view text, Rgb colour) noexcept;
};

inline constexpr int kGlyphAdvance = 6;  // pixels from one character to the next
inline constexpr int kGlyphHeight = 7;

// Seven rows of five dots, the leftmost in bit 4; null for a character that has none.
const std::uint8_t* GlyphRows(char character) noexcept;

}  // namespace kerul::lidar::view
