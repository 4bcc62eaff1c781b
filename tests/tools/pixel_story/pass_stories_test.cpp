// Sentences about small frames, their numbers worked out by hand.
#include "pixel_story/pass_stories.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "config/default_config.h"
#include "support/frame_builder.h"

namespace kerul::lidar::story {
namespace {

using frame_builder::SetEcho;
using Sentences = std::vector<std::string>;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::StartsWith;

constexpr int kCol = 8;  // of the pixel looked at

// 18 pixel rows, of which the passes run over the middle six, and four block columns.
class PassStories : public ::testing::Test {
 protected:
  PassStories() {
    frame_.height = 18;
    frame_.width = 24;
    frame_.echo_num = 2;
    frame_.points = frame_builder::MakeRows(18, 24);
    ground_ = {.vert_span_ratio = 0.05F,
               .vert_span_max = 0.4F,
               .mean_diff_ratio = 0.04F,
               .mean_diff_max = 0.3F,
               .max_diff_ratio = 0.2F,
               .max_diff_max = 0.2F,
               .min_dist = {1.0F}};
  }

  LidarEcho& Echo(int row, int col, int slot = 0) {
    return frame_.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)].echoes[slot];
  }

  // The sentences about the echo of pixel row,8.
  Sentences Told(RowPass pass, void (*tell)(LidarFrame&, const PassMoment&, PassSheet&),
                 int slot = 0, int row = 8) {
    RowPassSettings settings = MakeRowPassSettings(
        default_config::kConfig,
        {.ground = ground_, .angle_grid = grid_, .bloom = bloom_, .echo_plan = plan_});
    settings.block_columns = 4;
    const PassMoment moment{pass, 1, frame_, frame_, settings};
    const StoryBook book({row, kCol, row, kCol}, 2);
    PassSheet sheet(book, std::string(RowPassName(pass)), 1, 6);
    tell(frame_, moment, sheet);
    return sheet.Find(row, kCol, slot)->sentences;
  }

  LidarFrame frame_;
  GroundSettings ground_;
  AngleCalibGrid grid_;
  BloomSuppressCalib bloom_ = default_config::kConfig.bloom_suppress_calib;
  EchoOutputPlan plan_;
};

// A gate of 4 % of 14.2 m; a peak ratio between 0.8 and 0.9 asks for five of eight. The row above
// belongs to another miniflash row: its lonely echo has not been erased.
TEST_F(PassStories, AnErasedEchoIsToldWithBothSidesOfEachComparison) {
  SetEcho(Echo(6, 8), 14.2F, 10.0F, 0.83F);
  SetEcho(Echo(5, 8), 14.7F);
  SetEcho(Echo(7, 8), 13.7F);
  SetEcho(Echo(6, 9), 14.8F);
  EXPECT_THAT(
      Told(RowPass::kNeighbours, TellNeighbours, 0, 6),
      ElementsAre(
          "erased by neighbour validation: 2 of 8 agree within 0.57 m, 5 needed (range 14.20 "
          "m, peak ratio 0.83)",
          "these agree: 5,8 at 14.70 m is 0.50 m off, 7,8 at 13.70 m is 0.50 m off",
          "these do not: 5,7 has no return, 5,9 has no return, 6,7 has no return, 7,9 has no "
          "return, 7,7 has no return, 6,9 at 14.80 m is 0.60 m off",
          "the hole is not filled: 3 neighbours are farther than 1 m with a peak ratio above "
          "1, 4 needed"));
}

// The row's pair weighs 0.125 each, the pixel 0.2; 7,8 lies beyond 1 % of 20 m. The scan visits 6,7
// first, and the row above keeps it.
TEST_F(PassStories, SmoothingNamesThePairsAndTheirWeights) {
  for (const int col : {6, 7, 8}) SetEcho(Echo(5, col), 20.1F);
  SetEcho(Echo(6, 7), 20.1F);
  SetEcho(Echo(6, 8), 20.0F);
  SetEcho(Echo(6, 9), 19.9F);
  SetEcho(Echo(7, 8), 20.3F);
  const Sentences told = Told(RowPass::kNeighbours, TellNeighbours, 0, 6);
  EXPECT_EQ(
      told.front(),
      "kept by neighbour validation: 5 of 8 agree within 0.80 m, 3 needed (range 20.00 m, peak "
      "ratio 1.50)");
  EXPECT_EQ(
      told.back(),
      "smoothed over opposite neighbours that both lie within 0.20 m: itself with weight 0.2, "
      "6,7 and 6,9 with 0.125 each; the weights sum to 0.45");
}

TEST_F(PassStories, AFilledHoleNamesItsSamplesAndPairs) {
  for (const int col : {7, 8, 9}) {
    SetEcho(Echo(5, col), 6.0F);
    SetEcho(Echo(7, col), 6.1F);
  }
  EXPECT_THAT(
      Told(RowPass::kNeighbours, TellNeighbours, 0, 6),
      ElementsAre("filled: 6 neighbours are farther than 1 m with a peak ratio above 1 (4 "
                  "needed), 3 opposite pairs give the mean of 6.05 m, and none lies farther "
                  "from it than 0.050 m (0.10 m allowed)"));
}

TEST_F(PassStories, AnAfterPulseIsErasedWithoutALook) {
  SetEcho(Echo(8, 8, 1), 9.0F);
  Echo(8, 8, 1).afterPulse = true;
  EXPECT_THAT(Told(RowPass::kNeighbours, TellNeighbours, 1),
              ElementsAre("erased by neighbour validation: it is an after-pulse"));
}

// A column that rises by 0.1 m a row: 0.4 m over five, and 5 % of 5.2 m is 0.26 m.
TEST_F(PassStories, GroundIsToldTestByTest) {
  for (int row = 6; row <= 10; ++row) {
    for (int col = 6; col <= 10; ++col) {
      SetEcho(Echo(row, col), 5.0F + 0.1F * static_cast<float>(row - 6));
    }
  }
  SetEcho(Echo(8, 6), 5.24F);
  EXPECT_THAT(
      Told(RowPass::kGround, TellGround),
      ElementsAre(
          "the five pixels of its column, rows 6 to 10, have 5.00 m, 5.10 m, 5.20 m, 5.30 m, "
          "5.40 m",
          "0 of them are nearer than 1.00 m, at most 1 may be", "the ranges rise over 5 rows",
          "they rise by 0.40 m, more than 0.26 m needed",
          "the mean of 4 pixels beside it is 0.010 m off, less than 0.21 m needed, and the "
          "farthest is 0.040 m off, less than 0.20 m needed",
          "ground: it passes all tests",
          "its reflectivity stays: the scale of 1.000 is not below 0.999"));
}

TEST_F(PassStories, GroundEndsAtTheFirstTestThatFails) {
  for (int row = 6; row <= 10; ++row) SetEcho(Echo(row, 8), 5.0F);
  EXPECT_EQ(Told(RowPass::kGround, TellGround).back(),
            "not ground: the ranges do not rise from row to row through the middle over four rows");
  SetEcho(Echo(6, 8), 0.0F);
  EXPECT_THAT(Told(RowPass::kGround, TellGround),
              ElementsAre(StartsWith("not ground: all of the column must have a return; ")));
}

// Columns 6 to 11 hold a wall at 5 m in front of one at 9 m: both their edges are broken, and three
// blocks are suspect.
TEST_F(PassStories, ShotNoiseTellsTheEdgesOfTheBlock) {
  for (int row = 6; row < 12; ++row) {
    for (int col = 0; col < 24; ++col) {
      SetEcho(Echo(row, col), col >= 6 && col < 12 ? 5.0F : 9.0F);
    }
  }
  SetEcho(Echo(10, 5), 5.5F);
  Echo(11, 6).peak = 31.0F;
  Echo(11, 5).peak = 31.0F;
  const Sentences told = Told(RowPass::kShotNoise, TellShotNoise);
  EXPECT_EQ(
      told[0],
      "the block edge between columns 5 and 6 is broken: 4 of 5 rows that count differ by 1.00 "
      "m or more; to be broken it needs 4 that count and at most one that fits");
  EXPECT_EQ(
      told[1],
      "its rows (one counts unless both ranges are 0 or both peaks above 30): row 6 differs: "
      "9.00 and 5.00 m; row 7 differs: 9.00 and 5.00 m; row 8 differs: 9.00 and 5.00 m; row 9 "
      "differs: 9.00 and 5.00 m; row 10 fits: 5.50 and 5.00 m; row 11 does not count");
  EXPECT_THAT(told, Contains("its block is suspect: an edge of it is broken"));
  EXPECT_EQ(told.back(),
            "the row has 3 suspect blocks, more than 8 needed for anything to be erased");
}

TEST_F(PassStories, BloomTellsTheSourceThatMarks) {
  bloom_.dist_gate_m = 0.2F;
  bloom_.threshold = 235.0F;
  SetEcho(Echo(8, 10), 7.0F);
  Echo(8, 10).highRefl = true;
  SetEcho(Echo(8, 8), 7.15F);
  EXPECT_THAT(
      Told(RowPass::kBloom, TellBloom),
      Contains("marked as bloom: the bright pixel 8,10 at 7.00 m is 0.15 m off in range, less "
               "than 0.20 m needed"));
  SetEcho(Echo(8, 8), 7.5F);
  Echo(8, 8).highReflBlooming = false;
  EXPECT_THAT(
      Told(RowPass::kBloom, TellBloom),
      ElementsAre("bright pixels in the 3 x 3 blocks around it: 1",
                  "not marked: the nearest of them in range is 0.50 m off, less than 0.20 m "
                  "needed"));
}

TEST_F(PassStories, BloomTellsOfEchoesWithoutASource) {
  bloom_.source_min_dist_m = 2.0F;
  SetEcho(Echo(8, 8), 7.0F);
  EXPECT_THAT(Told(RowPass::kBloom, TellBloom),
              ElementsAre("not marked: no bright target farther than 2 m lies in the 3 x 3 blocks "
                          "around it"));
}

TEST_F(PassStories, TheNearerEchoGoesFirst) {
  SetEcho(Echo(8, 8), 9.0F);
  SetEcho(Echo(8, 8, 1), 4.0F);
  Echo(8, 8, 1).peak = 40.0F;
  plan_ = {2, 1, 2};
  EXPECT_THAT(
      Told(RowPass::kOrder, TellOrder),
      ElementsAre("an echo of slot 0 counts with a return (its range is 9.00 m)",
                  "slot 1 is preferred: slot 0 lies at 9.00 m, slot 1 at 4.00 m, and the nearer "
                  "one goes first",
                  "packet 1 of its block is to carry the preferred echo: this slot now holds "
                  "the echo of slot 1"));
  EXPECT_EQ(Echo(8, 8).dist_proc, 4.0F);
}

TEST_F(PassStories, WhatTheNodeDidNotDoIsNotTold) {
  const RowPassSettings settings = MakeRowPassSettings(
      default_config::kConfig,
      {.ground = ground_, .angle_grid = grid_, .bloom = bloom_, .echo_plan = plan_});
  LidarFrame told = frame_;
  const PassMoment moment{RowPass::kNeighbours, 1, frame_, frame_, settings};
  EXPECT_NO_THROW(HoldAgainst(told, moment));
  told.points[17][23].echoes[1].refl_proc = -0.0F;
  try {
    HoldAgainst(told, moment);
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "the story of pass neighbours is not the node's: pixel 17,23");
  }
}

}  // namespace
}  // namespace kerul::lidar::story
