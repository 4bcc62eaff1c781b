#include "MIPI_reader/node/frame_end/frame_upsampling.h"

#include <gtest/gtest.h>

#include <iterator>
#include <limits>
#include <utility>
#include <vector>

#include "MIPI_reader/node/frame_end/echo_merge.h"
#include "support/point_compare.h"

namespace kerul::lidar {
namespace {

using testing::PointDifference;

LidarPoint& At(LidarFrame& frame, int row, int col) {
  return frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
}

// Pixels filled as by packets: own place, a pulse near the same bin everywhere.
LidarFrame FilledFrame(int height, int width, int echoes) {
  LidarFrame frame(height, width, echoes);
  for (int row = 0; row < height; ++row) {
    for (int col = 0; col < width; ++col) {
      LidarPoint& point = At(frame, row, col);
      point.row = row;
      point.col = col;
      point.pixel_word22 = static_cast<float>(100 * row + col);
      for (LidarEcho& echo : point.echoes) {
        echo.dist_raw = 20.0F + static_cast<float>(row);
        echo.dist_proc = 21.0F + static_cast<float>(col);
        echo.refl_raw = 50.0F;
        echo.refl_proc = 51.0F;
        echo.peak_addr = 100 + (row + col) % 4;
        echo.bins[8] = static_cast<std::uint16_t>(1000 + row);
        echo.bins[7] = 30;
      }
    }
  }
  return frame;
}

bool IsReset(const LidarPoint& point) { return PointDifference(point, LidarPoint{}).empty(); }

int CountWritten(const LidarFrame& frame) {
  int written = 0;
  for (const std::vector<LidarPoint>& row : frame.points) {
    for (const LidarPoint& point : row) written += IsReset(point) ? 0 : 1;
  }
  return written;
}

TEST(UpsampleFrame, ATargetOfAnyOtherSizeIsLeftAlone) {
  LidarFrame source = FilledFrame(4, 5, 2);
  for (const auto& [height, width] : {std::pair{8, 9}, {7, 10}, {4, 5}, {16, 20}, {10, 8}}) {
    LidarFrame target(height, width, 2);
    target.frame_id = 3;
    At(target, 1, 1).pixel_word22 = 77.0F;
    source.frame_id = 9;
    EXPECT_FALSE(UpsampleFrame(source, target));
    EXPECT_EQ(target.frame_id, 3);
    EXPECT_EQ(At(target, 1, 1).pixel_word22, 77.0F);
  }
}

TEST(UpsampleFrame, TheFrameIdIsTakenOver) {
  LidarFrame source = FilledFrame(4, 5, 2);
  source.frame_id = 201;
  LidarFrame target(8, 10, 2);
  EXPECT_TRUE(UpsampleFrame(source, target));
  EXPECT_EQ(target.frame_id, 201);
}

TEST(UpsampleFrame, MeasuredPixelsAreCopiedToEvenPlaces) {
  LidarFrame source = FilledFrame(4, 5, 2);
  LidarFrame target(8, 10, 2);
  UpsampleFrame(source, target);
  for (int row = 1; row < 4; ++row) {
    for (int col = 1; col < 5; ++col) {
      EXPECT_EQ(PointDifference(At(target, 2 * row, 2 * col), At(source, row, col)), "")
          << row << ' ' << col;
    }
  }
}

TEST(UpsampleFrame, PixelsBetweenAreMergedFromTheirNeighbours) {
  LidarFrame source = FilledFrame(4, 5, 2);
  LidarFrame target(8, 10, 2);
  UpsampleFrame(source, target);
  const auto expect_merged = [](const LidarPoint& got, LidarPoint want) {
    want.echoes[0].refl_raw = 0.0625F * want.echoes[0].totsum;
    want.echoes[0].refl_proc = 0.0625F * want.echoes[0].totsum;
    want.echoes[0].dist_proc = 0.15F * 0.0F + 1.2F;
    EXPECT_EQ(PointDifference(got, want), "");
  };
  for (int row = 1; row < 4; ++row) {
    for (int col = 1; col < 5; ++col) {
      const LidarPoint* current = &At(source, row, col);
      const LidarPoint* up = &At(source, row - 1, col);
      const LidarPoint* left = &At(source, row, col - 1);
      const LidarPoint* upleft = &At(source, row - 1, col - 1);
      const LidarPoint* a[] = {current, up};
      const LidarPoint* b[] = {current, left};
      const LidarPoint* c[] = {current, left, up, upleft};
      expect_merged(At(target, 2 * row - 1, 2 * col), MergePoints(a, 2));
      expect_merged(At(target, 2 * row, 2 * col - 1), MergePoints(b, 2));
      expect_merged(At(target, 2 * row - 1, 2 * col - 1), MergePoints(c, 4));
    }
  }
}

TEST(UpsampleFrame, SourcesAreTakenInTheOrderOfCurrentLeftUpUpleft) {
  LidarFrame source = FilledFrame(2, 2, 1);
  // In double only this order, or the first two exchanged, keeps both ones.
  At(source, 1, 1).pixel_word22 = 1e30F;   // current
  At(source, 1, 0).pixel_word22 = -1e30F;  // left
  At(source, 0, 1).pixel_word22 = 1.0F;    // up
  At(source, 0, 0).pixel_word22 = 1.0F;    // upleft
  LidarFrame target(4, 4, 1);
  UpsampleFrame(source, target);
  EXPECT_EQ(At(target, 1, 1).pixel_word22, 0.5F);
  At(source, 0, 0).pixel_word22 = 1e30F;
  At(source, 1, 1).pixel_word22 = 1.0F;
  UpsampleFrame(source, target);
  // Each of the ones is lost beside the large numbers, or beside what they leave: ((1 - L) + 1) +
  // L.
  EXPECT_EQ(At(target, 1, 1).pixel_word22, 0.0F);
}

TEST(UpsampleFrame, AMergedPixelHasAFixedRangeAndTheReflectivityOfItsSum) {
  LidarFrame source = FilledFrame(2, 2, 1);
  for (int row = 0; row < 2; ++row) {
    for (int col = 0; col < 2; ++col) {
      At(source, row, col).echoes[0].peak_addr = 100;
      At(source, row, col).echoes[0].bins.fill(0);
      At(source, row, col).echoes[0].bins[8] = 800;
    }
  }
  LidarFrame target(4, 4, 1);
  UpsampleFrame(source, target);
  for (const auto& [row, col] : {std::pair{1, 1}, {1, 2}, {2, 1}}) {
    const LidarPoint& merged = At(target, row, col);
    EXPECT_EQ(merged.echoes[0].dist_proc, 1.2F);
    EXPECT_EQ(merged.echoes[0].dist_raw, 0.0F);
    EXPECT_EQ(merged.echoes[0].refl_raw, 50.0F);  // 800 / 16
    EXPECT_EQ(merged.echoes[0].refl_proc, 50.0F);
    EXPECT_EQ(merged.row, 0);
    EXPECT_EQ(merged.col, 0);
    EXPECT_EQ(merged.echoes[1].dist_proc, 0.0F) << "no conversion in the second slot";
    EXPECT_EQ(merged.echoes[1].refl_raw, 0.0F);
  }
  EXPECT_EQ(At(target, 2, 2).row, 1);
  EXPECT_EQ(At(target, 2, 2).col, 1);
  EXPECT_EQ(At(target, 2, 2).echoes[0].dist_proc, 22.0F);
}

TEST(UpsampleFrame, PixelsThatCannotMergeStillGetTheFixedRange) {
  LidarFrame source = FilledFrame(2, 2, 2);
  for (int i = 0; i < 4; ++i) {
    for (LidarEcho& echo : At(source, i / 2, i % 2).echoes) echo.peak_addr = 200 * i;
  }
  LidarFrame target(4, 4, 2);
  UpsampleFrame(source, target);
  LidarPoint expected;
  expected.echoes[0].dist_proc = 1.2F;
  for (const auto& [row, col] : {std::pair{1, 1}, {1, 2}, {2, 1}}) {
    EXPECT_EQ(PointDifference(At(target, row, col), expected), "") << row << ' ' << col;
  }
}

TEST(UpsampleFrame, TheBordersAreResetAndNeverWritten) {
  LidarFrame source = FilledFrame(4, 5, 2);
  LidarFrame target(8, 10, 2);
  for (std::vector<LidarPoint>& row : target.points) {
    for (LidarPoint& point : row) point.pixel_word22 = 9.0F;
  }
  target.received_count = 4;
  UpsampleFrame(source, target);
  for (int i = 0; i < 10; ++i) {
    EXPECT_TRUE(IsReset(At(target, 0, i))) << i;
    EXPECT_TRUE(IsReset(At(target, 7, i))) << i;
  }
  for (int i = 0; i < 8; ++i) {
    EXPECT_TRUE(IsReset(At(target, i, 0))) << i;
    EXPECT_TRUE(IsReset(At(target, i, 9))) << i;
  }
  EXPECT_EQ(target.received_count, 0);
  EXPECT_EQ(CountWritten(target), 3 * 4 * 4);
}

TEST(UpsampleFrame, APointOfTheFirstRowOrColumnWritesNothing) {
  LidarFrame source(4, 5, 2);
  At(source, 2, 2).col = 3;  // row 0
  At(source, 2, 2).echoes[0].dist_raw = 8.0F;
  At(source, 3, 3).row = 3;  // column 0
  At(source, 3, 3).echoes[0].dist_raw = 8.0F;
  LidarFrame target(8, 10, 2);
  EXPECT_TRUE(UpsampleFrame(source, target));
  EXPECT_EQ(CountWritten(target), 0);
}

TEST(UpsampleFrame, PlacesOutsideTheFrameAreSkipped) {
  LidarFrame source(4, 5, 2);
  constexpr int kMax = std::numeric_limits<int>::max();
  constexpr int kMin = std::numeric_limits<int>::min();
  const std::pair<int, int> places[] = {{4, 1},    {1, 5},    {-1, 1},     {1, -1},
                                        {kMax, 1}, {1, kMin}, {kMin, kMax}};
  for (std::size_t i = 0; i < std::size(places); ++i) {
    LidarPoint& point = At(source, static_cast<int>(i / 5), static_cast<int>(i % 5));
    point.row = places[i].first;
    point.col = places[i].second;
  }
  LidarFrame target(8, 10, 2);
  EXPECT_TRUE(UpsampleFrame(source, target));
  EXPECT_EQ(CountWritten(target), 0);
}

TEST(UpsampleFrame, APixelIsPlacedByItsOwnRowAndColumn) {
  LidarFrame source(4, 5, 2);
  At(source, 0, 0).row = 2;
  At(source, 0, 0).col = 3;
  At(source, 0, 0).pixel_word22 = 5.0F;
  LidarFrame target(8, 10, 2);
  UpsampleFrame(source, target);
  EXPECT_EQ(PointDifference(At(target, 4, 6), At(source, 0, 0)), "");
  EXPECT_EQ(CountWritten(target), 4);
}

TEST(UpsampleFrame, APixelNotFilledInThisFrameKeepsItsPlaceAndTakesPart) {
  LidarFrame source = FilledFrame(4, 5, 2);
  source.Reset();
  LidarFrame target(8, 10, 2);
  UpsampleFrame(source, target);
  // Reset echo data, but the merge of empty windows at one address is a merge.
  EXPECT_EQ(At(target, 2, 2).row, 1);
  EXPECT_EQ(At(target, 1, 1).echoes[0].dist_proc, 1.2F);
  EXPECT_EQ(At(target, 1, 1).echoes[0].peak_addr, 0xFF8);  // the lowest position, -8, wraps
}

TEST(UpsampleFrame, TheLastPixelOfTheSensorWritesItsFourPixels) {
  LidarFrame source(216, 288, 1);
  At(source, 215, 287).row = 215;
  At(source, 215, 287).col = 287;
  LidarFrame target(432, 576, 1);
  EXPECT_TRUE(UpsampleFrame(source, target));
  for (const auto& [row, col] : {std::pair{430, 574}, {429, 573}, {429, 574}, {430, 573}}) {
    EXPECT_FALSE(IsReset(At(target, row, col))) << row << ' ' << col;
  }
  EXPECT_EQ(CountWritten(target), 4);
}

}  // namespace
}  // namespace kerul::lidar
