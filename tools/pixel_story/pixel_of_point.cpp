#include "pixel_story/pixel_of_point.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <stdexcept>
#include <string>

#include "pixel_story/words.h"

namespace kerul::lidar::story {
namespace {

using Vector = std::array<double, 3>;

constexpr int kCols = 288;
constexpr double kMostOffDegrees = 1.0;  // pixels look less than half a degree apart

double Dot(const Vector& a, const Vector& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

// The way back of Mounted: a rotation's inverse is its transpose.
Vector Unmounted(const TransformParam& mount, const Vector& point) {
  const Vector moved{point[0] - mount.x, point[1] - mount.y, point[2] - mount.z};
  Vector turned{};
  for (std::size_t i = 0; i < 3; ++i) {
    turned[i] = Dot({mount.rotation[i], mount.rotation[3 + i], mount.rotation[6 + i]}, moved);
  }
  return turned;
}

double DegreesBetween(const Vector& a, const Vector& b) {
  const double cosine = Dot(a, b) / std::sqrt(Dot(a, a) * Dot(b, b));
  return std::acos(std::clamp(cosine, -1.0, 1.0)) * 180.0 / std::numbers::pi;
}

}  // namespace

PointedPixel PixelOfPoint(const Directions& directions, const std::array<double, 3>& point,
                          const TransformParam* mount) {
  const Vector target = mount != nullptr ? Unmounted(*mount, point) : point;
  if (Dot(target, target) == 0.0) throw std::runtime_error("the point is the sensor's own place");
  // All directions have length 1, or 0 where there is none.
  std::size_t nearest = 0;
  double best = 0.0;
  for (std::size_t i = 0; i < directions.unit.size(); ++i) {
    const auto& unit = directions.unit[i];
    const double along = Dot({unit[0], unit[1], unit[2]}, target);
    if (along <= best) continue;
    best = along;
    nearest = i;
  }
  PointedPixel pixel{static_cast<int>(nearest) / kCols, static_cast<int>(nearest) % kCols, 180.0};
  if (best > 0.0) {
    const auto& unit = directions.unit[nearest];
    pixel.off_degrees = DegreesBetween({unit[0], unit[1], unit[2]}, target);
  }
  if (pixel.off_degrees > kMostOffDegrees) {
    throw std::runtime_error("no pixel looks at the point: the nearest direction is " +
                             Number(static_cast<float>(pixel.off_degrees)) + " degrees off");
  }
  return pixel;
}

}  // namespace kerul::lidar::story
