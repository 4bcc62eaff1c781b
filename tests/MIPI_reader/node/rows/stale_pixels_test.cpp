#include "MIPI_reader/node/rows/stale_pixels.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {
namespace {

constexpr int kRows = 4;
constexpr int kCols = 130;  // two words and two bits
constexpr std::uint32_t kAllRows = ~std::uint32_t{0};

class StalePixelsTest : public testing::Test {
 protected:
  void CopyRow(int row, int bright_col = -1) {
    for (int col = 0; col < kCols; ++col) stale_.MarkFresh(row, col, col == bright_col);
  }

  StalePixels stale_{kRows, kCols};
  LidarFrame frame_{kRows, kCols, 2};
};

TEST_F(StalePixelsTest, OnlyPixelsThatNobodyCopiedAreReset) {
  stale_.MarkAllStale();
  for (int col = 0; col < kCols; ++col) {
    frame_.points[1][static_cast<std::size_t>(col)].echoes[0].dist_raw = 7.0F;
    if (col % 3 == 0) stale_.MarkFresh(1, col, false);
  }
  stale_.ResetRows(frame_, 1, 2);
  for (int col = 0; col < kCols; ++col) {
    const float dist = frame_.points[1][static_cast<std::size_t>(col)].echoes[0].dist_raw;
    EXPECT_EQ(dist, col % 3 == 0 ? 7.0F : 0.0F) << col;
  }
}

TEST_F(StalePixelsTest, RowsAskedForBeyondTheFrameAreItsFirstAndLast) {
  stale_.MarkAllStale();
  for (std::vector<LidarPoint>& row : frame_.points) {
    for (LidarPoint& point : row) point.echoes[1].dist_raw = 7.0F;
  }
  stale_.ResetRows(frame_, -6, 12);
  for (const std::vector<LidarPoint>& row : frame_.points) {
    for (const LidarPoint& point : row) EXPECT_EQ(point.echoes[1].dist_raw, 0.0F);
  }
}

TEST_F(StalePixelsTest, AnyRowCanBeBrightBeforeTheFirstFrame) {
  EXPECT_EQ(stale_.PossiblyBrightRows(0), kAllRows);
  // Copies alone do not tell what the frame held before.
  CopyRow(1);
  EXPECT_EQ(stale_.PossiblyBrightRows(0), kAllRows);
}

TEST_F(StalePixelsTest, ARowCopiedWithoutABrightPixelIsDark) {
  stale_.MarkAllStale();
  CopyRow(1);
  CopyRow(2, 129);
  EXPECT_EQ(stale_.PossiblyBrightRows(0), kAllRows & ~(1U << 1));
  // A pixel that comes twice, dark the second time, may still be bright.
  stale_.MarkFresh(2, 129, false);
  EXPECT_EQ(stale_.PossiblyBrightRows(0), kAllRows & ~(1U << 1));
}

TEST_F(StalePixelsTest, ARowWithAPixelNotCopiedCanBeBright) {
  stale_.MarkAllStale();
  CopyRow(0);
  for (int col = 0; col < kCols - 1; ++col) stale_.MarkFresh(1, col, false);
  EXPECT_EQ(stale_.PossiblyBrightRows(0), kAllRows & ~1U);
  // Also when it has been reset: others may write into the frame since.
  stale_.ResetRows(frame_, 0, kRows);
  EXPECT_EQ(stale_.PossiblyBrightRows(0), kAllRows & ~1U);
}

TEST_F(StalePixelsTest, BitsCountFromTheFirstRowAskedForAndRowsOutsideAreSet) {
  stale_.MarkAllStale();
  CopyRow(0);
  CopyRow(3);
  EXPECT_EQ(stale_.PossiblyBrightRows(-6), kAllRows & ~(1U << 6) & ~(1U << 9));
  EXPECT_EQ(stale_.PossiblyBrightRows(3), kAllRows & ~1U);
  EXPECT_EQ(stale_.PossiblyBrightRows(4), kAllRows);
  EXPECT_EQ(stale_.PossiblyBrightRows(6 * std::int64_t{std::numeric_limits<int>::max()}), kAllRows);
}

TEST_F(StalePixelsTest, TheNextFrameBeginsAnew) {
  stale_.MarkAllStale();
  CopyRow(1, 5);
  stale_.MarkAllStale();
  CopyRow(1);
  EXPECT_EQ(stale_.PossiblyBrightRows(0), kAllRows & ~(1U << 1));
}

}  // namespace
}  // namespace kerul::lidar
