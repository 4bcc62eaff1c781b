#include "MIPI_reader/node/ground/ground_plane.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace kerul::lidar {
namespace {

using ground_plane_detail::FitPlaneFromPoints;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

void ExpectSamePlane(const GroundPlane& a, const GroundPlane& b) {
  EXPECT_EQ(std::memcmp(&a.a, &b.a, sizeof(float)), 0);
  EXPECT_EQ(std::memcmp(&a.b, &b.b, sizeof(float)), 0);
  EXPECT_EQ(std::memcmp(&a.c, &b.c, sizeof(float)), 0);
  EXPECT_EQ(std::memcmp(&a.d, &b.d, sizeof(float)), 0);
  EXPECT_EQ(a.valid, b.valid);
}

void ExpectEmpty(const GroundPlane& plane) { ExpectSamePlane(plane, {0.0F, 0.0F, 1.0F, 0.0F}); }

// Square of four points around the z axis.
std::vector<Point3f> Square(float half_side, float z) {
  return {{half_side, half_side, z},
          {half_side, -half_side, z},
          {-half_side, half_side, z},
          {-half_side, -half_side, z}};
}

std::vector<Point3f> NoisyGround(std::size_t count, std::uint32_t seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> wide(-4.0F, 4.0F);
  std::uniform_real_distribution<float> noise(-0.1F, 0.1F);
  std::vector<Point3f> points;
  for (std::size_t i = 0; i < count; ++i) {
    const float x = wide(random) + 8.0F;
    const float y = wide(random);
    points.push_back({x, y, -1.5F + 0.02F * x - 0.03F * y + noise(random)});
  }
  return points;
}

TEST(GroundPlane, FewerThanFourPointsGiveTheEmptyResult) {
  std::vector<Point3f> points = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  ExpectEmpty(FitPlaneFromPoints({}));
  ExpectEmpty(FitPlaneFromPoints(points));
  ExpectEmpty(FitGroundPlaneRobust({}, 0.8F));
  ExpectEmpty(FitGroundPlaneRobust(points, 0.8F));
}

TEST(GroundPlane, FourPointsGiveAPlaneAndAllAreKept) {
  // All sums are exact here: the covariance is diagonal, so the start vector is the eigenvector.
  ExpectSamePlane(FitPlaneFromPoints(Square(1.0F, 5.0F)), {0.0F, 0.0F, 1.0F, 5.0F, true});
  // One of four lies off; a keep ratio of one half would drop two.
  std::vector<Point3f> points = Square(2.0F, -1.0F);
  points[2].z = -0.5F;
  ExpectSamePlane(FitGroundPlaneRobust(points, 0.5F), FitPlaneFromPoints(points));
}

TEST(GroundPlane, FindsATiltedPlane) {
  // z = 0.25 x - 0.5 y + 2.
  std::vector<Point3f> points;
  for (int x = -3; x <= 3; ++x) {
    for (int y = -3; y <= 3; ++y) {
      const auto fx = static_cast<float>(x);
      const auto fy = static_cast<float>(y);
      points.push_back({fx, fy, 0.25F * fx - 0.5F * fy + 2.0F});
    }
  }
  const GroundPlane plane = FitPlaneFromPoints(points);
  ASSERT_TRUE(plane.valid);
  const float length = std::sqrt(0.25F * 0.25F + 0.5F * 0.5F + 1.0F);
  const float sign = plane.c > 0.0F ? 1.0F : -1.0F;  // the fit does not choose a side
  // Single precision loses some digits in the cofactors of so flat a cloud.
  EXPECT_NEAR(sign * plane.a, -0.25F / length, 1e-4F);
  EXPECT_NEAR(sign * plane.b, 0.5F / length, 1e-4F);
  EXPECT_NEAR(sign * plane.c, 1.0F / length, 1e-4F);
  EXPECT_NEAR(sign * plane.d, 2.0F / length, 1e-4F);
  EXPECT_NEAR(plane.a * plane.a + plane.b * plane.b + plane.c * plane.c, 1.0F, 1e-6F);
}

TEST(GroundPlane, FindsAnUprightWall) {
  // x = 2, start vector inside the plane but for the rounding of the slanted edge points.
  std::vector<Point3f> points;
  for (int y = -3; y <= 3; ++y) {
    for (int z = -3; z <= 3; ++z) {
      const float x = 2.0F + 0.125F * static_cast<float>(z);
      points.push_back({x, static_cast<float>(y), static_cast<float>(z)});
    }
  }
  const GroundPlane plane = FitPlaneFromPoints(points);
  ASSERT_TRUE(plane.valid);
  // 8 x - z = 16, the normal's length is sqrt(65); tolerance as above.
  EXPECT_NEAR(std::fabs(plane.a), 8.0F / std::sqrt(65.0F), 1e-4F);
  EXPECT_NEAR(plane.b, 0.0F, 1e-4F);
  EXPECT_NEAR(std::fabs(plane.d), 16.0F / std::sqrt(65.0F), 1e-3F);
}

TEST(GroundPlane, TheNormalIsTurnedTwentyTimesAndNoMore) {
  // Points on three axes at right angles, u = (1, 0, 1), v = (-1, 0, 1) and y, with nearly the same
  // spread along u and v. The start (0, 0, 1) holds equal parts of both, and each step weakens the
  // part along u by the ratio of the spreads.
  const float half_u = 1.0F;
  const float half_v = 0.95F;
  const std::vector<Point3f> points = {{half_u, 0, half_u},
                                       {-half_u, 0, -half_u},
                                       {-half_v, 0, half_v},
                                       {half_v, 0, -half_v},
                                       {0, 8, 0},
                                       {0, -8, 0}};
  const double spread_u = 2.0 * 2.0 * 1.0 * 1.0 / 6.0 + 1e-6;
  const double spread_v = 2.0 * 2.0 * 0.95 * 0.95 / 6.0 + 1e-6;
  const double left = std::pow(spread_v / spread_u, 20);  // 0.13; a step more or less is 10 %
  const GroundPlane plane = FitPlaneFromPoints(points);
  // 20 steps of single precision: five digits are certain.
  EXPECT_NEAR(static_cast<double>(plane.a / plane.c), (left - 1.0) / (left + 1.0), 1e-5);
  EXPECT_EQ(plane.b, 0.0F);
}

TEST(GroundPlane, IdenticalPointsGiveTheHorizontalPlaneThroughThem) {
  const std::vector<Point3f> points(6, {1.5F, -2.5F, 0.75F});
  // 6 times these sums times 1 / 6 is exact to one rounding at most.
  const GroundPlane plane = FitPlaneFromPoints(points);
  EXPECT_EQ(plane.a, 0.0F);
  EXPECT_EQ(plane.b, 0.0F);
  EXPECT_EQ(plane.c, 1.0F);
  EXPECT_NEAR(plane.d, 0.75F, 1e-6F);
  EXPECT_TRUE(plane.valid);
  ExpectSamePlane(FitGroundPlaneRobust(points, 0.8F), plane);
}

TEST(GroundPlane, ATinyCloudIsHorizontalWhateverItsShape) {
  // A slope of 45 degrees, 2 mm long and wide: the determinant is near 6e-18.
  const auto slope = [](float half) -> std::vector<Point3f> {
    return {{half, half, half}, {-half, half, half}, {half, -half, -half}, {-half, -half, -half}};
  };
  ExpectSamePlane(FitPlaneFromPoints(slope(0.001F)), {0.0F, 0.0F, 1.0F, 0.0F, true});
  // The same slope 2 m long is seen as it is.
  const GroundPlane large = FitPlaneFromPoints(slope(1.0F));
  const float side = std::sqrt(0.5F);
  EXPECT_NEAR(large.a, 0.0F, 1e-4F);
  EXPECT_NEAR(std::fabs(large.b), side, 1e-4F);
  EXPECT_NEAR(std::fabs(large.c), side, 1e-4F);
}

TEST(GroundPlane, PointsThatFitWorstAreLeftOutOfTheSecondFit) {
  // Eight points at z = 1 and two symmetric ones above: the first fit is level too, at 1.1.
  std::vector<Point3f> points = Square(2.0F, 1.0F);
  for (const Point3f& point : Square(1.0F, 1.0F)) points.push_back(point);
  points.insert(points.begin() + 3, {4.0F, 4.0F, 1.5F});
  points.insert(points.begin() + 7, {-4.0F, -4.0F, 1.5F});
  ExpectSamePlane(FitGroundPlaneRobust(points, 0.8F), {0.0F, 0.0F, 1.0F, 1.0F, true});
  ExpectSamePlane(FitGroundPlaneRobust(points, 1.0F), FitPlaneFromPoints(points));
  EXPECT_NEAR(FitPlaneFromPoints(points).d, 1.1F, 1e-2F);
}

TEST(GroundPlane, CoplanarPointsStayTogether) {
  const std::vector<Point3f> points = [] {
    std::vector<Point3f> grid = Square(1.0F, 3.0F);
    for (const float side : {2.0F, 4.0F, 8.0F}) {
      for (const Point3f& point : Square(side, 3.0F)) grid.push_back(point);
    }
    return grid;
  }();
  // All residuals are 0: the second fit takes all 16 points, not 8.
  ExpectSamePlane(FitGroundPlaneRobust(points, 0.5F), FitPlaneFromPoints(points));
  ExpectSamePlane(FitGroundPlaneRobust(points, 0.5F), {0.0F, 0.0F, 1.0F, 3.0F, true});
}

// The robust fit with a full sort in place of the selection; `kept` gives the points of the fit.
GroundPlane SlowRobustFit(const std::vector<Point3f>& points, std::size_t rank, std::size_t& kept) {
  const GroundPlane first = FitPlaneFromPoints(points);
  std::vector<float> residuals;
  for (const Point3f& p : points) {
    residuals.push_back(std::fabs(first.a * p.x + first.b * p.y + first.c * p.z - first.d));
  }
  std::vector<float> sorted = residuals;
  std::sort(sorted.begin(), sorted.end());
  std::vector<Point3f> good;
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (residuals[i] <= sorted[rank - 1] + 1e-9F) good.push_back(points[i]);
  }
  kept = good.size();
  return FitPlaneFromPoints(good);
}

TEST(GroundPlane, AKeepRatioOfPointEightKeepsEightyOfAHundred) {
  for (std::uint32_t seed = 1; seed <= 10; ++seed) {
    const std::vector<Point3f> points = NoisyGround(100, seed);
    std::size_t kept = 0;
    const GroundPlane expected = SlowRobustFit(points, 80, kept);
    ASSERT_EQ(kept, 80U);
    ExpectSamePlane(FitGroundPlaneRobust(points, 0.8F), expected);
  }
}

TEST(GroundPlane, TiesAddPointsToTheKeptOnes) {
  // 100 points: 70 on the plane, 30 mirrored pairs at the same residual; rank 80 falls among them.
  std::vector<Point3f> points;
  for (int i = 0; i < 35; ++i) {
    const float x = 0.125F * static_cast<float>(i + 1);
    points.push_back({x, 1.0F, 0.0F});
    points.push_back({-x, -1.0F, 0.0F});
  }
  for (int i = 0; i < 15; ++i) {
    points.push_back({2.0F, 2.0F, 0.25F});
    points.push_back({2.0F, 2.0F, -0.25F});
  }
  std::size_t kept = 0;
  const GroundPlane expected = SlowRobustFit(points, 80, kept);
  ASSERT_GT(kept, 80U);
  ExpectSamePlane(FitGroundPlaneRobust(points, 0.8F), expected);
}

TEST(GroundPlane, KeepRatioIsHeldBetweenOneHalfAndOne) {
  const std::vector<Point3f> points = NoisyGround(64, 3);
  const GroundPlane half = FitGroundPlaneRobust(points, 0.5F);
  std::size_t kept = 0;
  ExpectSamePlane(half, SlowRobustFit(points, 32, kept));
  ASSERT_EQ(kept, 32U);
  for (const float ratio : {0.2F, 0.0F, -7.0F, kNan}) {
    ExpectSamePlane(FitGroundPlaneRobust(points, ratio), half);
  }
  const GroundPlane whole = FitPlaneFromPoints(points);
  for (const float ratio : {1.0F, 1.5F, std::numeric_limits<float>::infinity()}) {
    ExpectSamePlane(FitGroundPlaneRobust(points, ratio), whole);
  }
}

TEST(GroundPlane, KeptCountIsRoundedDownAndFourAtLeast) {
  // 0.75 * 7 = 5.25: five of seven.
  std::size_t kept = 0;
  const std::vector<Point3f> seven = NoisyGround(7, 4);
  ExpectSamePlane(FitGroundPlaneRobust(seven, 0.75F), SlowRobustFit(seven, 5, kept));
  EXPECT_EQ(kept, 5U);
  // 0.5 * 6 = 3: four of six.
  const std::vector<Point3f> six = NoisyGround(6, 5);
  ExpectSamePlane(FitGroundPlaneRobust(six, 0.5F), SlowRobustFit(six, 4, kept));
  EXPECT_EQ(kept, 4U);
}

TEST(GroundPlane, NanPointsPoisonTheFitWithoutHarm) {
  std::vector<Point3f> points = NoisyGround(20, 6);
  points[3].x = kNan;
  const GroundPlane plane = FitGroundPlaneRobust(points, 0.8F);
  EXPECT_TRUE(plane.valid);
  EXPECT_TRUE(std::isnan(plane.a));
  points[3].x = std::numeric_limits<float>::infinity();
  EXPECT_TRUE(std::isnan(FitGroundPlaneRobust(points, 0.8F).d));
}

TEST(GroundPlane, ResultIsNearAFitInDoublePrecision) {
  // Jacobi-free check: the smallest eigenvector solves (C - l) n = 0; power iteration in double on
  // the shifted matrix (trace - C) reaches it by another way.
  for (std::uint32_t seed = 1; seed <= 20; ++seed) {
    const std::vector<Point3f> points = NoisyGround(200, seed);
    double mean[3] = {};
    for (const Point3f& p : points) {
      mean[0] += static_cast<double>(p.x) / 200.0;
      mean[1] += static_cast<double>(p.y) / 200.0;
      mean[2] += static_cast<double>(p.z) / 200.0;
    }
    double c[3][3] = {};
    for (const Point3f& p : points) {
      const double d[3] = {p.x - mean[0], p.y - mean[1], p.z - mean[2]};
      for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) c[i][j] += d[i] * d[j] / 200.0;
      }
    }
    const double trace = c[0][0] + c[1][1] + c[2][2];
    double n[3] = {0.1, 0.1, 1.0};
    for (int step = 0; step < 2000; ++step) {
      double next[3];
      double length = 0.0;
      for (int i = 0; i < 3; ++i) {
        next[i] = trace * n[i] - c[i][0] * n[0] - c[i][1] * n[1] - c[i][2] * n[2];
        length += next[i] * next[i];
      }
      for (int i = 0; i < 3; ++i) n[i] = next[i] / std::sqrt(length);
    }
    const GroundPlane plane = FitPlaneFromPoints(points);
    const double sign = plane.c * n[2] > 0.0 ? 1.0 : -1.0;
    // Cofactors in single precision: four digits are certain.
    EXPECT_NEAR(plane.a, sign * n[0], 1e-4);
    EXPECT_NEAR(plane.b, sign * n[1], 1e-4);
    EXPECT_NEAR(plane.c, sign * n[2], 1e-4);
    EXPECT_NEAR(plane.d, sign * (n[0] * mean[0] + n[1] * mean[1] + n[2] * mean[2]), 1e-3);
  }
}

}  // namespace
}  // namespace kerul::lidar
