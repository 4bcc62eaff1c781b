// Mounting of the sensor on its carrier.
#pragma once

namespace kerul::lidar {

// 15 doubles in this order, copied as a block: offset in metres, angles in radians, then the
// rotation that belongs to the angles, row by row.
struct TransformParam {
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
  double roll = 0.0;
  double pitch = 0.0;
  double yaw = 0.0;
  double rotation[9] = {1.0, 0.0, 0.0, 0.0, 1.0, 0.0, -0.0, 0.0, 1.0};
};

// Computes `rotation` from the three angles: sines and cosines in double, rounded to float,
// products in float, stored as double.
void ComputeRotation(TransformParam& transform) noexcept;

}  // namespace kerul::lidar
