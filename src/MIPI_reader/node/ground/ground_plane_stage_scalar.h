// The second ground stage, and what it tells of its decisions. The node's teller is NoPlaneTeller,
// which hears nothing and costs nothing.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "MIPI_reader/node/ground/ground_direction.h"
#include "MIPI_reader/node/ground/ground_plane.h"
#include "MIPI_reader/node/ground/ground_settings.h"
#include "MIPI_reader/node/rows/row_range.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "calibration/angle_calib.h"

namespace kerul::lidar::ground {

inline constexpr int kMinFitPoints = 4;
inline constexpr float kMinDenominator = 1e-8F;  // a ray this parallel to the plane never meets it
// The last two pixel rows of the miniflash row before.
inline constexpr int kPreviousFirst = 4;
inline constexpr int kPreviousCount = 2;

// Hears of the row's plane, then of each pixel.
struct NoPlaneTeller {
  // found: ground points on the stride; kept: of them, for the fit; least: so many are needed.
  void FitPoints(std::size_t /*found*/, std::size_t /*kept*/,
                 std::size_t /*least*/) const noexcept {}
  void Fitted(const GroundPlane& /*plane*/) const noexcept {}
  void Pixel(int /*row*/, int /*col*/) const noexcept {}
  void NoPoint() const noexcept {}  // no return or no direction
  void Residual(float /*residual*/, float /*limit*/) const noexcept {}
  void Pulled(float /*from*/, float /*to*/) const noexcept {}
};

// Calls visit(point) for every ground point of the rows on the column stride.
template <typename Visitor>
void VisitGroundPoints(const FrameRows& rows, RowRange range, std::size_t col_step,
                       const AngleCalibGrid& grid, Visitor&& visit) {
  for (std::size_t row = range.begin; row < range.end; ++row) {
    const std::vector<LidarPoint>& line = rows[row];
    for (std::size_t col = 0; col < line.size(); col += col_step) {
      const LidarEcho& echo = line[col].echoes[0];
      const float d = echo.dist_raw;
      Point3f ray;
      if (!echo.ground || !(d > 0.0F) ||
          !FindDirection(grid, static_cast<int>(row), static_cast<int>(col), ray)) {
        continue;
      }
      visit(Point3f{ray.x * d, ray.y * d, ray.z * d});
    }
  }
}

// The two runs of rows whose points go into the fit, in the order in which they go.
struct FitRows {
  RowRange own;
  RowRange previous;
};

inline FitRows FindFitRows(const FrameRows& rows, int m_row, int mrow_height) noexcept {
  FitRows fit_rows;
  fit_rows.own = ClipRows(rows, std::int64_t{m_row} * mrow_height, mrow_height);
  if (m_row >= 1) {
    const std::int64_t before = (std::int64_t{m_row} - 1) * mrow_height;
    fit_rows.previous = ClipRows(rows, before + kPreviousFirst, kPreviousCount);
  }
  return fit_rows;
}

// Gives the points of the fit, or none when there are too few. Counts first, so that the vector is
// sized once. Of more than plane_max_points it keeps that many, evenly spaced, first and last in.
template <class Tell>
std::vector<Point3f> CollectFitPoints(const FrameRows& rows, const FitRows& fit_rows,
                                      const GroundSettings& settings, const AngleCalibGrid& grid,
                                      Tell& tell) {
  const auto step = static_cast<std::size_t>(std::max(settings.plane_col_step, 1));
  const auto least = static_cast<std::size_t>(std::max(settings.plane_min_points, kMinFitPoints));
  const auto most = static_cast<std::size_t>(std::max(settings.plane_max_points, kMinFitPoints));
  const auto visit_all = [&](auto&& visit) {
    VisitGroundPoints(rows, fit_rows.own, step, grid, visit);
    VisitGroundPoints(rows, fit_rows.previous, step, grid, visit);
  };

  std::size_t found = 0;
  visit_all([&found](const Point3f&) { ++found; });
  std::vector<Point3f> points;
  const std::size_t kept = std::min(found, most);
  tell.FitPoints(found, kept, least);
  if (kept < least) return points;
  points.reserve(kept);
  std::size_t position = 0;
  visit_all([&](const Point3f& point) {
    // The i-th kept point is number i (found - 1) / (kept - 1); all of them when kept == found.
    if (position == points.size() * (found - 1) / (kept - 1)) points.push_back(point);
    ++position;
  });
  return points;
}

// Draws a range along its ray to the plane: wholly up to pull_full_m, fading out to pull_zero_m.
inline float PullToPlane(float d, const Point3f& ray, const GroundPlane& plane,
                         const GroundSettings& settings) noexcept {
  const float denominator = plane.a * ray.x + plane.b * ray.y + plane.c * ray.z;
  if (!(std::fabs(denominator) >= kMinDenominator)) return d;
  const float t = plane.d / denominator;
  if (!std::isfinite(t) || !(t > 0.0F)) return d;
  const float pull = settings.plane_pull;
  const float full = settings.plane_pull_full_m;
  const float zero = settings.plane_pull_zero_m;
  const float difference = std::fabs(t - d);
  if (difference <= full) return pull * t + (1.0F - pull) * d;
  if (!(full > 0.0F && full < zero && difference < zero)) return d;
  const float weight = pull * (1.0F - (difference - full) / (zero - full));
  return weight > 0.0F ? weight * t + (1.0F - weight) * d : d;
}

template <class Tell>
void RelabelPixel(LidarEcho& echo, int row, int col, const GroundPlane& plane,
                  const GroundSettings& settings, const AngleCalibGrid& grid, Tell& tell) noexcept {
  tell.Pixel(row, col);
  const float d = echo.dist_raw;
  Point3f ray;
  if (!(d > 0.0F) || !FindDirection(grid, row, col, ray)) {
    tell.NoPoint();
    echo.ground = false;
    return;
  }
  const float residual =
      std::fabs(plane.a * ray.x * d + plane.b * ray.y * d + plane.c * ray.z * d - plane.d);
  tell.Residual(residual, settings.plane_inlier_m);
  echo.ground = residual < settings.plane_inlier_m;
  if (echo.ground && settings.plane_pull > 0.0F) {
    echo.dist_raw = PullToPlane(d, ray, plane, settings);
    tell.Pulled(d, echo.dist_raw);
  }
}

template <class Tell>
void LabelRowByPlane(FrameRows& rows, int m_row, int mrow_height, const GroundSettings& settings,
                     const AngleCalibGrid& grid, Tell& tell) {
  const FitRows fit_rows = FindFitRows(rows, m_row, mrow_height);
  const std::vector<Point3f> points = CollectFitPoints(rows, fit_rows, settings, grid, tell);
  if (points.empty()) return;
  const GroundPlane plane = FitGroundPlaneRobust(points, settings.plane_keep_ratio);
  tell.Fitted(plane);
  if (!plane.valid) return;

  for (std::size_t row = fit_rows.own.begin; row < fit_rows.own.end; ++row) {
    std::vector<LidarPoint>& line = rows[row];
    for (std::size_t col = 0; col < line.size(); ++col) {
      RelabelPixel(line[col].echoes[0], static_cast<int>(row), static_cast<int>(col), plane,
                   settings, grid, tell);
    }
  }
}

}  // namespace kerul::lidar::ground
