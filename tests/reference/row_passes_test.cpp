#include <gtest/gtest.h>

#include <cmath>

#include "reference/bloom.h"
#include "reference/ordering.h"
#include "reference/row_filters.h"

namespace reference {
namespace {

void Put(LidarFrame& frame, int row, int col, float dist, float refl, float peak_ratio) {
  LidarEcho& e =
      frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)].echoes[0];
  e.dist_raw = dist;
  e.refl_raw = refl;
  e.dist_proc = dist;
  e.refl_proc = refl;
  e.peak_ratio = peak_ratio;
}

LidarEcho& Echo(LidarFrame& frame, int row, int col) {
  return frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)].echoes[0];
}

TEST(ReferenceNeighbours, CornerKeepsIsolatedErasesHoleFills) {
  LidarFrame frame = MakeFrame(12, 24, 1);
  for (int row = 0; row < 5; ++row) {
    for (int col = 0; col < 5; ++col) Put(frame, row, col, 5.0F, 40.0F, 2.0F);
  }
  Put(frame, 2, 2, 0.0F, 0.0F, 0.0F);
  Put(frame, 3, 12, 7.0F, 30.0F, 2.0F);
  NeighborMiniflashRow(frame, 0);
  EXPECT_NEAR(Echo(frame, 0, 0).dist_proc, 5.0F, 1e-6);
  EXPECT_EQ(Echo(frame, 3, 12).dist_raw, 0.0F);
  EXPECT_EQ(Echo(frame, 3, 12).dist_proc, 0.0F);
  EXPECT_TRUE(Echo(frame, 2, 2).fill_point);
  EXPECT_NEAR(Echo(frame, 2, 2).dist_proc, 5.0F, 1e-6);
  EXPECT_NEAR(Echo(frame, 2, 2).refl_proc, 40.0F, 1e-5);
  EXPECT_EQ(Echo(frame, 2, 2).dist_raw, 0.0F);
}

TEST(ReferenceNeighbours, SmoothingWeighsTheCentreTwoTenths) {
  LidarFrame frame = MakeFrame(12, 24, 1);
  for (int row = 0; row < 5; ++row) {
    for (int col = 0; col < 5; ++col) Put(frame, row, col, 5.05F, 40.0F, 1.0F);
  }
  Put(frame, 2, 2, 5.0F, 90.0F, 1.0F);
  NeighborMiniflashRow(frame, 0);
  // 0.2 of the pixel and 0.8 of its ring.
  EXPECT_NEAR(Echo(frame, 2, 2).dist_proc, 5.04F, 1e-5);
  EXPECT_NEAR(Echo(frame, 2, 2).refl_proc, 50.0F, 1e-4);
  EXPECT_EQ(Echo(frame, 2, 2).dist_raw, 5.0F);
}

// Breaks the boundary between block k and the next one.
void BreakBoundary(LidarFrame& frame, int k) {
  for (int row = 0; row < 4; ++row) Echo(frame, row, 6 * k + 5).dist_proc = 3.0F;
  Echo(frame, 0, 6 * k + 5).cogw_flag = 1;
  Echo(frame, 1, 6 * k + 5).cogw_flag = 6;
}

TEST(ReferenceShotNoise, NineSuspectBlocksLoseTheirFlaggedEchoesEightDoNot) {
  for (int boundaries : {4, 5}) {
    LidarFrame frame = MakeFrame(12, 120, 1);
    for (int i = 0; i < boundaries; ++i) BreakBoundary(frame, 3 * i);
    if (boundaries == 5) Echo(frame, 5, 0).cogw_flag = 1;
    ApplyShotNoiseMiniflashRow(frame, 0, 20, 1.0F);
    const bool acted = boundaries == 5;  // two blocks to a boundary: 8 or 10
    EXPECT_EQ(Echo(frame, 0, 5).dist_proc, acted ? 0.0F : 3.0F);
    EXPECT_EQ(Echo(frame, 0, 5).shot_noise_group_point, acted);
    EXPECT_EQ(Echo(frame, 1, 5).dist_proc, 3.0F);
  }
}

TEST(ReferenceOrdering, PlansAndExchange) {
  EXPECT_EQ(MakePlan(2, 21).count, 2);
  EXPECT_EQ(MakePlan(2, 21).first, 2);
  EXPECT_EQ(MakePlan(2, 25).count, 1);
  EXPECT_EQ(MakePlan(2, 25).first, 1);
  EXPECT_EQ(MakePlan(2, 3).first, 3);
  EXPECT_EQ(MakePlan(1, 3).first, 1);

  LidarFrame frame = MakeFrame(6, 6, 2);
  LidarEcho* e = frame.points[0][0].echoes;
  e[0].dist_proc = 9.0F;
  e[1].dist_proc = 4.0F;
  e[1].peak = 15.0F;  // not valid
  OrderRowEchoes(frame, 0, MakePlan(2, 1));
  EXPECT_EQ(e[0].dist_proc, 9.0F);
  e[1].peak = 15.5F;
  e[0].ground = true;
  OrderRowEchoes(frame, 0, MakePlan(2, 12));
  EXPECT_EQ(e[0].dist_proc, 4.0F);
  EXPECT_EQ(e[0].peak, 15.5F);
  EXPECT_EQ(e[1].dist_proc, 9.0F);
  EXPECT_TRUE(e[0].ground);
}

BloomSuppressCalib PlainBloom() {
  BloomSuppressCalib calib;
  calib.dist_neighbor_enabled = false;
  calib.dist_gate_m = 0.2F;
  calib.threshold = 235.0F;
  calib.min_n = 5;
  for (float& entry : calib.psf_same_block) entry = 0.001F;
  return calib;
}

TEST(ReferenceBloom, SpillIsTakenOffTheReflectivity) {
  LidarFrame frame = MakeFrame(18, 18, 1);
  Put(frame, 8, 8, 5.0F, 255.0F, 2.0F);
  Echo(frame, 8, 8).highRefl = true;
  Echo(frame, 8, 8).power = 2000.0F;
  Put(frame, 8, 9, 5.1F, 50.0F, 2.0F);
  Echo(frame, 8, 9).power = 10.0F;
  Put(frame, 9, 8, 5.1F, 50.0F, 2.0F);
  Echo(frame, 9, 8).power = 2.0F;
  Put(frame, 9, 9, 5.3F, 50.0F, 2.0F);
  SuppressHighReflBlooming(frame, 1, PlainBloom(), true);
  // 0.001 * 2000 = 2 of 10 are spill.
  EXPECT_TRUE(Echo(frame, 8, 9).highReflBlooming);
  EXPECT_NEAR(Echo(frame, 8, 9).refl_proc, 40.0F, 1e-5);
  EXPECT_EQ(Echo(frame, 8, 9).dist_proc, 5.1F);
  EXPECT_EQ(Echo(frame, 9, 8).dist_proc, 0.0F);
  EXPECT_FALSE(Echo(frame, 9, 9).highReflBlooming);
  EXPECT_FALSE(Echo(frame, 8, 8).highReflBlooming);
}

TEST(ReferenceBloom, GainsByHand) {
  LidarFrame frame = MakeFrame(18, 18, 1);
  const BloomSuppressCalib calib = PlainBloom();
  EXPECT_EQ(DistStdGain(frame.points, 6, 6, 0, calib), 1.0F);
  for (int i = 0; i < 4; ++i) Put(frame, 6, 6 + i, i % 2 == 0 ? 4.0F : 5.0F, 0.0F, 0.0F);
  // Four values, spread 0.5: 1 - 0.5555556 * 0.4.
  EXPECT_NEAR(DistStdGain(frame.points, 6, 6, 0, calib), 0.7777778F, 1e-6);
  Put(frame, 7, 6, 4.5F, 0.0F, 0.0F);  // five: one is left
  EXPECT_EQ(DistStdGain(frame.points, 6, 6, 0, calib), 1.5F);

  Echo(frame, 6, 6).highReflBlooming = true;  // upper left corner, 4 m, counts on two edges
  Put(frame, 6, 5, 4.1F, 0.0F, 0.0F);
  Put(frame, 5, 6, 9.0F, 0.0F, 0.0F);
  EXPECT_FLOAT_EQ(EdgeNeighborGain(frame.points, 18, 18, 6, 12, 6, 0, 0.3F), 1.0F);
  Put(frame, 6, 5, 8.0F, 0.0F, 0.0F);
  EXPECT_FLOAT_EQ(EdgeNeighborGain(frame.points, 18, 18, 6, 12, 6, 0, 0.3F), 1.2F);
}

TEST(ReferenceBloom, PatternScoreOfATrueAndOfAnInvertedTemplate) {
  LidarFrame frame = MakeFrame(18, 18, 1);
  BloomSuppressCalib calib = PlainBloom();
  for (int r = 0; r < 6; ++r) {
    for (int c = 0; c < 6; ++c) calib.power_template[r][c] = static_cast<float>(r * c);
  }
  for (int row = 6; row < 12; ++row) {
    for (int col = 6; col < 12; ++col) {
      Put(frame, row, col, 5.0F, 0.0F, 0.0F);
      Echo(frame, row, col).power = 3.0F + 2.0F * calib.power_template[row % 6][col % 6];
    }
  }
  EXPECT_NEAR(PatternMatchPower(frame, 8, 8, 0, calib), 1.0F, 1e-4);
  for (int row = 6; row < 12; ++row) {
    for (int col = 6; col < 12; ++col) {
      Echo(frame, row, col).power = 100.0F - calib.power_template[row % 6][col % 6];
    }
  }
  EXPECT_NEAR(PatternMatchPower(frame, 8, 8, 0, calib), 0.0F, 1e-4);
  EXPECT_EQ(PatternMatchPower(frame, 0, 0, 0, calib), -1.0F);
}

}  // namespace
}  // namespace reference
