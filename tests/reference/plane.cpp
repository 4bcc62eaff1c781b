#include "reference/plane.h"

#include <algorithm>
#include <cmath>

namespace reference {
namespace {

GroundPlane EmptyPlane() {
  GroundPlane plane;
  plane.a = 0.0F;
  plane.b = 0.0F;
  plane.c = 1.0F;
  plane.d = 0.0F;
  plane.valid = false;
  return plane;
}

float Length(const Point3f& v) { return std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z); }

struct Symmetric {
  float xx = 0.0F;
  float xy = 0.0F;
  float xz = 0.0F;
  float yy = 0.0F;
  float yz = 0.0F;
  float zz = 0.0F;
};

Point3f Centroid(const std::vector<Point3f>& points, float inverse_n) {
  Point3f sum;
  for (const Point3f& p : points) {
    sum.x += p.x;
    sum.y += p.y;
    sum.z += p.z;
  }
  return Point3f{sum.x * inverse_n, sum.y * inverse_n, sum.z * inverse_n};
}

Symmetric Covariance(const std::vector<Point3f>& points, const Point3f& centre, float inverse_n) {
  Symmetric m;
  for (const Point3f& p : points) {
    const float dx = p.x - centre.x;
    const float dy = p.y - centre.y;
    const float dz = p.z - centre.z;
    m.xx += dx * dx;
    m.xy += dx * dy;
    m.xz += dx * dz;
    m.yy += dy * dy;
    m.yz += dy * dz;
    m.zz += dz * dz;
  }
  m.xx = m.xx * inverse_n + 1e-6F;
  m.xy = m.xy * inverse_n;
  m.xz = m.xz * inverse_n;
  m.yy = m.yy * inverse_n + 1e-6F;
  m.yz = m.yz * inverse_n;
  m.zz = m.zz * inverse_n + 1e-6F;
  return m;
}

// Inverse power iteration towards the eigenvector of the smallest eigenvalue.
Point3f Iterate(const Symmetric& inverse) {
  Point3f v{0.0F, 0.0F, 1.0F};
  for (int i = 0; i < 20; ++i) {
    Point3f p;
    p.x = inverse.xx * v.x + inverse.xy * v.y + inverse.xz * v.z;
    p.y = inverse.xy * v.x + inverse.yy * v.y + inverse.yz * v.z;
    p.z = inverse.xz * v.x + inverse.yz * v.y + inverse.zz * v.z;
    const float length = Length(p);
    if (length < 1e-12F) break;
    v.x = p.x / length;
    v.y = p.y / length;
    v.z = p.z / length;
  }
  return v;
}

float Residual(const GroundPlane& plane, const Point3f& p) {
  return std::fabs(plane.a * p.x + plane.b * p.y + plane.c * p.z - plane.d);
}

}  // namespace

GroundPlane FitPlane(const std::vector<Point3f>& points) {
  if (points.size() < 4) return EmptyPlane();
  // Centroid and regularised covariance.
  const float inverse_n = 1.0F / static_cast<float>(points.size());
  const Point3f centre = Centroid(points, inverse_n);
  const Symmetric m = Covariance(points, centre, inverse_n);
  // Cofactors and determinant.
  const float c00 = m.yy * m.zz - m.yz * m.yz;
  const float c01 = m.xz * m.yz - m.xy * m.zz;
  const float c02 = m.xy * m.yz - m.xz * m.yy;
  const float c11 = m.xx * m.zz - m.xz * m.xz;
  const float c12 = m.xy * m.xz - m.xx * m.yz;
  const float c22 = m.xx * m.yy - m.xy * m.xy;
  const float determinant = (m.xx * c00 + m.xy * c01) + m.xz * c02;
  Point3f normal{0.0F, 0.0F, 1.0F};
  if (!(std::fabs(determinant) < 1e-14F)) {
    // Eigenvector of the smallest eigenvalue.
    const float inverse_determinant = 1.0F / determinant;
    Symmetric inverse;
    inverse.xx = c00 * inverse_determinant;
    inverse.xy = c01 * inverse_determinant;
    inverse.xz = c02 * inverse_determinant;
    inverse.yy = c11 * inverse_determinant;
    inverse.yz = c12 * inverse_determinant;
    inverse.zz = c22 * inverse_determinant;
    normal = Iterate(inverse);
    if (Length(normal) < 1e-8F) return EmptyPlane();
  }
  // Unit normal and offset.
  const float length = Length(normal);
  GroundPlane plane;
  plane.a = normal.x / length;
  plane.b = normal.y / length;
  plane.c = normal.z / length;
  plane.d = plane.a * centre.x + plane.b * centre.y + plane.c * centre.z;
  plane.valid = true;
  return plane;
}

GroundPlane FitPlaneRobust(const std::vector<Point3f>& points, float keep_ratio) {
  const GroundPlane first = FitPlane(points);
  if (!first.valid || points.size() <= 3) return first;
  float ratio = keep_ratio;
  if (ratio >= 1.0F) ratio = 1.0F;
  if (!(ratio > 0.5F)) ratio = 0.5F;
  // Residuals; a NaN counts as the largest.
  std::vector<float> residuals;
  std::vector<float> sorted;
  for (const Point3f& p : points) {
    const float residual = Residual(first, p);
    residuals.push_back(residual);
    sorted.push_back(residual);
  }
  // How many to keep, and the residual of the last of them.
  const std::size_t n = points.size();
  auto k = static_cast<std::size_t>(std::floor(static_cast<float>(n) * ratio));
  if (k > n) k = n;
  if (k <= 4) k = 4;
  std::sort(sorted.begin(), sorted.end(), [](float left, float right) {
    if (std::isnan(left)) return false;
    if (std::isnan(right)) return true;
    return left < right;
  });
  // Those up to that residual, ties too.
  const float threshold = sorted[k - 1] + 1e-9F;
  std::vector<Point3f> kept;
  for (std::size_t i = 0; i < n; ++i) {
    if (residuals[i] <= threshold) kept.push_back(points[i]);
  }
  if (kept.size() > 3) return FitPlane(kept);
  return first;
}

}  // namespace reference
