#include "lanes/truncation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace kerul::lidar {
namespace {

constexpr std::int32_t kLowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kHighest = std::numeric_limits<std::int32_t>::max();

TEST(Truncation, CutsTowardZero) {
  EXPECT_EQ(TruncateToInt32(2.9F), 2);
  EXPECT_EQ(TruncateToInt32(-2.9F), -2);
  EXPECT_EQ(TruncateToInt32(0.999999), 0);
  EXPECT_EQ(TruncateToInt32(-0.999999), 0);
}

TEST(Truncation, TakesEveryIntegerOf32Bits) {
  EXPECT_EQ(TruncateToInt32(2147483647.0), kHighest);
  EXPECT_EQ(TruncateToInt32(2147483647.9), kHighest);
  EXPECT_EQ(TruncateToInt32(-2147483648.0), kLowest);
  EXPECT_EQ(TruncateToInt32(-2147483647.5), kLowest + 1);
  EXPECT_EQ(TruncateToInt32(2147483520.0F), 2147483520);  // the largest float below 2^31
}

TEST(Truncation, GivesTheLowestIntegerForWhatDoesNotFit) {
  EXPECT_EQ(TruncateToInt32(2147483648.0), kLowest);
  EXPECT_EQ(TruncateToInt32(-2147483649.0), kLowest);
  EXPECT_EQ(TruncateToInt32(3e9F), kLowest);
  EXPECT_EQ(TruncateToInt32(INFINITY), kLowest);
  EXPECT_EQ(TruncateToInt32(-INFINITY), kLowest);
  EXPECT_EQ(TruncateToInt32(std::nan("")), kLowest);
}

}  // namespace
}  // namespace kerul::lidar
