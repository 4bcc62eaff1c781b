#include "MIPI_reader/node/frame_end/frame_upsampling.h"

#include <array>
#include <cstddef>
#include <cstdint>

#include "MIPI_reader/node/frame_end/echo_merge.h"

namespace kerul::lidar {
namespace {

constexpr float kReflPerTotsum = 0.0625F;
constexpr float kMetresPerBin = 0.15F;
constexpr float kDistOffset = 1.2F;  // metres

template <class Frame>
auto& PointAt(Frame& frame, std::int32_t row, std::int32_t col) noexcept {
  return frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
}

// The pixel between `sources`. The merge sets no range, so dist_proc always becomes the bare
// offset. Deliberate.
template <std::size_t Count>
LidarPoint PointBetween(const std::array<const LidarPoint*, Count>& sources) noexcept {
  LidarPoint point = MergePoints(sources.data(), static_cast<int>(Count));
  LidarEcho& echo = point.echoes[0];
  const float reflectivity = kReflPerTotsum * echo.totsum;
  echo.refl_raw = reflectivity;
  echo.refl_proc = reflectivity;
  echo.dist_proc = kMetresPerBin * echo.dist_proc + kDistOffset;
  return point;
}

// A pixel is placed by its own row and col. A source pixel in the first row or column has nothing
// above or left of it and is left out, as is one that lies outside.
bool HasNeighboursBefore(const LidarFrame& frame, const LidarPoint& point) noexcept {
  return point.row > 0 && point.row < frame.height && point.col > 0 && point.col < frame.width;
}

void PlacePixel(const LidarFrame& source, const LidarPoint& current, LidarFrame& target) noexcept {
  const std::int32_t r = current.row;
  const std::int32_t c = current.col;
  const LidarPoint& up = PointAt(source, r - 1, c);
  const LidarPoint& left = PointAt(source, r, c - 1);
  const LidarPoint& upleft = PointAt(source, r - 1, c - 1);
  PointAt(target, 2 * r, 2 * c) = current;
  PointAt(target, 2 * r - 1, 2 * c - 1) = PointBetween(std::array{&current, &left, &up, &upleft});
  PointAt(target, 2 * r - 1, 2 * c) = PointBetween(std::array{&current, &up});
  PointAt(target, 2 * r, 2 * c - 1) = PointBetween(std::array{&current, &left});
}

}  // namespace

bool UpsampleFrame(const LidarFrame& source, LidarFrame& target) noexcept {
  if (target.height != 2 * source.height || target.width != 2 * source.width) return false;
  target.Reset();
  target.frame_id = source.frame_id;
  for (const std::vector<LidarPoint>& row : source.points) {
    for (const LidarPoint& current : row) {
      if (HasNeighboursBefore(source, current)) PlacePixel(source, current, target);
    }
  }
  return true;
}

}  // namespace kerul::lidar
