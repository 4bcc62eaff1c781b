// The scalar form of the reflectivity's calibration, one echo at a time. `tell` hears each decision
// as a record of calibration_decisions.h; it changes nothing. Members of a teller: Reflectivity,
// Bright, Softened and Floor, each for one record, and NoScale(range) for a pixel without
// calibration.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "MIPI_reader/node/point_calibration/calibration_decisions.h"
#include "MIPI_reader/node/point_calibration/calibration_tables.h"
#include "MIPI_reader/node/point_calibration/packet_calibration.h"
#include "MIPI_reader/node/point_calibration/pulse_curve.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "lanes/rounded_powers.h"
#include "lanes/truncation.h"

namespace kerul::lidar::point_calibration {

inline constexpr float kTableStepMetres = 0.1F;      // of both range tables
inline constexpr float kEfficiantRange = 9.900001F;  // metres, inclusive
inline constexpr float kFullReflectivity = 255.0F;
inline constexpr float kSoftReflectivity = 100.0F;

// log2 of the range in units of `ref_distance`. Ranges below 0.3 m count as 0.3 m.
inline float RangeLog(float range, float ref_distance) noexcept {
  constexpr double kNearest = 0.3;
  if (static_cast<double>(range) > kNearest) {
    return LogOfTwo(range / ref_distance);
  }
  return static_cast<float>(std::log2(kNearest / static_cast<double>(ref_distance)));
}

// Range-dependent correction of the exponent for a pixel row of the miniflash row. `range` is above
// 0 and at most kEfficiantRange.
inline NearTerm EfficiantAt(const std::vector<float>& table, float range, int lane) noexcept {
  const auto entry = [&](int row) {
    const int index = row * kEfficiantCols + lane;
    return table[static_cast<std::size_t>(index)];
  };
  const int row = TruncateToInt32(std::floor(range / kTableStepMetres));
  if (row > kEfficiantRows - 2) {
    return {.row = kEfficiantRows - 1, .lane = lane, .value = entry(kEfficiantRows - 1) - 2.0F};
  }
  const float lo = static_cast<float>(row) * kTableStepMetres;
  const float hi = kTableStepMetres * static_cast<float>(row + 1);
  const float slope = (entry(row + 1) - entry(row)) / (hi - lo);
  return {.row = row, .lane = lane, .value = slope * (range - lo) + entry(row) - 2.0F};
}

// Smallest acceptable reflectivity at a range above 0, and the lower entry that gave it.
struct FloorReading {
  int entry;
  float floor;
};

inline FloorReading FloorAt(const std::vector<float>& table, float range) noexcept {
  const FloorReading farthest{kFilterEntries - 1, table[kFilterEntries - 1]};
  if (range >= 3.0F) return farthest;
  const float steps = range / kTableStepMetres;
  const float whole = std::floor(steps);
  const auto k = static_cast<std::size_t>(std::max(TruncateToInt32(whole), 0));
  if (k > kFilterEntries - 2) return farthest;
  const float t = steps - whole;
  return {static_cast<int>(k), t * table[k + 1] + (1.0F - t) * table[k]};
}

// A power law in base-2 logarithms: the square of the range, the curve by height, less the pixel's
// scale and a constant.
template <typename Tell>
void MeasureReflectivity(const RetroCalib& calib, float scale, int lane, LidarEcho& echo,
                         Tell& tell) noexcept {
  if (scale == 0.0F) {  // a pixel without calibration
    tell.NoScale(echo.dist_raw);
    echo.dist_raw = 0.0F;
    echo.refl_raw = 0.0F;
    return;
  }
  const float range = echo.dist_raw;
  const float range_log = RangeLog(range, calib.ref_distance);
  const float height = echo.change_noise_noise_append / 3.0F + echo.cogh;
  const CurveReading curve = ReadCurve(calib.retro_curve, height);
  const float power_log = curve.value;
  const NearTerm near = calib.cogh_efficiant_valid && !(range > kEfficiantRange)
                            ? EfficiantAt(calib.cogh_efficiant, range, lane)
                            : NearTerm{};
  echo.power = PowerOfTwo(power_log);
  const float exponent = range_log + range_log + power_log - scale - calib.ref_offset + near.value;
  const float reflectivity = PowerOfTwo(exponent);
  echo.refl_raw = reflectivity > kFullReflectivity ? kFullReflectivity : reflectivity;
  tell.Reflectivity({.range = range,
                     .range_log = range_log,
                     .height = height,
                     .curve = curve,
                     .scale = scale,
                     .ref_offset = calib.ref_offset,
                     .near = near,
                     .exponent = exponent,
                     .measured = reflectivity,
                     .reflectivity = echo.refl_raw,
                     .power = echo.power});
}

// A saturated echo cannot be measured: it gets the top value, and a power that falls with the
// square of the range.
template <typename Tell>
void OverrideHighReflectivity(LidarPoint& point, int slot, Tell& tell) {
  LidarEcho& echo = point.echoes[slot];
  const float power = 20.0F / (echo.dist_raw * echo.dist_raw) * 1048576.0F;
  tell.Bright({.row = point.row,
               .col = point.col,
               .slot = slot,
               .range = echo.dist_raw,
               .height = echo.cogh,
               .reflectivity = echo.refl_raw,
               .power = echo.power,
               .bright_power = power});
  echo.refl_raw = kFullReflectivity;
  echo.power = power;
}

template <typename Tell>
void SoftenNear(const HighReflCheck& check, LidarEcho& echo, Tell& tell) noexcept {
  const bool near = echo.dist_raw > 0.0F && echo.dist_raw < check.near_refl_range;
  if (!near || !(echo.refl_raw > kSoftReflectivity)) return;
  const float before = echo.refl_raw;
  echo.refl_raw = (before - kSoftReflectivity) * 0.1F + kSoftReflectivity;
  tell.Softened({.range = echo.dist_raw,
                 .near_range = check.near_refl_range,
                 .before = before,
                 .reflectivity = echo.refl_raw});
}

// Reflectivity and power of one echo. `scale` is the pixel's, `lane` its row within the miniflash
// row.
template <typename Tell>
void CalibrateEcho(const RetroCalib& calib, float scale, int lane, LidarPoint& point, int slot,
                   Tell& tell) {
  LidarEcho& echo = point.echoes[slot];
  if (echo.dist_raw > 0.0F) MeasureReflectivity(calib, scale, lane, echo, tell);
  if (echo.highRefl) {
    OverrideHighReflectivity(point, slot, tell);
  } else if (calib.high_refl_check.near_refl_enable) {
    SoftenNear(calib.high_refl_check, echo, tell);
  }
  if (!calib.retro_filter_valid || !(echo.dist_raw > 0.0F)) return;
  const FloorReading reading = FloorAt(calib.retro_filter, echo.dist_raw);
  tell.Floor({.entry = reading.entry,
              .floor = reading.floor,
              .range = echo.dist_raw,
              .reflectivity = echo.refl_raw});
  if (reading.floor > echo.refl_raw) {
    echo.dist_raw = 0.0F;
    echo.refl_raw = 0.0F;
  }
}

}  // namespace kerul::lidar::point_calibration
