#include "lidar_view/canvas.h"

#include <algorithm>

namespace kerul::lidar::view {

Canvas::Canvas(int canvas_width, int canvas_height, Rgb background)
    : width(canvas_width),
      height(canvas_height),
      rgb(static_cast<std::size_t>(canvas_width) * static_cast<std::size_t>(canvas_height) * 3) {
  FillRect(0, 0, width, height, background);
}

void Canvas::Set(int x, int y, Rgb colour) noexcept {
  if (x < 0 || x >= width || y < 0 || y >= height) return;
  std::copy(colour.begin(), colour.end(), rgb.begin() + (std::ptrdiff_t{y} * width + x) * 3);
}

Rgb Canvas::Get(int x, int y) const noexcept {
  const std::uint8_t* at = rgb.data() + (std::ptrdiff_t{y} * width + x) * 3;
  return {at[0], at[1], at[2]};
}

void Canvas::FillRect(int x, int y, int rect_width, int rect_height, Rgb colour) noexcept {
  const int right = std::min(x + rect_width, width);
  const int bottom = std::min(y + rect_height, height);
  for (int row = std::max(y, 0); row < bottom; ++row) {
    for (int col = std::max(x, 0); col < right; ++col) Set(col, row, colour);
  }
}

void Canvas::Text(int x, int y, std::string_view text, Rgb colour) noexcept {
  for (const char character : text) {
    const std::uint8_t* rows = GlyphRows(character);
    for (int row = 0; rows != nullptr && row < kGlyphHeight; ++row) {
      for (int col = 0; col < 5; ++col) {
        if ((rows[row] >> (4 - col)) & 1) Set(x + col, y + row, colour);
      }
    }
    x += kGlyphAdvance;
  }
}

}  // namespace kerul::lidar::view
