#include <algorithm>
#include <cmath>

#include "calibration/angle_calib.h"

namespace kerul::lidar {

float AngleCalibGrid::At(int plane, int row, int col) const noexcept {
  if (plane < 0 || plane > 2 || row < 0 || row >= rows || col < 0 || col >= cols) return 0.0F;
  const auto index = (static_cast<std::size_t>(plane) * static_cast<std::size_t>(rows) +
                      static_cast<std::size_t>(row)) *
                         static_cast<std::size_t>(cols) +
                     static_cast<std::size_t>(col);
  return index < xyz.size() ? xyz[index] : 0.0F;
}

std::uint8_t AngleCalibGrid::EncodeComponent(float value) noexcept {
  if (!std::isfinite(value)) return 127;
  const float scaled = (std::clamp(value, -1.0F, 1.0F) + 1.0F) * 127.5F;
  return static_cast<std::uint8_t>(std::lround(scaled));
}

}  // namespace kerul::lidar
