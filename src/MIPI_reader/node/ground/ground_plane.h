// Robust plane through a cloud of points.
#pragma once

#include <vector>

namespace kerul::lidar {

struct Point3f {
  float x = 0.0F;  // metres
  float y = 0.0F;
  float z = 0.0F;
};

// a x + b y + c z = d with (a, b, c) of unit length when valid.
struct GroundPlane {
  float a = 0.0F;
  float b = 0.0F;
  float c = 1.0F;
  float d = 0.0F;
  bool valid = false;
};

// One fit through all points, a second one without those that fit worst. keep_ratio: the share of
// points kept, taken as 0.5 at least and 1.0 at most.
GroundPlane FitGroundPlaneRobust(const std::vector<Point3f>& points, float keep_ratio);

namespace ground_plane_detail {

// Least squares through all points; not valid with fewer than four.
GroundPlane FitPlaneFromPoints(const std::vector<Point3f>& points);

}  // namespace ground_plane_detail
}  // namespace kerul::lidar
