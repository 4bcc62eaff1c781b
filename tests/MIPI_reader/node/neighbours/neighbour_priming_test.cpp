// Priming and neighbour validation in one go, in every form, against the two in turn in the scalar
// form, record for record.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>

#include "MIPI_reader/node/ground/ground_labelling.h"
#include "MIPI_reader/node/neighbours/neighbour_rules.h"
#include "MIPI_reader/node/neighbours/neighbour_validation.h"
#include "MIPI_reader/node/rows/echo_ordering.h"
#include "support/frame_builder.h"
#include "support/ground_settings_builder.h"
#include "support/kernel_forms.h"
#include "support/point_compare.h"

namespace kerul::lidar {
namespace {

using frame_builder::ExpectSameRecords;
using frame_builder::MakeRows;
using frame_builder::SetEcho;
using frame_builder::WildContent;

void PrimeThenValidate(FrameRows& rows, int first_row, int row_count) {
  const ForcedForm scalar(InstructionSet::kScalar);
  PrimeProcessedFields(rows, first_row, row_count);
  ValidateNeighbours(rows, first_row, row_count);
}

class NeighbourPriming : public FormsTest {
 protected:
  ~NeighbourPriming() override { LidarPoint::echo_num = 1; }

  static void ExpectAsOneAfterTheOther(const FrameRows& rows, int first_row, int row_count) {
    FrameRows expected = rows;
    PrimeThenValidate(expected, first_row, row_count);
    FrameRows got = rows;
    PrimeAndValidateNeighbours(got, first_row, row_count);
    ExpectSameRecords(expected, got);
  }
};
RUN_IN_EVERY_FORM(NeighbourPriming);

// The processed fields begin with anything, and so do the slots that are not in use.
TEST_P(NeighbourPriming, GivesTheRecordsOfTheTwoForAnyContent) {
  for (std::uint32_t seed = 0; seed < 60; ++seed) {
    std::mt19937 random(seed);
    const int height = 1 + static_cast<int>(random() % 20);
    const int width = 1 + static_cast<int>(random() % 70);
    FrameRows rows = MakeRows(height, width, static_cast<int>(seed % 3));
    WildContent(seed).Fill(rows);
    ExpectAsOneAfterTheOther(rows, 0, height);  // more than one miniflash row's rows, too
    ExpectAsOneAfterTheOther(rows, static_cast<int>(random()) % (height + 6), 6);
  }
}

TEST_P(NeighbourPriming, GivesTheRecordsOfTheTwoForEveryMiniflashRowInTurnAndAgain) {
  FrameRows expected = MakeRows(36, 288);
  WildContent(5).Fill(expected);
  FrameRows got = expected;
  // A late row sends the schedule back.
  for (const int m_row : {0, 1, 2, 3, 1, 2, 3, 4, 5, 5}) {
    PrimeThenValidate(expected, 6 * m_row, 6);
    PrimeAndValidateNeighbours(got, 6 * m_row, 6);
  }
  ExpectSameRecords(expected, got);
}

TEST_P(NeighbourPriming, GivesTheRecordsOfTheTwoForRowsThatTheLanesLeave) {
  for (const int width : {neighbour::kMaxColumns, neighbour::kMaxColumns + 1}) {
    FrameRows wide = MakeRows(4, width);
    WildContent(11).Fill(wide);
    ExpectAsOneAfterTheOther(wide, 1, 2);
  }
  FrameRows ragged = MakeRows(5, 40);
  WildContent(12).Fill(ragged);
  ragged[2].resize(17);
  ragged[4].clear();
  ExpectAsOneAfterTheOther(ragged, 0, 5);
}

// Echoes that the validation leaves alone keep the primed values to the last bit.
TEST_P(NeighbourPriming, AnEchoWithoutARangeShowsItsRawFields) {
  constexpr float kInf = std::numeric_limits<float>::infinity();
  for (const float dist : {0.0F, -0.0F, -3.0F, -kInf, std::nanf("")}) {
    FrameRows rows = MakeRows(3, 20);
    for (LidarEcho& echo : rows[1][9].echoes) {
      echo.dist_raw = dist;
      echo.refl_raw = 7.0F;
      echo.dist_proc = echo.refl_proc = 99.0F;
    }
    PrimeAndValidateNeighbours(rows, 1, 1);
    for (const LidarEcho& echo : rows[1][9].echoes) {
      EXPECT_TRUE(testing::SameValue(echo.dist_proc, dist)) << dist;
      EXPECT_EQ(echo.refl_proc, 7.0F) << dist;
    }
  }
}

TEST_P(NeighbourPriming, TheRowsBesideAndTheSlotNotInUseStayAsTheyAre) {
  FrameRows rows = MakeRows(8, 40, 1);
  for (std::vector<LidarPoint>& line : rows) {
    for (LidarPoint& point : line) {
      for (LidarEcho& echo : point.echoes) {
        SetEcho(echo, 10.0F);
        echo.dist_proc = echo.refl_proc = 99.0F;
      }
    }
  }
  PrimeAndValidateNeighbours(rows, 1, 6);
  int looked_at = 0;
  for (std::size_t row = 0; row < 8; ++row) {
    const bool beside = row == 0 || row == 7;
    for (const LidarPoint& point : rows[row]) {
      EXPECT_EQ(point.echoes[0].dist_proc == 99.0F, beside);
      EXPECT_EQ(point.echoes[1].dist_proc, 99.0F);
      EXPECT_EQ(point.echoes[1].refl_proc, 99.0F);
      ++looked_at;
    }
  }
  EXPECT_EQ(looked_at, 8 * 40);
}

// Slopes with holes, lone echoes, after-pulses and second echoes on them.
void FillWithGround(FrameRows& rows, std::uint32_t seed) {
  std::mt19937 random(seed);
  for (std::size_t row = 0; row < rows.size(); ++row) {
    for (LidarPoint& point : rows[row]) {
      float dist = 3.0F + 0.25F * static_cast<float>(row);
      dist += 0.03125F * static_cast<float>(random() % 3);
      if (random() % 30 == 0) dist = random() % 2 == 0 ? 0.0F : 40.0F;
      const float ratio = random() % 4 == 0 ? 0.75F : 1.5F;
      SetEcho(point.echoes[0], dist, static_cast<float>(random() % 256), ratio);
      point.echoes[0].afterPulse = random() % 30 == 0;
      point.echoes[0].ground_refl_scale = random() % 2 == 0 ? 0.5F : 1.0F;
      if (random() % 3 == 0) SetEcho(point.echoes[1], dist + 1.0F, 30.0F, ratio);
      for (LidarEcho& echo : point.echoes) echo.dist_proc = echo.refl_proc = 99.0F;
    }
  }
}

// The first ground stage may write the processed fields before they are primed: the validation
// writes those of every such echo again.
TEST_P(NeighbourPriming, PrimingAfterTheFirstGroundStageGivesWhatPrimingBeforeItGives) {
  const AngleCalibGrid grid = ground_builder::DownwardGrid(36, 80);
  int labelled = 0;
  for (std::uint32_t seed = 0; seed < 12; ++seed) {
    GroundSettings settings = ground_builder::DefaultSettings();
    settings.smooth_enable = seed % 2 == 0;
    settings.vert_seed_enable = seed % 4 < 2;
    FrameRows before = MakeRows(36, 80, seed % 3 == 0 ? 1 : 2);
    FillWithGround(before, seed);
    LidarFrame expected(36, 80, LidarPoint::echo_num);
    expected.points = before;
    LidarFrame got = expected;
    for (const int m_row : {0, 1, 2, 3, 1, 2, 3, 4, 5}) {
      LabelGround(got, m_row, 6, settings, grid);
      PrimeAndValidateNeighbours(got.points, 6 * m_row, 6);
      const ForcedForm scalar(InstructionSet::kScalar);
      PrimeProcessedFields(expected.points, 6 * m_row, 6);
      LabelGround(expected, m_row, 6, settings, grid);
      ValidateNeighbours(expected.points, 6 * m_row, 6);
    }
    ExpectSameRecords(expected.points, got.points);
    for (const auto& line : got.points) {
      for (const LidarPoint& point : line) labelled += point.echoes[0].ground;
    }
  }
  EXPECT_GT(labelled, 1000);
}

}  // namespace
}  // namespace kerul::lidar
