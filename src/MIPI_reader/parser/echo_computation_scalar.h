// The scalar form of the echo computation. `tell` hears each decision as a record of
// echo_decisions.h; it changes nothing. Members of a teller, each for one record:
//   HeadRise, RisePulse, Rise, Clip, Shape, Detection, Crossings, LowWidth, HighWidthWish,
//   HighWidth, RawRange, WidePulse
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "MIPI_reader/parser/cogw_filter.h"
#include "MIPI_reader/parser/echo_computation.h"
#include "MIPI_reader/parser/echo_decisions.h"
#include "MIPI_reader/parser/echo_rules.h"

namespace kerul::lidar {
namespace echo_computation {

// When the head of the window is above the reported baseline and the centre holds a real pulse, the
// baseline follows the head, up to a limit.
template <typename Tell>
void AdaptBaseline(const EchoSettings& settings, const std::uint16_t* samples, float shot_ratio,
                   LidarEcho& echo, Tell& tell) noexcept {
  echo.change_noise_noise_append = 0.0F;
  float head = 0.0F;
  const int count = std::min(settings.baseline_samples, kWindowSamples);
  for (int i = 0; i < count; ++i) head += static_cast<float>(samples[i]);
  // Deliberately divided by the configured number, even where fewer samples exist.
  const float mean = head * 3.0F / static_cast<float>(settings.baseline_samples);
  const float rise = mean - echo.baseline;
  tell.HeadRise({.samples = count, .reported = echo.baseline, .mean = mean, .rise = rise});
  if (!(rise > 0.0F)) return;
  const float pulse = static_cast<float>(samples[kCentre - 1]) +
                      static_cast<float>(samples[kCentre]) +
                      static_cast<float>(samples[kCentre + 1]) - mean;
  const float gate = settings.baseline_rise_gate * shot_ratio;
  tell.RisePulse({.pulse = pulse, .gate = gate});
  if (!(pulse > gate)) return;

  const float limit = settings.baseline_rise_limit * shot_ratio;
  const float add = std::min(rise + 1.0F, limit);
  echo.baseline += add;
  // The same rise in the unit of `noise`.
  const float noise_add = kNoisePerLevel * add / (kNominalShots * shot_ratio) / 3.0F;
  echo.change_noise_noise_append = noise_add;
  echo.noise += noise_add;
  const float bright = shot_ratio * kBrightRise;
  tell.Rise({.wanted = rise + 1.0F,
             .limit = limit,
             .add = add,
             .noise_add = noise_add,
             .bright = bright});
  if (add > bright) echo.highRefl = true;
}

// Cuts every sample above `level` down to it, except in the run that holds the maximum. Other peaks
// then cannot draw the centre of gravity away.
template <typename Tell>
void ClipSidePeaks(Window& window, float level, Tell& tell) noexcept {
  // The first of equals wins.
  const int best =
      static_cast<int>(std::max_element(window.begin(), window.end()) - window.begin());
  const auto above = [&](int i) { return window[static_cast<std::size_t>(i)] > level; };
  tell.Clip({.level = level, .highest = best});
  if (!above(best)) return;
  int left = best - 1;
  while (left >= 0 && above(left)) --left;
  for (int i = 0; i < left; ++i) {
    if (above(i)) window[static_cast<std::size_t>(i)] = level;
  }
  int right = best + 1;
  while (right < kWindowSamples && above(right)) ++right;
  for (int i = right + 1; i < kWindowSamples; ++i) {
    if (above(i)) window[static_cast<std::size_t>(i)] = level;
  }
}

// A running sum in exactly this order: another order changes the last bit.
inline void SumThreeBins(const Window& window, float baseline, Sums& sums) noexcept {
  const auto above_baseline = [baseline](float sum) {
    return sum > baseline ? sum - baseline : 0.0F;
  };
  sums.front() = 0.0F;
  sums.back() = 0.0F;
  float sum = window[0] + window[1] + window[2];
  sums[1] = above_baseline(sum);
  for (std::size_t k = 1; k + 2 < window.size(); ++k) {
    sum = (window[k + 2] - window[k - 1]) + sum;
    sums[k + 1] = above_baseline(sum);
  }
}

inline float RootMeanSquare(const Sums& sums) noexcept {
  float squares = 0.0F;
  for (std::size_t k = 1; k + 1 < sums.size(); ++k) squares += sums[k] * sums[k];
  return std::sqrt(squares / 15.0F);
}

// Rounds half away from zero into the curve's range. NaN and infinity count as below every index.
inline CurvePoint ReadCurves(const EchoSettings& settings, float normalised_peak) noexcept {
  if (settings.cogw_limits == nullptr) return {};
  int index = 0;
  if (std::isfinite(normalised_peak)) {
    const float inside =
        std::clamp(normalised_peak, 0.0F, static_cast<float>(kCogwCurveEntries - 1));
    const int whole = static_cast<int>(inside);
    index = inside - static_cast<float>(whole) >= 0.5F ? whole + 1 : whole;
  }
  return {.index = index,
          .low = settings.cogw_limits[index].low,
          .gate = settings.cogw_limits[index].gate,
          .high = settings.cogw_limits[index].high};
}

// Position between sums `lower` and `lower + 1` at which the line through them meets the threshold.
inline float Crossing(const Sums& sums, int lower, float threshold) noexcept {
  const auto k = static_cast<std::size_t>(lower);
  return (threshold - sums[k]) / (sums[k + 1] - sums[k]) + static_cast<float>(lower);
}

// Walks outward from the centre. A sum equal to the threshold deliberately takes the fixed half
// position instead of the interpolated one.
template <typename Tell>
Edges FindEdges(const Sums& sums, float threshold, Tell& tell) noexcept {
  const auto at = [&](int k) { return sums[static_cast<std::size_t>(k)]; };
  Edges edges{threshold, kCentre, kCentre, 0.0F, 0.0F};
  while (edges.left > 0 && at(edges.left) > threshold) --edges.left;
  while (edges.right < kSums - 1 && at(edges.right) > threshold) ++edges.right;

  const int left = edges.left;
  edges.from = static_cast<float>(left) + 0.5F;
  if (at(left + 1) - at(left) != 0.0F && at(left) < threshold) {
    edges.from = Crossing(sums, left, threshold);
  }
  const int right = edges.right;
  edges.to = static_cast<float>(right - 1) + 0.5F;
  if (at(right) - at(right - 1) != 0.0F && at(right) < threshold) {
    edges.to = Crossing(sums, right - 1, threshold);
  }
  tell.Crossings(edges);
  return edges;
}

// Centre of gravity between the edges: whole bins plus what the edges cut off the bins beside them.
inline Centroid CentreOfGravity(const Sums& sums, const Edges& edges) noexcept {
  constexpr Centroid kNothing{static_cast<float>(kCentre), 0.0F};
  const int first = edges.left + 1;
  const int last = edges.right - 1;
  if (first > last) return kNothing;
  float area = 0.0F;
  float moment = 0.0F;
  float energy = 0.0F;
  for (int k = first; k <= last; ++k) {
    const float sum = sums[static_cast<std::size_t>(k)];
    area += sum;
    moment += static_cast<float>(k) * sum;
    energy += sum * sum;
  }
  if (!(area > 0.0F)) return kNothing;

  const float h = edges.threshold;
  const auto a = static_cast<float>(first);
  const auto z = static_cast<float>(last);
  const float partial = -(edges.from - a + z - edges.to) - 1.0F;  // width of the partial bins
  const float full_area = area + partial * h;
  const float height = 0.5F * ((h * h * partial + energy) / full_area);
  // In double precision, out of single-precision products, and rounded back: deliberate.
  const auto partial_moment = static_cast<float>(
      (static_cast<double>(a - edges.from) - 0.5) * static_cast<double>(edges.from * h) +
      (static_cast<double>(edges.to - z) - 0.5) * static_cast<double>(h * edges.to));
  return {(moment + partial_moment) / full_area, height};
}

// Vertex of the parabola through the three middle sums; the centre itself when they do not form a
// peak.
inline float ParabolaVertex(const Sums& sums) noexcept {
  constexpr auto kCentreSample = static_cast<float>(kCentre);
  const float before = sums[kCentre - 1];
  const float middle = sums[kCentre];
  const float after = sums[kCentre + 1];
  if (!std::isfinite(before) || !std::isfinite(middle) || !std::isfinite(after)) {
    return kCentreSample;
  }
  const float curvature = before - (middle + middle) + after;
  if (!(curvature + curvature < kMinCurvature)) return kCentreSample;
  const float shift = (before - after) / (curvature + curvature);
  if (!std::isfinite(shift) || std::fabs(shift) > kMaxShift) return kCentreSample;
  return kCentreSample + shift;
}

inline bool WantsHighWidth(const EchoSettings& settings, const CurvePoint& curve,
                           float cogw) noexcept {
  if (settings.cogw_high_mode == 1) return true;
  // A NaN width is not above anything.
  return settings.cogw_high_mode == 2 && settings.cogw_limits != nullptr &&
         cogw > curve.gate + kCurveTolerance;
}

// Width at the low threshold and, where wanted, at the high one. Gives the edges of the last
// threshold used.
template <typename Tell>
Edges MeasureWidths(const EchoSettings& settings, const Sums& sums, const CurvePoint& curve,
                    LidarEcho& echo, Tell& tell) noexcept {
  const bool has_filter = settings.cogw_limits != nullptr;
  const float centre = sums[kCentre];
  const float noise_level = 3.0F * std::sqrt(echo.baseline);
  // std::max gives its first operand when that is NaN: a negative baseline has no edge above it.
  Edges edges = FindEdges(sums, std::max(noise_level, centre / 5.0F), tell);
  echo.cogw = edges.to - edges.from;
  echo.cogw_high = 0.0F;
  echo.cogw_flag = has_filter && curve.low > echo.cogw ? cogw_flags::kBelowLowCurve : 0;
  tell.LowWidth(
      {.noise_level = noise_level, .share = centre / 5.0F, .width = echo.cogw, .curve = curve});
  tell.HighWidthWish({.mode = settings.cogw_high_mode,
                      .width = echo.cogw,
                      .has_gate = settings.cogw_limits != nullptr,
                      .gate = curve.gate});
  if (!WantsHighWidth(settings, curve, echo.cogw)) return edges;

  edges = FindEdges(sums, std::max(noise_level, (centre + centre) / 3.0F), tell);
  echo.cogw_high = edges.to - edges.from;
  echo.cogw_flag |= cogw_flags::kHighWidthValid;
  if (has_filter && echo.cogw_high > curve.high + kCurveTolerance) {
    echo.cogw_flag |= cogw_flags::kAboveHighCurve;
  }
  tell.HighWidth({.noise_level = noise_level,
                  .share = (centre + centre) / 3.0F,
                  .width = echo.cogw_high,
                  .has_limit = has_filter,
                  .limit = curve.high});
  return edges;
}

// A pulse too wide and too high is dropped; on a moderately wide, flat top the centre of gravity
// is not trusted and the range comes from a parabola.
template <typename Tell>
void CorrectWidePulse(const Sums& sums, float high_limit, float first_bin, LidarEcho& echo,
                      Tell& tell) noexcept {
  const auto tell_fate = [&](WidePulseFate fate, float vertex) {
    tell.WidePulse({.width = echo.cogw_high,
                    .limit = high_limit,
                    .height = echo.cogh,
                    .fate = fate,
                    .vertex = vertex});
  };
  if (std::isnan(echo.cogw_high)) return;
  if (echo.cogw_high >= high_limit + kDropWidth && echo.cogh > kDropHeight) {
    echo.dist_raw = 0.0F;
    tell_fate(WidePulseFate::kDropped, 0.0F);
    return;
  }
  if (high_limit + kCurveTolerance < echo.cogw_high && echo.cogw_high < high_limit + kDropWidth) {
    const float vertex = ParabolaVertex(sums);
    echo.dist_raw = (first_bin + vertex) * kMetresPerBin;
    tell_fate(WidePulseFate::kParabola, vertex);
    return;
  }
  tell_fate(WidePulseFate::kKept, 0.0F);
}

}  // namespace echo_computation

// As ComputeEcho without `tell`.
template <typename Tell>
void ComputeEcho(const EchoSettings& settings, const std::uint16_t* samples, LidarPoint& point,
                 int echo, Tell& tell) noexcept {
  using namespace echo_computation;
  LidarEcho& e = point.echoes[echo];
  const float shot_ratio = point.shot_ratio;
  if (settings.keep_bins) {
    for (std::size_t i = 0; i < e.bins.size(); ++i) e.bins[i] = samples[i] & kSampleMask;
  }

  Window window;
  if (echo == 1) {
    for (std::size_t i = 0; i < window.size(); ++i) {
      window[i] = static_cast<float>(samples[i] & kSampleMask);
    }
  } else {
    AdaptBaseline(settings, samples, shot_ratio, e, tell);
    for (std::size_t i = 0; i < window.size(); ++i) window[i] = static_cast<float>(samples[i]);
    if (settings.clip_side_peaks) {
      ClipSidePeaks(window, (3.0F * std::sqrt(e.baseline) + e.baseline) / 3.0F, tell);
    }
  }

  Sums sums;
  SumThreeBins(window, e.baseline, sums);
  tell.Shape({.window = window, .sums = sums, .baseline = e.baseline});
  e.peak = e.baseline + sums[kCentre];
  e.peak_ratio = (e.peak - e.baseline) / (point.detect_threshold - e.baseline);
  e.detect_pass = e.peak_ratio > kSureRatio || e.peak_ratio < 0.0F;
  tell.Detection({.baseline = e.baseline,
                  .peak = e.peak,
                  .level = point.detect_threshold,
                  .ratio = e.peak_ratio,
                  .sure = e.detect_pass});
  if (!e.detect_pass && !(e.peak_ratio > kNearMissRatio)) return;

  e.waveform_rms_ratio = RootMeanSquare(sums) / e.peak;
  const CurvePoint curve = ReadCurves(settings, e.peak / shot_ratio);
  const Edges edges = MeasureWidths(settings, sums, curve, e, tell);
  const Centroid centroid = CentreOfGravity(sums, edges);

  e.peak = e.peak / shot_ratio;
  e.cogh = centroid.height / shot_ratio;
  e.baseline = e.baseline / shot_ratio;
  const auto first_bin = static_cast<float>(e.peak_addr & 0xFFF);
  e.dist_raw = (centroid.centre + first_bin) * kMetresPerBin;
  tell.RawRange({.centroid = centroid, .first_bin = first_bin, .range = e.dist_raw});
  if (settings.cogw_limits != nullptr) CorrectWidePulse(sums, curve.high, first_bin, e, tell);
}

}  // namespace kerul::lidar
