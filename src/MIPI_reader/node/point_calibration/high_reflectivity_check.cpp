#include <cmath>

#include "MIPI_reader/node/point_calibration/calibration_tables.h"
#include "MIPI_reader/node/point_calibration/packet_calibration.h"

namespace kerul::lidar {
namespace {

// NaN lies in no band.
bool InBand(float value, const HighReflBand& band) noexcept {
  return value > band.lo && value <= band.hi;
}

// A strong near echo 0 with a weaker echo 1 some gap beyond it; the shape of echo 1 decides.
bool RuleA(const HighReflCheck& check, const LidarEcho& first, const LidarEcho& second) noexcept {
  if (!check.rule_a_enable || !(second.dist_raw > 0.0F)) return false;
  if (!(first.cogh > check.rule_a_height)) return false;
  if (!check.rule_a_range_on || !InBand(first.dist_raw, check.rule_a_range)) return false;
  if (!check.rule_a_gap_on || !InBand(second.dist_raw - first.dist_raw, check.rule_a_gap)) {
    return false;
  }
  if (check.rule_a_height2_on && InBand(second.cogh, check.rule_a_height2)) return true;
  if (check.rule_a_rms_on && check.rule_a_rms_gate) {
    return InBand(second.cogh, check.rule_a_height2_rms) &&
           InBand(second.waveform_rms_ratio, check.rule_a_rms);
  }
  return !check.rule_a_height2_on && check.rule_a_height2_low_on &&
         InBand(second.cogh, check.rule_a_height2_low);
}

// Echo 1 at twice the range of echo 0: light that made the round trip twice.
bool RuleB(const HighReflCheck& check, const LidarEcho& first, const LidarEcho& second) noexcept {
  if (!check.rule_b_enable || !(second.dist_raw > 0.0F)) return false;
  const float from_double = second.dist_raw - (first.dist_raw + first.dist_raw);
  return first.cogh > check.rule_b_height && check.rule_b_range_on &&
         InBand(first.dist_raw, check.rule_b_range) &&
         std::fabs(from_double) <= check.rule_b_double_tol;
}

// A strong echo 0 at a distance, whatever follows.
bool RuleC(const HighReflCheck& check, const LidarEcho& first) noexcept {
  return check.rule_c_enable && first.cogh > check.rule_c_height && check.rule_c_range_on &&
         InBand(first.dist_raw, check.rule_c_range);
}

// A weak echo 1 just beyond a fairly strong echo 0: an after-pulse, but no bright target.
bool RuleD(const HighReflCheck& check, const LidarEcho& first, const LidarEcho& second) noexcept {
  if (!check.rule_d_enable || !(second.dist_raw > 0.0F)) return false;
  return first.cogh > check.rule_d_height && check.rule_d_gap_on &&
         InBand(second.dist_raw - first.dist_raw, check.rule_d_gap) && check.rule_d_height2_on &&
         InBand(second.cogh, check.rule_d_height2);
}

// `second` is null when one echo slot is in use. The first rule that holds decides.
void CheckPixel(const HighReflCheck& check, LidarEcho& first, LidarEcho* second) noexcept {
  if (second != nullptr) second->afterPulse = false;
  if (!(first.dist_raw > 0.0F)) return;
  const auto follow = [&] {
    if (second != nullptr && second->dist_raw > 0.0F) second->afterPulse = true;
  };
  if (first.highRefl) {  // from the baseline's rise
    if (first.cogh > check.rule_c_height) {
      follow();
      return;
    }
    first.highRefl = false;
  }
  if (second != nullptr && (RuleA(check, first, *second) || RuleB(check, first, *second))) {
    first.highRefl = true;
    second->afterPulse = true;
  } else if (RuleC(check, first)) {
    first.highRefl = true;
    follow();
  } else if (second != nullptr && RuleD(check, first, *second)) {
    second->afterPulse = true;
  }
}

}  // namespace

void CheckPixelReflectivity(const HighReflCheck& check, int echo_num, LidarPoint& point) noexcept {
  CheckPixel(check, point.echoes[0], echo_num != 1 ? &point.echoes[1] : nullptr);
}

void CheckHighReflectivity(const HighReflCheck& check, std::span<LidarPoint> points) noexcept {
  const int echo_num = LidarPoint::echo_num;
  for (LidarPoint& point : points) CheckPixelReflectivity(check, echo_num, point);
}

}  // namespace kerul::lidar
