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

TEST(CurveAt, IsLinearBetweenEntries) {
  const std::vector<float> curve = Squares();
  EXPECT_EQ(CurveAt(curve, 0.0F), 0.0F);
  EXPECT_EQ(CurveAt(curve, 3.0F), 9.0F);
  EXPECT_EQ(CurveAt(curve, 3.25F), 9.0F + 7.0F * 0.25F);
  EXPECT_EQ(CurveAt(curve, 510.5F), (260100.0F + 261121.0F) / 2.0F);
}

TEST(CurveAt, TakesTheLastEntryAtAndAboveIt) {
  const std::vector<float> curve = Squares();
  for (const float height : {511.0F, 511.75F, 512.0F, 3000.0F, 1e30F, INFINITY}) {
    EXPECT_EQ(CurveAt(curve, height), 261121.0F);
  }
}

TEST(CurveAt, ExtrapolatesJustBelowZeroAndIsFlatFartherDown) {
  std::vector<float> curve = Squares();
  curve[0] = 5.0F;
  EXPECT_EQ(CurveAt(curve, -0.5F), 7.0F);  // truncation toward zero keeps entries 0 and 1
  EXPECT_EQ(CurveAt(curve, -1.5F), 5.0F - 4.0F * 0.0F);
  EXPECT_EQ(CurveAt(curve, -1e30F), 5.0F);
}

TEST(CurveAt, NanStaysNan) { EXPECT_TRUE(std::isnan(CurveAt(Squares(), std::nanf("")))); }

}  // namespace
}  // namespace kerul::lidar
