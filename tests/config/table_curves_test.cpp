#include "config/table_curves.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

namespace kerul::lidar {
namespace {

using testing::ElementsAre;

TEST(FillCurve, TwoPointsGiveAStraightLine) {
  const std::array<CurvePoint, 2> points{{{0, 1.0F}, {4, 3.0F}}};
  EXPECT_THAT(FillCurve(points, 5), ElementsAre(1.0F, 1.5F, 2.0F, 2.5F, 3.0F));
}

TEST(FillCurve, PointsOnALineGiveThatLine) {
  const std::array<CurvePoint, 3> points{{{0, 4.0F}, {2, 3.0F}, {4, 2.0F}}};
  EXPECT_THAT(FillCurve(points, 5), ElementsAre(4.0F, 3.5F, 3.0F, 2.5F, 2.0F));
}

TEST(FillCurve, BendsAsWorkedOutByHand) {
  // Mean slopes 1 and 3 over equal lengths: 1.5 at the inner point (harmonic mean), 0 and 4 at the
  // ends (parabola). Half way: start + rise / 2 + length * (left slope - right slope) / 8.
  const std::array<CurvePoint, 3> points{{{0, 0.0F}, {2, 2.0F}, {4, 8.0F}}};
  EXPECT_THAT(FillCurve(points, 5), ElementsAre(0.0F, 0.625F, 2.0F, 4.375F, 8.0F));
}

TEST(FillCurve, TheShorterStretchCountsMoreAtAnInnerPoint) {
  // Lengths 2 and 4 with slopes 1 and 4: weights 2 + 8 and 4 + 4, so 18 / (10 / 1 + 8 / 4) = 1.5.
  // The parabola gives 0 at the start. Half way: 1 + 2 * (0 - 1.5) / 8.
  const std::array<CurvePoint, 3> points{{{0, 0.0F}, {2, 2.0F}, {6, 18.0F}}};
  EXPECT_EQ(FillCurve(points, 7)[1], 0.625F);
}

TEST(FillCurve, IsFlatAtAPeakAndNeverExceedsIt) {
  // Slopes at the points: 0 at the peak; at both ends 2 by the parabola, below the limit of 3.
  const std::array<CurvePoint, 3> points{{{0, 0.0F}, {4, 4.0F}, {8, 0.0F}}};
  EXPECT_THAT(FillCurve(points, 9),
              ElementsAre(0.0F, 1.75F, 3.0F, 3.75F, 4.0F, 3.75F, 3.0F, 1.75F, 0.0F));
}

TEST(FillCurve, LimitsAnEndThatWouldTurnTheWrongWay) {
  // The parabola's slope at the start, (3 * 1 - 7) / 2 = -2, is against the rise: 0 is taken
  // instead. At the inner point 2 / (1 + 1 / 7) = 1.75. Half way: 1 + 2 * (0 - 1.75) / 8.
  const std::array<CurvePoint, 3> points{{{0, 0.0F}, {2, 2.0F}, {4, 16.0F}}};
  EXPECT_EQ(FillCurve(points, 5)[1], 1.0F - 0.4375F);
}

TEST(FillCurve, LimitsAnEndThatWouldBeTooSteep) {
  // Towards a strong fall the parabola gives (3 * 1 + 7) / 2 = 5: held to 3 times the mean slope.
  // The inner point is a peak. Half way: 1 + 2 * (3 - 0) / 8.
  const std::array<CurvePoint, 3> points{{{0, 0.0F}, {2, 2.0F}, {4, -12.0F}}};
  EXPECT_EQ(FillCurve(points, 5)[1], 1.75F);
}

TEST(FillCurve, EqualPointsMakeAnExactPlateau) {
  const std::array<CurvePoint, 4> points{{{0, 0.1F}, {3, 7.45395F}, {9, 7.45395F}, {12, 0.3F}}};
  const std::vector<float> table = FillCurve(points, 13);
  for (std::size_t i = 3; i <= 9; ++i) EXPECT_EQ(table[i], 7.45395F) << i;
}

TEST(FillCurve, TheLastPointHoldsToTheEnd) {
  const std::array<CurvePoint, 2> points{{{0, 1.0F}, {1, 5.0F}}};
  EXPECT_THAT(FillCurve(points, 4), ElementsAre(1.0F, 5.0F, 5.0F, 5.0F));
}

TEST(FillCurve, HitsEveryPointAndStaysBetweenNeighboursOnRandomInput) {
  std::mt19937 random(7);
  int compared = 0;
  for (int round = 0; round < 200; ++round) {
    std::vector<CurvePoint> points;
    int index = 0;
    for (int i = 0; i < 8; ++i) {
      points.push_back({index, static_cast<float>(random() % 1000) / 7.0F});
      index += 1 + static_cast<int>(random() % 40);
    }
    const std::vector<float> table = FillCurve(points, index + 1);
    for (std::size_t i = 0; i + 1 < points.size(); ++i) {
      const bool is_rising = points[i].value <= points[i + 1].value;
      EXPECT_EQ(table[static_cast<std::size_t>(points[i].index)], points[i].value);
      for (int k = points[i].index; k < points[i + 1].index; ++k) {
        const float here = table[static_cast<std::size_t>(k)];
        const float next = table[static_cast<std::size_t>(k) + 1];
        EXPECT_TRUE(is_rising ? here <= next : here >= next) << "round " << round << " at " << k;
        ++compared;
      }
    }
  }
  EXPECT_GT(compared, 10000);
}

TEST(SpreadWholeSteps, SpreadsTheRiseEvenly) {
  const std::array<CurvePoint, 3> points{{{0, 0.0F}, {4, 2.0F}, {6, 5.0F}}};
  // Half steps are rounded up: 0, 0.5, 1, 1.5, then 2, 3.5, 5.
  EXPECT_THAT(SpreadWholeSteps(points), ElementsAre(0.0F, 1.0F, 1.0F, 2.0F, 2.0F, 4.0F, 5.0F));
}

TEST(SpreadWholeSteps, StandsStillOnALevelSpan) {
  const std::array<CurvePoint, 2> points{{{0, 3.0F}, {3, 3.0F}}};
  EXPECT_THAT(SpreadWholeSteps(points), ElementsAre(3.0F, 3.0F, 3.0F, 3.0F));
}

TEST(ExpandRuns, RepeatsEachValue) {
  const std::array<ValueRun, 3> runs{{{2.0F, 2}, {-1.0F, 1}, {0.0F, 0}}};
  EXPECT_THAT(ExpandRuns(runs), ElementsAre(2.0F, 2.0F, -1.0F));
}

}  // namespace
}  // namespace kerul::lidar
