// Priming, neighbour validation, the shot-noise filter and the order of the echoes against the
// reference, each alone on random frames.
#include <gtest/gtest.h>

#include "MIPI_reader/node/neighbours/neighbour_validation.h"
#include "MIPI_reader/node/rows/echo_ordering.h"
#include "MIPI_reader/node/rows/shot_noise_filter.h"
#include "pass_comparison.h"
#include "reference/ordering.h"
#include "reference/row_filters.h"
#include "support/kernel_forms.h"

namespace kerul::lidar::testing {
namespace {

constexpr int kRows = 1200;  // miniflash rows a pass, at least

TEST(RowPass, PrimingIsTheReferences) {
  RandomRecords random(31);
  PassTally tally;
  while (tally.rows < kRows && !::testing::Test::HasFailure()) {
    random.StartRound();
    ComparePass(
        random, RandomFrame(random),
        [](LidarFrame& frame, int m_row) { PrimeProcessedFields(frame.points, m_row * 6, 6); },
        [](LidarFrame& frame, int m_row) { reference::Prime(frame, m_row); }, tally);
  }
  EXPECT_GT(tally.changed, 10000);
}

TEST(RowPass, NeighbourValidationIsTheReferences) {
  RandomRecords random(32);
  FormsInTurn forms;
  PassTally tally;
  while (tally.rows < 3 * kRows && !::testing::Test::HasFailure()) {
    random.StartRound();
    forms.Next();
    ComparePass(
        random, RandomFrame(random),
        [](LidarFrame& frame, int m_row) { ValidateNeighbours(frame.points, m_row * 6, 6); },
        [](LidarFrame& frame, int m_row) { reference::NeighborMiniflashRow(frame, m_row); }, tally);
  }
  EXPECT_GT(tally.changed, 100000);
}

TEST(RowPass, ShotNoiseFilterIsTheReferences) {
  RandomRecords random(33);
  PassTally tally;
  while (tally.rows < kRows && !::testing::Test::HasFailure()) {
    random.StartRound();
    // Wide enough for more than eight suspect blocks. A frame always holds whole blocks.
    const FrameStyle style = random.Chance(0.5) ? FrameStyle::kPatches : random.Style();
    const int width = 6 * random.Between(8, 48);
    const LidarFrame before =
        random.Frame(6 * random.Between(1, 3), width, random.Between(1, 2), style);
    const float gate = random.Chance(0.7) ? 1.0F : random.Salted(0.0F, 5.0F, 0.3);
    const int blocks = random.Chance(0.7) ? 48 : random.Between(0, 60);
    ComparePass(
        random, before,
        [&](LidarFrame& frame, int m_row) { FilterShotNoise(frame.points, m_row, blocks, gate); },
        [&](LidarFrame& frame, int m_row) {
          reference::ApplyShotNoiseMiniflashRow(frame, m_row, blocks, gate);
        },
        tally);
  }
  EXPECT_GT(tally.changed, 10000);
}

TEST(RowPass, OrderOfTheEchoesIsTheReferencesUnderEveryPlan) {
  RandomRecords random(34);
  PassTally tally;
  for (int code = 0; code < 101 && !::testing::Test::HasFailure(); ++code) {
    for (int i = 0; i < 4; ++i) {
      random.StartRound();
      const EchoOutputPlan plan = MakeEchoOutputPlan(2, code);
      const reference::EchoOutputPlan expected_plan = reference::MakePlan(2, code);
      ASSERT_EQ(plan.count, expected_plan.count) << code;
      ASSERT_EQ(plan.first, expected_plan.first) << code;
      ASSERT_EQ(plan.second, expected_plan.second) << code;
      const LidarFrame before =
          random.Frame(6 * random.Between(1, 5), random.Between(1, 60), 2, random.Style());
      ComparePass(
          random, before,
          [&](LidarFrame& frame, int m_row) { OrderEchoes(frame.points, m_row * 6, 6, plan); },
          [&](LidarFrame& frame, int m_row) {
            reference::OrderRowEchoes(frame, m_row, expected_plan);
          },
          tally);
    }
  }
  EXPECT_GE(tally.rows, 1000);
  EXPECT_GT(tally.changed, 10000);
}

TEST(RowPass, PlansAreTheReferences) {
  int compared = 0;
  for (int echo_num = 0; echo_num <= 2; ++echo_num) {
    for (int code = 0; code <= 1200; ++code, ++compared) {
      const EchoOutputPlan plan = MakeEchoOutputPlan(echo_num, code);
      const reference::EchoOutputPlan expected = reference::MakePlan(echo_num, code);
      ASSERT_EQ(plan.count, expected.count) << echo_num << " " << code;
      ASSERT_EQ(plan.first, expected.first) << echo_num << " " << code;
      ASSERT_EQ(plan.second, expected.second) << echo_num << " " << code;
    }
  }
  EXPECT_EQ(compared, 3 * 1201);
}

}  // namespace
}  // namespace kerul::lidar::testing
