// A point taken from the sensor's axes to its carrier's.
#pragma once

#include <array>
#include <cstddef>

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

}  // namespace kerul::lidar
