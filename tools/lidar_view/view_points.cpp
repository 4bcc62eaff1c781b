#include "lidar_view/view_points.h"

#include <array>

#include "kerul_lidar/mounting.h"
#include "kerul_lidar/point_payload.h"

namespace kerul::lidar::view {
std::vector<CloudPoint> MakeViewPoints(const CollectedFrame& frame, const Directions& directions,
                                       const TransformParam* mount) {
  std::vector<CloudPoint> points;
  for (int echo = 0; echo < frame.key.echoes; ++echo) {
    for (int row = 0; row < kFrameRows; ++row) {
      for (int col = 0; col < kFrameCols; ++col) {
        const FramePoint& pixel = frame.At(echo, row, col);
        const auto& unit = directions.unit[static_cast<std::size_t>(row * kFrameCols + col)];
        if (pixel.distance == 0 || unit == std::array<float, 3>{}) continue;
        const float range = frame.RangeM(pixel);
        std::array<float, 3> at{range * unit[0], range * unit[1], range * unit[2]};
        if (mount != nullptr) at = Mounted(*mount, at);
        const int mode = frame.key.output_mode;
        const PointPayload payload = DecodePointPayload(mode, pixel.payload.data());
        points.push_back(
            {at[0], at[1], at[2], static_cast<float>(PointIntensity(mode, pixel.payload.data())),
             static_cast<std::uint16_t>(row), static_cast<std::uint16_t>(col),
             static_cast<std::uint8_t>(echo), static_cast<std::uint8_t>(payload.ground ? 1 : 0)});
      }
    }
  }
  return points;
}

}  // namespace kerul::lidar::view
