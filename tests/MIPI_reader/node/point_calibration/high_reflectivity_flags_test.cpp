// Flags, shared ranges and borders of the high reflectivity rules.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "MIPI_reader/node/point_calibration/packet_calibrator.h"
#include "support/kernel_forms.h"

namespace kerul::lidar {
namespace {

// A point that fulfils the one rule that is on.
class HighReflectivityFlags : public FormsTest {
 protected:
  HighReflectivityFlags() {
    LidarPoint::echo_num = 2;
    check.enable = true;
    first.dist_raw = 3.0F;
    first.cogh = 300.0F;
    second.dist_raw = 9.0F;
    second.cogh = 20.0F;
  }
  ~HighReflectivityFlags() override { LidarPoint::echo_num = 1; }

  void UseRuleA() {
    check.rule_a_enable = check.rule_a_range_on = check.rule_a_gap_on = true;
    check.rule_a_height2_on = true;
    check.rule_a_height = 255.0F;
    check.rule_a_range = {0.8F, 5.0F};
    check.rule_a_gap = {-8.0F, 8.0F};
    check.rule_a_height2 = {12.0F, 512.0F};
  }
  void UseRuleB() {
    check.rule_b_enable = check.rule_b_range_on = true;
    check.rule_b_height = 253.0F;
    check.rule_b_range = {0.5F, 7.0F};
    check.rule_b_double_tol = 6.0F;
  }
  void UseRuleC() {
    check.rule_c_enable = check.rule_c_range_on = true;
    check.rule_c_height = 250.0F;
    check.rule_c_range = {2.0F, 50.0F};
  }
  void UseRuleD() {
    check.rule_d_enable = check.rule_d_gap_on = check.rule_d_height2_on = true;
    check.rule_d_height = 170.0F;
    check.rule_d_gap = {-8.0F, 8.0F};
    check.rule_d_height2 = {0.0F, 20.0F};
  }

  // Whether a rule held: A to C mark echo 0, D marks echo 1 alone.
  bool Holds() const {
    std::vector<LidarPoint> points(1);
    points[0].echoes[0] = first;
    points[0].echoes[1] = second;
    PacketCalibrator({.high_refl_check = &check}).Calibrate(points);
    return points[0].echoes[0].highRefl || points[0].echoes[1].afterPulse;
  }
  // That a rule which holds fails with this flag clear.
  void ExpectNeeded(bool HighReflCheck::*flag) {
    EXPECT_TRUE(Holds());
    check.*flag = false;
    EXPECT_FALSE(Holds());
    check.*flag = true;
  }

  HighReflCheck check;
  LidarEcho first;
  LidarEcho second;
};
RUN_IN_EVERY_FORM(HighReflectivityFlags);

TEST_P(HighReflectivityFlags, AClearFlagFailsRuleA) {
  UseRuleA();
  ExpectNeeded(&HighReflCheck::rule_a_range_on);
  ExpectNeeded(&HighReflCheck::rule_a_gap_on);
}

TEST_P(HighReflectivityFlags, AClearFlagFailsRuleB) {
  UseRuleB();
  ExpectNeeded(&HighReflCheck::rule_b_range_on);
}

TEST_P(HighReflectivityFlags, AClearFlagFailsRuleC) {
  UseRuleC();
  ExpectNeeded(&HighReflCheck::rule_c_range_on);
}

TEST_P(HighReflectivityFlags, AClearFlagFailsRuleD) {
  UseRuleD();
  ExpectNeeded(&HighReflCheck::rule_d_gap_on);
  ExpectNeeded(&HighReflCheck::rule_d_height2_on);
}

TEST_P(HighReflectivityFlags, RulesAAndBAndDNeedARangeOfTheSecondEcho) {
  // Bands that a second echo without a range would lie in.
  const auto expect_range_needed = [this] {
    for (const float range : {0.0F, -1.0F, 0.5F}) {
      second.dist_raw = range;
      EXPECT_EQ(Holds(), range > 0.0F) << range;
    }
    check = HighReflCheck{};
    check.enable = true;
  };
  UseRuleA();
  expect_range_needed();
  UseRuleB();
  check.rule_b_double_tol = 7.0F;
  expect_range_needed();
  UseRuleD();
  expect_range_needed();
}

TEST_P(HighReflectivityFlags, TheSecondTestOfRuleAShutsOutTheThird) {
  UseRuleA();
  check.rule_a_height2_on = false;
  check.rule_a_height2_low_on = true;
  check.rule_a_height2_low = {0.0F, 50.0F};
  check.rule_a_height2_rms = {0.0F, 50.0F};
  check.rule_a_rms = {0.6F, 1.0F};
  second.waveform_rms_ratio = 0.5F;  // fails the second test
  EXPECT_TRUE(Holds());
  check.rule_a_rms_on = true;
  EXPECT_TRUE(Holds());  // one of two flags does not switch it on
  check.rule_a_rms_gate = true;
  EXPECT_FALSE(Holds());
  check.rule_a_rms_on = false;
  EXPECT_TRUE(Holds());
}

TEST_P(HighReflectivityFlags, TheFirstTestOfRuleAShutsOutTheThird) {
  UseRuleA();
  check.rule_a_height2 = {30.0F, 512.0F};  // not the second echo's 20
  check.rule_a_height2_low_on = true;
  check.rule_a_height2_low = {0.0F, 50.0F};
  EXPECT_FALSE(Holds());
  check.rule_a_height2_on = false;
  EXPECT_TRUE(Holds());
}

TEST_P(HighReflectivityFlags, RuleBDoublesTheFirstRangeBeforeItSubtracts) {
  UseRuleB();
  first.dist_raw = std::nextafter(1.0F, 2.0F);
  second.dist_raw = 0x1p-24F;
  check.rule_b_double_tol = 2.0F;
  // 2^-24 - (2 + 2^-22) rounds to -(2 + 2^-22). Taken off twice it would be rounded to -1 first.
  EXPECT_FALSE(Holds());
  check.rule_b_double_tol = std::nextafter(2.0F, 3.0F);
  EXPECT_TRUE(Holds());
}

// ---- Borders of the range calibration and the reflectivity ----

class CalibrationBorders : public FormsTest {
 protected:
  CalibrationBorders() : points(1) {}
  LidarEcho& Echo() { return points[0].echoes[0]; }

  std::vector<LidarPoint> points;
};
RUN_IN_EVERY_FORM(CalibrationBorders);

TEST_P(CalibrationBorders, ARangeThatIsCorrectedToZeroStaysZero) {
  DistCalib dist(std::vector<float>(512, 1.0F), std::vector<float>(82944, 1.0F), {});
  dist.scale = 64.0F;  // the correction is 2 * 64 / 64
  Echo().dist_raw = 2.0F;
  Echo().cogh = 10.0F;
  PacketCalibrator({.dist = &dist}).Calibrate(points);
  EXPECT_EQ(Echo().dist_raw, 0.0F);
  Echo().dist_raw = std::nextafter(2.0F, 0.0F);
  PacketCalibrator({.dist = &dist}).Calibrate(points);
  EXPECT_EQ(Echo().dist_raw, 0.004F);
}

TEST_P(CalibrationBorders, TheNearTermEndsAfterItsLastRange) {
  // All 3: the term is 1, which doubles the reflectivity up to 9.900001 m and not beyond.
  const float last = 9.900001F;
  const std::vector<float> curve(512, 0.0F);
  const std::vector<float> scale(82944, 2.0F);
  const RetroCalib plain(curve, scale, {}, {}, {});
  const RetroCalib near(curve, scale, {}, std::vector<float>(600, 3.0F), {});
  for (const float range : {last, std::nextafter(last, 10.0F)}) {
    const auto reflectivity = [&](const RetroCalib& retro) {
      Echo().dist_raw = range;
      Echo().cogh = 10.0F;
      PacketCalibrator({.retro = &retro}).Calibrate(points);
      return Echo().refl_raw;
    };
    const float without = reflectivity(plain);
    EXPECT_GT(without, 1.0F);
    // Two to an exponent that is one more: a few roundings.
    EXPECT_FLOAT_EQ(reflectivity(near), range == last ? 2.0F * without : without);
  }
}

TEST(RetroTrace, ANegativePlaceIsNeverTraced) {
  LidarPoint::echo_num = 1;
  HighReflCheck check;
  check.trace_enable = true;
  for (const bool negative_row : {false, true}) {
    check.trace_row = negative_row ? -1 : 0;
    check.trace_col = negative_row ? 0 : -1;
    const RetroCalib retro(std::vector<float>(512), std::vector<float>(82944, 1.0F), check, {}, {});
    std::vector<LidarPoint> points(1);
    points[0].row = check.trace_row;
    points[0].col = check.trace_col;
    points[0].echoes[0].highRefl = true;
    ::testing::internal::CaptureStdout();
    retro.calib_points(points);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  }
}

}  // namespace
}  // namespace kerul::lidar
