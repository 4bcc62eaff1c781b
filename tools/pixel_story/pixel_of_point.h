// Which pixel looks at a point.
#pragma once

#include <array>

#include "kerul_lidar/directions.h"
#include "kerul_lidar/transform_param.h"

namespace kerul::lidar::story {

struct PointedPixel {
  int row = 0;
  int col = 0;
  double off_degrees = 0.0;  // between its direction and that of the point
};

// The pixel whose direction is nearest to that of `point` (metres, in the sensor's frame, or with a
// `mount` in its carrier's), the first by rows of several. Throws std::runtime_error for the
// sensor's own place, and when no pixel looks within one degree of the point.
PointedPixel PixelOfPoint(const Directions& directions, const std::array<double, 3>& point,
                          const TransformParam* mount);

}  // namespace kerul::lidar::story
