#include <vector>

#include "ros_messages/message_options.h"
#include "support/png_file.h"

namespace kerul::lidar::ros {

bool ReadMask(const std::string& path, std::bitset<kFramePixels>& masked, std::string& error) {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> rgb;
  if (!ReadPng(path, width, height, rgb, error)) return false;
  if (width != kFrameCols || height != kFrameRows) {
    error = "the picture has " + std::to_string(width) + " x " + std::to_string(height) +
            " pixels, not 288 x 216";
    return false;
  }
  for (int line = 0; line < kFrameRows; ++line) {
    for (int col = 0; col < kFrameCols; ++col) {
      const auto at = static_cast<std::size_t>(line * kFrameCols + col) * 3;
      const bool black = rgb[at] == 0 && rgb[at + 1] == 0 && rgb[at + 2] == 0;
      masked[static_cast<std::size_t>((kFrameRows - 1 - line) * kFrameCols + col)] = black;
    }
  }
  return true;
}

}  // namespace kerul::lidar::ros
