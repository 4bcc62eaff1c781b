// The four rules for bright targets, one pixel at a time. `tell` hears which rule is looked at,
// each of its comparisons until one fails, and the verdict; it changes nothing. Members of a
// teller: Rule(HighReflRule), Comparison(HighReflComparison), Verdict(HighReflVerdict).
#pragma once

#include <cmath>
#include <limits>

#include "MIPI_reader/node/point_calibration/calibration_decisions.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "config/high_refl_check.h"

namespace kerul::lidar::point_calibration {

inline constexpr float kNoLimit = std::numeric_limits<float>::infinity();

// NaN lies in no band.
template <typename Tell>
bool InBand(HighReflSide side, float value, const HighReflBand& band, Tell& tell) noexcept {
  const bool holds = value > band.lo && value <= band.hi;
  tell.Comparison(
      {.side = side, .value = value, .above = band.lo, .up_to = band.hi, .holds = holds});
  return holds;
}

template <typename Tell>
bool IsHigh(float height, float limit, Tell& tell) noexcept {
  const bool holds = height > limit;
  tell.Comparison({.side = HighReflSide::kHeight,
                   .value = height,
                   .above = limit,
                   .up_to = kNoLimit,
                   .holds = holds});
  return holds;
}

// A strong near echo 0 with a weaker echo 1 some gap beyond it; the shape of echo 1 decides.
template <typename Tell>
bool RuleA(const HighReflCheck& check, const LidarEcho& first, const LidarEcho& second,
           Tell& tell) noexcept {
  using enum HighReflSide;
  if (!check.rule_a_enable || !(second.dist_raw > 0.0F)) return false;
  tell.Rule(HighReflRule::kA);
  if (!IsHigh(first.cogh, check.rule_a_height, tell)) return false;
  if (!check.rule_a_range_on || !InBand(kRange, first.dist_raw, check.rule_a_range, tell)) {
    return false;
  }
  const float gap = second.dist_raw - first.dist_raw;
  if (!check.rule_a_gap_on || !InBand(kGap, gap, check.rule_a_gap, tell)) return false;
  if (check.rule_a_height2_on && InBand(kSecondHeight, second.cogh, check.rule_a_height2, tell)) {
    return true;
  }
  if (check.rule_a_rms_on && check.rule_a_rms_gate) {
    return InBand(kSecondHeight, second.cogh, check.rule_a_height2_rms, tell) &&
           InBand(kSecondRms, second.waveform_rms_ratio, check.rule_a_rms, tell);
  }
  return !check.rule_a_height2_on && check.rule_a_height2_low_on &&
         InBand(kSecondHeight, second.cogh, check.rule_a_height2_low, tell);
}

// Echo 1 at twice the range of echo 0: light that made the round trip twice.
template <typename Tell>
bool RuleB(const HighReflCheck& check, const LidarEcho& first, const LidarEcho& second,
           Tell& tell) noexcept {
  if (!check.rule_b_enable || !(second.dist_raw > 0.0F)) return false;
  tell.Rule(HighReflRule::kB);
  const float from_double = second.dist_raw - (first.dist_raw + first.dist_raw);
  const auto is_double = [&] {
    const bool holds = std::fabs(from_double) <= check.rule_b_double_tol;
    tell.Comparison({.side = HighReflSide::kFromDouble,
                     .value = std::fabs(from_double),
                     .above = -kNoLimit,
                     .up_to = check.rule_b_double_tol,
                     .holds = holds});
    return holds;
  };
  return IsHigh(first.cogh, check.rule_b_height, tell) && check.rule_b_range_on &&
         InBand(HighReflSide::kRange, first.dist_raw, check.rule_b_range, tell) && is_double();
}

// A strong echo 0 at a distance, whatever follows.
template <typename Tell>
bool RuleC(const HighReflCheck& check, const LidarEcho& first, Tell& tell) noexcept {
  if (!check.rule_c_enable) return false;
  tell.Rule(HighReflRule::kC);
  return IsHigh(first.cogh, check.rule_c_height, tell) && check.rule_c_range_on &&
         InBand(HighReflSide::kRange, first.dist_raw, check.rule_c_range, tell);
}

// A weak echo 1 just beyond a fairly strong echo 0: an after-pulse, but no bright target.
template <typename Tell>
bool RuleD(const HighReflCheck& check, const LidarEcho& first, const LidarEcho& second,
           Tell& tell) noexcept {
  using enum HighReflSide;
  if (!check.rule_d_enable || !(second.dist_raw > 0.0F)) return false;
  tell.Rule(HighReflRule::kD);
  const float gap = second.dist_raw - first.dist_raw;
  return IsHigh(first.cogh, check.rule_d_height, tell) && check.rule_d_gap_on &&
         InBand(kGap, gap, check.rule_d_gap, tell) && check.rule_d_height2_on &&
         InBand(kSecondHeight, second.cogh, check.rule_d_height2, tell);
}

// `second` is null when one echo slot is in use. The first rule that holds decides. No verdict for
// an echo 0 without a range.
template <typename Tell>
void CheckPixel(const HighReflCheck& check, LidarEcho& first, LidarEcho* second,
                Tell& tell) noexcept {
  if (second != nullptr) second->afterPulse = false;
  if (!(first.dist_raw > 0.0F)) return;
  const auto follow = [&] {
    if (second != nullptr && second->dist_raw > 0.0F) second->afterPulse = true;
  };
  const auto decide = [&](bool by_rule) {
    tell.Verdict({.by_rule = by_rule,
                  .high_refl = first.highRefl,
                  .after_pulse = second != nullptr && second->afterPulse});
  };
  if (first.highRefl) {  // from the baseline's rise
    tell.Rule(HighReflRule::kBaselineRise);
    if (IsHigh(first.cogh, check.rule_c_height, tell)) {
      follow();
      decide(true);
      return;
    }
    first.highRefl = false;
  }
  if (second != nullptr &&
      (RuleA(check, first, *second, tell) || RuleB(check, first, *second, tell))) {
    first.highRefl = true;
    second->afterPulse = true;
    decide(true);
  } else if (RuleC(check, first, tell)) {
    first.highRefl = true;
    follow();
    decide(true);
  } else if (second != nullptr && RuleD(check, first, *second, tell)) {
    second->afterPulse = true;
    decide(true);
  } else {
    decide(false);
  }
}

}  // namespace kerul::lidar::point_calibration
