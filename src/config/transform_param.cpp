#include "config/transform_param.h"

#include <cmath>

namespace kerul::lidar {
namespace {

struct Direction {
  float cosine;
  float sine;
};

Direction DirectionOf(double angle) noexcept {
  return {static_cast<float>(std::cos(angle)), static_cast<float>(std::sin(angle))};
}

}  // namespace

void ComputeRotation(TransformParam& transform) noexcept {
  const auto [c1, s1] = DirectionOf(transform.roll);
  const auto [c2, s2] = DirectionOf(transform.pitch);
  const auto [c3, s3] = DirectionOf(transform.yaw);
  const float rotation[9] = {
      c2 * c3,
      s1 * s2 * c3 - c1 * s3,
      s1 * s3 + c1 * s2 * c3,  //
      c2 * s3,
      c1 * c3 + s1 * s2 * s3,
      c1 * s2 * s3 - s1 * c3,  //
      -s2,
      s1 * c2,
      c1 * c2,
  };
  for (int i = 0; i < 9; ++i) transform.rotation[i] = static_cast<double>(rotation[i]);
}

}  // namespace kerul::lidar
