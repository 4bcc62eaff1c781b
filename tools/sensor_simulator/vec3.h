// A point or direction in the sensor's frame, metres: x along the optical axis, y to the left,
// z upward, origin in the receiver.
#pragma once

#include <cmath>

namespace kerul::lidar::simulator {

struct Vec3 {
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
};

constexpr Vec3 operator+(const Vec3& a, const Vec3& b) noexcept {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}
constexpr Vec3 operator-(const Vec3& a, const Vec3& b) noexcept {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}
constexpr Vec3 operator*(const Vec3& a, double scale) noexcept {
  return {a.x * scale, a.y * scale, a.z * scale};
}
constexpr double Dot(const Vec3& a, const Vec3& b) noexcept {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}
inline double Length(const Vec3& a) noexcept { return std::sqrt(Dot(a, a)); }

}  // namespace kerul::lidar::simulator
