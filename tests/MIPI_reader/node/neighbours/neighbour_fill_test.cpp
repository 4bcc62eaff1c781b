// Neighbour validation of empty slots, after-pulses and holes.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "MIPI_reader/node/neighbours/neighbour_scene.h"
#include "MIPI_reader/node/neighbours/neighbour_validation.h"
#include "support/frame_builder.h"
#include "support/kernel_forms.h"

namespace kerul::lidar {
namespace {

using frame_builder::IsErased;
using frame_builder::SetEcho;
using Scene = frame_builder::NeighbourScene;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr int kRightNeighbour = 7;

using NeighbourFill = FormsTest;
RUN_IN_EVERY_FORM(NeighbourFill);

// ---- Empty slots and after-pulses ----

TEST_P(NeighbourFill, EmptyOrErasedSecondEchoIsNeverFilled) {
  Scene empty;
  empty.SetNeighbours(8, 10.0F);
  SetEcho(empty.Centre().echoes[0], 10.0F);
  empty.Run();
  EXPECT_TRUE(IsErased(empty.Centre().echoes[1]));
  EXPECT_FALSE(empty.Centre().echoes[1].fill_point);

  Scene erased;
  erased.SetNeighbours(8, 10.0F);
  SetEcho(erased.Centre().echoes[0], 10.0F);
  SetEcho(erased.Centre().echoes[1], 20.0F);
  erased.Run();
  EXPECT_TRUE(IsErased(erased.Centre().echoes[1]));
  EXPECT_FALSE(erased.Centre().echoes[1].fill_point);
  EXPECT_FALSE(erased.Centre().echoes[0].fill_point);
}

TEST_P(NeighbourFill, SecondEchoWithoutARangeIsLeftAsItIs) {
  for (const float dist : {0.0F, -3.0F, kNan}) {
    Scene scene;
    scene.SetNeighbours(8, 10.0F);
    SetEcho(scene.Centre().echoes[0], 10.0F);
    scene.Centre().echoes[1].dist_raw = dist;
    scene.Centre().echoes[1].refl_raw = 7.0F;
    scene.Run();
    EXPECT_EQ(scene.Centre().echoes[1].refl_raw, 7.0F);
  }
}

TEST_P(NeighbourFill, AfterPulseIsErasedWhateverItsNeighboursSay) {
  Scene scene;
  scene.SetNeighbours(8, 10.0F);
  SetEcho(scene.Centre().echoes[0], 10.0F);
  SetEcho(scene.Centre().echoes[1], 10.0F);
  scene.Centre().echoes[1].afterPulse = true;
  scene.Run();
  EXPECT_EQ(scene.Centre().echoes[0].dist_raw, 10.0F);
  EXPECT_TRUE(IsErased(scene.Centre().echoes[1]));
}

TEST_P(NeighbourFill, PixelWhoseFirstEchoIsAnAfterPulseIsNotFilled) {
  for (const float dist : {0.0F, 10.0F}) {
    Scene scene;
    scene.SetNeighbours(8, 10.0F);
    SetEcho(scene.Centre().echoes[0], dist);
    scene.Centre().echoes[0].afterPulse = true;
    EXPECT_TRUE(IsErased(scene.Run()));
    EXPECT_FALSE(scene.Centre().echoes[0].fill_point);
  }
}

// ---- Fill ----

TEST_P(NeighbourFill, TwoQualifyingPairsFillWithThePlainMean) {
  Scene scene;
  scene.SetNeighbour(1, 10.0F, 10.0F);
  scene.SetNeighbour(5, 10.04F, 20.0F);
  scene.SetNeighbour(3, 10.02F, 30.0F);
  scene.SetNeighbour(7, 10.06F, 60.0F);
  const LidarEcho& echo = scene.Run();
  EXPECT_TRUE(echo.fill_point);
  const float sum_d = 0.1F * 10.0F + 0.1F * 10.04F + 0.1F * 10.02F + 0.1F * 10.06F;
  const float sum_r = 0.1F * 10.0F + 0.1F * 20.0F + 0.1F * 30.0F + 0.1F * 60.0F;
  EXPECT_EQ(echo.dist_proc, sum_d / 0.4F);
  EXPECT_EQ(echo.refl_proc, sum_r / 0.4F);
  // The mean of the four is 10.03 and 30; the tolerances cover five roundings.
  EXPECT_NEAR(echo.dist_proc, 10.03F, 1e-5F);
  EXPECT_NEAR(echo.refl_proc, 30.0F, 3e-5F);
  EXPECT_EQ(echo.dist_raw, 0.0F);
  EXPECT_EQ(echo.refl_raw, 0.0F);
}

TEST_P(NeighbourFill, WeightFollowsTheNumberOfCompletePairs) {
  const float weights[4] = {0.2F, 0.4F, 0.6F, 0.8F};
  for (int pairs = 2; pairs <= 4; ++pairs) {
    Scene scene;
    for (int i = 0; i < pairs; ++i) {
      scene.SetNeighbour(i, 10.0F, 8.0F);
      scene.SetNeighbour(i + 4, 10.0F, 8.0F);
    }
    float sum_d = 0.0F;
    for (int i = 0; i < 2 * pairs; ++i) sum_d = sum_d + 0.1F * 10.0F;
    EXPECT_EQ(scene.Run().dist_proc, sum_d / weights[pairs - 1]) << pairs;
  }
}

TEST_P(NeighbourFill, FourSamplesFromIncompletePairsDoNotFill) {
  Scene scene;
  scene.SetNeighbours(4, 10.0F);
  EXPECT_FALSE(scene.Run().fill_point);
  EXPECT_EQ(scene.Centre().echoes[0].dist_proc, 0.0F);
}

TEST_P(NeighbourFill, ThreeSamplesDoNotFill) {
  Scene scene;
  scene.SetNeighbour(1, 10.0F);
  scene.SetNeighbour(5, 10.0F);
  scene.SetNeighbour(0, 10.0F);
  EXPECT_FALSE(scene.Run().fill_point);
  scene.SetNeighbour(2, 10.0F);
  EXPECT_TRUE(scene.Run().fill_point);
}

TEST_P(NeighbourFill, SampleWithoutItsOppositeIsTestedButMovesNoMean) {
  for (const float loner : {10.05F, 10.2F}) {
    Scene scene;
    scene.SetNeighbour(1, 10.0F, 4.0F);
    scene.SetNeighbour(5, 10.0F, 4.0F);
    scene.SetNeighbour(0, loner, 99.0F);
    scene.SetNeighbour(2, 10.0F, 99.0F);
    const LidarEcho& echo = scene.Run();
    EXPECT_EQ(echo.fill_point, loner < 10.1F);
    if (!echo.fill_point) continue;
    EXPECT_EQ(echo.dist_proc, (0.1F * 10.0F + 0.1F * 10.0F) / 0.2F);
    EXPECT_EQ(echo.refl_proc, (0.1F * 4.0F + 0.1F * 4.0F) / 0.2F);
  }
}

TEST_P(NeighbourFill, ASampleExactlyAtTheFillToleranceIsAccepted) {
  // A complete pair at 2.0 has a mean of exactly 2.0.
  const float base = 2.0F;
  ASSERT_EQ((0.1F * base + 0.1F * base) / 0.2F, base);
  // The largest single-precision sample whose difference is not above 0.1, and the next one.
  float at_limit = base + 0.2F;
  while (at_limit - base > 0.1F) at_limit = std::nextafter(at_limit, 0.0F);
  for (const bool beyond : {false, true}) {
    Scene scene;
    scene.SetNeighbour(1, base);
    scene.SetNeighbour(5, base);
    scene.SetNeighbour(0, base);
    scene.SetNeighbour(2, beyond ? std::nextafter(at_limit, 9.0F) : at_limit);
    EXPECT_EQ(scene.Run().fill_point, !beyond);
  }
}

TEST_P(NeighbourFill, SamplesHaveToBeBeyondOneMetreAndSure) {
  struct Limit {
    float dist;
    float ratio;
    bool fills;
  };
  const Limit limits[] = {{1.0F, 2.0F, false},
                          {std::nextafter(1.0F, 2.0F), 2.0F, true},
                          {10.0F, 1.0F, false},
                          {10.0F, std::nextafter(1.0F, 2.0F), true},
                          {10.0F, kNan, false}};
  for (const Limit& limit : limits) {
    Scene scene;
    for (const int i : {1, 2, 5, 6}) scene.SetNeighbour(i, limit.dist, 10.0F, limit.ratio);
    EXPECT_EQ(scene.Run().fill_point, limit.fills) << limit.dist << ' ' << limit.ratio;
  }
}

TEST_P(NeighbourFill, ErasedEchoIsFilledWithTheToleranceOfItsOldRange) {
  // Two samples of the pairs lie 0.2 m off the mean: too much for an empty pixel (0.1 m), little
  // enough for an erased echo at 20 m (0.6 m).
  for (const float dist : {0.0F, 20.0F}) {
    Scene scene;
    SetEcho(scene.Centre().echoes[0], dist, dist, 0.1F);
    scene.SetNeighbour(1, 10.0F);
    scene.SetNeighbour(5, 10.4F);
    scene.SetNeighbour(2, 10.0F);
    scene.SetNeighbour(6, 10.4F);
    const LidarEcho& echo = scene.Run();
    EXPECT_EQ(echo.fill_point, dist > 0.0F);
    EXPECT_EQ(echo.dist_raw, 0.0F);
    EXPECT_EQ(echo.refl_raw, 0.0F);
    // (2 * 10 + 2 * 10.4) / 4, five roundings.
    EXPECT_NEAR(echo.dist_proc, dist > 0.0F ? 10.2F : 0.0F, 1e-5F);
  }
}

TEST_P(NeighbourFill, FillToleranceIsThreePercentOfTheErasedRange) {
  // A range whose 3 % are exactly 0.25 m, so that a sample can lie exactly at the tolerance.
  float d = 8.3F;
  while (0.03F * d < 0.25F) d = std::nextafter(d, 9.0F);
  ASSERT_EQ(0.03F * d, 0.25F);
  for (const float loner : {16.25F, std::nextafter(16.25F, 17.0F), 15.75F, 15.7F}) {
    Scene scene;
    SetEcho(scene.Centre().echoes[0], d, 50.0F, 0.1F);
    scene.SetNeighbour(1, 16.0F);  // the pair's mean is exactly 16
    scene.SetNeighbour(5, 16.0F);
    scene.SetNeighbour(0, 16.0F);
    scene.SetNeighbour(2, loner);
    EXPECT_EQ(scene.Run().fill_point, loner == 16.25F || loner == 15.75F) << loner;
  }
}

TEST_P(NeighbourFill, ErasedEchoChoosesItsSamplesByItsOldRange) {
  // Slot 1 of each neighbour lies nearer to the erased 20 m than slot 0 does.
  Scene scene;
  SetEcho(scene.Centre().echoes[0], 20.0F, 50.0F, 0.1F);
  for (const int i : {1, 2, 5, 6}) {
    SetEcho(scene.Neighbour(i).echoes[0], 10.0F);
    SetEcho(scene.Neighbour(i).echoes[1], 18.0F);
  }
  EXPECT_TRUE(scene.Run().fill_point);
  EXPECT_NEAR(scene.Centre().echoes[0].dist_proc, 18.0F, 1e-5F);
}

TEST_P(NeighbourFill, FilledPixelSupportsNobody) {
  // (1, 2) is filled; its right neighbour then has two supporters only, as before.
  Scene scene;
  scene.SetNeighbours(7, 10.0F);
  SetEcho(scene.Neighbour(kRightNeighbour).echoes[0], 10.0F);
  scene.rows[0][3].echoes[0].dist_raw = 0.0F;
  scene.rows[2][3].echoes[0].dist_raw = 0.0F;
  ValidateNeighbours(scene.rows, 1, 1);
  EXPECT_TRUE(scene.Centre().echoes[0].fill_point);
  EXPECT_TRUE(IsErased(scene.Neighbour(kRightNeighbour).echoes[0]));
}

TEST_P(NeighbourFill, KeptEchoIsSmoothedAndNotFilled) {
  Scene scene;
  SetEcho(scene.Centre().echoes[0], 10.0F);
  scene.SetNeighbours(8, 10.0F);
  EXPECT_FALSE(scene.Run().fill_point);
  EXPECT_EQ(scene.Centre().echoes[0].dist_raw, 10.0F);
}

}  // namespace
}  // namespace kerul::lidar
