#include "MIPI_reader/node/ground/ground_plane.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>

namespace kerul::lidar {
namespace {

constexpr std::size_t kMinPoints = 4;
constexpr float kDiagonalLift = 1e-6F;     // keeps the covariance of a flat cloud invertible
constexpr float kMinDeterminant = 1e-14F;  // below it every direction is as good: take z
constexpr int kMaxIterations = 20;
constexpr float kMinProductLength = 1e-12F;
constexpr float kMinNormalLength = 1e-8F;
constexpr float kTieMargin = 1e-9F;  // keeps points of equal residual together
constexpr float kMinKeepRatio = 0.5F;
constexpr float kMaxKeepRatio = 1.0F;

// Upper half of a symmetric 3 x 3 matrix.
struct Symmetric3 {
  float xx = 0.0F;
  float xy = 0.0F;
  float xz = 0.0F;
  float yy = 0.0F;
  float yz = 0.0F;
  float zz = 0.0F;
};

float Length(const Point3f& v) noexcept { return std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z); }

Point3f DivideBy(const Point3f& v, float divisor) noexcept {
  return {v.x / divisor, v.y / divisor, v.z / divisor};
}

Point3f Multiply(const Symmetric3& m, const Point3f& v) noexcept {
  return {m.xx * v.x + m.xy * v.y + m.xz * v.z, m.xy * v.x + m.yy * v.y + m.yz * v.z,
          m.xz * v.x + m.yz * v.y + m.zz * v.z};
}

Point3f Centroid(const std::vector<Point3f>& points) noexcept {
  Point3f sum;
  for (const Point3f& point : points) {
    sum.x += point.x;
    sum.y += point.y;
    sum.z += point.z;
  }
  const float share = 1.0F / static_cast<float>(points.size());
  return {sum.x * share, sum.y * share, sum.z * share};
}

Symmetric3 Covariance(const std::vector<Point3f>& points, const Point3f& centre) noexcept {
  Symmetric3 sum;
  for (const Point3f& point : points) {
    const float dx = point.x - centre.x;
    const float dy = point.y - centre.y;
    const float dz = point.z - centre.z;
    sum.xx += dx * dx;
    sum.xy += dx * dy;
    sum.xz += dx * dz;
    sum.yy += dy * dy;
    sum.yz += dy * dz;
    sum.zz += dz * dz;
  }
  const float share = 1.0F / static_cast<float>(points.size());
  return {sum.xx * share + kDiagonalLift, sum.xy * share, sum.xz * share,
          sum.yy * share + kDiagonalLift, sum.yz * share, sum.zz * share + kDiagonalLift};
}

// Cofactors; those of a symmetric matrix are symmetric too, and no transposition is needed.
Symmetric3 Cofactors(const Symmetric3& m) noexcept {
  return {m.yy * m.zz - m.yz * m.yz, m.xz * m.yz - m.xy * m.zz, m.xy * m.yz - m.xz * m.yy,
          m.xx * m.zz - m.xz * m.xz, m.xy * m.xz - m.xx * m.yz, m.xx * m.yy - m.xy * m.xy};
}

// Inverse power iteration: multiplying by the inverse again and again turns any start towards the
// eigenvector of the smallest eigenvalue, the direction in which the cloud is thinnest.
Point3f IterateNormal(const Symmetric3& inverse) noexcept {
  Point3f normal{0.0F, 0.0F, 1.0F};
  for (int i = 0; i < kMaxIterations; ++i) {
    const Point3f product = Multiply(inverse, normal);
    const float length = Length(product);
    if (length < kMinProductLength) break;
    normal = DivideBy(product, length);
  }
  return normal;
}

float Residual(const GroundPlane& plane, const Point3f& point) noexcept {
  return std::fabs(plane.a * point.x + plane.b * point.y + plane.c * point.z - plane.d);
}

// How many points the second fit aims at. A NaN ratio takes the lower limit.
std::size_t KeptPoints(std::size_t count, float keep_ratio) noexcept {
  if (keep_ratio >= kMaxKeepRatio) keep_ratio = kMaxKeepRatio;
  if (!(keep_ratio > kMinKeepRatio)) keep_ratio = kMinKeepRatio;
  const auto kept = static_cast<std::size_t>(std::floor(static_cast<float>(count) * keep_ratio));
  return std::max(std::min(kept, count), kMinPoints);
}

// The rank-th smallest residual, rank from 1. NaN counts as the largest.
float SelectResidual(const std::vector<float>& residuals, std::size_t rank) {
  std::vector<std::size_t> order(residuals.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  const auto smaller = [&residuals](std::size_t left, std::size_t right) noexcept {
    const float a = residuals[left];
    const float b = residuals[right];
    return a < b || (std::isnan(b) && !std::isnan(a));
  };
  const auto nth = order.begin() + static_cast<std::ptrdiff_t>(rank - 1);
  std::nth_element(order.begin(), nth, order.end(), smaller);
  return residuals[*nth];
}

}  // namespace

namespace ground_plane_detail {

GroundPlane FitPlaneFromPoints(const std::vector<Point3f>& points) {
  if (points.size() < kMinPoints) return {};
  const Point3f centre = Centroid(points);
  const Symmetric3 m = Covariance(points, centre);
  const Symmetric3 c = Cofactors(m);
  const float determinant = m.xx * c.xx + m.xy * c.xy + m.xz * c.xz;
  Point3f normal{0.0F, 0.0F, 1.0F};
  if (!(std::fabs(determinant) < kMinDeterminant)) {
    const float scale = 1.0F / determinant;
    normal = IterateNormal(
        {c.xx * scale, c.xy * scale, c.xz * scale, c.yy * scale, c.yz * scale, c.zz * scale});
  }
  const float length = Length(normal);
  if (length < kMinNormalLength) return {};
  normal = DivideBy(normal, length);
  const float d = normal.x * centre.x + normal.y * centre.y + normal.z * centre.z;
  return {normal.x, normal.y, normal.z, d, true};
}

}  // namespace ground_plane_detail

GroundPlane FitGroundPlaneRobust(const std::vector<Point3f>& points, float keep_ratio) {
  const GroundPlane first = ground_plane_detail::FitPlaneFromPoints(points);
  if (!first.valid) return first;

  std::vector<float> residuals;
  residuals.reserve(points.size());
  for (const Point3f& point : points) residuals.push_back(Residual(first, point));
  const float threshold =
      SelectResidual(residuals, KeptPoints(points.size(), keep_ratio)) + kTieMargin;

  std::vector<Point3f> kept;
  kept.reserve(points.size());
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (residuals[i] <= threshold) kept.push_back(points[i]);
  }
  // Fewer only when residuals are NaN.
  if (kept.size() < kMinPoints) return first;
  return ground_plane_detail::FitPlaneFromPoints(kept);
}

}  // namespace kerul::lidar
