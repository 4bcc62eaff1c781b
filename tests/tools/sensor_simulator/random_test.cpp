#include "sensor_simulator/random.h"

#include <gtest/gtest.h>

#include <cmath>

namespace kerul::lidar::simulator {
namespace {

struct Moments {
  double mean = 0.0;
  double variance = 0.0;
};

template <typename Draw>
Moments MomentsOf(Draw draw, int count) {
  double sum = 0.0;
  double squares = 0.0;
  for (int i = 0; i < count; ++i) {
    const double value = draw();
    sum += value;
    squares += value * value;
  }
  const double mean = sum / count;
  return {mean, squares / count - mean * mean};
}

TEST(Random, TheSameSeedGivesTheSameNumbersAndAnotherSeedOthers) {
  Random first(42);
  Random again(42);
  Random other(43);
  int equal = 0;
  for (int i = 0; i < 100; ++i) {
    const std::uint64_t value = first.Next();
    EXPECT_EQ(value, again.Next());
    if (value == other.Next()) ++equal;
  }
  EXPECT_EQ(equal, 0);
}

// The generator's published form: with the state (1, 2, 3, 4) xoshiro256** begins with 11520. Here
// the seed reaches the state through splitmix64, whose first output from 0 is published as well.
TEST(Random, SeedingFollowsTheWrittenGenerators) {
  const auto rotate = [](std::uint64_t x, int bits) { return (x << bits) | (x >> (64 - bits)); };
  std::uint64_t state = 0;
  const auto split_mix = [&] {
    state += 0x9E3779B97F4A7C15ULL;
    std::uint64_t z = state;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
  };
  EXPECT_EQ(split_mix(), 0xE220A8397B1DCDAFULL);
  const std::uint64_t second = split_mix();
  EXPECT_EQ(Random(0).Next(), rotate(second * 5, 7) * 9);
}

TEST(Random, UniformNumbersLieBelowOneAndHaveTheRightMoments) {
  Random random(1);
  const Moments moments = MomentsOf([&] { return random.Uniform(); }, 200000);
  // Five standard errors.
  EXPECT_NEAR(moments.mean, 0.5, 0.0033);
  EXPECT_NEAR(moments.variance, 1.0 / 12.0, 0.0009);
}

TEST(Random, NormalQuantilesAreThoseOfTheTables) {
  EXPECT_NEAR(NormalQuantile(0.5), 0.0, 1e-9);
  EXPECT_NEAR(NormalQuantile(0.975), 1.959963985, 1e-7);
  EXPECT_NEAR(NormalQuantile(0.01), -2.326347874, 1e-7);
  EXPECT_NEAR(NormalQuantile(1e-9), -5.997807015, 1e-6);
}

TEST(Random, PoissonCountsHaveTheirMeanAsVarianceOnBothSidesOfTheNormalForm) {
  Random random(2);
  int compared = 0;
  for (const double mean : {0.3, 2.5, 13.0, 29.0, 31.0, 400.0}) {
    const Moments moments = MomentsOf([&] { return random.Poisson(mean); }, 100000);
    EXPECT_NEAR(moments.mean, mean, 5.0 * std::sqrt(mean / 100000.0)) << mean;
    // A rounded normal has a variance larger by 1/12.
    EXPECT_NEAR(moments.variance, mean, 0.09 + 0.03 * mean) << mean;
    ++compared;
  }
  EXPECT_EQ(compared, 6);
}

TEST(Random, NoLightGivesNoCounts) {
  Random random(3);
  EXPECT_EQ(random.Poisson(0.0), 0);
  EXPECT_EQ(random.Poisson(-1.0), 0);
}

TEST(PoissonTable, QuantilesFollowTheDistributionFunction) {
  const PoissonTable table(3.0);
  // Distribution function of mean 3: 0.0498, 0.1991, 0.4232, 0.6472, 0.8153.
  EXPECT_EQ(table.Quantile(0.0), 0);
  EXPECT_EQ(table.Quantile(0.0497), 0);
  EXPECT_EQ(table.Quantile(0.0499), 1);
  EXPECT_EQ(table.Quantile(0.42), 2);
  EXPECT_EQ(table.Quantile(0.43), 3);
  EXPECT_EQ(table.Quantile(0.81), 4);
  EXPECT_EQ(table.Quantile(0.82), 5);
}

TEST(PoissonTable, ANumberJustBelowOneStaysInTheTable) {
  for (const double mean : {0.001, 1.0, 90.0}) {
    const PoissonTable table(mean);
    EXPECT_GT(table.Quantile(1.0 - 0x1.0p-53), mean);
  }
}

}  // namespace
}  // namespace kerul::lidar::simulator
