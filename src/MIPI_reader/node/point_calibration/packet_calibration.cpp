#include "MIPI_reader/node/point_calibration/packet_calibration.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <stdexcept>
#include <string>
#include <utility>

#include "MIPI_reader/node/point_calibration/calibration_tables.h"
#include "MIPI_reader/node/point_calibration/pulse_curve.h"
#include "lanes/truncation.h"

namespace kerul::lidar {
namespace {

// Bright background reaches past the end of the table. Noise too large for the conversion reads the
// first entry, because the conversion then gives the lowest index.
float GainAt(const std::vector<float>& table, float noise) noexcept {
  const auto last = static_cast<std::int32_t>(table.size()) - 1;
  return table[static_cast<std::size_t>(std::clamp(TruncateToInt32(noise), 0, last))];
}

void CompensateEcho(const EnvCalib& calib, LidarEcho& echo) noexcept {
  if (echo.dist_raw <= 0.0F) return;  // a NaN goes on
  if (std::isnan(echo.cogh) || std::isnan(echo.noise)) {
    echo.cogh = 0.0F;
    return;
  }
  const bool high = (echo.cogw_flag & cogw_flags::kHighWidthValid) != 0;
  const float gain = GainAt(high ? calib.env_cogh_high : calib.env_cogh, echo.noise);
  echo.cogh = (calib.bias + echo.cogh) * gain + echo.cogh;
  if (!calib.has_cogt) return;
  const float noise = echo.noise;
  const float noise_term = calib.cogt_c * noise + noise * noise + calib.cogt_d;
  echo.dist_raw += (echo.cogh - calib.cogt_b) * -calib.cogt_a * noise_term * 0.15F;
}

void CalibrateEchoRange(const DistCalib& calib, float offset, LidarEcho& echo) noexcept {
  const float height = echo.change_noise_noise_append / 3.0F + echo.cogh;
  // Also what is not above 0, NaN included; an offset of exactly 0 is an uncalibrated pixel.
  if (!(echo.dist_raw > 0.0F) || std::isnan(height) || offset == 0.0F) {
    echo.dist_raw = 0.0F;
    return;
  }
  const bool high = (echo.cogw_flag & cogw_flags::kHighWidthValid) != 0 && calib.has_curve_high;
  const float correction = CurveAt(high ? calib.curve_high : calib.curve, height);
  const float range = echo.dist_raw - (correction + offset) * calib.scale * 0.015625F;
  // A correction larger than the range leaves one output unit, so that the return is not lost.
  echo.dist_raw = range < 0.0F ? 0.004F : range;
}

}  // namespace

EnvCalib::EnvCalib(std::vector<float> cogh, std::vector<float> cogh_high, std::vector<float> cogt,
                   float height_bias)
    : env_cogh(std::move(cogh)),
      env_cogh_high(std::move(cogh_high)),
      env_cogt(std::move(cogt)),
      bias(height_bias) {
  if (env_cogh.empty() || env_cogh_high.empty()) {
    throw std::runtime_error("Invalid env cogh calib data (empty)");
  }
  if (env_cogt.empty()) return;
  if (env_cogt.size() != 4) throw std::runtime_error("Invalid env cogt calib data (expect size 4)");
  cogt_a = env_cogt[0];
  cogt_b = env_cogt[1];
  cogt_c = env_cogt[2];
  cogt_d = env_cogt[3];
  has_cogt = true;
}

DistCalib::DistCalib(std::vector<float> low_curve, std::vector<float> pixel_offset,
                     std::vector<float> high_curve)
    : curve(std::move(low_curve)),
      offset(std::move(pixel_offset)),
      curve_high(std::move(high_curve)),
      has_curve_high(!curve_high.empty()) {
  if (curve.size() != kCurveEntries || offset.size() != kPixelTableEntries) {
    std::cout << "[INFO] dist_curve.size()=" << curve.size() << '\n'
              << "[INFO] dist_offset.size()=" << offset.size() << '\n';
    throw std::runtime_error("Invalid dist calib data (expect curve=512, offset=288*288)");
  }
  if (has_curve_high && curve_high.size() != kCurveEntries) {
    throw std::runtime_error("Invalid dist curve high vector (expect 512, got " +
                             std::to_string(curve_high.size()) + ")");
  }
}

HighThresholdMap::HighThresholdMap(std::vector<float> in, std::vector<float> out)
    : cogh_in(std::move(in)), cogh_out(std::move(out)) {
  if (cogh_in.size() < 2 || cogh_in.size() != cogh_out.size()) {
    throw std::runtime_error("Invalid high-threshold cogh mapping data");
  }
}

float MapHighThresholdHeight(const HighThresholdMap& map, float height) noexcept {
  const std::vector<float>& in = map.cogh_in;
  const std::vector<float>& out = map.cogh_out;
  if (height <= in.front()) return out.front();
  if (height >= in.back()) return out.back();
  const auto above =
      static_cast<std::size_t>(std::lower_bound(in.begin(), in.end(), height) - in.begin());
  const std::size_t below = above - 1;
  return (height - in[below]) * ((out[above] - out[below]) / (in[above] - in[below])) + out[below];
}

void CompensateEnvironment(const EnvCalib& calib, std::span<LidarPoint> points) noexcept {
  for (LidarPoint& point : points) {
    for (int slot = 0; slot < LidarPoint::echo_num; ++slot) {
      CompensateEcho(calib, point.echoes[slot]);
    }
  }
}

void CalibrateRange(const DistCalib& calib, std::span<LidarPoint> points) noexcept {
  for (LidarPoint& point : points) {
    const float offset = PixelTableEntry(calib.offset, point.row, point.col);
    for (int slot = 0; slot < LidarPoint::echo_num; ++slot) {
      CalibrateEchoRange(calib, offset, point.echoes[slot]);
    }
  }
}

void MapHighThresholdHeights(const HighThresholdMap& map, std::span<LidarPoint> points) noexcept {
  for (LidarPoint& point : points) {
    for (int slot = 0; slot < LidarPoint::echo_num; ++slot) {
      LidarEcho& echo = point.echoes[slot];
      const bool high = (echo.cogw_flag & cogw_flags::kHighWidthValid) != 0;
      if (!(echo.dist_raw > 0.0F) || !high || std::isnan(echo.cogh)) continue;
      echo.cogh = MapHighThresholdHeight(map, echo.cogh);
    }
  }
}

}  // namespace kerul::lidar
