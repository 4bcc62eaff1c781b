#include <cmath>

#include "reference/packet_calibration.h"

namespace reference {
namespace {

using kerul::lidar::HighReflBand;
using kerul::lidar::HighReflCheck;

bool InBand(float v, const HighReflBand& band) { return v > band.lo && v <= band.hi; }

bool RuleA(const HighReflCheck& check, const LidarEcho& e0, const LidarEcho& e1) {
  const float d0 = e0.dist_raw;
  const float d1 = e1.dist_raw;
  const float h1 = e1.cogh;
  if (!check.rule_a_enable) return false;
  if (!(d1 > 0.0F)) return false;
  if (!(e0.cogh > check.rule_a_height)) return false;
  if (!check.rule_a_range_on || !InBand(d0, check.rule_a_range)) return false;
  if (!check.rule_a_gap_on || !InBand(d1 - d0, check.rule_a_gap)) return false;
  // The shape of echo 1 decides.
  if (check.rule_a_height2_on && InBand(h1, check.rule_a_height2)) return true;
  if (check.rule_a_rms_on && check.rule_a_rms_gate) {
    return InBand(h1, check.rule_a_height2_rms) && InBand(e1.waveform_rms_ratio, check.rule_a_rms);
  }
  return !check.rule_a_height2_on && check.rule_a_height2_low_on &&
         InBand(h1, check.rule_a_height2_low);
}

bool RuleB(const HighReflCheck& check, const LidarEcho& e0, const LidarEcho& e1) {
  const float d0 = e0.dist_raw;
  const float d1 = e1.dist_raw;
  if (!check.rule_b_enable) return false;
  if (!(d1 > 0.0F)) return false;
  return e0.cogh > check.rule_b_height && check.rule_b_range_on && InBand(d0, check.rule_b_range) &&
         std::fabs(d1 - (d0 + d0)) <= check.rule_b_double_tol;
}

bool RuleC(const HighReflCheck& check, const LidarEcho& e0) {
  return check.rule_c_enable && e0.cogh > check.rule_c_height && check.rule_c_range_on &&
         InBand(e0.dist_raw, check.rule_c_range);
}

bool RuleD(const HighReflCheck& check, const LidarEcho& e0, const LidarEcho& e1) {
  if (!check.rule_d_enable) return false;
  if (!(e1.dist_raw > 0.0F)) return false;
  return e0.cogh > check.rule_d_height && check.rule_d_gap_on &&
         InBand(e1.dist_raw - e0.dist_raw, check.rule_d_gap) && check.rule_d_height2_on &&
         InBand(e1.cogh, check.rule_d_height2);
}

void CheckPoint(const HighReflCheck& check, LidarPoint& point) {
  LidarEcho& e0 = point.echoes[0];
  LidarEcho& e1 = point.echoes[1];
  const bool second_slot = LidarPoint::echo_num >= 2;

  if (second_slot) e1.afterPulse = false;
  if (!(e0.dist_raw > 0.0F)) return;
  if (e0.highRefl) {
    if (e0.cogh > check.rule_c_height) {
      if (second_slot && e1.dist_raw > 0.0F) e1.afterPulse = true;
      return;
    }
    e0.highRefl = false;
  }
  if (second_slot && (RuleA(check, e0, e1) || RuleB(check, e0, e1))) {
    e0.highRefl = true;
    e1.afterPulse = true;
    return;
  }
  if (RuleC(check, e0)) {
    e0.highRefl = true;
    if (second_slot && e1.dist_raw > 0.0F) e1.afterPulse = true;
    return;
  }
  if (second_slot && RuleD(check, e0, e1)) e1.afterPulse = true;
}

}  // namespace

void CheckHighRefl(const HighReflCheck& check, std::vector<LidarPoint>& points) {
  for (LidarPoint& point : points) CheckPoint(check, point);
}

}  // namespace reference
