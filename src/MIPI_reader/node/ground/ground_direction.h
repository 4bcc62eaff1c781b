// The ray of a pixel, as the ground stages use it.
#pragma once

#include <cmath>
#include <cstddef>

#include "MIPI_reader/node/ground/ground_plane.h"
#include "calibration/angle_calib.h"

namespace kerul::lidar {

// Unit direction of pixel (row, col). False, with `direction` unchanged, when there is none: no
// valid grid, a pixel outside it, a component that is not finite, or length 0.
inline bool FindDirection(const AngleCalibGrid& grid, int row, int col,
                          Point3f& direction) noexcept {
  constexpr float kMinSquaredLength = 1e-8F;
  if (!grid.valid || row < 0 || col < 0 || row >= grid.rows || col >= grid.cols) return false;
  const auto cols = static_cast<std::size_t>(grid.cols);
  const std::size_t plane = static_cast<std::size_t>(grid.rows) * cols;
  if (grid.unit_xyz.size() < 3 * plane) return false;
  const std::size_t pixel = static_cast<std::size_t>(row) * cols + static_cast<std::size_t>(col);
  const float x = grid.unit_xyz[pixel];
  const float y = grid.unit_xyz[plane + pixel];
  const float z = grid.unit_xyz[2 * plane + pixel];
  if (!std::isfinite(x) || !std::isfinite(y) || !std::isfinite(z)) return false;
  if (!(x * x + y * y + z * z > kMinSquaredLength)) return false;
  direction = {x, y, z};
  return true;
}

}  // namespace kerul::lidar
