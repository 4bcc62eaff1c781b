#include <algorithm>
#include <cmath>
#include <iostream>
#include <stdexcept>
#include <utility>

#include "MIPI_reader/node/point_calibration/calibration_tables.h"
#include "MIPI_reader/node/point_calibration/packet_calibration.h"
#include "MIPI_reader/node/point_calibration/pulse_curve.h"
#include "lanes/rounded_powers.h"
#include "lanes/truncation.h"

namespace kerul::lidar {
namespace {

constexpr std::size_t kEfficiantEntries = kEfficiantRows * kEfficiantCols;
constexpr float kTableStepMetres = 0.1F;      // of both range tables
constexpr float kEfficiantRange = 9.900001F;  // metres, inclusive
constexpr float kFullReflectivity = 255.0F;
constexpr float kSoftReflectivity = 100.0F;

// log2 of the range in units of `ref_distance`. Ranges below 0.3 m count as 0.3 m.
float RangeLog(float range, float ref_distance) noexcept {
  constexpr double kNearest = 0.3;
  if (static_cast<double>(range) > kNearest) {
    return LogOfTwo(range / ref_distance);
  }
  return static_cast<float>(std::log2(kNearest / static_cast<double>(ref_distance)));
}

// Range-dependent correction of the exponent for a pixel row of the miniflash row. `range` is above
// 0 and at most kEfficiantRange.
float EfficiantAt(const std::vector<float>& table, float range, int lane) noexcept {
  const auto entry = [&](int row) {
    const int index = row * kEfficiantCols + lane;
    return table[static_cast<std::size_t>(index)];
  };
  const int row = TruncateToInt32(std::floor(range / kTableStepMetres));
  if (row > kEfficiantRows - 2) return entry(kEfficiantRows - 1) - 2.0F;
  const float lo = static_cast<float>(row) * kTableStepMetres;
  const float hi = kTableStepMetres * static_cast<float>(row + 1);
  const float slope = (entry(row + 1) - entry(row)) / (hi - lo);
  return slope * (range - lo) + entry(row) - 2.0F;
}

// Smallest acceptable reflectivity at a range above 0.
float FloorAt(const std::vector<float>& table, float range) noexcept {
  if (range >= 3.0F) return table[kFilterEntries - 1];
  const float steps = range / kTableStepMetres;
  const float whole = std::floor(steps);
  const auto k = static_cast<std::size_t>(std::max(TruncateToInt32(whole), 0));
  if (k > kFilterEntries - 2) return table[kFilterEntries - 1];
  const float t = steps - whole;
  return t * table[k + 1] + (1.0F - t) * table[k];
}

// A power law in base-2 logarithms: the square of the range, the curve by height, less the pixel's
// scale and a constant.
void MeasureReflectivity(const RetroCalib& calib, float scale, int lane, LidarEcho& echo) noexcept {
  if (scale == 0.0F) {  // a pixel without calibration
    echo.dist_raw = 0.0F;
    echo.refl_raw = 0.0F;
    return;
  }
  const float range = echo.dist_raw;
  const float range_log = RangeLog(range, calib.ref_distance);
  const float height = echo.change_noise_noise_append / 3.0F + echo.cogh;
  const float power_log = CurveAt(calib.retro_curve, height);
  const float near_term = calib.cogh_efficiant_valid && !(range > kEfficiantRange)
                              ? EfficiantAt(calib.cogh_efficiant, range, lane)
                              : 0.0F;
  echo.power = PowerOfTwo(power_log);
  const float exponent = range_log + range_log + power_log - scale - calib.ref_offset + near_term;
  const float reflectivity = PowerOfTwo(exponent);
  echo.refl_raw = reflectivity > kFullReflectivity ? kFullReflectivity : reflectivity;
}

bool IsTraced(const HighReflCheck& check, const LidarPoint& point, int slot) noexcept {
  return check.trace_enable && check.trace_row >= 0 && check.trace_col >= 0 &&
         check.trace_row == point.row && check.trace_col == point.col && check.trace_echo == slot;
}

// A saturated echo cannot be measured: it gets the top value, and a power that falls with the
// square of the range.
void OverrideHighReflectivity(const HighReflCheck& check, LidarPoint& point, int slot) {
  LidarEcho& echo = point.echoes[slot];
  const float power = 20.0F / (echo.dist_raw * echo.dist_raw) * 1048576.0F;
  if (IsTraced(check, point, slot)) {
    std::cout << "[HighReflDebug]"
              << " row=" << point.row << " col=" << point.col << " echo=" << slot
              << " dist=" << echo.dist_raw << " cogh=" << echo.cogh
              << " calib_refl=" << echo.refl_raw << " calib_power=" << echo.power
              << " high_refl_power=" << power << '\n';
  }
  echo.refl_raw = kFullReflectivity;
  echo.power = power;
}

void SoftenNear(const HighReflCheck& check, LidarEcho& echo) noexcept {
  const bool near = echo.dist_raw > 0.0F && echo.dist_raw < check.near_refl_range;
  if (!near || !(echo.refl_raw > kSoftReflectivity)) return;
  echo.refl_raw = (echo.refl_raw - kSoftReflectivity) * 0.1F + kSoftReflectivity;
}

void CalibrateEcho(const RetroCalib& calib, float scale, int lane, LidarPoint& point, int slot) {
  LidarEcho& echo = point.echoes[slot];
  if (echo.dist_raw > 0.0F) MeasureReflectivity(calib, scale, lane, echo);
  if (echo.highRefl) {
    OverrideHighReflectivity(calib.high_refl_check, point, slot);
  } else if (calib.high_refl_check.near_refl_enable) {
    SoftenNear(calib.high_refl_check, echo);
  }
  if (calib.retro_filter_valid && echo.dist_raw > 0.0F &&
      FloorAt(calib.retro_filter, echo.dist_raw) > echo.refl_raw) {
    echo.dist_raw = 0.0F;
    echo.refl_raw = 0.0F;
  }
}

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
  for (LidarPoint& point : points) {
    const float scale = PixelTableEntry(retro_scale, point.row, point.col);
    const int lane = std::max(point.row % kEfficiantCols, 0);
    for (int slot = 0; slot < LidarPoint::echo_num; ++slot) {
      CalibrateEcho(*this, scale, lane, point, slot);
    }
  }
}

}  // namespace kerul::lidar
