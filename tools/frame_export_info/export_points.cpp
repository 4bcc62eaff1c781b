#include "frame_export_info/export_points.h"

#include <cmath>

namespace kerul::lidar {
namespace {

struct Direction {
  float x = 0.0F;
  float y = 0.0F;
  float z = 0.0F;
};

bool IsNone(const Direction& d) noexcept { return d.x == 0.0F && d.y == 0.0F && d.z == 0.0F; }

// No direction outside the grid, or where the camera model has none.
Direction GridDirection(const AngleCalibGrid& grid, int row, int col) noexcept {
  if (row >= grid.rows || col >= grid.cols) return {};
  const auto plane = static_cast<std::size_t>(grid.rows) * static_cast<std::size_t>(grid.cols);
  const auto pixel = static_cast<std::size_t>(row) * static_cast<std::size_t>(grid.cols) +
                     static_cast<std::size_t>(col);
  return {grid.xyz[pixel], grid.xyz[plane + pixel], grid.xyz[2 * plane + pixel]};
}

// Of pixel (row, col) of a grid that is `step` times as fine as the calibration's, 1 or 2.
Direction PixelDirection(const AngleCalibGrid& grid, int row, int col, int step) noexcept {
  Direction sum;
  for (const int r : {row / step, (row + step - 1) / step}) {
    for (const int c : {col / step, (col + step - 1) / step}) {
      const Direction d = GridDirection(grid, r, c);
      if (IsNone(d)) return {};
      sum = {sum.x + d.x, sum.y + d.y, sum.z + d.z};
    }
  }
  const float length = std::sqrt(sum.x * sum.x + sum.y * sum.y + sum.z * sum.z);
  if (!(length > 0.0F) || !std::isfinite(length)) return {};
  return {sum.x / length, sum.y / length, sum.z / length};
}

// 0 when the grid does not fit the file.
int StepOf(const ExportHeader& header, const AngleCalibGrid& grid) noexcept {
  for (const int step : {1, 2}) {
    if (header.height == step * grid.rows && header.width == step * grid.cols) return step;
  }
  return 0;
}

bool IsComplete(const AngleCalibGrid& grid) noexcept {
  return grid.valid && grid.rows > 0 && grid.cols > 0 &&
         grid.xyz.size() >=
             3 * static_cast<std::size_t>(grid.rows) * static_cast<std::size_t>(grid.cols);
}

}  // namespace

bool MakePoints(const ExportFile& file, const AngleCalibGrid& grid, ExportPoints& result,
                std::string& error) {
  result = ExportPoints{};
  const int step = IsComplete(grid) ? StepOf(file.header, grid) : 0;
  if (step == 0) {
    error = "the angle record describes " + std::to_string(grid.rows) + " x " +
            std::to_string(grid.cols) + " pixels, which fits neither once nor twice the file's " +
            std::to_string(file.header.height) + " x " + std::to_string(file.header.width);
    return false;
  }
  for (const ExportRecord& record : file.records) {
    const Direction d = PixelDirection(grid, record.row, record.col, step);
    if (!std::isfinite(record.range) || !(record.range > 0.0F) || IsNone(d)) {
      ++result.left_out;
      continue;
    }
    result.points.push_back({.x = record.range * d.x,
                             .y = record.range * d.y,
                             .z = record.range * d.z,
                             .intensity = record.reflectivity,
                             .row = record.row,
                             .col = record.col});
  }
  return true;
}

}  // namespace kerul::lidar
