// The fates of a frame as a picture.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "pixel_story/fates.h"

namespace kerul::lidar::story {

using Colour = std::array<std::uint8_t, 3>;  // red, green, blue

Colour ColourOf(Fate fate) noexcept;
std::string HexOf(const Colour& colour);  // "#2e8b57"

struct FatePicture {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> rgb;  // as EncodePng takes it
};

// Slot 0 to the left, slot 1 to the right of it, with a bar between them. Row 0 lies at the bottom
// as in the viewer's pictures. Small rectangles are enlarged by a whole number.
FatePicture DrawFates(const FrameStates& states, const PixelRect& rect);

// With a bar between them. Both are of one width.
void AppendBelow(const FatePicture& below, FatePicture& picture);

}  // namespace kerul::lidar::story
