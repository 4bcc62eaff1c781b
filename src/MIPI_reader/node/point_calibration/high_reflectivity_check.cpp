#include "MIPI_reader/node/point_calibration/calibration_tables.h"
#include "MIPI_reader/node/point_calibration/high_reflectivity_check_scalar.h"
#include "MIPI_reader/node/point_calibration/packet_calibration.h"

namespace kerul::lidar {
namespace {

// The node tells nobody what it decides. All of it compiles to nothing.
struct NoTeller {
  static void Rule(point_calibration::HighReflRule) noexcept {}
  static void Comparison(const point_calibration::HighReflComparison&) noexcept {}
  static void Verdict(const point_calibration::HighReflVerdict&) noexcept {}
};

}  // namespace

void CheckPixelReflectivity(const HighReflCheck& check, int echo_num, LidarPoint& point) noexcept {
  NoTeller nobody;
  point_calibration::CheckPixel(check, point.echoes[0], echo_num != 1 ? &point.echoes[1] : nullptr,
                                nobody);
}

void CheckHighReflectivity(const HighReflCheck& check, std::span<LidarPoint> points) noexcept {
  const int echo_num = LidarPoint::echo_num;
  for (LidarPoint& point : points) CheckPixelReflectivity(check, echo_num, point);
}

}  // namespace kerul::lidar
