#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <vector>

#include "calibration/angle_calib.h"
#include "calibration/angle_records.h"

namespace kerul::lidar {
namespace {

using angle_calib_detail::BuildDistortionInterp;

struct Table {
  std::vector<float> radius{9.0F};  // replaced
  std::vector<float> theta{9.0F};
};

Table TableOf(float f, std::array<float, 4> k) {
  Table table;
  BuildDistortionInterp(f, k.data(), table.radius, table.theta);
  EXPECT_EQ(table.radius.size(), table.theta.size());
  return table;
}

TEST(DistortionTable, RunsInStepsOfAThousandthUpToItsLimit) {
  const Table table = TableOf(300.0F, {});  // up to 2.5
  ASSERT_GT(table.theta.size(), 3U);
  EXPECT_EQ(table.theta[0], 0.0F);
  EXPECT_EQ(table.theta[1], 0.001F);
  EXPECT_EQ(table.theta[2], 0.001F + 0.001F);
  EXPECT_EQ(table.radius, table.theta);  // no distortion
  EXPECT_NEAR(static_cast<double>(table.theta.size()), 2500.0, 1.0);
  EXPECT_LT(table.theta.back(), 2.5F);
}

TEST(DistortionTable, TheLimitItselfIsNoSample) {
  // 750 / 375000 is the float 0.002, which the second step does not stay below.
  EXPECT_EQ(TableOf(375000.0F, {}).theta, (std::vector<float>{0.0F, 0.001F}));
  EXPECT_EQ(TableOf(750000.0F, {}).theta, std::vector<float>{0.0F});
  EXPECT_EQ(TableOf(740000.0F, {}).theta, (std::vector<float>{0.0F, 0.001F}));
}

TEST(DistortionTable, HoldsTheOddPowers) {
  const Table table = TableOf(500.0F, {0.1F, 0.02F, 0.003F, 0.0004F});
  int compared = 0;
  for (std::size_t i = 0; i < table.theta.size(); i += 50) {
    const double a = table.theta[i];
    const double want = a + 0.1 * std::pow(a, 3) + 0.02 * std::pow(a, 5) + 0.003 * std::pow(a, 7) +
                        0.0004 * std::pow(a, 9);
    EXPECT_NEAR(table.radius[i], want, 1e-6 * (1.0 + want));  // a handful of roundings
    ++compared;
  }
  EXPECT_EQ(compared, 30);
}

TEST(DistortionTable, ThereIsNoneForABadFocalLength) {
  for (float f : {-300.0F, kInf, kNan}) {
    const Table table = TableOf(f, {});
    EXPECT_TRUE(table.radius.empty()) << f;
  }
}

TEST(DistortionTable, EndsAtTenMillionSamples) {
  EXPECT_GT(TableOf(0.08F, {}).radius.size(), 9'000'000U);
  EXPECT_TRUE(TableOf(0.07F, {}).radius.empty());
  EXPECT_TRUE(TableOf(1e-40F, {}).theta.empty());
}

TEST(DistortionTable, AConstantOrFallingCurveKeepsItsFirstSampleAlone) {
  EXPECT_EQ(TableOf(300.0F, {-1e9F, 0.0F, 0.0F, 0.0F}).radius, std::vector<float>{0.0F});
}

TEST(DistortionTable, ASampleAsHighAsTheLastIsDropped) {
  // The third power takes back exactly what the angle adds at the second sample.
  const float t3 = 0.001F * (0.001F * 0.001F);
  float k = -(0.001F / t3);
  while (t3 * k + 0.001F > 0.0F) k = std::nextafter(k, -kInf);
  while (t3 * k + 0.001F < 0.0F) k = std::nextafter(k, 0.0F);
  ASSERT_EQ(t3 * k + 0.001F, 0.0F);
  EXPECT_EQ(TableOf(375000.0F, {k, 0.0F, 0.0F, 0.0F}).theta, std::vector<float>{0.0F});
}

// Rises to 0.583 at 0.931, falls to 0.379 at 1.698, rises above its old height near 2.0.
constexpr std::array<float, 4> kFoldingLens{-0.5F, 0.08F, 0.0F, 0.0F};

// The entry after the gap that the falling part leaves.
std::size_t BehindTheGap(const Table& table) {
  std::size_t widest = 1;
  for (std::size_t i = 1; i < table.theta.size(); ++i) {
    if (table.theta[i] - table.theta[i - 1] > table.theta[widest] - table.theta[widest - 1]) {
      widest = i;
    }
  }
  return widest;
}

TEST(DistortionTable, ACurveThatFallsBackIsCutDownToItsRisingParts) {
  const Table table = TableOf(300.0F, kFoldingLens);
  EXPECT_TRUE(std::adjacent_find(table.radius.begin(), table.radius.end(),
                                 std::greater_equal<>()) == table.radius.end());
  const std::size_t hi = BehindTheGap(table);
  EXPECT_NEAR(table.theta[hi - 1], 0.931, 0.002);
  EXPECT_NEAR(table.radius[hi - 1], 0.5834, 0.001);
  EXPECT_GT(table.theta[hi], 1.9F);
  EXPECT_LT(table.theta[hi], 2.1F);
  EXPECT_LT(table.theta.back() - 2.5F, 0.002F);
}

TEST(DistortionTable, TheInterpolationSpansTheGap) {
  const Table table = TableOf(300.0F, kFoldingLens);
  const std::size_t hi = BehindTheGap(table);
  const double low_r = table.radius[hi - 1];
  const double high_r = table.radius[hi];
  // The principal point goes where column 200 (sensor column 401) falls into the gap.
  QndrAngleDatRecord record = PlainRecord();
  std::memcpy(record.k, kFoldingLens.data(), sizeof(record.k));
  record.cx = static_cast<float>(401.0 - 300.0 * (low_r + high_r) / 2.0);
  const double r = (401.0F - record.cx) / 300.0F;
  ASSERT_GT(r, low_r);
  ASSERT_LT(r, high_r);
  const double w = (r - low_r) / (high_r - low_r);
  const double angle = w * table.theta[hi] + (1.0 - w) * table.theta[hi - 1];
  const AngleCalibGrid grid = GridOf(record);
  const Triple ray = Entry(grid, grid.xyz, 144, 200);
  // The gap is narrow in r: a rounding of r is ten thousand times as large in the angle.
  EXPECT_NEAR(ray[0], std::cos(angle), 2e-3);
  EXPECT_NEAR(ray[1], -std::sin(angle), 2e-3);
  EXPECT_GT(angle, table.theta[hi - 1] + 0.1);
  EXPECT_LT(angle, table.theta[hi] - 0.1);
}

}  // namespace
}  // namespace kerul::lidar
