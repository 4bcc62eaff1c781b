#include "sensor_simulator/background.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace kerul::lidar::simulator {
namespace {

TEST(BackgroundTables, LevelsFollowNoiseAndShots) {
  BackgroundTables tables;
  EXPECT_DOUBLE_EQ(tables.Of(64, 160).per_bin, 5.0);
  EXPECT_DOUBLE_EQ(tables.Of(64, 80).baseline(), 7.5);
  EXPECT_DOUBLE_EQ(tables.Of(64, 160).per_bin, 5.0);
}

// Compared with whole histograms, bin by bin.
TEST(LargestNoiseSums, AreAsHighAsInAWholeHistogram) {
  const Background background(5.0);
  Random random(7);
  constexpr int kHistograms = 400;
  double drawn_first = 0.0;
  double drawn_second = 0.0;
  double true_first = 0.0;
  for (int i = 0; i < kHistograms; ++i) {
    const auto [first, second] = LargestNoiseSums(background, random);
    EXPECT_GE(first, second);
    drawn_first += first;
    drawn_second += second;
    std::vector<int> bins(1000);
    for (int& bin : bins) bin = background.bin.Draw(random);
    int largest = 0;
    for (std::size_t k = 1; k + 1 < bins.size(); ++k) {
      largest = std::max(largest, bins[k - 1] + bins[k] + bins[k + 1]);
    }
    true_first += largest;
  }
  // Standard error of either mean is 0.1; the sums' dependence is only roughly accounted for.
  EXPECT_NEAR(drawn_first / kHistograms, true_first / kHistograms, 0.7);
  EXPECT_LT(drawn_second, drawn_first);
}

}  // namespace
}  // namespace kerul::lidar::simulator
