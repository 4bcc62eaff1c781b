#include "MIPI_reader/node/rows/echo_ordering.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/frame_builder.h"

namespace kerul::lidar {
namespace {

using frame_builder::MakeRows;
using frame_builder::SetEcho;

// ---- Plan ----

struct PlanCase {
  int echo_num;
  int code;
  EchoOutputPlan plan;
};

class EchoPlan : public ::testing::TestWithParam<PlanCase> {};

TEST_P(EchoPlan, FollowsTheDigitsOfTheCode) {
  const EchoOutputPlan plan = MakeEchoOutputPlan(GetParam().echo_num, GetParam().code);
  EXPECT_EQ(plan.count, GetParam().plan.count);
  EXPECT_EQ(plan.first, GetParam().plan.first);
  EXPECT_EQ(plan.second, GetParam().plan.second);
}

INSTANTIATE_TEST_SUITE_P(Codes, EchoPlan,
                         ::testing::Values(PlanCase{2, 1, {1, 1, 1}}, PlanCase{2, 2, {1, 2, 1}},
                                           PlanCase{2, 3, {1, 3, 1}}, PlanCase{2, 4, {1, 4, 1}},
                                           PlanCase{2, 5, {1, 1, 1}}, PlanCase{2, 0, {1, 1, 1}},
                                           PlanCase{2, 9, {1, 1, 1}}, PlanCase{2, -3, {1, 1, 1}},
                                           PlanCase{2, 10, {1, 1, 1}}, PlanCase{2, 12, {2, 1, 2}},
                                           PlanCase{2, 21, {2, 2, 1}}, PlanCase{2, 25, {1, 1, 1}},
                                           PlanCase{2, 20, {1, 1, 1}}, PlanCase{2, 34, {2, 3, 4}},
                                           PlanCase{2, 43, {2, 4, 3}}, PlanCase{2, 44, {2, 4, 4}},
                                           PlanCase{2, 51, {1, 1, 1}}, PlanCase{2, 99, {1, 1, 1}},
                                           PlanCase{2, 100, {1, 1, 1}}, PlanCase{2, 112, {1, 1, 1}},
                                           PlanCase{1, 21, {1, 1, 1}}, PlanCase{1, 3, {1, 1, 1}},
                                           PlanCase{0, 21, {2, 2, 1}}));

// ---- Priming ----

TEST(EchoOrdering, PrimingCopiesTheRawFieldsOfTheSlotsInUse) {
  for (const int echo_num : {1, 2}) {
    FrameRows rows = MakeRows(3, 2, echo_num);
    for (std::vector<LidarPoint>& line : rows) {
      for (LidarPoint& point : line) {
        for (int slot = 0; slot < 2; ++slot) {
          point.echoes[slot].dist_raw = 3.0F + static_cast<float>(slot);
          point.echoes[slot].refl_raw = 30.0F + static_cast<float>(slot);
          point.echoes[slot].dist_proc = 99.0F;
          point.echoes[slot].refl_proc = 99.0F;
        }
      }
    }
    PrimeProcessedFields(rows, 1, 1);
    EXPECT_EQ(rows[1][1].echoes[0].dist_proc, 3.0F);
    EXPECT_EQ(rows[1][1].echoes[0].refl_proc, 30.0F);
    EXPECT_EQ(rows[1][1].echoes[1].dist_proc, echo_num == 2 ? 4.0F : 99.0F);
    EXPECT_EQ(rows[1][1].echoes[1].refl_proc, echo_num == 2 ? 31.0F : 99.0F);
    EXPECT_EQ(rows[0][0].echoes[0].dist_proc, 99.0F);
    EXPECT_EQ(rows[2][0].echoes[0].dist_proc, 99.0F);
  }
}

// ---- Ranking ----

// A single pixel whose slots differ in all seven fields; slot s counts from 100 (s + 1).
FrameRows OnePixel(float dist0, float dist1, float peak1 = 20.0F) {
  FrameRows rows = MakeRows(1, 1);
  for (int slot = 0; slot < 2; ++slot) {
    LidarEcho& echo = rows[0][0].echoes[slot];
    const float base = 100.0F * static_cast<float>(slot + 1);
    echo.refl_proc = base + 1.0F;
    echo.cogh = base + 2.0F;
    echo.cogw = base + 3.0F;
    echo.cogw_high = base + 4.0F;
    echo.noise = base + 5.0F;
    echo.peak = slot == 0 ? 5.0F : peak1;
  }
  rows[0][0].echoes[0].dist_proc = dist0;
  rows[0][0].echoes[1].dist_proc = dist1;
  return rows;
}

// The slot that a plan's selector puts into slot 0.
int SlotChosen(FrameRows rows, int selector) {
  OrderEchoes(rows, 0, 1, {1, selector, 1});
  return rows[0][0].echoes[0].cogh == 102.0F ? 0 : 1;
}

struct RankCase {
  const char* what;
  float dist0;
  float dist1;
  float peak1;
  bool bloom0;
  bool bloom1;
  int preferred;
  int other;
};

class EchoRanking : public ::testing::TestWithParam<RankCase> {};

TEST_P(EchoRanking, PrefersTheTrueThenTheNearerEcho) {
  const RankCase& rank = GetParam();
  FrameRows rows = OnePixel(rank.dist0, rank.dist1, rank.peak1);
  rows[0][0].echoes[0].highReflBlooming = rank.bloom0;
  rows[0][0].echoes[1].highReflBlooming = rank.bloom1;
  EXPECT_EQ(SlotChosen(rows, 1), rank.preferred) << rank.what;
  EXPECT_EQ(SlotChosen(rows, 2), rank.other) << rank.what;
  EXPECT_EQ(SlotChosen(rows, 3), 0) << rank.what;
  EXPECT_EQ(SlotChosen(rows, 4), 1) << rank.what;
  for (const int odd : {0, 5, -1, 1000}) {
    EXPECT_EQ(SlotChosen(rows, odd), rank.preferred) << rank.what;
  }
}

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

INSTANTIATE_TEST_SUITE_P(
    Pixels, EchoRanking,
    ::testing::Values(RankCase{"nearer first", 5, 9, 20, false, false, 0, 1},
                      RankCase{"nearer second", 9, 5, 20, false, false, 1, 0},
                      RankCase{"same range", 7, 7, 20, false, false, 0, 1},
                      RankCase{"first blooms", 5, 9, 20, true, false, 1, 0},
                      RankCase{"second blooms", 9, 5, 20, false, true, 0, 1},
                      RankCase{"both bloom, nearer second", 9, 5, 20, true, true, 1, 0},
                      RankCase{"both bloom, same range", 5, 5, 20, true, true, 0, 1},
                      RankCase{"only first", 5, 0, 20, false, false, 0, 0},
                      RankCase{"only first, blooming", 5, 0, 20, true, false, 0, 0},
                      RankCase{"only second", 0, 5, 20, false, false, 1, 1},
                      RankCase{"second at the peak limit", 9, 5, 15.0F, false, false, 0, 0},
                      RankCase{"second above the peak limit", 9, 5, std::nextafter(15.0F, 16.0F),
                               false, false, 1, 0},
                      RankCase{"weak second alone", 0, 5, 15.0F, false, false, 0, 1},
                      RankCase{"none", 0, 0, 20, false, false, 0, 1},
                      RankCase{"negative ranges", -1, -2, 20, false, false, 0, 1},
                      RankCase{"nan first", kNan, 5, 20, false, false, 1, 1},
                      RankCase{"nan peak", 9, 5, kNan, false, false, 0, 0}));

TEST(EchoOrdering, BothEchoesEmptyLeaveSlot0AsItStands) {
  FrameRows rows = OnePixel(0.0F, 0.0F);
  const FrameRows before = rows;
  OrderEchoes(rows, 0, 1, {1, 1, 1});
  frame_builder::ExpectSameRows(rows, before, 0, 1);
}

// ---- Moving ----

TEST(EchoOrdering, AOnePacketPlanLeavesSlot1Alone) {
  FrameRows rows = OnePixel(9.0F, 5.0F);
  const LidarPoint before = rows[0][0];
  OrderEchoes(rows, 0, 1, {1, 1, 2});
  EXPECT_EQ(rows[0][0].echoes[0].dist_proc, 5.0F);
  EXPECT_EQ(rows[0][0].echoes[1].dist_proc, 5.0F);
  LidarPoint same_second = rows[0][0];
  same_second.echoes[0] = before.echoes[0];
  EXPECT_TRUE(frame_builder::SameBytes(same_second, before));
}

TEST(EchoOrdering, ASwappingPlanExchangesTheSevenFieldsOnly) {
  FrameRows rows = OnePixel(5.0F, 9.0F);
  LidarPoint& point = rows[0][0];
  // All other fields, to be found where they were.
  for (int slot = 0; slot < 2; ++slot) {
    LidarEcho& echo = point.echoes[slot];
    const float base = 1000.0F * static_cast<float>(slot + 1);
    echo.dist_raw = base + 1.0F;
    echo.refl_raw = base + 2.0F;
    echo.waveform_rms_ratio = base + 3.0F;
    echo.power = base + 4.0F;
    echo.baseline = base + 5.0F;
    echo.peak_ratio = base + 6.0F;
    echo.totsum = base + 7.0F;
    echo.cogw_flag = slot + 6;
    echo.peak_addr = slot + 500;
    echo.highRefl = slot == 0;
    echo.highReflBlooming = slot == 1;
    echo.ground = slot == 0;
    echo.fill_point = slot == 1;
    echo.detect_pass = slot == 0;
    echo.shot_noise_group_point = slot == 1;
  }
  LidarPoint expected = point;
  for (int slot = 0; slot < 2; ++slot) {
    LidarEcho& to = expected.echoes[slot];
    const LidarEcho& from = point.echoes[1 - slot];
    to.dist_proc = from.dist_proc;
    to.refl_proc = from.refl_proc;
    to.cogh = from.cogh;
    to.cogw = from.cogw;
    to.cogw_high = from.cogw_high;
    to.peak = from.peak;
    to.noise = from.noise;
  }
  OrderEchoes(rows, 0, 1, {2, 4, 3});
  EXPECT_TRUE(frame_builder::SameBytes(rows[0][0], expected));
  EXPECT_EQ(rows[0][0].echoes[0].dist_proc, 9.0F);
  EXPECT_EQ(rows[0][0].echoes[1].noise, 105.0F);
}

TEST(EchoOrdering, APreferredAndOtherPlanPutsASingleEchoIntoBothSlots) {
  FrameRows rows = OnePixel(0.0F, 5.0F);
  OrderEchoes(rows, 0, 1, {2, 1, 2});
  EXPECT_EQ(rows[0][0].echoes[0].dist_proc, 5.0F);
  EXPECT_EQ(rows[0][0].echoes[1].dist_proc, 5.0F);
  EXPECT_EQ(rows[0][0].echoes[0].peak, 20.0F);
}

TEST(EchoOrdering, OnlyTheGivenRowsAreOrdered) {
  FrameRows rows = MakeRows(3, 2);
  for (std::vector<LidarPoint>& line : rows) {
    for (LidarPoint& point : line) {
      SetEcho(point.echoes[0], 9.0F);
      SetEcho(point.echoes[1], 5.0F);
      point.echoes[1].peak = 20.0F;
    }
  }
  const FrameRows before = rows;
  OrderEchoes(rows, 1, 1, {1, 1, 1});
  frame_builder::ExpectSameRows(rows, before, 0, 1);
  frame_builder::ExpectSameRows(rows, before, 2, 3);
  EXPECT_EQ(rows[1][0].echoes[0].dist_proc, 5.0F);
  EXPECT_EQ(rows[1][1].echoes[0].dist_proc, 5.0F);
}

TEST(EchoOrdering, EmptyGridsAndRowsOutsideTheGridAreHarmless) {
  FrameRows none;
  FrameRows no_columns = MakeRows(6, 0);
  FrameRows rows = MakeRows(4, 3);
  frame_builder::WildContent(5).Fill(rows);
  const FrameRows before = rows;
  for (FrameRows* grid : {&none, &no_columns}) {
    PrimeProcessedFields(*grid, 0, 6);
    OrderEchoes(*grid, 0, 6, {2, 1, 2});
  }
  for (const int first : {-6, 4, 216}) {
    PrimeProcessedFields(rows, first, 6);
    OrderEchoes(rows, first, 6, {2, 4, 3});
  }
  frame_builder::ExpectSameRows(rows, before, 0, 4);
  // The part of a range that lies in the grid is worked on; a swap of NaN moves its bits.
  OrderEchoes(rows, 2, 6, {2, 4, 3});
  OrderEchoes(rows, 2, 6, {2, 4, 3});
  frame_builder::ExpectSameRows(rows, before, 0, 4);
}

}  // namespace
}  // namespace kerul::lidar
