#include "lanes/rounded_powers.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "lanes/rounded_powers_lanes.h"

namespace kerul::lidar {
namespace {

using V = Lanes<4>;

bool Same(float a, float b) { return a == b || (std::isnan(a) && std::isnan(b)); }

TEST(RoundedPowers, AreWholeForWholeArguments) {
  EXPECT_EQ(PowerOfTwo(10.0F), 1024.0F);
  EXPECT_EQ(PowerOfTwo(-3.0F), 0.125F);
  EXPECT_EQ(LogOfTwo(1024.0F), 10.0F);
  EXPECT_EQ(LogOfTwo(0.125F), -3.0F);
}

// sqrt(2) and log2(3) from tables, to more places than a float has.
TEST(RoundedPowers, AreTheDoubleResultsRounded) {
  EXPECT_EQ(PowerOfTwo(0.5F), 1.41421356F);
  EXPECT_EQ(LogOfTwo(3.0F), 1.58496250F);
}

// Results almost halfway between two floats, worked out to sixty places. The library's functions
// for single precision give the other float.
TEST(RoundedPowers, FallOnTheRightSideOfAHalf) {
  EXPECT_EQ(PowerOfTwo(0.00102903508F), 1.00071347F);  // 1.0007135272...
  EXPECT_EQ(PowerOfTwo(0.00104226824F), 1.00072265F);  // 1.0007227063...
  EXPECT_EQ(LogOfTwo(2.00068355F), 1.00049305F);       // 1.0004929900...
  EXPECT_EQ(LogOfTwo(2.00378346F), 1.00272667F);       // 1.0027266144...
}

// The same where the polynomials alone come out on the other side: the library has to be asked.
TEST(RoundedPowersLanes, FallOnTheRightSideOfAHalf) {
  const auto power = [](float x) { return RoundedPowers<4>::Power(V::Splat(x), V::SplatInt(-1)); };
  EXPECT_EQ(power(0.00290624332F)[0], 1.00201654F);  // 1.00201648473740...
  EXPECT_EQ(power(0.00322974194F)[3], 1.00224125F);  // 1.00224119424820...
  const V::Float log = RoundedPowers<4>::Log(V::Splat(2.5074904F), V::SplatInt(-1));
  EXPECT_EQ(log[1], 1.32624412F);  // 1.32624417543195...
}

TEST(RoundedPowersLanes, GiveTheLibrarysFloatsForOddArguments) {
  constexpr float kInf = std::numeric_limits<float>::infinity();
  constexpr float kOdd[] = {0.0F,        -0.0F,      1.0F,
                            -1.0F,       kInf,       -kInf,
                            128.0F,      127.99999F, -126.0F,
                            -126.00001F, -149.0F,    -150.0F,
                            -151.0F,     1e-45F,     -1e-45F,
                            2.0F,        1.9999999F, 16777216.0F,
                            16777215.0F, 3e38F,      std::numeric_limits<float>::quiet_NaN()};
  int compared = 0;
  for (const float x : kOdd) {
    const V::Float power = RoundedPowers<4>::Power(V::Splat(x), V::SplatInt(-1));
    const V::Float log = RoundedPowers<4>::Log(V::Splat(x), V::SplatInt(-1));
    for (int lane = 0; lane < 4; ++lane) {
      EXPECT_TRUE(Same(power[lane], PowerOfTwo(x))) << x;
      EXPECT_TRUE(Same(log[lane], LogOfTwo(x))) << x;
      ++compared;
    }
  }
  EXPECT_GT(compared, 80);
}

// Every float is scripts/check_rounded_powers.sh's business.
TEST(RoundedPowersLanes, GiveTheLibrarysFloatsForManyArguments) {
  std::mt19937 random(7);
  std::uniform_real_distribution<float> exponent(-130.0F, 130.0F);
  std::uniform_real_distribution<float> value(2.0F, 700.0F);
  for (int i = 0; i < 200000; ++i) {
    const V::Float x = {exponent(random), exponent(random) / 16.0F, exponent(random), 0.25F};
    const V::Float y = {value(random), value(random), 2.0F, value(random) * 1000.0F};
    const V::Float power = RoundedPowers<4>::Power(x, V::SplatInt(-1));
    const V::Float log = RoundedPowers<4>::Log(y, V::SplatInt(-1));
    for (int lane = 0; lane < 4; ++lane) {
      ASSERT_TRUE(Same(power[lane], PowerOfTwo(x[lane]))) << x[lane];
      ASSERT_TRUE(Same(log[lane], LogOfTwo(y[lane]))) << y[lane];
    }
  }
}

}  // namespace
}  // namespace kerul::lidar
