#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "MIPI_reader/node/point_calibration/packet_calibrator.h"
#include "support/kernel_forms.h"

namespace kerul::lidar {
namespace {

// The product's settings of the four rules.
HighReflCheck DefaultRules() {
  HighReflCheck check;
  check.enable = true;
  check.rule_a_enable = true;
  check.rule_a_height = 255.0F;
  check.rule_a_range = {0.8F, 5.0F};
  check.rule_a_range_on = true;
  check.rule_a_gap = {4.0F, 8.0F};
  check.rule_a_gap_on = true;
  check.rule_a_height2 = {12.0F, 512.0F};
  check.rule_a_height2_on = true;
  check.rule_a_height2_rms = {8.0F, 512.0F};
  check.rule_a_rms_on = true;
  check.rule_a_rms = {0.6F, 1.0F};
  check.rule_a_rms_gate = true;
  check.rule_b_enable = true;
  check.rule_b_height = 253.0F;
  check.rule_b_range = {2.7F, 7.0F};
  check.rule_b_range_on = true;
  check.rule_b_double_tol = 0.6F;
  check.rule_c_enable = true;
  check.rule_c_height = 250.0F;
  check.rule_c_range = {7.0F, 50.0F};
  check.rule_c_range_on = true;
  check.rule_d_enable = true;
  check.rule_d_height = 170.0F;
  check.rule_d_gap = {1.0F, 2.5F};
  check.rule_d_gap_on = true;
  check.rule_d_height2 = {0.0F, 20.0F};
  check.rule_d_height2_on = true;
  return check;
}

enum Outcome { kNothing, kAfterPulse, kHighRefl, kBoth };

class HighReflectivityTest : public FormsTest {
 protected:
  HighReflectivityTest() { LidarPoint::echo_num = 2; }
  ~HighReflectivityTest() override { LidarPoint::echo_num = 1; }

  void Calibrate(std::vector<LidarPoint>& points) const {
    PacketCalibrator({.high_refl_check = &check}).Calibrate(points);
  }

  // d0, h0 and d1, h1 as the rules call them.
  Outcome Check(float d0, float h0, float d1, float h1, float rms1 = 0.0F) {
    std::vector<LidarPoint> points(1);
    points[0].echoes[0].dist_raw = d0;
    points[0].echoes[0].cogh = h0;
    points[0].echoes[0].highRefl = already_set;
    points[0].echoes[1].dist_raw = d1;
    points[0].echoes[1].cogh = h1;
    points[0].echoes[1].waveform_rms_ratio = rms1;
    points[0].echoes[1].afterPulse = stale_after_pulse;
    Calibrate(points);
    EXPECT_FALSE(points[0].echoes[0].afterPulse);
    EXPECT_FALSE(points[0].echoes[1].highRefl);
    const int high = points[0].echoes[0].highRefl ? 2 : 0;
    return static_cast<Outcome>(high + (points[0].echoes[1].afterPulse ? 1 : 0));
  }

  HighReflCheck check = DefaultRules();
  bool already_set = false;
  bool stale_after_pulse = true;
};
RUN_IN_EVERY_FORM(HighReflectivityTest);

TEST_P(HighReflectivityTest, APlainPointIsNotMarkedAndLosesAStaleAfterPulse) {
  EXPECT_EQ(Check(3.0F, 100.0F, 8.0F, 30.0F), kNothing);
  EXPECT_EQ(Check(0.0F, 300.0F, 8.0F, 30.0F), kNothing);
  EXPECT_EQ(Check(std::nanf(""), 300.0F, 8.0F, 30.0F), kNothing);
}

TEST_P(HighReflectivityTest, AFlagFromTheEchoComputationStaysWithAGreatHeight) {
  already_set = true;
  EXPECT_EQ(Check(1.0F, 251.0F, 2.0F, 30.0F), kBoth);
  EXPECT_EQ(Check(1.0F, 251.0F, 0.0F, 30.0F), kHighRefl);
  EXPECT_EQ(Check(1.0F, 250.0F, 2.0F, 30.0F), kNothing);     // cleared, and no rule holds
  EXPECT_EQ(Check(1.0F, 250.0F, 2.5F, 10.0F), kAfterPulse);  // rule D decides again
  EXPECT_EQ(Check(0.0F, 100.0F, 2.0F, 30.0F), kHighRefl);    // no range: not looked at
}

TEST_P(HighReflectivityTest, RuleAMarksAStrongPairAtItsGap) {
  EXPECT_EQ(Check(2.0F, 256.0F, 7.0F, 13.0F), kBoth);
  EXPECT_EQ(Check(2.0F, 255.0F, 7.0F, 13.0F), kNothing);  // height not above
  EXPECT_EQ(Check(0.8F, 256.0F, 5.8F, 13.0F), kNothing);  // range: the lower limit is outside
  EXPECT_EQ(Check(5.0F, 256.0F, 13.0F, 13.0F), kBoth);    // range and gap at their upper limits
  EXPECT_EQ(Check(2.0F, 256.0F, 6.0F, 13.0F), kNothing);  // gap 4 is outside
  EXPECT_EQ(Check(2.0F, 256.0F, 10.5F, 13.0F), kNothing);
  EXPECT_EQ(Check(2.0F, 256.0F, 0.0F, 13.0F), kNothing);
  EXPECT_EQ(Check(2.0F, std::nanf(""), 7.0F, 13.0F), kNothing);
}

TEST_P(HighReflectivityTest, RuleASecondTestLooksAtTheWaveform) {
  EXPECT_EQ(Check(2.0F, 256.0F, 7.0F, 12.0F, 0.5F), kNothing);  // 12 fails the first test
  EXPECT_EQ(Check(2.0F, 256.0F, 7.0F, 12.0F, 0.6F), kNothing);
  EXPECT_EQ(Check(2.0F, 256.0F, 7.0F, 12.0F, 0.7F), kBoth);
  EXPECT_EQ(Check(2.0F, 256.0F, 7.0F, 8.0F, 0.7F), kNothing);
  EXPECT_EQ(Check(2.0F, 256.0F, 7.0F, 12.0F, std::nanf("")), kNothing);
}

TEST_P(HighReflectivityTest, RuleAThirdTestStandsInForTheFirst) {
  check.rule_a_height2_low = {2.0F, 9.0F};
  check.rule_a_height2_low_on = true;
  check.rule_a_rms_on = false;
  EXPECT_EQ(Check(2.0F, 256.0F, 7.0F, 9.0F), kNothing);  // the first test is still on
  check.rule_a_height2_on = false;
  EXPECT_EQ(Check(2.0F, 256.0F, 7.0F, 9.0F), kBoth);
  EXPECT_EQ(Check(2.0F, 256.0F, 7.0F, 2.0F), kNothing);
  check.rule_a_rms_on = true;  // with both switches the second test takes its place
  EXPECT_EQ(Check(2.0F, 256.0F, 7.0F, 9.0F), kNothing);
  check.rule_a_rms_gate = false;
  EXPECT_EQ(Check(2.0F, 256.0F, 7.0F, 9.0F), kBoth);
  check.rule_a_height2_low_on = false;
  EXPECT_EQ(Check(2.0F, 256.0F, 7.0F, 9.0F), kNothing);
}

TEST_P(HighReflectivityTest, RuleANeedsItsSwitches) {
  check.rule_a_range_on = false;
  EXPECT_EQ(Check(2.0F, 256.0F, 7.0F, 13.0F), kNothing);
  check = DefaultRules();
  check.rule_a_gap_on = false;
  EXPECT_EQ(Check(2.0F, 256.0F, 7.0F, 13.0F), kNothing);
  check = DefaultRules();
  check.rule_a_enable = false;
  EXPECT_EQ(Check(2.0F, 256.0F, 7.0F, 13.0F), kNothing);
}

TEST_P(HighReflectivityTest, RuleBMarksASecondEchoAtTwiceTheRange) {
  EXPECT_EQ(Check(3.0F, 253.5F, 6.2F, 5.0F), kBoth);
  EXPECT_EQ(Check(3.0F, 253.0F, 6.2F, 5.0F), kNothing);
  EXPECT_EQ(Check(3.0F, 253.5F, 5.5F, 30.0F), kBoth);
  EXPECT_EQ(Check(3.0F, 253.5F, 5.25F, 30.0F), kNothing);
  EXPECT_EQ(Check(2.5F, 253.5F, 5.0F, 30.0F), kNothing);
  check.rule_b_double_tol = 0.5F;
  EXPECT_EQ(Check(3.0F, 253.5F, 6.5F, 30.0F), kBoth);  // at the tolerance
  check.rule_b_range_on = false;
  EXPECT_EQ(Check(3.0F, 253.5F, 6.5F, 30.0F), kNothing);
  check = DefaultRules();
  check.rule_b_enable = false;
  EXPECT_EQ(Check(3.0F, 253.5F, 6.2F, 30.0F), kNothing);
  check = DefaultRules();
  EXPECT_EQ(Check(3.0F, 253.5F, std::nanf(""), 30.0F), kNothing);
}

TEST_P(HighReflectivityTest, RuleATakesOverToRuleBWhenItFails) {
  // Rule A: gap 4.5 fits, but the shape does not; rule B: 9.0 - 9.0 = 0 fits.
  EXPECT_EQ(Check(4.5F, 256.0F, 9.0F, 5.0F, 0.1F), kBoth);
}

TEST_P(HighReflectivityTest, RuleCNeedsNoSecondEcho) {
  EXPECT_EQ(Check(8.0F, 251.0F, 0.0F, 0.0F), kHighRefl);
  EXPECT_EQ(Check(8.0F, 251.0F, 20.0F, 100.0F), kBoth);
  EXPECT_EQ(Check(7.0F, 251.0F, 20.0F, 100.0F), kNothing);
  EXPECT_EQ(Check(50.0F, 251.0F, 0.0F, 0.0F), kHighRefl);
  EXPECT_EQ(Check(8.0F, 250.0F, 0.0F, 0.0F), kNothing);
  check.rule_c_range_on = false;
  EXPECT_EQ(Check(8.0F, 251.0F, 0.0F, 0.0F), kNothing);
  check = DefaultRules();
  check.rule_c_enable = false;
  EXPECT_EQ(Check(8.0F, 251.0F, 0.0F, 0.0F), kNothing);
}

TEST_P(HighReflectivityTest, RuleDMarksTheAfterPulseOnly) {
  EXPECT_EQ(Check(8.0F, 171.0F, 10.0F, 20.0F), kAfterPulse);
  EXPECT_EQ(Check(8.0F, 170.0F, 10.0F, 20.0F), kNothing);
  EXPECT_EQ(Check(8.0F, 171.0F, 9.0F, 20.0F), kNothing);
  EXPECT_EQ(Check(8.0F, 171.0F, 10.5F, 20.0F), kAfterPulse);
  EXPECT_EQ(Check(8.0F, 171.0F, 10.0F, 20.5F), kNothing);
  EXPECT_EQ(Check(8.0F, 171.0F, 10.0F, 0.0F), kNothing);
  check.rule_d_gap_on = false;
  EXPECT_EQ(Check(8.0F, 171.0F, 10.0F, 20.0F), kNothing);
  check = DefaultRules();
  check.rule_d_height2_on = false;
  EXPECT_EQ(Check(8.0F, 171.0F, 10.0F, 20.0F), kNothing);
  check = DefaultRules();
  check.rule_d_enable = false;
  EXPECT_EQ(Check(8.0F, 171.0F, 10.0F, 20.0F), kNothing);
}

TEST_P(HighReflectivityTest, WithOneEchoSlotOnlyRuleCSetsAnything) {
  LidarPoint::echo_num = 1;
  stale_after_pulse = false;
  EXPECT_EQ(Check(2.0F, 256.0F, 7.0F, 13.0F), kNothing);
  EXPECT_EQ(Check(3.0F, 253.5F, 6.2F, 5.0F), kNothing);
  EXPECT_EQ(Check(8.0F, 171.0F, 10.0F, 20.0F), kNothing);
  EXPECT_EQ(Check(8.0F, 251.0F, 20.0F, 100.0F), kHighRefl);
  already_set = true;
  EXPECT_EQ(Check(1.0F, 251.0F, 2.0F, 30.0F), kHighRefl);
  stale_after_pulse = true;  // and is not cleared either
  EXPECT_EQ(Check(1.0F, 100.0F, 2.0F, 30.0F), kAfterPulse);
}

TEST_P(HighReflectivityTest, EveryPointOfThePacketIsChecked) {
  std::vector<LidarPoint> points(9);
  for (LidarPoint& point : points) {
    point.echoes[0].dist_raw = 8.0F;
    point.echoes[0].cogh = 251.0F;
  }
  points[4].echoes[0].dist_raw = 0.0F;
  Calibrate(points);
  int marked = 0;
  for (const LidarPoint& point : points) marked += point.echoes[0].highRefl ? 1 : 0;
  EXPECT_EQ(marked, 8);
}

}  // namespace
}  // namespace kerul::lidar
