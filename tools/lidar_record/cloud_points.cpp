#include "lidar_record/cloud_points.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "kerul_lidar/point_packet_layout.h"

namespace kerul::lidar::record {
namespace {

// The nearest whole number that the type holds; 0 for NaN.
template <class Integer>
Integer Rounded(double value) noexcept {
  constexpr double kMost = std::numeric_limits<Integer>::max();
  if (!(value > 0.0)) return 0;
  return static_cast<Integer>(std::lround(std::min(value, kMost)));
}

bool IsGround(double flags) noexcept {
  return (Rounded<std::uint16_t>(flags) >> point_flag::kGround & 1) != 0;
}

}  // namespace

bool MakePoints(const ros::CloudView& cloud, std::vector<CloudPoint>& points, std::string& error) {
  const ros::FieldColumn x(cloud, "x");
  const ros::FieldColumn y(cloud, "y");
  const ros::FieldColumn z(cloud, "z");
  const ros::FieldColumn intensity(cloud, "intensity");
  const ros::FieldColumn row(cloud, "row");
  const ros::FieldColumn col(cloud, "col");
  const ros::FieldColumn echo(cloud, "echo");
  const ros::FieldColumn flags(cloud, "flags");
  points.clear();
  if (!x.IsThere() || !y.IsThere() || !z.IsThere()) {
    error = "the cloud has no x, y and z";
    return false;
  }
  for (std::uint64_t i = 0; i < cloud.PointCount(); ++i) {
    CloudPoint point;
    point.x = static_cast<float>(x.At(i));
    point.y = static_cast<float>(y.At(i));
    point.z = static_cast<float>(z.At(i));
    if (!std::isfinite(point.x) || !std::isfinite(point.y) || !std::isfinite(point.z)) continue;
    point.intensity = static_cast<float>(intensity.At(i));
    point.row = Rounded<std::uint16_t>(row.At(i));
    point.col = Rounded<std::uint16_t>(col.At(i));
    point.echo = Rounded<std::uint8_t>(echo.At(i));
    point.ground = IsGround(flags.At(i)) ? 1 : 0;
    points.push_back(point);
  }
  return true;
}

bool MakeFrame(const ros::CloudView& cloud, CollectedFrame& frame, std::string& error) {
  const ros::FieldColumn range(cloud, "range");
  const ros::FieldColumn row(cloud, "row");
  const ros::FieldColumn col(cloud, "col");
  const ros::FieldColumn echo(cloud, "echo");
  const ros::FieldColumn intensity(cloud, "intensity");
  const ros::FieldColumn flags(cloud, "flags");
  if (!range.IsThere() || !row.IsThere() || !col.IsThere()) {
    error = "the cloud has no range, row and col";
    return false;
  }
  frame = CollectedFrame();
  frame.key.output_mode = static_cast<int>(OutputMode::kFlags);
  for (std::uint64_t i = 0; i < cloud.PointCount(); ++i) {
    const int its_row = Rounded<std::uint16_t>(row.At(i));
    const int its_col = Rounded<std::uint16_t>(col.At(i));
    const int its_echo = Rounded<std::uint8_t>(echo.At(i));
    if (its_row >= kFrameRows || its_col >= kFrameCols || its_echo >= kMaxEchoes) continue;
    frame.key.echoes = std::max(frame.key.echoes, its_echo + 1);
    FramePoint& point = frame.points[CollectedFrame::Index(its_echo, its_row, its_col)];
    point.distance = Rounded<std::uint16_t>(range.At(i) * 1000.0 / frame.unit_mm);
    const auto its_flags = Rounded<std::uint16_t>(flags.At(i));
    point.payload = {Rounded<std::uint8_t>(intensity.At(i)),
                     static_cast<std::uint8_t>(its_flags & 0xFF),
                     static_cast<std::uint8_t>(its_flags >> 8)};
  }
  return true;
}

}  // namespace kerul::lidar::record
