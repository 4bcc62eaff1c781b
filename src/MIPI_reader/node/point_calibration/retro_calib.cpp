#include <algorithm>
#include <iostream>
#include <stdexcept>
#include <utility>

#include "MIPI_reader/node/point_calibration/calibration_tables.h"
#include "MIPI_reader/node/point_calibration/packet_calibration.h"
#include "MIPI_reader/node/point_calibration/retro_calib_scalar.h"

namespace kerul::lidar {
namespace {

constexpr std::size_t kEfficiantEntries = kEfficiantRows * kEfficiantCols;

// The node tells nobody what it decides, which compiles to nothing, except for a traced bright
// echo.
struct TraceTeller {
  const HighReflCheck& check;

  static void NoScale(float) noexcept {}
  static void Reflectivity(const point_calibration::ReflectivityMeasure&) noexcept {}
  static void Softened(const point_calibration::NearSoftening&) noexcept {}
  static void Floor(const point_calibration::ReflectivityFloor&) noexcept {}

  void Bright(const point_calibration::BrightOverride& echo) const {
    if (!IsTraced(echo)) return;
    std::cout << "[HighReflDebug]"
              << " row=" << echo.row << " col=" << echo.col << " echo=" << echo.slot
              << " dist=" << echo.range << " cogh=" << echo.height
              << " calib_refl=" << echo.reflectivity << " calib_power=" << echo.power
              << " high_refl_power=" << echo.bright_power << '\n';
  }

  bool IsTraced(const point_calibration::BrightOverride& echo) const noexcept {
    return check.trace_enable && check.trace_row >= 0 && check.trace_col >= 0 &&
           check.trace_row == echo.row && check.trace_col == echo.col &&
           check.trace_echo == echo.slot;
  }
};

}  // namespace

RetroCalib::RetroCalib(std::vector<float> curve, std::vector<float> scale,
                       const HighReflCheck& check, std::vector<float> efficiant,
                       std::vector<float> filter)
    : retro_curve(std::move(curve)),
      retro_scale(std::move(scale)),
      high_refl_check(check),
      cogh_efficiant(std::move(efficiant)),
      cogh_efficiant_valid(cogh_efficiant.size() == kEfficiantEntries),
      retro_filter(std::move(filter)),
      retro_filter_valid(retro_filter.size() == kFilterEntries) {
  if (retro_curve.size() != kCurveEntries || retro_scale.size() != kPixelTableEntries) {
    std::cout << "[INFO] retro_curve.size()=" << retro_curve.size() << '\n'
              << "[INFO] retro_scale.size()=" << retro_scale.size() << '\n';
    throw std::runtime_error("Invalid retro calib data (expect curve=512, scale=288*288)");
  }
}

void RetroCalib::calib_points(std::vector<LidarPoint>& points) const {
  const TraceTeller tell{high_refl_check};
  for (LidarPoint& point : points) {
    const float scale = PixelTableEntry(retro_scale, point.row, point.col);
    const int lane = std::max(point.row % kEfficiantCols, 0);
    for (int slot = 0; slot < LidarPoint::echo_num; ++slot) {
      point_calibration::CalibrateEcho(*this, scale, lane, point, slot, tell);
    }
  }
}

}  // namespace kerul::lidar
