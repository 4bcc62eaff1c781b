// Robust plane through a cloud of points.
#pragma once

#include <vector>

#include "MIPI_reader/node/ground/ground_plane.h"

namespace reference {

using kerul::lidar::GroundPlane;
using kerul::lidar::Point3f;

// Least squares through all points; the empty result with fewer than four.
GroundPlane FitPlane(const std::vector<Point3f>& points);

// One fit through all, one more without the points that fit worst.
GroundPlane FitPlaneRobust(const std::vector<Point3f>& points, float keep_ratio);

}  // namespace reference
