#include "MIPI_reader/node/neighbours/neighbour_validation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>
#include <utility>

#include "MIPI_reader/node/neighbours/neighbour_scene.h"
#include "support/frame_builder.h"
#include "support/kernel_forms.h"

namespace kerul::lidar {
namespace {

using frame_builder::FillSlot0;
using frame_builder::IsErased;
using frame_builder::MakeRows;
using frame_builder::SetEcho;
using Scene = frame_builder::NeighbourScene;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

using NeighbourValidation = FormsTest;
RUN_IN_EVERY_FORM(NeighbourValidation);

TEST(NeighbourOffsets, CoverTheRingInOppositePairs) {
  std::set<std::pair<int, int>> ring;
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(kGrpADr[i], -kGrpBDr[i]);
    EXPECT_EQ(kGrpADc[i], -kGrpBDc[i]);
    ring.insert({kGrpADr[i], kGrpADc[i]});
    ring.insert({kGrpBDr[i], kGrpBDc[i]});
  }
  EXPECT_EQ(ring.size(), 8U);
  EXPECT_EQ(ring.count({0, 0}), 0U);
  EXPECT_EQ(std::make_pair(kGrpADr[0], kGrpADc[0]), std::make_pair(-1, -1));
  EXPECT_EQ(std::make_pair(kGrpADr[1], kGrpADc[1]), std::make_pair(-1, 0));
  EXPECT_EQ(std::make_pair(kGrpADr[2], kGrpADc[2]), std::make_pair(-1, 1));
  EXPECT_EQ(std::make_pair(kGrpADr[3], kGrpADc[3]), std::make_pair(0, -1));
}

// ---- Support ----

TEST_P(NeighbourValidation, EchoIsKeptWithTheRequiredNeighboursAndErasedWithOneLess) {
  struct SupportCase {
    float peak_ratio;
    int required;
  };
  const SupportCase cases[] = {{2.0F, 3},
                               {1.0F, 3},
                               {std::nextafter(1.0F, 0.0F), 4},
                               {0.9F, 4},
                               {std::nextafter(0.9F, 0.0F), 5},
                               {0.8F, 5},
                               {std::nextafter(0.8F, 0.0F), 6},
                               {0.7F, 6},
                               {std::nextafter(0.7F, 0.0F), 7},
                               {-1.0F, 7},
                               {kNan, 7}};
  for (const auto& [peak_ratio, required] : cases) {
    Scene enough;
    SetEcho(enough.Centre().echoes[0], 10.0F, 20.0F, peak_ratio);
    enough.SetNeighbours(required, 10.0F);
    EXPECT_EQ(enough.Run().dist_raw, 10.0F) << peak_ratio;
    EXPECT_EQ(enough.Centre().echoes[0].refl_raw, 20.0F) << peak_ratio;

    Scene short_of_one;
    SetEcho(short_of_one.Centre().echoes[0], 10.0F, 20.0F, peak_ratio);
    short_of_one.SetNeighbours(required - 1, 10.0F, 0.0F);
    // Weak neighbours do not fill the hole either.
    for (int i = 0; i < required - 1; ++i) short_of_one.Neighbour(i).echoes[0].peak_ratio = 1.0F;
    EXPECT_TRUE(IsErased(short_of_one.Run())) << peak_ratio;
  }
}

TEST_P(NeighbourValidation, CornerPixelSurvivesOnlyAsASureDetection) {
  for (const float ratio : {1.0F, std::nextafter(1.0F, 0.0F)}) {
    FrameRows rows = MakeRows(2, 2);
    FillSlot0(rows, 10.0F);
    rows[0][0].echoes[0].peak_ratio = ratio;
    ValidateNeighbours(rows, 0, 1);
    EXPECT_EQ(rows[0][0].echoes[0].dist_raw, ratio >= 1.0F ? 10.0F : 0.0F);
  }
}

TEST_P(NeighbourValidation, FiveNeighboursOnAnEdgeAreEnoughDownToPointEight) {
  for (const float ratio : {0.8F, std::nextafter(0.8F, 0.0F)}) {
    FrameRows rows = MakeRows(3, 2);
    FillSlot0(rows, 10.0F);
    rows[1][0].echoes[0].peak_ratio = ratio;
    ValidateNeighbours(rows, 1, 1);
    EXPECT_EQ(rows[1][0].echoes[0].dist_raw, ratio >= 0.8F ? 10.0F : 0.0F);
  }
}

// Each pixel needs three: the one to the right, one below, and the one to the left. So what becomes
// of the first decides for all, over as many columns as the row has.
TEST_P(NeighbourValidation, ADecisionIsHandedOnFromPixelToPixelAlongTheRow) {
  constexpr std::size_t kColumns = 130;
  for (const bool first_is_kept : {true, false}) {
    FrameRows rows = MakeRows(3, kColumns);
    for (std::size_t col = 0; col < kColumns; ++col) {
      SetEcho(rows[1][col].echoes[0], 10.0F, 10.0F, 1.0F);
      if (col % 3 == 0) SetEcho(rows[2][col].echoes[0], 10.0F, 10.0F, 1.0F);
    }
    if (first_is_kept) SetEcho(rows[0][0].echoes[0], 10.0F, 10.0F, 1.0F);
    ValidateNeighbours(rows, 1, 1);
    for (std::size_t col = 0; col + 1 < kColumns; ++col) {
      EXPECT_EQ(IsErased(rows[1][col].echoes[0]), !first_is_kept) << col;
    }
    EXPECT_TRUE(IsErased(rows[1][kColumns - 1].echoes[0]));  // nothing to the right
  }
}

TEST_P(NeighbourValidation, ErasedEchoNoLongerSupportsTheNextPixel) {
  FrameRows rows = MakeRows(2, 3);
  FillSlot0(rows, 10.0F, 10.0F, 1.0F);     // just too weak to fill holes
  rows[0][1].echoes[0].peak_ratio = 0.5F;  // asks for seven, an edge pixel has five
  ValidateNeighbours(rows, 0, 2);
  // Scanned before: still counted its right neighbour as the third.
  EXPECT_EQ(rows[0][0].echoes[0].dist_raw, 10.0F);
  EXPECT_TRUE(IsErased(rows[0][1].echoes[0]));
  // Two are left for the pixel to the right and, in the next row, for the pixel below on the left.
  EXPECT_TRUE(IsErased(rows[0][2].echoes[0]));
  EXPECT_TRUE(IsErased(rows[1][0].echoes[0]));
}

TEST_P(NeighbourValidation, SupportGateIsStrictAndGrowsWithRange) {
  // 0.4 m near the sensor, 4 % of the range further out; both differences below are exact.
  const std::pair<float, float> cases[] = {{0.4F, 0.8F}, {50.0F, 52.0F}};
  for (const auto& [d, at_gate] : cases) {
    Scene outside;
    SetEcho(outside.Centre().echoes[0], d);
    outside.SetNeighbours(8, at_gate, 10.0F);
    for (int i = 0; i < 8; ++i) outside.Neighbour(i).echoes[0].peak_ratio = 1.0F;
    EXPECT_TRUE(IsErased(outside.Run())) << d;

    Scene inside;
    SetEcho(inside.Centre().echoes[0], d);
    inside.SetNeighbours(8, std::nextafter(at_gate, 0.0F));
    EXPECT_EQ(inside.Run().dist_raw, d);
  }
}

TEST_P(NeighbourValidation, GroundDoublesTheSupportGateOfBothEchoes) {
  for (const int slot : {0, 1}) {
    for (const bool ground : {false, true}) {
      Scene scene;
      SetEcho(scene.Centre().echoes[slot], 50.0F);
      scene.Centre().echoes[0].ground = ground;
      scene.Centre().echoes[1].ground = !ground;  // not looked at
      scene.SetNeighbours(3, 53.5F);
      scene.Run();
      EXPECT_EQ(scene.Centre().echoes[slot].dist_raw, ground ? 50.0F : 0.0F) << slot;
    }
  }
}

TEST_P(NeighbourValidation, DoubledGateIsStrictToo) {
  for (const float neighbour : {54.0F, std::nextafter(54.0F, 0.0F)}) {
    Scene scene;
    SetEcho(scene.Centre().echoes[0], 50.0F);
    scene.Centre().echoes[0].ground = true;
    scene.SetNeighbours(3, neighbour);
    EXPECT_EQ(scene.Run().dist_raw, neighbour < 54.0F ? 50.0F : 0.0F);
  }
}

TEST_P(NeighbourValidation, NeighboursOutsideTheFrameCountAsEmpty) {
  FrameRows rows = MakeRows(1, 1);
  FillSlot0(rows, 10.0F);
  ValidateNeighbours(rows, 0, 1);
  EXPECT_TRUE(IsErased(rows[0][0].echoes[0]));
}

// ---- Choice of the neighbour's echo ----

TEST_P(NeighbourValidation, NearestSlotOfANeighbourCounts) {
  Scene scene;
  SetEcho(scene.Centre().echoes[0], 10.0F);
  for (int i = 0; i < 3; ++i) {
    SetEcho(scene.Neighbour(i).echoes[0], 30.0F);
    SetEcho(scene.Neighbour(i).echoes[1], 10.0F);
  }
  EXPECT_EQ(scene.Run().dist_raw, 10.0F);
}

TEST_P(NeighbourValidation, OnATieTheLowerSlotWins) {
  // A column pair at 9.95 and 10.05 in both members: slot 0 carries reflectivity 50.
  Scene scene;
  SetEcho(scene.Centre().echoes[0], 10.0F, 0.0F);
  for (const int i : {1, 5}) {
    SetEcho(scene.Neighbour(i).echoes[0], 9.9375F, 50.0F);
    SetEcho(scene.Neighbour(i).echoes[1], 10.0625F, 90.0F);
  }
  SetEcho(scene.Neighbour(0).echoes[0], 10.0F);
  scene.Run();
  const float sum_w = 0.2F + 2.0F * 0.125F;
  EXPECT_EQ(scene.Centre().echoes[0].dist_proc,
            (0.2F * 10.0F + 0.125F * 9.9375F + 0.125F * 9.9375F) / sum_w);
  EXPECT_EQ(scene.Centre().echoes[0].refl_proc, (0.125F * 50.0F + 0.125F * 50.0F) / sum_w);
}

TEST_P(NeighbourValidation, AnEmptyPixelSeesTheSmallestDistanceOfItsNeighbours) {
  Scene scene;
  for (int i = 0; i < 8; ++i) {
    scene.SetNeighbour(i, 12.0F);
    SetEcho(scene.Neighbour(i).echoes[1], 8.0F, 30.0F);
  }
  // The left pixel's slot 1 needs company as well.
  for (std::vector<LidarPoint>& line : scene.rows) SetEcho(line[0].echoes[1], 8.0F);
  const LidarEcho& echo = scene.Run();
  EXPECT_TRUE(echo.fill_point);
  // 4 pairs of 0.1 * 8 over 0.8: within one rounding of 8.
  EXPECT_NEAR(echo.dist_proc, 8.0F, 1e-6F);
}

TEST_P(NeighbourValidation, WithOneEchoInUseTheSecondSlotIsNeitherReadNorWritten) {
  Scene scene;
  SetEcho(scene.Centre().echoes[0], 10.0F);
  scene.Centre().echoes[1].afterPulse = true;
  SetEcho(scene.Centre().echoes[1], 5.0F);
  for (int i = 0; i < 8; ++i) SetEcho(scene.Neighbour(i).echoes[1], 10.0F);
  LidarPoint::echo_num = 1;
  EXPECT_TRUE(IsErased(scene.Run()));
  EXPECT_EQ(scene.Centre().echoes[1].dist_raw, 5.0F);
}

// ---- Smoothing ----

TEST_P(NeighbourValidation, WithoutAPairAnEchoKeepsItsOwnValues) {
  Scene scene;
  SetEcho(scene.Centre().echoes[0], 10.3F, 20.7F);
  scene.SetNeighbours(4, 10.5F);  // group A only: no pair is complete
  const LidarEcho& echo = scene.Run();
  EXPECT_EQ(echo.dist_proc, 0.2F * 10.3F / 0.2F);
  EXPECT_EQ(echo.refl_proc, 0.2F * 20.7F / 0.2F);
  EXPECT_FALSE(echo.fill_point);
}

TEST_P(NeighbourValidation, SmoothingWeighsStraightPairsAboveDiagonals) {
  Scene scene;
  SetEcho(scene.Centre().echoes[0], 10.0F, 20.0F);
  const float dist[8] = {10.01F, 10.02F, 10.03F, 10.04F, 9.99F, 9.98F, 9.97F, 9.96F};
  const float refl[8] = {1.0F, 2.0F, 3.0F, 4.0F, 50.0F, 60.0F, 70.0F, 80.0F};
  for (int i = 0; i < 8; ++i) scene.SetNeighbour(i, dist[i], refl[i]);
  const LidarEcho& echo = scene.Run();

  const float weights[4] = {0.075F, 0.125F, 0.075F, 0.125F};
  float sum_d = 0.2F * 10.0F;
  float sum_r = 0.2F * 20.0F;
  float sum_w = 0.2F;
  for (int i = 0; i < 4; ++i) {
    sum_d = sum_d + weights[i] * dist[i];
    sum_d = sum_d + weights[i] * dist[i + 4];
    sum_r = sum_r + weights[i] * refl[i];
    sum_r = sum_r + weights[i] * refl[i + 4];
    sum_w = sum_w + 2.0F * weights[i];
  }
  EXPECT_EQ(echo.dist_proc, sum_d / sum_w);
  EXPECT_EQ(echo.refl_proc, sum_r / sum_w);
  // By hand: 0.2 * 20 + 0.075 * (51 + 73) + 0.125 * (62 + 84) = 31.55 over a weight of 1; the
  // tolerance covers ten roundings.
  EXPECT_NEAR(echo.refl_proc, 31.55F, 1e-4F);
  EXPECT_EQ(echo.dist_raw, 10.0F);
  EXPECT_EQ(echo.refl_raw, 20.0F);
}

TEST_P(NeighbourValidation, RaisedNoiseLeansOnTheNeighbours) {
  for (const float noise : {0.0F, -1.0F, kNan, 0.5F}) {
    Scene scene;
    SetEcho(scene.Centre().echoes[0], 10.0F, 0.0F);
    scene.Centre().echoes[0].change_noise_noise_append = noise;
    scene.SetNeighbour(0, 10.2F);  // supports, joins no pair
    scene.SetNeighbour(1, 10.0F, 100.0F);
    scene.SetNeighbour(5, 10.0F, 100.0F);
    const float centre = noise > 0.0F ? 0.01F : 0.2F;
    EXPECT_EQ(scene.Run().refl_proc, (0.125F * 100.0F + 0.125F * 100.0F) / (centre + 0.25F));
  }
}

TEST_P(NeighbourValidation, PairGateIsStrictAndAskedOfBothMembers) {
  // 0.1 m near the sensor, 1 % of the range further out; both differences below are exact.
  const std::pair<float, float> cases[] = {{0.1F, 0.2F}, {100.0F, 101.0F}};
  for (const auto& [d, at_gate] : cases) {
    for (const int member : {1, 5}) {
      for (const bool inside : {false, true}) {
        Scene scene;
        SetEcho(scene.Centre().echoes[0], d, 0.0F);
        scene.SetNeighbour(0, d);
        scene.SetNeighbour(1, d, 40.0F);
        scene.SetNeighbour(5, d, 40.0F);
        scene.Neighbour(member).echoes[0].dist_raw =
            inside ? std::nextafter(at_gate, 0.0F) : at_gate;
        const float refl = scene.Run().refl_proc;
        EXPECT_EQ(refl > 0.0F, inside) << d << ' ' << member;
        EXPECT_EQ(scene.Centre().echoes[0].dist_raw, d);
      }
    }
  }
}

// ---- Ranges that are no numbers ----

TEST_P(NeighbourValidation, NegativeRangeCountsAsEmptyAndMayBeFilled) {
  Scene scene;
  scene.SetNeighbours(8, 10.0F);
  scene.Centre().echoes[0].dist_raw = -5.0F;
  EXPECT_TRUE(scene.Run().fill_point);
  EXPECT_EQ(scene.Centre().echoes[0].dist_raw, -5.0F);
}

TEST_P(NeighbourValidation, InfiniteRangeHasNoSupport) {
  Scene scene;
  SetEcho(scene.Centre().echoes[0], kInf);
  scene.SetNeighbours(8, kInf);
  ValidateNeighbours(scene.rows, 1, 1);
  EXPECT_EQ(scene.Centre().echoes[0].dist_raw, 0.0F);
}

TEST_P(NeighbourValidation, NanNeighboursAreEmpty) {
  Scene scene;
  SetEcho(scene.Centre().echoes[0], 10.0F);
  scene.SetNeighbours(8, kNan);
  EXPECT_TRUE(IsErased(scene.Run()));
}

// ---- Extent ----

TEST_P(NeighbourValidation, OnlyTheGivenRowsAreWritten) {
  for (std::uint32_t seed = 1; seed <= 20; ++seed) {
    FrameRows rows = MakeRows(9, 7);
    frame_builder::WildContent(seed).Fill(rows);
    const FrameRows before = rows;
    ValidateNeighbours(rows, 3, 3);
    frame_builder::ExpectSameRows(rows, before, 0, 3);
    frame_builder::ExpectSameRows(rows, before, 6, 9);
  }
}

TEST_P(NeighbourValidation, AFrameGivesTheSameInsideAnEmptyMargin) {
  // The margin turns every border pixel into an inner one whose outer neighbours are empty.
  for (std::uint32_t seed = 1; seed <= 50; ++seed) {
    FrameRows rows = MakeRows(6, 9);
    frame_builder::WildContent(seed).Fill(rows);
    FrameRows framed = MakeRows(8, 11);
    for (std::size_t row = 0; row < 6; ++row) {
      std::copy(rows[row].begin(), rows[row].end(), framed[row + 1].begin() + 1);
    }
    ValidateNeighbours(rows, 0, 6);
    ValidateNeighbours(framed, 0, 8);
    std::size_t compared = 0;
    for (std::size_t row = 0; row < 6; ++row) {
      for (std::size_t col = 0; col < 9; ++col) {
        EXPECT_TRUE(frame_builder::SameBytes(rows[row][col], framed[row + 1][col + 1]));
        ++compared;
      }
    }
    EXPECT_EQ(compared, 54U);
  }
}

TEST_P(NeighbourValidation, EmptyGridsAndRowsOutsideTheGridAreHarmless) {
  FrameRows none;
  ValidateNeighbours(none, 0, 6);
  FrameRows no_columns = MakeRows(6, 0);
  ValidateNeighbours(no_columns, 0, 6);

  FrameRows rows = MakeRows(4, 3);
  FillSlot0(rows, 10.0F);
  const FrameRows before = rows;
  ValidateNeighbours(rows, 4, 6);
  ValidateNeighbours(rows, -6, 6);
  ValidateNeighbours(rows, 1, 0);
  ValidateNeighbours(rows, 1, -2);
  frame_builder::ExpectSameRows(rows, before, 0, 4);
  // A range that sticks out on both sides covers the whole grid: the corners go last.
  rows[0][0].echoes[0].peak_ratio = 0.0F;
  rows[3][2].echoes[0].peak_ratio = 0.0F;
  ValidateNeighbours(rows, -2, 100);
  EXPECT_TRUE(IsErased(rows[0][0].echoes[0]));
  EXPECT_TRUE(IsErased(rows[3][2].echoes[0]));
}

TEST_P(NeighbourValidation, TinyGridsOfAnyContentStayInsideTheGrid) {
  int runs = 0;
  for (int height = 1; height <= 4; ++height) {
    for (int width = 1; width <= 4; ++width) {
      FrameRows rows = MakeRows(height, width);
      frame_builder::WildContent(static_cast<std::uint32_t>(height * 10 + width)).Fill(rows);
      ValidateNeighbours(rows, 0, 6);
      ++runs;
    }
  }
  EXPECT_EQ(runs, 16);
}

}  // namespace
}  // namespace kerul::lidar
