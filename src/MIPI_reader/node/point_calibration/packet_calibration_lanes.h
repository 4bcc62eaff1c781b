// The calibration steps over the windows of a packet's planes, W at once, bit for bit the scalar
// forms beside it (packet_calibration.cpp, high_reflectivity_check.cpp, retro_calib.cpp), step by
// step. Windows without a range cost nothing but their lane.
//
// The check for high reflectivity needs both echoes of a point: after their ranges and heights are
// settled, but before the reflectivity step erases one of them. So all windows take the first
// steps, then the check, then the last step.
#pragma once

#include <cstdint>

#include "MIPI_reader/node/point_calibration/calibration_tables.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "MIPI_reader/parser/packet_planes.h"
#include "lanes/lanes.h"
#include "lanes/rounded_powers_lanes.h"

namespace kerul::lidar {

template <int W>
struct CalibrationKernel {
  using V = Lanes<W>;
  using Float = typename V::Float;
  using Int = typename V::Int;

  static void Run(const CalibrationTables& tables, PacketPlanes& planes) noexcept {
    Work work;
    FindPixels(tables, planes, work);
    const int count = planes.window_count;
    for (int first = 0; first < count; first += W) {
      SettleRangeAndHeight(tables, first, planes, work);
    }
    if (tables.high_refl_check != nullptr) CheckReflectivity(tables, work.strong, planes);
    if (tables.power_curve == nullptr) return;
    for (int first = 0; first < count; first += W) MeasureReflectivity(tables, first, planes, work);
  }

 private:
  static constexpr int kLanes = PacketPlanes::kWindows;
  static_assert(kLanes <= 32 && kLanes % W == 0);  // a bit per lane; whole vectors
  static constexpr float kTableStepMetres = 0.1F;
  static constexpr float kEfficiantRange = 9.900001F;
  static constexpr float kFullReflectivity = 255.0F;
  static constexpr float kSoftReflectivity = 100.0F;

  // What the calibration knows of the pixels, and what the first steps leave for the last one.
  struct Work {
    float offset[PacketPlanes::kPixels];
    float scale[PacketPlanes::kPixels];
    std::int32_t tile_row[PacketPlanes::kPixels];  // pixel row within the miniflash row
    float append[kLanes];                          // a third of change_noise_noise_append
    std::uint32_t strong = 0;                      // windows high enough for a rule
  };

  static void FindPixels(const CalibrationTables& t, const PacketPlanes& planes,
                         Work& work) noexcept {
    const PixelPlaces& places = *t.places;
    for (int i = 0; i < planes.pixel_count; ++i) {
      const std::int32_t row = planes.row[i];
      const std::int32_t col = planes.col[i];
      std::int32_t pixel = 0;
      if (static_cast<std::uint32_t>(row) < kPlaceSide &&
          static_cast<std::uint32_t>(col) < kPlaceSide) {
        pixel = places.of_row[row].entry + places.of_col[col];
        work.tile_row[i] = places.of_row[row].tile_row;
      } else {
        pixel = NearestPixelEntry(row, col);
        work.tile_row[i] = row < 0 ? 0 : row % kEfficiantCols;
      }
      work.offset[i] = t.pixels[pixel].offset;
      work.scale[i] = t.pixels[pixel].scale;
    }
  }

  // The pixels of the windows from `first` on; of idle lanes any.
  static Int PixelsOf(const PacketPlanes& planes, int first, Int active) noexcept {
    return V::Load(planes.window + first) & active & (PacketPlanes::kPixels - 1);
  }

  // The first three steps.
  static void SettleRangeAndHeight(const CalibrationTables& t, int first, PacketPlanes& planes,
                                   Work& work) noexcept {
    const Int active = ActiveLanes(planes, first);
    Float range = Take(planes.dist_raw, first, active);
    Float height = Take(planes.cogh, first, active);
    const Int high_width = HighWidth(planes, first) & active;
    const Float append = Take(planes.change_noise_noise_append, first, active) / 3.0F;
    V::Store(work.append + first, append);
    if (t.gains != nullptr) {
      Compensate(t, high_width, Take(planes.window_noise, first, active), range, height);
    }
    if (t.range_curves != nullptr) {
      const Float offset = V::Pick(work.offset, PixelsOf(planes, first, active));
      range = CalibrateRange(t, high_width, append + height, offset, range);
    }
    V::Store(planes.dist_raw + first, range);

    const Int mapped = high_width & (range > 0.0F) & IsNumber(height);
    if (t.high_threshold_map != nullptr && V::Any(mapped)) {
      height = MapHeights(*t.high_threshold_map, mapped, height);
    }
    V::Store(planes.cogh + first, height);
    work.strong |= V::Bits(active & (height > t.lowest_rule_height)) << first;
  }

  static Int HighWidth(const PacketPlanes& planes, int first) noexcept {
    return (V::Load(planes.cogw_flag + first) & cogw_flags::kHighWidthValid) != 0;
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

  // Few windows are strong. The other slot's window is one without a pulse when it is not listed.
  static void CheckReflectivity(const CalibrationTables& t, std::uint32_t strong,
                                PacketPlanes& planes) noexcept {
    for (int i = 0; i < planes.window_count && planes.window[i] < PacketPlanes::kPixels; ++i) {
      if ((strong >> i & 1U) == 0 && planes.highRefl[i] == 0) continue;
      CheckPixel(t, i, planes);
    }
  }

  [[gnu::noinline]] static void CheckPixel(const CalibrationTables& t, int i,
                                           PacketPlanes& planes) noexcept {
    static constexpr LidarPoint kFresh{};
    LidarPoint point = kFresh;
    LidarEcho& first = point.echoes[0];
    LidarEcho& second = point.echoes[1];
    first.dist_raw = planes.dist_raw[i];
    first.cogh = planes.cogh[i];
    first.highRefl = planes.highRefl[i] != 0;
    int other = planes.window_count - 1;
    while (other > i && planes.window[other] != planes.window[i] + PacketPlanes::kPixels) --other;
    if (other > i) {
      second.dist_raw = planes.dist_raw[other];
      second.cogh = planes.cogh[other];
      second.waveform_rms_ratio = planes.waveform_rms_ratio[other];
    }
    CheckPixelReflectivity(*t.high_refl_check, kEchoSlots, point);
    planes.highRefl[i] = -static_cast<std::int32_t>(first.highRefl);
    if (other > i) planes.afterPulse[other] = -static_cast<std::int32_t>(second.afterPulse);
  }

  // The last step. Unless overridden, windows without a range keep their reflectivity, and those
  // without calibration their power.
  static void MeasureReflectivity(const CalibrationTables& t, int first, PacketPlanes& planes,
                                  const Work& work) noexcept {
    const Int active = ActiveLanes(planes, first);
    const Int pixel = PixelsOf(planes, first, active);
    Float range = Take(planes.dist_raw, first, active);
    const Int ranged = range > 0.0F;
    const Float scale = V::Pick(work.scale, pixel);
    const Int measured = ranged & (scale != 0.0F);
    const Float height = Take(planes.cogh, first, active);
    const Float power_log = CurveAt(t.power_curve, Int{}, V::Load(work.append + first) + height);
    const Float range_log = RangeLog(t, range, measured);
    const Float near_term = NearTerm(t, range, measured, V::Pick(work.tile_row, pixel));
    Float power = RoundedPowers<W>::Power(power_log, measured);
    const Float exponent = range_log + range_log + power_log - scale - t.ref_offset + near_term;
    Float reflectivity = RoundedPowers<W>::Power(exponent, measured);
    reflectivity =
        V::Select(reflectivity > kFullReflectivity, V::Splat(kFullReflectivity), reflectivity);

    // A pixel without calibration loses its echoes.
    range = V::Select(ranged & ~measured, Float{}, range);
    reflectivity = V::Select(measured, reflectivity, Float{});
    const Int high_refl = V::Load(planes.highRefl + first) & active;
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
    V::Store(planes.dist_raw + first, range);
    V::Store(planes.refl_raw + first,
             V::Select(ranged | high_refl, reflectivity, V::Load(planes.refl_raw + first)));
    V::Store(planes.power + first,
             V::Select(measured | high_refl, power, V::Load(planes.power + first)));
  }

  // Ranges below 0.3 m count as 0.3 m. The limit is a double: 0.3F is the first float above it.
  static Float RangeLog(const CalibrationTables& t, Float range, Int measured) noexcept {
    const Int far = range >= 0.3F;
    const Float log = RoundedPowers<W>::Log(range / t.ref_distance, measured & far);
    return V::Select(far, log, V::Splat(t.nearest_log));
  }

  // Correction of the exponent, 0 where none belongs. The table's last row has steps of 0.
  static Float NearTerm(const CalibrationTables& t, Float range, Int measured,
                        Int tile_row) noexcept {
    if (t.efficiant == nullptr) return Float{};
    const Int near = measured & ~(range > kEfficiantRange);
    if (!V::Any(near)) return Float{};
    // Above 0, so that truncation is the floor.
    const Int row =
        Clamp(V::Truncate(range / kTableStepMetres), Int{}, V::SplatInt(kEfficiantRows - 1));
    const Float lo = V::ToFloat(row) * kTableStepMetres;
    const Steps at = ReadSteps(t.efficiant, row * kEfficiantCols + tile_row);
    return V::Select(near, at.step * (range - lo) + at.value - 2.0F, Float{});
  }

  // Of the lanes with a range.
  static Float FloorAt(const float* filter, Float range) noexcept {
    const Int far = range >= 3.0F;
    const Float farthest = V::Splat(filter[kFilterEntries - 1]);
    if (!V::Any((range > 0.0F) & ~far)) return farthest;
    const Float steps = range / kTableStepMetres;
    const Int k = Clamp(V::Truncate(steps), Int{}, V::SplatInt(kFilterEntries - 1));
    const Float value = V::Gather(filter, k);
    const Int last = far | (k > kFilterEntries - 2);
    const Float next = V::Gather(filter, k + 1 + last);  // for the last entry itself
    const Float part = steps - V::ToFloat(k);
    const Float between = part * next + (1.0F - part) * value;
    return V::Select(last, farthest, between);
  }

  // The curve that begins `begin` entries into the table.
  static Float CurveAt(const ValueStep* curve, Int begin, Float height) noexcept {
    const Float end = V::Splat(static_cast<float>(kCurveSteps - 2));
    const Float x = V::Select(height >= end, end, height);
    const Int index = V::Truncate(x);
    // With the index before clamping, also below 0.
    const Float fraction = x - V::ToFloat(index);
    const Steps at =
        ReadSteps(curve, begin + Clamp(index, V::SplatInt(-1), V::SplatInt(kCurveSteps - 2)) + 1);
    return at.step * fraction + at.value;
  }

  struct Steps {
    Float value, step;
  };
  static Steps ReadSteps(const ValueStep* table, Int entry) noexcept {
    static_assert(sizeof(ValueStep) == 8);
    std::int32_t offsets[W];
    V::Store(offsets, entry * 8);
    Int words[4];  // of the entry and the next one
    LoadWords<W>(reinterpret_cast<const std::uint8_t*>(table), offsets, words);
    return {__builtin_bit_cast(Float, words[0]), __builtin_bit_cast(Float, words[1])};
  }

  // Not a NaN.
  static Int IsNumber(Float value) noexcept {
    return value == value;  // NOLINT(misc-redundant-expression)
  }

  static Int Clamp(Int value, Int low, Int high) noexcept {
    const Int above = V::Select(value < low, low, value);
    return V::Select(above > high, high, above);
  }

  static Int ActiveLanes(const PacketPlanes& planes, int first) noexcept {
    Int lane;
    for (int i = 0; i < W; ++i) lane[i] = i;
    return lane < planes.window_count - first;
  }
  // Zero in the lanes that hold nothing, whatever stands there.
  static Float Take(const float* values, int first, Int active) noexcept {
    return reinterpret_cast<Float>(reinterpret_cast<Int>(V::Load(values + first)) & active);
  }
};

}  // namespace kerul::lidar
