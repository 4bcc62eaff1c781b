// The echo computation over W windows at once, bit for bit the scalar form beside it
// (echo_computation.cpp), function by function. Where the scalar form leaves early, here a mask
// says which lanes go on, and the results of the others are blended away at the end.
#pragma once

#include <cstdint>

#include "MIPI_reader/parser/cogw_filter.h"
#include "MIPI_reader/parser/echo_computation.h"
#include "MIPI_reader/parser/echo_rules.h"
#include "lanes/lanes.h"

namespace kerul::lidar::echo_computation {

// The windows of W lanes. Both echo slots may stand in one batch.
template <int W>
struct WindowLanes {
  using Float = typename Lanes<W>::Float;
  using Int = typename Lanes<W>::Int;

  Float samples[kWindowSamples];  // 12 bits each
  Int is_first_slot;              // mask
  Float first_bin;                // peak_addr
  Float detect_threshold;         // of the pixel, level units
  Float noise;                    // raw units
  Float baseline;                 // level units
};

// What the computation writes into the echo records of W lanes.
template <int W>
struct EchoLanes {
  using Float = typename Lanes<W>::Float;
  using Int = typename Lanes<W>::Int;

  Float dist_raw, cogh, cogw, cogw_high, waveform_rms_ratio;
  Int cogw_flag;
  Float peak, peak_ratio, noise, baseline, change_noise_noise_append;
  Int highRefl, detect_pass;  // masks
  Float sums[kSums];          // not of the record: the three-bin sums, from step to step
};

template <int W>
struct EchoKernel {
  using V = Lanes<W>;
  using Float = typename V::Float;
  using Int = typename V::Int;

  struct Edges {
    Float threshold, left, right, from, to;
  };
  struct Centroid {
    Float centre, height;
  };
  struct CurvePoints {
    Float low, gate, high;
  };

  // The windows of `count` groups of W lanes. Each step takes all groups before the next one
  // begins: the processor then works on one group while it waits for another.
  static void Compute(const EchoSettings& settings, float shot_ratio, int count,
                      WindowLanes<W>* windows, EchoLanes<W>* echoes) noexcept {
    for (int i = 0; i < count; ++i) AdaptBaseline(settings, shot_ratio, windows[i], echoes[i]);
    if (settings.clip_side_peaks) {
      for (int i = 0; i < count; ++i) ClipSidePeaks(echoes[i].baseline, windows[i]);
    }
    for (int i = 0; i < count; ++i) SumThreeBins(windows[i].samples, echoes[i]);
    for (int i = 0; i < count; ++i) {
      EchoLanes<W>& echo = echoes[i];
      echo.peak = echo.baseline + echo.sums[kCentre];
      const Int goes_on = ComparePeak(windows[i].detect_threshold, echo);
      echo.dist_raw = echo.cogh = echo.cogw = echo.cogw_high = echo.waveform_rms_ratio = Float{};
      echo.cogw_flag = Int{};
      if (V::Any(goes_on)) MeasurePulse(settings, shot_ratio, windows[i].first_bin, goes_on, echo);
    }
  }

  // From peak and baseline to the ratio. Gives the lanes that are an echo or a near miss.
  static Int ComparePeak(Float detect_threshold, EchoLanes<W>& echo) noexcept {
    echo.peak_ratio = (echo.peak - echo.baseline) / (detect_threshold - echo.baseline);
    echo.detect_pass = (echo.peak_ratio > kSureRatio) | (echo.peak_ratio < 0.0F);
    return echo.detect_pass | (echo.peak_ratio > kNearMissRatio);
  }

 private:
  static void AdaptBaseline(const EchoSettings& settings, float shot_ratio,
                            const WindowLanes<W>& window, EchoLanes<W>& echo) noexcept {
    const Float* w = window.samples;
    echo.change_noise_noise_append = Float{};
    echo.highRefl = Int{};
    echo.noise = window.noise;
    echo.baseline = window.baseline;
    Float head{};
    const int n = settings.baseline_samples;
    for (int i = 0; i < (n < kWindowSamples ? n : kWindowSamples); ++i) head += w[i];
    const Float mean = head * 3.0F / static_cast<float>(n);
    const Float rise = mean - echo.baseline;
    const Float pulse = w[kCentre - 1] + w[kCentre] + w[kCentre + 1] - mean;
    const Int adapts =
        window.is_first_slot & (rise > 0.0F) & (pulse > settings.baseline_rise_gate * shot_ratio);
    if (!V::Any(adapts)) return;

    const Float limit = V::Splat(settings.baseline_rise_limit * shot_ratio);
    const Float above = rise + 1.0F;
    const Float add = V::Select(limit < above, limit, above);
    const Float noise_add = kNoisePerLevel * add / (kNominalShots * shot_ratio) / 3.0F;
    echo.baseline = V::Select(adapts, echo.baseline + add, echo.baseline);
    echo.change_noise_noise_append = V::Select(adapts, noise_add, Float{});
    echo.noise = V::Select(adapts, echo.noise + noise_add, echo.noise);
    echo.highRefl = adapts & (add > shot_ratio * kBrightRise);
  }

  // The first largest sample of each lane as a bit at its place. Value and place share one number:
  // a 12-bit whole number leaves a float's low bits zero, and floats that are not negative compare
  // like the integers of the same bits.
  static Int BitOfFirstMaximum(const Float* w) noexcept {
    // One chain of sixteen maxima would be waited for. Plain processors need four operations for
    // each, which take longer than the chain.
    constexpr int kChains = W > 4 ? 4 : 1;
    Int best[kChains]{};
    for (int i = 0; i < kWindowSamples; ++i) {
      const Int key = __builtin_bit_cast(Int, w[i]) | (16 - i);
      best[i % kChains] = V::Max(best[i % kChains], key);
    }
    for (const Int& other : best) best[0] = V::Max(best[0], other);
    const Int place = 16 - (best[0] & 31);
    // 2^place, made as a float: plain processors cannot shift each lane by its own count.
    return V::Truncate(reinterpret_cast<Float>((place + 127) << 23));
  }

  // The samples above the level as 17 bits of each lane; the run of ones that holds the maximum
  // stays, all others are cut. A maximum that is not above the level leaves no ones at all.
  static void ClipSidePeaks(Float baseline, WindowLanes<W>& window) noexcept {
    if (!V::Any(window.is_first_slot)) return;
    // No level stands above the windows of the second slot: nothing of them is cut.
    const Float level =
        V::Select(window.is_first_slot, (3.0F * V::Sqrt(baseline) + baseline) / 3.0F,
                  V::Splat(__builtin_inff()));
    Float* w = window.samples;
    Int above{};
    for (int i = 0; i < kWindowSamples; ++i) above |= (w[i] > level) & V::SplatInt(1 << i);
    const Int best = BitOfFirstMaximum(w);
    // Adding the bit carries through the ones from it upward and stops at the first zero.
    const Int from_best_up = ((above + best) ^ above) & above;
    // The highest zero below the bit, spread over everything below itself.
    const Int below_best = best - 1;
    Int outside = ~above & below_best;
    for (int shift = 1; shift <= 16; shift *= 2) outside |= outside >> shift;
    const Int cut = above & ~from_best_up & (outside | ~below_best) & ~best;
    if (!V::Any(cut != 0)) return;
    for (int i = 0; i < kWindowSamples; ++i) {
      w[i] = V::Select((cut & V::SplatInt(1 << i)) != 0, level, w[i]);
    }
  }

  static void SumThreeBins(const Float* w, EchoLanes<W>& echo) noexcept {
    // A difference is above 0 where the sum is above the baseline, and only there.
    Float* sums = echo.sums;
    const auto above_baseline = [baseline = echo.baseline](Float sum) {
      return V::Max(sum - baseline, Float{});
    };
    sums[0] = sums[kSums - 1] = Float{};
    Float sum = w[0] + w[1] + w[2];
    sums[1] = above_baseline(sum);
    for (int k = 1; k < kWindowSamples - 2; ++k) {
      sum = (w[k + 2] - w[k - 1]) + sum;
      sums[k + 1] = above_baseline(sum);
    }
  }

  static Float RootMeanSquare(const Float* sums) noexcept {
    Float squares{};
    for (int k = 1; k < kSums - 1; ++k) squares += sums[k] * sums[k];
    return V::Sqrt(squares / 15.0F);
  }

  static Int IsFinite(Float value) noexcept { return V::Abs(value) < __builtin_inff(); }

  // Clamped before the conversion, NaN and infinity to 0. Rounds by the fraction: adding a half
  // would round up the number just below a half.
  static CurvePoints ReadCurves(const EchoSettings& settings, Float normalised_peak) noexcept {
    if (settings.cogw_limits == nullptr) return {Float{}, Float{}, Float{}};
    constexpr auto kLast = static_cast<float>(kCogwCurveEntries - 1);
    Float inside = V::Select(normalised_peak > 0.0F, normalised_peak, Float{});
    inside = V::Select(inside > kLast, V::Splat(kLast), inside);
    const Int whole = V::Truncate(inside);
    // A true comparison is -1.
    const Int rounded = whole - ((inside - V::ToFloat(whole)) >= 0.5F);
    const Int index = IsFinite(normalised_peak) & rounded;
    std::int32_t offsets[W];
    V::Store(offsets, index * std::int32_t{sizeof(CogwLimits)});
    Int limits[4];
    LoadWords<W>(reinterpret_cast<const std::uint8_t*>(settings.cogw_limits), offsets, limits);
    return {__builtin_bit_cast(Float, limits[0]), __builtin_bit_cast(Float, limits[1]),
            __builtin_bit_cast(Float, limits[2])};
  }

  // From the ends of the window to the centre; the last sum not above the threshold is the edge.
  static Edges FindEdges(const Float* sums, Float threshold) noexcept {
    Float left{};
    Float at_left = sums[0];
    Float after_left = sums[1];
    for (int k = 1; k <= kCentre; ++k) {
      const Int above = sums[k] > threshold;
      left = V::Select(above, left, V::Splat(static_cast<float>(k)));
      at_left = V::Select(above, at_left, sums[k]);
      after_left = V::Select(above, after_left, sums[k + 1]);
    }
    Float right = V::Splat(static_cast<float>(kSums - 1));
    Float at_right = sums[kSums - 1];
    Float before_right = sums[kSums - 2];
    for (int k = kSums - 2; k >= kCentre; --k) {
      const Int above = sums[k] > threshold;
      right = V::Select(above, right, V::Splat(static_cast<float>(k)));
      at_right = V::Select(above, at_right, sums[k]);
      before_right = V::Select(above, before_right, sums[k - 1]);
    }
    const Float rising = after_left - at_left;
    const Float falling = at_right - before_right;
    const Float last = right - 1.0F;
    return {threshold, left, right,
            V::Select((rising != 0.0F) & (at_left < threshold),
                      (threshold - at_left) / rising + left, left + 0.5F),
            V::Select((falling != 0.0F) & (at_right < threshold),
                      (threshold - before_right) / falling + last, last + 0.5F)};
  }

  // Sums outside the edges count as zeros, which change no bit of a running sum that starts at 0
  // and whose terms are not negative.
  static Centroid CentreOfGravity(const Float* sums, const Edges& edges) noexcept {
    Float area{};
    Float moment{};
    Float energy{};
    for (int k = 1; k < kSums - 1; ++k) {
      const Float place = V::Splat(static_cast<float>(k));
      Int inside = k <= kCentre ? place > edges.left : place < edges.right;
      if (k == kCentre) inside &= place < edges.right;
      const Float sum = V::Select(inside, sums[k], Float{});
      area += sum;
      moment += place * sum;
      energy += sum * sum;
    }
    const Float h = edges.threshold;
    const Float a = edges.left + 1.0F;
    const Float z = edges.right - 1.0F;
    const Float partial = -(edges.from - a + z - edges.to) - 1.0F;
    const Float full_area = area + partial * h;
    const Float height = 0.5F * ((h * h * partial + energy) / full_area);
    const Float centre = (moment + PartialMoment(edges, a, z)) / full_area;
    // An empty pulse has no area.
    const Int has_area = area > 0.0F;
    return {V::Select(has_area, centre, V::Splat(static_cast<float>(kCentre))),
            V::Select(has_area, height, Float{})};
  }

  // In double precision, out of single-precision products, and rounded back: deliberate.
  static Float PartialMoment(const Edges& edges, Float a, Float z) noexcept {
    const Float head = a - edges.from;
    const Float head_product = edges.from * edges.threshold;
    const Float tail = edges.to - z;
    const Float tail_product = edges.threshold * edges.to;
    return V::Join(
        (V::Low(head) - 0.5) * V::Low(head_product) + (V::Low(tail) - 0.5) * V::Low(tail_product),
        (V::High(head) - 0.5) * V::High(head_product) +
            (V::High(tail) - 0.5) * V::High(tail_product));
  }

  static Float ParabolaVertex(const Float* sums) noexcept {
    const Float before = sums[kCentre - 1];
    const Float middle = sums[kCentre];
    const Float after = sums[kCentre + 1];
    const Float curvature = before - (middle + middle) + after;
    const Float shift = (before - after) / (curvature + curvature);
    // NaN compares false, infinity is above 1.
    const Int is_peak = IsFinite(before) & IsFinite(middle) & IsFinite(after) &
                        (curvature + curvature < kMinCurvature) & (V::Abs(shift) <= kMaxShift);
    return static_cast<float>(kCentre) + V::Select(is_peak, shift, Float{});
  }

  static Int WantsHighWidth(const EchoSettings& settings, Float gate, Float cogw) noexcept {
    if (settings.cogw_high_mode == 1) return ~Int{};
    if (settings.cogw_high_mode != 2 || settings.cogw_limits == nullptr) return Int{};
    return cogw > gate + kCurveTolerance;
  }

  static Edges MeasureWidths(const EchoSettings& settings, const Float* sums,
                             const CurvePoints& curve, Int goes_on, EchoLanes<W>& echo) noexcept {
    const Int has_filter = settings.cogw_limits != nullptr ? ~Int{} : Int{};
    const Float centre = sums[kCentre];
    const Float noise_level = 3.0F * V::Sqrt(echo.baseline);
    const auto threshold = [noise_level](Float level) {
      return V::Select(noise_level < level, level, noise_level);
    };
    Edges edges = FindEdges(sums, threshold(centre / 5.0F));
    echo.cogw = edges.to - edges.from;
    echo.cogw_high = Float{};
    echo.cogw_flag = has_filter & (curve.low > echo.cogw) & cogw_flags::kBelowLowCurve;
    const Int wants_high = goes_on & WantsHighWidth(settings, curve.gate, echo.cogw);
    if (!V::Any(wants_high)) return edges;

    const Edges high = FindEdges(sums, threshold((centre + centre) / 3.0F));
    const Float width = high.to - high.from;
    echo.cogw_high = V::Select(wants_high, width, Float{});
    echo.cogw_flag |=
        wants_high &
        (cogw_flags::kHighWidthValid |
         (has_filter & (width > curve.high + kCurveTolerance) & cogw_flags::kAboveHighCurve));
    edges.threshold = V::Select(wants_high, high.threshold, edges.threshold);
    edges.left = V::Select(wants_high, high.left, edges.left);
    edges.right = V::Select(wants_high, high.right, edges.right);
    edges.from = V::Select(wants_high, high.from, edges.from);
    edges.to = V::Select(wants_high, high.to, edges.to);
    return edges;
  }

  // A width of NaN compares false with everything and is left alone.
  static void CorrectWidePulse(const Float* sums, Float high_limit, Float first_bin,
                               EchoLanes<W>& echo) noexcept {
    const Float drop_width = high_limit + kDropWidth;
    const Int too_wide = (echo.cogw_high >= drop_width) & (echo.cogh > kDropHeight);
    const Int flat =
        (high_limit + kCurveTolerance < echo.cogw_high) & (echo.cogw_high < drop_width);
    if (!V::Any(too_wide | flat)) return;
    const Float dist = (first_bin + ParabolaVertex(sums)) * kMetresPerBin;
    echo.dist_raw = V::Select(flat, dist, V::Select(too_wide, Float{}, echo.dist_raw));
  }

  // The lanes that do not go on keep zeros, and their peak and baseline are not divided.
  static void MeasurePulse(const EchoSettings& settings, float shot_ratio, Float first_bin,
                           Int goes_on, EchoLanes<W>& echo) noexcept {
    const Float* sums = echo.sums;
    const Float normalised_peak = echo.peak / shot_ratio;
    const CurvePoints curve = ReadCurves(settings, normalised_peak);
    echo.waveform_rms_ratio = V::Select(goes_on, RootMeanSquare(sums) / echo.peak, Float{});
    const Edges edges = MeasureWidths(settings, sums, curve, goes_on, echo);
    const Centroid centroid = CentreOfGravity(sums, edges);

    echo.cogh = centroid.height / shot_ratio;
    echo.dist_raw = (centroid.centre + first_bin) * kMetresPerBin;
    if (settings.cogw_limits != nullptr) CorrectWidePulse(sums, curve.high, first_bin, echo);
    echo.peak = V::Select(goes_on, normalised_peak, echo.peak);
    echo.baseline = V::Select(goes_on, echo.baseline / shot_ratio, echo.baseline);
    echo.cogh = V::Select(goes_on, echo.cogh, Float{});
    echo.dist_raw = V::Select(goes_on, echo.dist_raw, Float{});
    echo.cogw = V::Select(goes_on, echo.cogw, Float{});
    echo.cogw_flag &= goes_on;
  }
};

}  // namespace kerul::lidar::echo_computation
