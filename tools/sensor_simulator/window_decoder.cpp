#include "sensor_simulator/window_decoder.h"

#include <algorithm>
#include <cmath>

namespace kerul::lidar::simulator {
namespace {

constexpr double kBaselineRiseGate = 550.0;
constexpr double kBaselineRiseLimit = 10.0;
constexpr int kBaselineSamples = 4;

using Sums = std::array<double, kWindow>;  // three-bin sums centred on each sample; ends are 0

double Entry(const std::vector<float>& table, long index) noexcept {
  const long last = static_cast<long>(table.size()) - 1;
  return static_cast<double>(table[static_cast<std::size_t>(std::clamp(index, 0L, last))]);
}

struct Edges {
  int first;  // last sum not above the level on the left, and on the right
  int last;
  double left;  // where the level is crossed
  double right;
};

Edges FindEdges(const Sums& sums, double level) noexcept {
  Edges edges{kWindowCentre, kWindowCentre, 0.0, 0.0};
  const auto at = [&](int i) { return sums[static_cast<std::size_t>(i)]; };
  while (edges.first > 0 && at(edges.first) > level) --edges.first;
  while (edges.last < kWindow - 1 && at(edges.last) > level) ++edges.last;
  edges.left = edges.first + 0.5;
  const double rise = at(edges.first + 1) - at(edges.first);
  if (rise != 0.0 && at(edges.first) < level) {
    edges.left = edges.first + (level - at(edges.first)) / rise;
  }
  edges.right = edges.last - 0.5;
  const double fall = at(edges.last) - at(edges.last - 1);
  if (fall != 0.0 && at(edges.last) < level) {
    edges.right = edges.last - 1 + (level - at(edges.last - 1)) / fall;
  }
  return edges;
}

struct Gravity {
  double centre = kWindowCentre;
  double height = 0.0;
};

Gravity CentreOfGravity(const Sums& sums, const Edges& edges, double level) noexcept {
  const int first = edges.first + 1;
  const int last = edges.last - 1;
  double area = 0.0;
  double moment = 0.0;
  double energy = 0.0;
  for (int k = first; k <= last; ++k) {
    const double value = sums[static_cast<std::size_t>(k)];
    area += value;
    moment += k * value;
    energy += value * value;
  }
  if (first > last || !(area > 0.0)) return {};
  // The partial bins between the crossings and the first and last whole bin.
  const double partial = (first - edges.left) + (edges.right - last) - 1.0;
  const double whole_area = area + partial * level;
  const double ends = ((first - edges.left) - 0.5) * edges.left * level +
                      ((edges.right - last) - 0.5) * edges.right * level;
  return {(moment + ends) / whole_area, 0.5 * (level * level * partial + energy) / whole_area};
}

double AdaptBaseline(const DecodeInput& input, double baseline, DecodedPulse& pulse) noexcept {
  const double ratio = input.shots / 160.0;
  double head = 0.0;
  for (std::size_t i = 0; i < kBaselineSamples; ++i) head += input.samples[i];
  head *= 3.0 / kBaselineSamples;
  const double centre = input.samples[7] + input.samples[8] + input.samples[9];
  const double rise = head - baseline;
  if (!(rise > 0.0) || !(centre - head > kBaselineRiseGate * ratio)) return baseline;
  const double added = std::min(rise + 1.0, kBaselineRiseLimit * ratio);
  pulse.noise_rise = 2048.0 * added / input.shots / 3.0;
  pulse.highly_reflective = added > 7.0 * ratio;
  return baseline + added;
}

// Only the run of significant samples that holds the largest one stays.
void ClipSidePeaks(std::array<double, kWindow>& samples, double level) noexcept {
  const auto best =
      static_cast<int>(std::max_element(samples.begin(), samples.end()) - samples.begin());
  const auto at = [&](int i) -> double& { return samples[static_cast<std::size_t>(i)]; };
  if (!(at(best) > level)) return;
  for (const int step : {-1, 1}) {
    int i = best;
    while (i >= 0 && i < kWindow && at(i) > level) i += step;
    for (; i >= 0 && i < kWindow; i += step) at(i) = std::min(at(i), level);
  }
}

// Flat tops: a parabola through the three sums around the centre.
double ParabolaCentre(const Sums& sums) noexcept {
  const double curvature = sums[7] - 2.0 * sums[8] + sums[9];
  if (!(2.0 * curvature < -1e-12)) return kWindowCentre;
  const double shift = (sums[7] - sums[9]) / (2.0 * curvature);
  return std::abs(shift) > 1.0 ? kWindowCentre : kWindowCentre + shift;
}

void Measure(const DecodeInput& input, const SensorTables& tables, const Sums& sums,
             double baseline, DecodedPulse& pulse) noexcept {
  const double ratio = input.shots / 160.0;
  const double top = sums[kWindowCentre];
  const long index = std::lround(pulse.peak);
  double level = std::max(3.0 * std::sqrt(baseline), top / 5.0);
  Edges edges = FindEdges(sums, level);
  pulse.width = edges.right - edges.left;
  const bool wide = pulse.width > Entry(tables.gate_width, index) + 0.1;
  pulse.high = input.rule == WidthRule::kByWidth ? wide : input.rule == WidthRule::kAlwaysHigh;
  if (pulse.high) {
    level = std::max(3.0 * std::sqrt(baseline), 2.0 * top / 3.0);
    edges = FindEdges(sums, level);
    pulse.high_width = edges.right - edges.left;
  }
  const Gravity gravity = CentreOfGravity(sums, edges, level);
  pulse.centre = gravity.centre;
  pulse.height = gravity.height / ratio;
  const double limit = Entry(tables.high_width, index);
  if (pulse.high_width >= limit + 1.0 && pulse.height > 80.0) {
    pulse.too_wide = true;
  } else if (pulse.high_width > limit + 0.1 && pulse.high_width < limit + 1.0) {
    pulse.centre = ParabolaCentre(sums);
  }
}

}  // namespace

DecodedPulse DecodeWindow(const DecodeInput& input, const SensorTables& tables) noexcept {
  DecodedPulse pulse;
  const double ratio = input.shots / 160.0;
  double baseline = 3.0 * input.shots * input.noise / 2048.0;
  std::array<double, kWindow> samples = input.samples;
  if (input.echo == 0) {
    baseline = AdaptBaseline(input, baseline, pulse);
    ClipSidePeaks(samples, (3.0 * std::sqrt(baseline) + baseline) / 3.0);
  }
  Sums sums{};
  for (std::size_t k = 1; k + 1 < kWindow; ++k) {
    sums[k] = std::max(samples[k - 1] + samples[k] + samples[k + 1] - baseline, 0.0);
  }
  const double clamped =
      std::clamp(std::trunc(input.noise), 0.0, static_cast<double>(tables.detect.size()) - 1.0);
  const double threshold = Entry(tables.detect, static_cast<long>(clamped * ratio));
  pulse.peak_ratio = sums[kWindowCentre] / (threshold - baseline);
  pulse.sure = pulse.peak_ratio > 1.0 || pulse.peak_ratio < 0.0;
  pulse.found = pulse.sure || pulse.peak_ratio > 0.7;
  pulse.peak = (baseline + sums[kWindowCentre]) / ratio;
  if (pulse.found) Measure(input, tables, sums, baseline, pulse);
  return pulse;
}

double CompensatedHeight(const DecodedPulse& pulse, double noise,
                         const SensorTables& tables) noexcept {
  const std::vector<float>& gain = pulse.high ? tables.gain_high : tables.gain_low;
  return (kEnvironmentBias + pulse.height) *
             Entry(gain, static_cast<long>(noise + pulse.noise_rise)) +
         pulse.height;
}

double MappedHeight(const DecodedPulse& pulse, double height, const SensorTables& tables) noexcept {
  if (!pulse.high) return height;
  const std::vector<float>& in = tables.map_in;
  const auto upper = std::lower_bound(in.begin(), in.end(), static_cast<float>(height));
  if (upper == in.begin()) return static_cast<double>(tables.map_out.front());
  if (upper == in.end()) return static_cast<double>(tables.map_out.back());
  const auto j = static_cast<std::size_t>(upper - in.begin());
  const double x0 = in[j - 1];
  const double x1 = in[j];
  const double y0 = tables.map_out[j - 1];
  const double y1 = tables.map_out[j];
  return y0 + (height - x0) * (y1 - y0) / (x1 - x0);
}

}  // namespace kerul::lidar::simulator
