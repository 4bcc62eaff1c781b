// How much light the bloom pass takes off a marked echo, and when it erases it.
#include <cmath>
#include <limits>

#include "bloom_fixture.h"

namespace kerul::lidar {
namespace {

using bloom_test::PutEcho;
using bloom_test::PutSource;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

class BloomSpilledPower : public BloomFixture {};

TEST_P(BloomSpilledPower, AnEchoWithoutPowerIsErasedHoweverSmallTheSpill) {
  PutSource(frame_, 8, 8, 10.0F, 1e-30F);
  PutEcho(frame_, 9, 9, 10.0F, 0.0F);
  PutEcho(frame_, 9, 10, 10.0F, kNan);
  PutEcho(frame_, 9, 11, 10.0F, -5.0F);
  Run();
  for (const int col : {9, 10, 11}) {
    EXPECT_EQ(Echo(9, col).dist_proc, 0.0F) << col;
    EXPECT_EQ(Echo(9, col).refl_proc, 0.0F) << col;
    EXPECT_EQ(Echo(9, col).dist_raw, 10.0F) << col;
  }
}

TEST_P(BloomSpilledPower, AnEchoWithoutPowerIsErasedEvenIfTheSpillIsNegative) {
  PutSource(frame_, 8, 8, 10.0F, -40.0F);
  PutEcho(frame_, 9, 9, 10.0F, 0.0F);
  Run();
  EXPECT_EQ(Echo(9, 9).dist_proc, 0.0F);
}

TEST_P(BloomSpilledPower, ASpillAsLargeAsThePowerErases) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 10.0F, 20.0F);
  Run();
  EXPECT_EQ(Echo(9, 9).dist_proc, 0.0F);
  EXPECT_EQ(Echo(9, 9).refl_proc, 0.0F);
}

TEST_P(BloomSpilledPower, AReflectivityThatFallsBelowOneErases) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 10.0F, 40.0F).refl_proc = 1.9375F;  // halved
  PutEcho(frame_, 9, 10, 10.0F, 40.0F).refl_proc = 2.0F;
  Run();
  EXPECT_EQ(Echo(9, 9).dist_proc, 0.0F);
  EXPECT_EQ(Echo(9, 9).refl_proc, 0.0F);
  EXPECT_EQ(Echo(9, 10).dist_proc, 10.0F);
  EXPECT_EQ(Echo(9, 10).refl_proc, 1.0F);
}

TEST_P(BloomSpilledPower, ATwentiethOfThePowerLeftErases) {
  PutSource(frame_, 8, 8, 10.0F, 38.0F);
  PutEcho(frame_, 9, 9, 10.0F, 20.0F).refl_proc = 200.0F;    // 1 of 20 left
  PutEcho(frame_, 9, 10, 10.0F, 20.25F).refl_proc = 200.0F;  // 1.25 of 20.25 left
  Run();
  EXPECT_EQ(Echo(9, 9).dist_proc, 0.0F);
  EXPECT_EQ(Echo(9, 9).refl_proc, 0.0F);
  EXPECT_EQ(Echo(9, 10).dist_proc, 10.0F);
  EXPECT_EQ(Echo(9, 10).refl_proc, 200.0F * (1.25F / 20.25F));
}

TEST_P(BloomSpilledPower, ANegativeTableTailMakesTheReflectivityGrow) {
  calib_.psf_same_block[2] = -0.5F;
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 8, 9, 10.0F, 80.0F);  // one pixel apart: entry 2
  Run();
  EXPECT_EQ(Echo(8, 9).refl_proc, 50.0F);
}

TEST_P(BloomSpilledPower, TheTableFollowsFromTheBlockOfTheSource) {
  struct Case {
    int row, col;
    float left;  // reflectivity left of 40 after a spill of weight * 40 from 80
  };
  for (const Case& at : {Case{6, 6, 30.0F}, Case{11, 11, 30.0F},                       // same
                         Case{5, 6, 35.0F}, Case{12, 11, 35.0F}, Case{6, 5, 35.0F},    // beside
                         Case{6, 12, 35.0F}, Case{0, 11, 35.0F}, Case{11, 17, 35.0F},  //
                         Case{5, 5, 37.5F}, Case{5, 12, 37.5F}, Case{12, 5, 37.5F},    // corner
                         Case{12, 12, 37.5F}}) {
    frame_.Reset();
    PutSource(frame_, at.row, at.col, 10.0F, 40.0F);
    PutEcho(frame_, 8, 8, 10.0F, 80.0F);
    Run();
    EXPECT_EQ(Echo(8, 8).refl_proc, at.left) << at.row << ' ' << at.col;
  }
}

TEST_P(BloomSpilledPower, TheWeightIsInterpolatedBetweenTableEntries) {
  for (int i = 0; i < kPsfEntries; ++i)
    calib_.psf_same_block[i] = static_cast<float>(i * i) / 64.0F;
  PutSource(frame_, 8, 8, 10.0F, 1.0F);
  PutEcho(frame_, 8, 10, 10.0F, 100.0F);   // x = 4
  PutEcho(frame_, 9, 9, 10.0F, 100.0F);    // x = 2 sqrt 2
  PutEcho(frame_, 11, 11, 10.0F, 100.0F);  // x = 6 sqrt 2
  Run();
  const auto left = [](float weight) { return 40.0F * ((100.0F - weight) / 100.0F); };
  EXPECT_EQ(Echo(8, 10).refl_proc, left(16.0F / 64.0F));
  const float near = std::sqrt(2.0F) * 2.0F;
  EXPECT_EQ(Echo(9, 9).refl_proc,
            left((1.0F - (near - 2.0F)) * (4.0F / 64.0F) + (near - 2.0F) * (9.0F / 64.0F)));
  const float far = std::sqrt(18.0F) * 2.0F;
  EXPECT_EQ(Echo(11, 11).refl_proc,
            left((1.0F - (far - 8.0F)) * 1.0F + (far - 8.0F) * (81.0F / 64.0F)));
}

TEST_P(BloomSpilledPower, BeyondFifteenAndAHalfPixelsTheLastEntryCounts) {
  for (int i = 0; i < kPsfEntries - 1; ++i) calib_.psf_diagonal_block[i] = 1000.0F;
  calib_.psf_diagonal_block[kPsfEntries - 1] = 0.5F;
  PutSource(frame_, 17, 17, 10.0F, 40.0F);
  PutEcho(frame_, 6, 6, 10.0F, 80.0F);  // 11 rows and columns: x = 31.1
  Run();
  EXPECT_EQ(Echo(6, 6).refl_proc, 30.0F);
}

TEST_P(BloomSpilledPower, OnlySourcesAtTheEchosRangeAddUp) {
  PutSource(frame_, 8, 8, 10.0F, 16.0F);
  PutSource(frame_, 8, 9, 20.0F, 16.0F);
  PutSource(frame_, 5, 8, 10.125F, 32.0F);
  PutSource(frame_, 5, 5, 10.0F, 64.0F);
  PutEcho(frame_, 9, 9, 10.0F, 80.0F);
  calib_.psf_coeff = 0.5F;
  Run();
  // (8 + 8 + 8) / 2 off 80.
  EXPECT_EQ(Echo(9, 9).refl_proc, 40.0F * (68.0F / 80.0F));
}

TEST_P(BloomSpilledPower, TheSpreadGainOfTheBlockScalesTheSpill) {
  calib_.dist_pattern_enabled = true;
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 10.0F, 80.0F);
  Run();
  // One range in the block has no spread: 1.5 times the spill of 20.
  EXPECT_EQ(Echo(9, 9).refl_proc, 25.0F);
}

TEST_P(BloomSpilledPower, TheEdgeGainOfTheBlockScalesTheSpill) {
  calib_.dist_neighbor_enabled = true;
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 11, 10.0F, 80.0F);
  PutEcho(frame_, 9, 12, 30.0F, 80.0F);  // breaks off across the edge
  Run();
  const float spill = 1.0F * 20.0F * 1.0F * 1.1F;
  EXPECT_EQ(Echo(9, 11).refl_proc, 40.0F * ((80.0F - spill) / 80.0F));
}

TEST_P(BloomSpilledPower, MarksOfTheWholeRowStandBeforeTheFirstGainIsComputed) {
  calib_.dist_neighbor_enabled = true;
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 11, 10.0F, 80.0F);
  PutEcho(frame_, 9, 12, 10.0F, 80.0F);  // marked in the next block: no longer counts as surface
  Run();
  EXPECT_TRUE(Echo(9, 12).highReflBlooming);
  EXPECT_EQ(Echo(9, 11).refl_proc, 30.0F);
}

class BloomEnergyGate : public BloomFixture {
 protected:
  void SetUp() override {
    calib_.pattern_enabled = true;
    calib_.pattern_gain = -2.0F;
    calib_.pattern_offset = 2.4F;
    PutSource(frame_, 6, 6, 10.0F, 40.0F);
    // Five samples around (9, 9), powers 60 to 100.
    for (int i = 0; i < 5; ++i) PutEcho(frame_, 9, 7 + i, 10.0F, kPowers[i]);
  }
  // Reflectivity left at (9, 9), whose power is 80, after a spill of 20 times the gate.
  static float Left(float gate) { return 40.0F * ((80.0F - gate * 20.0F) / 80.0F); }
  static constexpr float kPowers[5] = {60.0F, 100.0F, 80.0F, 100.0F, 60.0F};
};

TEST_P(BloomEnergyGate, TheBestScoreGivesTheSmallestGate) {
  for (int i = 0; i < 5; ++i) calib_.power_template[3][(7 + i) % 6] = kPowers[i];
  Run();
  EXPECT_EQ(Echo(9, 9).refl_proc, Left(0.6F));
}

TEST_P(BloomEnergyGate, TheWorstScoreGivesTheLargestGate) {
  for (int i = 0; i < 5; ++i) calib_.power_template[3][(7 + i) % 6] = -kPowers[i];
  Run();
  EXPECT_EQ(Echo(9, 9).refl_proc, Left(1.4F));
}

TEST_P(BloomEnergyGate, AScoreBetweenGivesTheLinearGate) {
  // No correlation: the score is a half, the line gives 0.75 * 0.5 + 0.5.
  calib_.power_template[3][1] = 1.0F;
  calib_.power_template[3][5] = -1.0F;
  calib_.pattern_gain = 0.75F;
  calib_.pattern_offset = 0.5F;
  Run();
  EXPECT_EQ(Echo(9, 9).refl_proc, Left(0.875F));
}

TEST_P(BloomEnergyGate, WithoutAScoreTheGateIsOne) {
  calib_.min_n = 6;
  Run();
  EXPECT_EQ(Echo(9, 9).refl_proc, Left(1.0F));
}

RUN_IN_EVERY_FORM(BloomSpilledPower);
RUN_IN_EVERY_FORM(BloomEnergyGate);

}  // namespace
}  // namespace kerul::lidar
