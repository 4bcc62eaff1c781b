#include "reference/packet_calibration.h"

#include <algorithm>
#include <cmath>

#include "reference/numeric.h"

namespace reference {
namespace {

constexpr float kScale = 0.14989623F;

}  // namespace

void CompensateForEnvironment(const EnvironmentTables& tables, std::vector<LidarPoint>& points) {
  for (LidarPoint& point : points) {
    for (int slot = 0; slot < LidarPoint::echo_num; ++slot) {
      LidarEcho& e = point.echoes[slot];
      if (e.dist_raw <= 0.0F) continue;  // a NaN goes on
      if (std::isnan(e.cogh) || std::isnan(e.noise)) {
        e.cogh = 0.0F;
        continue;
      }
      const bool high = (e.cogw_flag & 2) != 0;
      const std::vector<float>& table = high ? tables.env_cogh_high : tables.env_cogh;
      const float entry = table[NearestIndex(Truncate(e.noise), table.size())];
      const float h = (tables.bias + e.cogh) * entry + e.cogh;
      e.cogh = h;
      if (tables.env_cogt.size() == 4) {
        const float a = tables.env_cogt[0];
        const float b = tables.env_cogt[1];
        const float c = tables.env_cogt[2];
        const float d = tables.env_cogt[3];
        const float n = e.noise;
        e.dist_raw += (h - b) * (-a) * (c * n + n * n + d) * 0.15F;
      }
    }
  }
}

namespace {

float RangeCurveValue(const std::vector<float>& curve, float x) {
  if (x >= 511.0F) return curve[511];
  const std::int64_t lower = Truncate(x);
  const std::int64_t upper = lower + 1;
  const float fraction = x - static_cast<float>(lower);
  const float step = 1.0F;
  const float lower_entry = curve[NearestIndex(lower, 512)];
  const float upper_entry = curve[NearestIndex(upper, 512)];
  return (upper_entry - lower_entry) / step * fraction + lower_entry;
}

}  // namespace

void CorrectRange(const RangeTables& tables, std::vector<LidarPoint>& points) {
  for (LidarPoint& point : points) {
    const std::size_t index =
        NearestIndex(PixelTableIndex(point.row, point.col), tables.offset.size());
    for (int slot = 0; slot < LidarPoint::echo_num; ++slot) {
      LidarEcho& e = point.echoes[slot];
      if (!(e.dist_raw > 0.0F)) {
        e.dist_raw = 0.0F;
        continue;
      }
      const float x = e.change_noise_noise_append / 3.0F + e.cogh;
      if (std::isnan(x) || std::isnan(e.dist_raw)) {
        e.dist_raw = 0.0F;
        continue;
      }
      const float o = tables.offset[index];
      if (o == 0.0F) {
        e.dist_raw = 0.0F;
        continue;
      }
      const bool high = (e.cogw_flag & 2) != 0 && !tables.curve_high.empty();
      const float value = RangeCurveValue(high ? tables.curve_high : tables.curve, x);
      const float range = e.dist_raw - (value + o) * kScale * 0.015625F;
      e.dist_raw = range < 0.0F ? 0.004F : range;
    }
  }
}

void MapHeights(const HeightMapTables& tables, std::vector<LidarPoint>& points) {
  const std::vector<float>& in = tables.cogh_in;
  const std::vector<float>& out = tables.cogh_out;
  for (LidarPoint& point : points) {
    for (int slot = 0; slot < LidarPoint::echo_num; ++slot) {
      LidarEcho& e = point.echoes[slot];
      if (!(e.dist_raw > 0.0F)) continue;
      if ((e.cogw_flag & 2) == 0) continue;
      if (std::isnan(e.cogh)) continue;
      const float h = e.cogh;
      if (h <= in.front()) {
        e.cogh = out.front();
      } else if (h >= in.back()) {
        e.cogh = out.back();
      } else {
        const auto j =
            static_cast<std::size_t>(std::lower_bound(in.begin(), in.end(), h) - in.begin());
        e.cogh = (h - in[j - 1]) * ((out[j] - out[j - 1]) / (in[j] - in[j - 1])) + out[j - 1];
      }
    }
  }
}

namespace {

float RetroCurveValue(const std::vector<float>& curve, float x) {
  if (x >= 511.0F) return curve[511];
  const std::int64_t i = Truncate(x);
  const float lower = curve[NearestIndex(i, 512)];
  const float upper = curve[NearestIndex(i + 1, 512)];
  // The entries are one apart. Taken as 1 also where i + 1 and i are the same float: such heights
  // lie far below the curve, where both entries are the first.
  return (x - static_cast<float>(i)) * (upper - lower) + lower;
}

float RangeDependentCorrection(const std::vector<float>& table, float d, int lane) {
  if (table.size() != 600) return 0.0F;
  if (d > 9.900001F) return 0.0F;
  const int k = Truncate(std::floor(d / 0.1F));
  if (k > 98) return table[NearestIndex(99 * 6 + lane, 600)] - 2.0F;
  const float lo = static_cast<float>(k) * 0.1F;
  const float hi = 0.1F * static_cast<float>(k + 1);
  const float entry = table[NearestIndex(k * 6 + lane, 600)];
  const float next = table[NearestIndex((k + 1) * 6 + lane, 600)];
  return ((next - entry) / (hi - lo)) * (d - lo) + entry - 2.0F;
}

void ReflectivityFromHeight(const ReflectivityTables& tables, float s, int lane, LidarEcho& e) {
  const float ref_distance = kScale;
  const float ref_offset = 6.0F;
  const float d = e.dist_raw;
  double lg = 0.0;
  if (static_cast<double>(d) > 0.3) {
    lg = std::log2(static_cast<double>(d / ref_distance));
  } else {
    lg = std::log2(0.3 / static_cast<double>(ref_distance));
  }
  if (s == 0.0F) {
    e.dist_raw = 0.0F;
    e.refl_raw = 0.0F;
    return;
  }
  const float x = e.change_noise_noise_append / 3.0F + e.cogh;
  const float v = RetroCurveValue(tables.retro_curve, x);
  const float n = RangeDependentCorrection(tables.cogh_efficiant, d, lane);
  e.power = static_cast<float>(std::pow(2.0, static_cast<double>(v)));
  const float l = static_cast<float>(lg);
  const float exponent = l + l + v - s - ref_offset + n;
  const float y = static_cast<float>(std::pow(2.0, static_cast<double>(exponent)));
  e.refl_raw = y > 255.0F ? 255.0F : y;
}

float ReflectivityFloor(const std::vector<float>& filter, float dist) {
  if (dist >= 3.0F) return filter[30];
  const float x = dist / 0.1F;
  const float floor_x = std::floor(x);
  const int k = Truncate(floor_x);
  if (k > 29) return filter[30];
  const auto i = static_cast<std::size_t>(k);
  const float t = x - floor_x;
  return t * filter[i + 1] + (1.0F - t) * filter[i];
}

}  // namespace

void CalibrateReflectivity(const ReflectivityTables& tables, std::vector<LidarPoint>& points) {
  const kerul::lidar::HighReflCheck& check = tables.high_refl_check;
  for (LidarPoint& point : points) {
    const float s = tables.retro_scale[NearestIndex(PixelTableIndex(point.row, point.col),
                                                    tables.retro_scale.size())];
    const int lane = point.row % 6;
    for (int slot = 0; slot < LidarPoint::echo_num; ++slot) {
      LidarEcho& e = point.echoes[slot];

      // Reflectivity.
      if (e.dist_raw > 0.0F) ReflectivityFromHeight(tables, s, lane, e);

      // A saturated echo cannot be measured.
      if (e.highRefl) {
        const float hp = 20.0F / (e.dist_raw * e.dist_raw) * 1048576.0F;
        e.refl_raw = 255.0F;
        e.power = hp;
      }

      // Near-range softening.
      if (!e.highRefl && check.near_refl_enable) {
        if (0.0F < e.dist_raw && e.dist_raw < check.near_refl_range && e.refl_raw > 100.0F) {
          e.refl_raw = (e.refl_raw - 100.0F) * 0.1F + 100.0F;
        }
      }

      // Reflectivity floor.
      if (tables.retro_filter.size() == 31 && e.dist_raw > 0.0F) {
        if (ReflectivityFloor(tables.retro_filter, e.dist_raw) > e.refl_raw) {
          e.dist_raw = 0.0F;
          e.refl_raw = 0.0F;
        }
      }
    }
  }
}

}  // namespace reference
