#include "frame_export_info/export_picture.h"

#include <cmath>
#include <cstddef>

#include "config/color_map.h"

namespace kerul::lidar {
namespace {

constexpr int kGapColumns = 4;
constexpr float kFullReflectivity = 255.0F;

void Paint(const ColorMap& colors, float value, float min, float max, int row, int col,
           ExportPicture& picture) {
  if (!std::isfinite(value)) return;
  // In double: the span of two floats can be beyond single precision.
  const double span = static_cast<double>(max) - static_cast<double>(min);
  const double share =
      span > 0.0 ? (static_cast<double>(value) - static_cast<double>(min)) / span : 0.0;
  const auto pixel = static_cast<std::size_t>(row) * static_cast<std::size_t>(picture.width) +
                     static_cast<std::size_t>(col);
  const auto& color = colors.At(static_cast<float>(share));
  for (std::size_t i = 0; i < 3; ++i) {
    picture.rgb[3 * pixel + i] = static_cast<std::uint8_t>(color[i]);
  }
}

}  // namespace

bool DrawExport(const ExportFile& file, const ExportSummary& summary, ExportPicture& picture,
                std::string& error) {
  const int height = file.header.height;
  const int width = file.header.width;
  const std::int64_t pixels = std::int64_t{height} * width;
  if (pixels < 1 || pixels > kMaxPicturePixels) {
    error = "cannot draw a grid of " + std::to_string(height) + " x " + std::to_string(width);
    return false;
  }
  picture.width = 2 * width + kGapColumns;
  picture.height = height;
  picture.rgb.assign(
      std::size_t{3} * static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(height),
      0);
  const ColorMap colors;
  for (const ExportRecord& record : file.records) {
    Paint(colors, record.range, summary.range.min, summary.range.max, record.row, record.col,
          picture);
    Paint(colors, record.reflectivity, 0.0F, kFullReflectivity, record.row,
          width + kGapColumns + record.col, picture);
  }
  return true;
}

}  // namespace kerul::lidar
