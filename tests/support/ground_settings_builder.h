// Settings and direction grids for the tests of the ground stages.
#pragma once

#include <cmath>
#include <cstddef>
#include <vector>

#include "MIPI_reader/node/ground/ground_labelling.h"
#include "MIPI_reader/node/ground/ground_plane.h"
#include "calibration/angle_calib.h"

namespace kerul::lidar::ground_builder {

inline constexpr int kMrowHeight = 6;

// The product's defaults, with all switches of the labelling off.
inline GroundSettings DefaultSettings() {
  GroundSettings settings;
  settings.vert_span_ratio = 0.055F;
  settings.vert_span_max = 0.4F;
  settings.mean_diff_ratio = 0.04F;
  settings.mean_diff_max = 0.3F;
  settings.max_diff_ratio = 0.2F;
  settings.max_diff_max = 0.2F;
  settings.min_dist = std::vector<float>(36, 99.0F);
  for (std::size_t i = 0; i < 18; ++i) settings.min_dist[i] = i < 6 ? 0.4F : i < 12 ? 1.0F : 3.0F;
  settings.plane_min_points = 100;
  settings.plane_keep_ratio = 0.8F;
  settings.plane_inlier_m = 0.05F;
  settings.plane_pull = 1.0F;
  settings.plane_pull_full_m = 0.3F;
  settings.plane_pull_zero_m = 0.6F;
  settings.plane_col_step = 2;
  settings.plane_max_points = 500;
  return settings;
}

inline AngleCalibGrid EmptyGrid(int rows, int cols) {
  AngleCalibGrid grid;
  grid.rows = rows;
  grid.cols = cols;
  grid.unit_xyz.assign(static_cast<std::size_t>(3 * rows * cols), 0.0F);
  grid.valid = true;
  return grid;
}

inline void SetDirection(AngleCalibGrid& grid, int row, int col, const Point3f& ray) {
  const auto plane = static_cast<std::size_t>(grid.rows * grid.cols);
  const auto pixel = static_cast<std::size_t>(row * grid.cols + col);
  grid.unit_xyz[pixel] = ray.x;
  grid.unit_xyz[plane + pixel] = ray.y;
  grid.unit_xyz[2 * plane + pixel] = ray.z;
}

inline Point3f GetDirection(const AngleCalibGrid& grid, int row, int col) {
  const auto plane = static_cast<std::size_t>(grid.rows * grid.cols);
  const auto pixel = static_cast<std::size_t>(row * grid.cols + col);
  return {grid.unit_xyz[pixel], grid.unit_xyz[plane + pixel], grid.unit_xyz[2 * plane + pixel]};
}

// A camera that looks down at the ground: row 0 at the steepest angle, 25 degrees below the
// horizon, each further row half a degree higher; columns half a degree apart.
inline AngleCalibGrid DownwardGrid(int rows, int cols) {
  constexpr float kStep = 0.0087266463F;  // half a degree
  AngleCalibGrid grid = EmptyGrid(rows, cols);
  for (int row = 0; row < rows; ++row) {
    for (int col = 0; col < cols; ++col) {
      const float down = kStep * static_cast<float>(50 - row);
      const float side = kStep * (static_cast<float>(col) - 0.5F * static_cast<float>(cols - 1));
      SetDirection(
          grid, row, col,
          {std::cos(down) * std::cos(side), std::cos(down) * std::sin(side), -std::sin(down)});
    }
  }
  return grid;
}

}  // namespace kerul::lidar::ground_builder
