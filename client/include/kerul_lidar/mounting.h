// A pixel's point from its range, and a point taken from the sensor's axes to its carrier's.
#pragma once

#include <array>
#include <cstddef>
#include <limits>

#include "kerul_lidar/transform_param.h"

namespace kerul::lidar {

using Point3 = std::array<float, 3>;  // x, y, z

// Rotation, then offset, in double precision. `mount.rotation` must belong to the angles
// (ComputeRotation).
inline Point3 Mounted(const TransformParam& mount, const Point3& point) noexcept {
  const double offset[3] = {mount.x, mount.y, mount.z};
  Point3 moved{};
  for (std::size_t i = 0; i < 3; ++i) {
    const double* row = mount.rotation + 3 * i;
    moved[i] =
        static_cast<float>(row[0] * point[0] + row[1] * point[1] + row[2] * point[2] + offset[i]);
  }
  return moved;
}

// The point of a pixel, metres: `range_m` along the unit direction, then mounted if `mount` is not
// null. NaN without return (range 0) or without direction (all zero).
inline Point3 PointAt(float range_m, const Point3& direction,
                      const TransformParam* mount) noexcept {
  constexpr float kNoPoint = std::numeric_limits<float>::quiet_NaN();
  if (!(range_m > 0.0F) || direction == Point3{}) return {kNoPoint, kNoPoint, kNoPoint};
  const Point3 point{range_m * direction[0], range_m * direction[1], range_m * direction[2]};
  return mount != nullptr ? Mounted(*mount, point) : point;
}

}  // namespace kerul::lidar
