#include "MIPI_reader/parser/record_copy.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "support/kernel_forms.h"

namespace kerul::lidar {
namespace {

using CopyPointsTest = FormsTest;
RUN_IN_EVERY_FORM(CopyPointsTest);

// Points of any bytes, which are compared and never read.
std::vector<LidarPoint> AnyPoints(std::size_t count, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<unsigned char> bytes(count * sizeof(LidarPoint));
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
  std::vector<LidarPoint> points(count);
  std::memcpy(static_cast<void*>(points.data()), bytes.data(), bytes.size());
  return points;
}

bool SameBytes(const LidarPoint& a, const LidarPoint& b) {
  return std::memcmp(&a, &b, sizeof(LidarPoint)) == 0;
}

TEST_P(CopyPointsTest, CopiesEveryByteAndNoMore) {
  for (std::size_t count = 0; count <= 16; ++count) {
    const std::vector<LidarPoint> from = AnyPoints(count + 1, 1);
    const std::vector<LidarPoint> before = AnyPoints(2 * count + 1, 2);
    std::vector<LidarPoint> to = before;
    std::vector<LidarPoint*> places;
    // Backwards, to every second one.
    for (std::size_t i = 0; i < count; ++i) places.push_back(&to[2 * (count - i) - 1]);
    CopyPoints(from.data(), places.data(), static_cast<int>(count));
    for (std::size_t i = 0; i < to.size(); ++i) {
      const LidarPoint& expected = i % 2 == 0 ? before[i] : from[count - (i + 1) / 2];
      EXPECT_TRUE(SameBytes(to[i], expected)) << "point " << i << " of " << count;
    }
  }
}

TEST_P(CopyPointsTest, OfPointsForOnePlaceTheLastStays) {
  const std::vector<LidarPoint> from = AnyPoints(3, 3);
  std::vector<LidarPoint> to(2);
  LidarPoint* const places[] = {&to[0], &to[1], &to[0]};
  CopyPoints(from.data(), places, 3);
  EXPECT_TRUE(SameBytes(to[0], from[2]));
  EXPECT_TRUE(SameBytes(to[1], from[1]));
}

TEST(CopyRecord, CopiesAnEchoToAnyAddress) {
  LidarPoint point;
  LidarEcho echo;
  echo.dist_raw = 1.5F;
  echo.bins.fill(7);
  echo.bins.back() = 8;
  CopyRecord<16>(point.echoes[1], echo);
  EXPECT_EQ(point.echoes[1].dist_raw, 1.5F);
  EXPECT_EQ(point.echoes[1].bins, echo.bins);
  EXPECT_EQ(point.echoes[0].dist_raw, 0.0F);
}

}  // namespace
}  // namespace kerul::lidar
