#include "MIPI_reader/node/point_calibration/pulse_curve.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace kerul::lidar {
namespace {

// Entry i is i squared.
std::vector<float> Squares() {
  std::vector<float> curve;
  for (int i = 0; i < 512; ++i) curve.push_back(static_cast<float>(i * i));
  return curve;
}

TEST(ReadCurve, IsLinearBetweenEntries) {
  const std::vector<float> curve = Squares();
  EXPECT_EQ(ReadCurve(curve, 0.0F).value, 0.0F);
  EXPECT_EQ(ReadCurve(curve, 3.0F).value, 9.0F);
  EXPECT_EQ(ReadCurve(curve, 3.25F).value, 9.0F + 7.0F * 0.25F);
  EXPECT_EQ(ReadCurve(curve, 510.5F).value, (260100.0F + 261121.0F) / 2.0F);
}

TEST(ReadCurve, TakesTheLastEntryAtAndAboveIt) {
  const std::vector<float> curve = Squares();
  for (const float height : {511.0F, 511.75F, 512.0F, 3000.0F, 1e30F, INFINITY}) {
    EXPECT_EQ(ReadCurve(curve, height).value, 261121.0F);
  }
}

TEST(ReadCurve, ExtrapolatesJustBelowZeroAndIsFlatFartherDown) {
  std::vector<float> curve = Squares();
  curve[0] = 5.0F;
  EXPECT_EQ(ReadCurve(curve, -0.5F).value, 7.0F);  // truncation toward zero keeps entries 0 and 1
  EXPECT_EQ(ReadCurve(curve, -1.5F).value, 5.0F - 4.0F * 0.0F);
  EXPECT_EQ(ReadCurve(curve, -1e30F).value, 5.0F);
}

TEST(ReadCurve, TellsTheEntriesReadAndTheWayBetweenThem) {
  const std::vector<float> curve = Squares();
  const CurveReading between = ReadCurve(curve, 3.25F);
  EXPECT_EQ(between.index, 3);
  EXPECT_EQ(between.lower, 9.0F);
  EXPECT_EQ(between.upper, 16.0F);
  EXPECT_EQ(between.fraction, 0.25F);
  EXPECT_EQ(ReadCurve(curve, 600.0F).index, 511);
  EXPECT_EQ(ReadCurve(curve, -1.5F).index, 0);
}

TEST(ReadCurve, NanStaysNan) { EXPECT_TRUE(std::isnan(ReadCurve(Squares(), std::nanf("")).value)); }

}  // namespace
}  // namespace kerul::lidar
