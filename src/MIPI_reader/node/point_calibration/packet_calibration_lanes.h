// The calibration steps of a packet over W echoes at once, bit for bit the scalar forms beside it
// (packet_calibration.cpp, high_reflectivity_check.cpp, retro_calib.cpp), step by step. A lane is
// an echo that has a range, from either slot of any point of the group; the others cost a look.
//
// The check for high reflectivity needs both echoes of a point: after their ranges and heights are
// settled, but before the reflectivity step erases one of them. So the whole group takes the first
// steps, then the check, then the last step.
#pragma once

#include <cstdint>

#include "MIPI_reader/node/point_calibration/calibration_tables.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "lanes/lanes.h"
#include "lanes/rounded_powers_lanes.h"

namespace kerul::lidar {

template <int W>
struct CalibrationKernel {
  using V = Lanes<W>;
  using Float = typename V::Float;
  using Int = typename V::Int;

  static void Run(const CalibrationTables& tables, LidarPoint* points, int count,
                  int echo_count) noexcept {
    while (count > 0) {
      const int group = count < kGroupPoints ? count : kGroupPoints;
      RunGroup(tables, points, group, echo_count);
      points += group;
      count -= group;
    }
  }

 private:
  static constexpr int kGroupPoints = 16;
  static constexpr int kLanes = kGroupPoints * kEchoSlots;
  static_assert(kLanes <= 32 && kLanes % W == 0);  // a bit per lane; whole vectors
  static constexpr float kTableStepMetres = 0.1F;
  static constexpr float kEfficiantRange = 9.900001F;
  static constexpr float kFullReflectivity = 255.0F;
  static constexpr float kSoftReflectivity = 100.0F;

  // The echoes of a group that are worked on, field by field. Lanes from `count` on hold nothing.
  struct Group {
    int count = 0;
    std::uint32_t strong = 0;  // lanes high enough for a rule
    LidarPoint* point[kLanes];
    LidarEcho* echo[kLanes];
    float range[kLanes];
    float height[kLanes];
    float noise[kLanes];
    float append[kLanes];  // change_noise_noise_append, after the first steps a third of it
    float offset[kLanes];
    float scale[kLanes];
    std::int32_t high_width[kLanes];  // masks
    std::int32_t high_refl[kLanes];
    std::int32_t tile_row[kLanes];  // pixel row within the miniflash row
  };

  static void RunGroup(const CalibrationTables& t, LidarPoint* points, int count,
                       int echo_count) noexcept {
    Group group;
    FindEchoes(t, points, count, echo_count, group);
    LoadEchoes(t, group);
    for (int first = 0; first < group.count; first += W) SettleRangeAndHeight(t, first, group);
    for (int i = 0; i < group.count; ++i) {
      group.echo[i]->dist_raw = group.range[i];
      group.echo[i]->cogh = group.height[i];
    }
    if (t.high_refl_check != nullptr) CheckReflectivity(t, echo_count, group);
    if (t.power_curve == nullptr) return;
    for (int first = 0; first < group.count; first += W) MeasureReflectivity(t, first, group);
  }

  // Makes the list without branches on the ranges: no predictor learns that pattern.
  static void FindEchoes(const CalibrationTables& t, LidarPoint* points, int count, int echo_count,
                         Group& group) noexcept {
    int found = 0;
    for (int i = 0; i < count; ++i) {
      LidarPoint& point = points[i];
      for (int slot = 0; slot < echo_count; ++slot) {
        LidarEcho& echo = point.echoes[slot];
        group.point[found] = &point;
        group.echo[found] = &echo;
        const auto bits = __builtin_bit_cast(std::int32_t, echo.dist_raw);
        int is_lane = static_cast<int>(bits > 0);  // above 0, infinite, or a NaN
        if (__builtin_expect(static_cast<int>(bits < 0) | static_cast<int>(echo.highRefl), 0) !=
            0) {
          is_lane = static_cast<int>(IsOddLane(t, echo));
        }
        found += is_lane;
      }
      if (t.high_refl_check != nullptr && echo_count != 1) point.echoes[1].afterPulse = false;
    }
    group.count = found;
  }

  // The range calibration turns a range below 0 into 0. A NaN goes on. An echo with highRefl but no
  // range goes on too, because it still gets its power.
  static bool IsOddLane(const CalibrationTables& t, LidarEcho& echo) noexcept {
    const bool empty = echo.dist_raw <= 0.0F;
    if (empty && t.range_curves != nullptr) echo.dist_raw = 0.0F;
    return !empty || (echo.highRefl && t.power_curve != nullptr);
  }

  // In two runs: the fields of the first are loaded as vectors soon after it, and a load that is
  // wider than the stores before it has to wait until they are done.
  static void LoadEchoes(const CalibrationTables& t, Group& group) noexcept {
    for (int i = 0; i < group.count; ++i) {
      const LidarEcho& echo = *group.echo[i];
      group.range[i] = echo.dist_raw;
      group.height[i] = echo.cogh;
      group.noise[i] = echo.noise;
      group.append[i] = echo.change_noise_noise_append;
      group.high_width[i] =
          -static_cast<std::int32_t>((echo.cogw_flag & cogw_flags::kHighWidthValid) != 0);
      group.high_refl[i] = -static_cast<std::int32_t>(echo.highRefl);
    }
    for (int i = 0; i < group.count; ++i) {
      const LidarPoint& point = *group.point[i];
      const PixelPlaces& places = *t.places;
      std::int32_t pixel = 0;
      if (static_cast<std::uint32_t>(point.row) < kPlaceSide &&
          static_cast<std::uint32_t>(point.col) < kPlaceSide) {
        pixel = places.of_row[point.row].entry + places.of_col[point.col];
        group.tile_row[i] = places.of_row[point.row].tile_row;
      } else {
        pixel = NearestPixelEntry(point.row, point.col);
        group.tile_row[i] = point.row < 0 ? 0 : point.row % kEfficiantCols;
      }
      group.offset[i] = t.pixels[pixel].offset;
      group.scale[i] = t.pixels[pixel].scale;
    }
  }

  // The first three steps.
  static void SettleRangeAndHeight(const CalibrationTables& t, int first, Group& group) noexcept {
    const Int active = ActiveLanes(group, first);
    Float range = Take(group.range, first, active);
    Float height = Take(group.height, first, active);
    const Int high_width = V::Load(group.high_width + first) & active;
    const Float append = Take(group.append, first, active) / 3.0F;
    V::Store(group.append + first, append);
    if (t.gains != nullptr) {
      Compensate(t, high_width, Take(group.noise, first, active), range, height);
    }
    if (t.range_curves != nullptr) {
      const Float pulse = append + height;
      range = CalibrateRange(t, high_width, pulse, Take(group.offset, first, active), range);
    }
    V::Store(group.range + first, range);

    const Int mapped = high_width & (range > 0.0F) & IsNumber(height);
    if (t.high_threshold_map != nullptr && V::Any(mapped)) {
      height = MapHeights(*t.high_threshold_map, mapped, height);
    }
    V::Store(group.height + first, height);
    group.strong |= V::Bits(active & (height > t.lowest_rule_height)) << first;
  }

  // Few echoes have a valid high width.
  [[gnu::noinline]] static Float MapHeights(const HighThresholdMap& map, Int mapped,
                                            Float height) noexcept {
    for (int lane = 0; lane < W; ++lane) {
      if (mapped[lane] != 0) height[lane] = MapHighThresholdHeight(map, height[lane]);
    }
    return height;
  }

  static void Compensate(const CalibrationTables& t, Int high_width, Float noise, Float& range,
                         Float& height) noexcept {
    const Int found = ~(range <= 0.0F);  // a NaN too
    const Int measured = found & IsNumber(height) & IsNumber(noise);
    const Int last = V::Select(high_width, V::SplatInt(t.high_gains), V::SplatInt(t.low_gains)) - 1;
    const Int begin = high_width & t.low_gains;
    const Float gain = V::Gather(t.gains, begin + Clamp(V::Truncate(noise), Int{}, last));
    const Float raised = (t.bias + height) * gain + height;
    height = V::Select(measured, raised, V::Select(found, Float{}, height));
    if (!t.has_cogt) return;
    const Float noise_term = t.cogt_c * noise + noise * noise + t.cogt_d;
    const Float shifted = range + (height - t.cogt_b) * -t.cogt_a * noise_term * 0.15F;
    range = V::Select(measured, shifted, range);
  }

  static Float CalibrateRange(const CalibrationTables& t, Int high_width, Float pulse, Float offset,
                              Float range) noexcept {
    // An offset of exactly 0 is an uncalibrated pixel.
    const Int calibrated = (range > 0.0F) & IsNumber(pulse) & (offset != 0.0F);
    const Float correction = CurveAt(t.range_curves, high_width & t.high_curve, pulse);
    const Float settled = range - (correction + offset) * t.range_scale * 0.015625F;
    const Float kept = V::Select(settled < 0.0F, V::Splat(0.004F), settled);
    return V::Select(calibrated, kept, Float{});
  }

  static void CheckReflectivity(const CalibrationTables& t, int echo_count, Group& group) noexcept {
    for (int i = 0; i < group.count; ++i) {
      LidarPoint& point = *group.point[i];
      const bool is_strong = ((group.strong >> i) & 1U) != 0;
      if (!is_strong && group.high_refl[i] == 0) continue;
      if (group.echo[i] != &point.echoes[0]) continue;
      CheckPixelReflectivity(*t.high_refl_check, echo_count, point);
      group.high_refl[i] = -static_cast<std::int32_t>(point.echoes[0].highRefl);
    }
  }

  // The last step.
  static void MeasureReflectivity(const CalibrationTables& t, int first, Group& group) noexcept {
    const Int active = ActiveLanes(group, first);
    Float range = Take(group.range, first, active);
    const Int ranged = range > 0.0F;
    const Float scale = Take(group.scale, first, active);
    const Int measured = ranged & (scale != 0.0F);
    const Float height = Take(group.height, first, active);
    const Float power_log =
        CurveAt(t.power_curve, Int{}, Take(group.append, first, active) + height);
    const Float range_log = RangeLog(t, range, measured);
    const Float near_term = NearTerm(t, range, V::Load(group.tile_row + first) & active);
    Float power = RoundedPowers<W>::Power(power_log, measured);
    const Float exponent = range_log + range_log + power_log - scale - t.ref_offset + near_term;
    Float reflectivity = RoundedPowers<W>::Power(exponent, measured);
    reflectivity =
        V::Select(reflectivity > kFullReflectivity, V::Splat(kFullReflectivity), reflectivity);

    // A pixel without calibration loses its echoes.
    range = V::Select(ranged & ~measured, Float{}, range);
    reflectivity = V::Select(measured, reflectivity, Float{});
    const Int high_refl = V::Load(group.high_refl + first) & active;
    if (V::Any(high_refl)) {
      power = V::Select(high_refl, 20.0F / (range * range) * 1048576.0F, power);
      reflectivity = V::Select(high_refl, V::Splat(kFullReflectivity), reflectivity);
    }
    if (t.near_refl_enable) {
      const Int softened = ~high_refl & (range > 0.0F) & (range < t.near_refl_range) &
                           (reflectivity > kSoftReflectivity);
      const Float soft = (reflectivity - kSoftReflectivity) * 0.1F + kSoftReflectivity;
      reflectivity = V::Select(softened, soft, reflectivity);
    }
    if (t.retro_filter != nullptr) {
      const Int weak = (range > 0.0F) & (FloorAt(t.retro_filter, range) > reflectivity);
      range = V::Select(weak, Float{}, range);
      reflectivity = V::Select(weak, Float{}, reflectivity);
    }
    StoreReflectivity(group, first, {range, reflectivity, power}, ranged, measured, high_refl);
  }

  struct Results {
    Float range, reflectivity, power;
  };

  // Unless overridden, echoes without a range keep their reflectivity, and those without
  // calibration their power.
  static void StoreReflectivity(const Group& group, int first, const Results& results, Int ranged,
                                Int measured, Int high_refl) noexcept {
    float reflectivity[W];
    float power[W];
    V::Store(reflectivity, results.reflectivity);
    V::Store(power, results.power);
    const std::uint32_t has_reflectivity = V::Bits(ranged | high_refl);
    const std::uint32_t has_power = V::Bits(measured | high_refl);
    const std::uint32_t erased = V::Bits(ranged & (results.range == 0.0F));
    const int count = group.count - first < W ? group.count - first : W;
    for (int lane = 0; lane < count; ++lane) {
      LidarEcho& echo = *group.echo[first + lane];
      if (((has_reflectivity >> lane) & 1U) != 0) echo.refl_raw = reflectivity[lane];
      if (((has_power >> lane) & 1U) != 0) echo.power = power[lane];
      if (((erased >> lane) & 1U) != 0) echo.dist_raw = 0.0F;
    }
  }

  // Ranges below 0.3 m count as 0.3 m. The limit is a double: 0.3F is the first float above it.
  static Float RangeLog(const CalibrationTables& t, Float range, Int measured) noexcept {
    const Int far = range >= 0.3F;
    const Float log = RoundedPowers<W>::Log(range / t.ref_distance, measured & far);
    return V::Select(far, log, V::Splat(t.nearest_log));
  }

  // Correction of the exponent, 0 where none belongs. The table's last row has steps of 0.
  static Float NearTerm(const CalibrationTables& t, Float range, Int tile_row) noexcept {
    if (t.efficiant == nullptr) return Float{};
    const Int near = ~(range > kEfficiantRange);
    // Above 0, so that truncation is the floor.
    const Int row =
        Clamp(V::Truncate(range / kTableStepMetres), Int{}, V::SplatInt(kEfficiantRows - 1));
    const Float lo = V::ToFloat(row) * kTableStepMetres;
    const Int entry = (row * kEfficiantCols + tile_row) * 2;
    const Float value = V::Gather(&t.efficiant->value, entry);
    const Float step = V::Gather(&t.efficiant->step, entry);
    return V::Select(near, step * (range - lo) + value - 2.0F, Float{});
  }

  static Float FloorAt(const float* filter, Float range) noexcept {
    const Float steps = range / kTableStepMetres;
    const Int k = Clamp(V::Truncate(steps), Int{}, V::SplatInt(kFilterEntries - 1));
    const Float value = V::Gather(filter, k);
    const Int last = (range >= 3.0F) | (k > kFilterEntries - 2);
    const Float next = V::Gather(filter, k + 1 + last);  // for the last entry itself
    const Float part = steps - V::ToFloat(k);
    const Float between = part * next + (1.0F - part) * value;
    return V::Select(last, V::Splat(filter[kFilterEntries - 1]), between);
  }

  // The curve that begins `begin` entries into the table.
  static Float CurveAt(const ValueStep* curve, Int begin, Float height) noexcept {
    const Float end = V::Splat(static_cast<float>(kCurveSteps - 2));
    const Float x = V::Select(height >= end, end, height);
    const Int index = V::Truncate(x);
    // With the index before clamping, also below 0.
    const Float fraction = x - V::ToFloat(index);
    const Int entry = (begin + Clamp(index, V::SplatInt(-1), V::SplatInt(kCurveSteps - 2)) + 1) * 2;
    const Float value = V::Gather(&curve->value, entry);
    return V::Gather(&curve->step, entry) * fraction + value;
  }

  // Not a NaN.
  static Int IsNumber(Float value) noexcept {
    return value == value;  // NOLINT(misc-redundant-expression)
  }

  static Int Clamp(Int value, Int low, Int high) noexcept {
    const Int above = V::Select(value < low, low, value);
    return V::Select(above > high, high, above);
  }

  static Int ActiveLanes(const Group& group, int first) noexcept {
    Int lane;
    for (int i = 0; i < W; ++i) lane[i] = i;
    return lane < group.count - first;
  }
  // Zero in the lanes that hold nothing, whatever stands there.
  static Float Take(const float* values, int first, Int active) noexcept {
    return reinterpret_cast<Float>(reinterpret_cast<Int>(V::Load(values + first)) & active);
  }
};

}  // namespace kerul::lidar
