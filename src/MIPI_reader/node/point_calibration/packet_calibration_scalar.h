// The scalar forms of the calibration of range and height, one echo at a time. `tell` hears each
// decision as a record of calibration_decisions.h; it changes nothing. Members of a teller, each
// for one record: HeightGain, BackgroundShift, RangeCorrection, RangeLoss, HeightMapping.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "MIPI_reader/node/point_calibration/calibration_decisions.h"
#include "MIPI_reader/node/point_calibration/packet_calibration.h"
#include "MIPI_reader/node/point_calibration/pulse_curve.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "lanes/truncation.h"

namespace kerul::lidar::point_calibration {

inline bool HasHighWidth(const LidarEcho& echo) noexcept {
  return (echo.cogw_flag & cogw_flags::kHighWidthValid) != 0;
}

// Bright background reaches past the end of the table. Noise too large for the conversion reads the
// first entry, because the conversion then gives the lowest index.
inline int GainIndex(const std::vector<float>& table, float noise) noexcept {
  const auto last = static_cast<std::int32_t>(table.size()) - 1;
  return std::clamp(TruncateToInt32(noise), 0, last);
}

template <typename Tell>
void CompensateEcho(const EnvCalib& calib, LidarEcho& echo, Tell& tell) noexcept {
  if (echo.dist_raw <= 0.0F) return;  // a NaN goes on
  if (std::isnan(echo.cogh) || std::isnan(echo.noise)) {
    echo.cogh = 0.0F;
    return;
  }
  const bool high = HasHighWidth(echo);
  const std::vector<float>& table = high ? calib.env_cogh_high : calib.env_cogh;
  const int index = GainIndex(table, echo.noise);
  const float gain = table[static_cast<std::size_t>(index)];
  const float height = (calib.bias + echo.cogh) * gain + echo.cogh;
  tell.HeightGain({.high = high,
                   .noise = echo.noise,
                   .index = index,
                   .gain = gain,
                   .bias = calib.bias,
                   .before = echo.cogh,
                   .height = height});
  echo.cogh = height;
  if (!calib.has_cogt) return;
  const float noise = echo.noise;
  const float noise_term = calib.cogt_c * noise + noise * noise + calib.cogt_d;
  const float before = echo.dist_raw;
  echo.dist_raw += (echo.cogh - calib.cogt_b) * -calib.cogt_a * noise_term * 0.15F;
  tell.BackgroundShift({.noise_term = noise_term, .before = before, .range = echo.dist_raw});
}

template <typename Tell>
void CalibrateEchoRange(const DistCalib& calib, float offset, LidarEcho& echo,
                        Tell& tell) noexcept {
  const float height = echo.change_noise_noise_append / 3.0F + echo.cogh;
  // Also what is not above 0, NaN included; an offset of exactly 0 is an uncalibrated pixel.
  if (!(echo.dist_raw > 0.0F) || std::isnan(height) || offset == 0.0F) {
    tell.RangeLoss({.before = echo.dist_raw, .height = height, .offset = offset});
    echo.dist_raw = 0.0F;
    return;
  }
  const bool high = HasHighWidth(echo) && calib.has_curve_high;
  const CurveReading curve = ReadCurve(high ? calib.curve_high : calib.curve, height);
  const float before = echo.dist_raw;
  const float range = before - (curve.value + offset) * calib.scale * 0.015625F;
  // A correction larger than the range leaves one output unit, so that the return is not lost.
  echo.dist_raw = range < 0.0F ? 0.004F : range;
  tell.RangeCorrection({.high = high,
                        .height = height,
                        .curve = curve,
                        .offset = offset,
                        .scale = calib.scale,
                        .before = before,
                        .corrected = range,
                        .range = echo.dist_raw});
}

// `height` not NaN.
inline HeightMapping MapHeight(const HighThresholdMap& map, float height) noexcept {
  const std::vector<float>& in = map.cogh_in;
  const std::vector<float>& out = map.cogh_out;
  const auto outside = [](int entry, float at, float to) -> HeightMapping {
    return {false, entry, at, at, to, to, to};
  };
  if (height <= in.front()) return outside(0, in.front(), out.front());
  if (height >= in.back()) return outside(static_cast<int>(in.size()) - 1, in.back(), out.back());
  const auto above =
      static_cast<std::size_t>(std::lower_bound(in.begin(), in.end(), height) - in.begin());
  const std::size_t below = above - 1;
  const float mapped =
      (height - in[below]) * ((out[above] - out[below]) / (in[above] - in[below])) + out[below];
  return {true, static_cast<int>(below), in[below], in[above], out[below], out[above], mapped};
}

template <typename Tell>
void MapEchoHeight(const HighThresholdMap& map, LidarEcho& echo, Tell& tell) noexcept {
  if (!(echo.dist_raw > 0.0F) || !HasHighWidth(echo) || std::isnan(echo.cogh)) return;
  const HeightMapping mapping = MapHeight(map, echo.cogh);
  tell.HeightMapping(mapping);
  echo.cogh = mapping.mapped;
}

}  // namespace kerul::lidar::point_calibration
