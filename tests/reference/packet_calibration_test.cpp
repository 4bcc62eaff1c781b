#include "reference/packet_calibration.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace reference {
namespace {

TEST(ReferenceCalibration, EnvironmentRaisesHeightAndShiftsRange) {
  LidarPoint::echo_num = 1;
  EnvironmentTables tables;
  tables.env_cogh.assign(1024, 0.5F);
  tables.env_cogh_high.assign(1024, 0.25F);
  tables.env_cogt = {2.0F, 5.0F, 3.0F, 4.0F};
  tables.bias = 15.0F;
  std::vector<LidarPoint> points(2);
  for (LidarPoint& point : points) {
    point.echoes[0].dist_raw = 10.0F;
    point.echoes[0].cogh = 5.0F;
    point.echoes[0].noise = 2.0F;
  }
  points[1].echoes[0].cogw_flag = 2;
  CompensateForEnvironment(tables, points);
  EXPECT_FLOAT_EQ(points[0].echoes[0].cogh, 15.0F);
  EXPECT_FLOAT_EQ(points[1].echoes[0].cogh, 10.0F);
  // (15 - 5) * -2 * (6 + 4 + 4) * 0.15 = -42.
  EXPECT_FLOAT_EQ(points[0].echoes[0].dist_raw, -32.0F);
}

TEST(ReferenceCalibration, RangeIsCorrectedByCurveAndPixel) {
  LidarPoint::echo_num = 1;
  RangeTables tables;
  tables.curve.assign(512, 0.0F);
  tables.curve[3] = 100.0F;
  tables.curve[4] = 300.0F;
  tables.curve[511] = 40.0F;
  tables.offset.assign(82944, 0.0F);
  tables.offset[(1 * 48 + 2) * 36 + 3 * 6 + 1] = 60.0F;  // row 7, column 15
  std::vector<LidarPoint> points(4);
  for (LidarPoint& point : points) {
    point.row = 7;
    point.col = 15;
    point.echoes[0].dist_raw = 10.0F;
    point.echoes[0].cogh = 3.25F;
  }
  points[1].col = 16;
  points[2].echoes[0].cogh = std::numeric_limits<float>::infinity();
  points[3].echoes[0].dist_raw = 0.1F;
  CorrectRange(tables, points);
  EXPECT_NEAR(points[0].echoes[0].dist_raw, 10.0 - 210.0 * 0.14989623 / 64.0, 1e-6);
  EXPECT_EQ(points[1].echoes[0].dist_raw, 0.0F);
  EXPECT_NEAR(points[2].echoes[0].dist_raw, 10.0 - 100.0 * 0.14989623 / 64.0, 1e-6);
  EXPECT_EQ(points[3].echoes[0].dist_raw, 0.004F);
}

TEST(ReferenceCalibration, HeightsAreMappedBetweenEntries) {
  LidarPoint::echo_num = 1;
  const HeightMapTables tables{{0.0F, 10.0F, 20.0F}, {1.0F, 5.0F, 20.0F}};
  std::vector<LidarPoint> points(4);
  const float heights[4] = {15.0F, -1.0F, 25.0F, 15.0F};
  const float expected[4] = {12.5F, 1.0F, 20.0F, 15.0F};
  for (std::size_t i = 0; i < 4; ++i) {
    points[i].echoes[0].dist_raw = 1.0F;
    points[i].echoes[0].cogw_flag = i == 3 ? 1 : 2;
    points[i].echoes[0].cogh = heights[i];
  }
  MapHeights(tables, points);
  for (std::size_t i = 0; i < 4; ++i) EXPECT_FLOAT_EQ(points[i].echoes[0].cogh, expected[i]);
}

TEST(ReferenceCalibration, ReflectivityIsAPowerLaw) {
  LidarPoint::echo_num = 1;
  ReflectivityTables tables;
  tables.retro_curve.assign(512, 3.0F);
  tables.retro_scale.assign(82944, 1.0F);
  std::vector<LidarPoint> points(1);
  LidarEcho& e = points[0].echoes[0];
  e.dist_raw = 16.0F * 0.14989623F;  // log2 is 4
  e.cogh = 7.0F;
  CalibrateReflectivity(tables, points);
  EXPECT_EQ(e.power, 8.0F);
  EXPECT_EQ(e.refl_raw, 16.0F);  // 2^(4 + 4 + 3 - 1 - 6)

  tables.cogh_efficiant.assign(600, 4.0F);  // adds 4 - 2
  CalibrateReflectivity(tables, points);
  EXPECT_EQ(e.refl_raw, 64.0F);

  tables.retro_filter.assign(31, 65.0F);
  CalibrateReflectivity(tables, points);
  EXPECT_EQ(e.dist_raw, 0.0F);
  EXPECT_EQ(e.refl_raw, 0.0F);

  e.dist_raw = 2.0F;
  e.highRefl = true;
  CalibrateReflectivity(tables, points);
  EXPECT_EQ(e.refl_raw, 255.0F);
  EXPECT_EQ(e.power, 5242880.0F);
}

kerul::lidar::HighReflCheck DefaultRules() {
  kerul::lidar::HighReflCheck check;
  check.enable = true;
  check.rule_b_enable = true;
  check.rule_b_height = 253.0F;
  check.rule_b_range = {2.7F, 7.0F};
  check.rule_b_range_on = true;
  check.rule_b_double_tol = 0.6F;
  check.rule_c_enable = true;
  check.rule_c_height = 250.0F;
  check.rule_c_range = {7.0F, 50.0F};
  check.rule_c_range_on = true;
  return check;
}

TEST(ReferenceCalibration, ASecondEchoAtTwiceTheRangeMarks) {
  LidarPoint::echo_num = 2;
  std::vector<LidarPoint> points(1);
  LidarEcho* e = points[0].echoes;
  e[0].dist_raw = 3.0F;
  e[0].cogh = 254.0F;
  e[1].dist_raw = 6.2F;
  CheckHighRefl(DefaultRules(), points);
  EXPECT_TRUE(e[0].highRefl);
  EXPECT_TRUE(e[1].afterPulse);

  // The flag that the echo computation set needs a height above 250 to stay.
  e[0].cogh = 250.0F;
  CheckHighRefl(DefaultRules(), points);
  EXPECT_FALSE(e[0].highRefl);
  EXPECT_FALSE(e[1].afterPulse);
  e[0].highRefl = true;
  e[0].cogh = 251.0F;
  CheckHighRefl(DefaultRules(), points);
  EXPECT_TRUE(e[0].highRefl);
  EXPECT_TRUE(e[1].afterPulse);
}

}  // namespace
}  // namespace reference
