#include "pixel_story/fate_picture.h"

#include <algorithm>

namespace kerul::lidar::story {
namespace {

constexpr int kPanelWidth = 576;  // of the whole frame, 2 for each pixel
constexpr int kLargestPixel = 24;
constexpr int kGap = 8;
constexpr Colour kGapColour{128, 128, 128};

// What is published is green, what a pass erased is warm, what never was an echo is dark.
constexpr std::array<Colour, kFates> kColours{{{46, 160, 90},    // published
                                               {0, 200, 220},    // out of range
                                               {150, 215, 165},  // not chosen
                                               {255, 225, 50},   // bloom
                                               {235, 130, 20},   // shot noise
                                               {215, 40, 40},    // isolated
                                               {240, 110, 190},  // after-pulse
                                               {150, 110, 60},   // too weak
                                               {255, 255, 255},  // no calibration
                                               {190, 160, 250},  // no range
                                               {120, 60, 200},   // too wide
                                               {60, 85, 125},    // below the level
                                               {35, 45, 65},     // no pulse
                                               {12, 14, 18},     // no window
                                               {170, 170, 170},  // no packet
                                               {100, 100, 100},  // row not run
                                               {70, 70, 70}}};   // slot not in use

}  // namespace

Colour ColourOf(Fate fate) noexcept { return kColours[static_cast<std::size_t>(fate)]; }

std::string HexOf(const Colour& colour) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text = "#";
  for (const std::uint8_t part : colour) {
    text += kDigits[part >> 4];
    text += kDigits[part & 0xF];
  }
  return text;
}

FatePicture DrawFates(const FrameStates& states, const PixelRect& rect) {
  const int rows = rect.last_row - rect.first_row + 1;
  const int cols = rect.last_col - rect.first_col + 1;
  const int scale = std::clamp(kPanelWidth / std::max(rows, cols), 1, kLargestPixel);
  const int panel = scale * cols;
  FatePicture picture{.width = 2 * panel + kGap, .height = scale * rows, .rgb = {}};
  picture.rgb.reserve(3 * static_cast<std::size_t>(picture.width * picture.height));
  for (int y = 0; y < picture.height; ++y) {
    const int row = rect.last_row - y / scale;
    for (int x = 0; x < picture.width; ++x) {
      const bool in_gap = x >= panel && x < panel + kGap;
      const int slot = x < panel ? 0 : 1;
      const int col = rect.first_col + (slot == 0 ? x : x - panel - kGap) / scale;
      const Colour colour = in_gap ? kGapColour : ColourOf(FateOf(states, row, col, slot));
      picture.rgb.insert(picture.rgb.end(), colour.begin(), colour.end());
    }
  }
  return picture;
}

void AppendBelow(const FatePicture& below, FatePicture& picture) {
  for (int i = 0; i < kGap * picture.width; ++i) {
    picture.rgb.insert(picture.rgb.end(), kGapColour.begin(), kGapColour.end());
  }
  picture.rgb.insert(picture.rgb.end(), below.rgb.begin(), below.rgb.end());
  picture.height += kGap + below.height;
}

}  // namespace kerul::lidar::story
