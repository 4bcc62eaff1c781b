// Edges, widths, curves and wide pulses of the echo computation.
#include <gtest/gtest.h>

#include <cmath>

#include "echo_fixture.h"

namespace kerul::lidar::testing {
namespace {

using EchoWidths = EchoFormsTest;
RUN_IN_EVERY_FORM(EchoWidths);

TEST_P(EchoWidths, ASumAtTheThresholdTakesTheHalfPosition) {
  const LidarEcho& echo = Compute(Rounded());
  EXPECT_EQ(echo.cogw, 3.0F);  // 9.5 - 6.5
}

TEST_P(EchoWidths, ASumBelowTheThresholdIsInterpolated) {
  const Samples samples = Window(6, {7, 20, 36, 20, 7});  // outer sums 11, inner ones 47
  EXPECT_FLOAT_EQ(Compute(samples).cogw, static_cast<float>(4.0 - 2.0 / 36.0));
}

TEST_P(EchoWidths, AnEdgeAtTheWindowsEndStartsFromZero) {
  Samples samples;
  samples.fill(100);  // every sum 300, 284 above the baseline
  const LidarEcho& echo = Compute(samples);
  const double cut = (284.0 / 5.0) / 284.0;
  EXPECT_FLOAT_EQ(echo.cogw, static_cast<float>(16.0 - 2.0 * cut));
  EXPECT_FLOAT_EQ(echo.dist_raw, 108.0F * 0.15F);
}

TEST_P(EchoWidths, ACentreBelowTheThresholdHasNoHeight) {
  point.echoes[0].baseline = 100.0F;  // threshold 30
  point.detect_threshold = 101.0F;
  const LidarEcho& echo = Compute(Window(7, {40, 40, 40}));  // 20 above the baseline
  EXPECT_TRUE(echo.detect_pass);
  EXPECT_EQ(echo.cogh, 0.0F);
  EXPECT_EQ(echo.dist_raw, 108.0F * 0.15F);
  // Both edges are sought at the centre, next to sums of 0: (30 - 20) / -20 + 8 and 30 / 20 + 7.
  EXPECT_EQ(echo.cogw, 8.5F - 7.5F);
}

TEST_P(EchoWidths, ANegativeBaselineFlowsThroughAsNotANumber) {
  point.echoes[0].baseline = -4.0F;
  const LidarEcho& echo = Compute(Triangle());
  EXPECT_EQ(echo.dist_raw, 108.0F * 0.15F);  // no sum is above NaN: the centre as it is
  EXPECT_EQ(echo.cogh, 0.0F);
  EXPECT_EQ(echo.cogw, 7.5F - 8.5F);
}

TEST_P(EchoWidths, AWidthBelowTheLowCurveIsFlagged) {
  Curves curves;
  curves.low[76] = 3.0F;  // the rounded pulse: peak 76, width 3
  UseCurves(curves);
  EXPECT_EQ(Compute(Rounded()).cogw_flag, 0);  // equal is not below
  curves.low[76] = 3.1F;
  UseCurves(curves);
  point.echoes[0].baseline = 16.0F;
  EXPECT_EQ(Compute(Rounded()).cogw_flag, 1);
}

// Finds the curve entry that is read: the only one that flags the width as too low.
TEST_P(EchoWidths, TheCurveIndexIsTheRoundedNormalisedPeak) {
  const auto reads = [&](std::size_t index, float shot_ratio) {
    Curves curves;
    curves.low[index] = 1000.0F;
    UseCurves(curves);
    point.shot_ratio = shot_ratio;
    point.echoes[0].baseline = 16.0F;
    return Compute(Triangle()).cogw_flag == 1;  // peak 200
  };
  EXPECT_TRUE(reads(200, 1.0F));
  EXPECT_TRUE(reads(13, 16.0F));  // 12.5 rounds away from zero
  EXPECT_FALSE(reads(12, 16.0F));
  EXPECT_TRUE(reads(6, 32.0F));      // 6.25
  EXPECT_TRUE(reads(640, 0.3125F));  // 640
  EXPECT_TRUE(reads(640, 0.25F));    // 800: the last entry
  EXPECT_TRUE(reads(0, 0.0F));       // infinity counts as below every index
  EXPECT_TRUE(reads(0, -1.0F));
  EXPECT_TRUE(reads(0, std::nanf("")));
}

TEST_P(EchoWidths, ModeOneAlwaysComputesTheHighWidth) {
  settings.cogw_high_mode = 1;
  const LidarEcho& echo = Compute(Triangle());
  const double threshold = 368.0 / 3.0;
  const double cut = (threshold - 34.0) / 100.0;
  EXPECT_FLOAT_EQ(echo.cogw_high, static_cast<float>(4.0 - 2.0 * cut));
  EXPECT_EQ(echo.cogw_flag, 2);
  // The centre of gravity comes from the high edges now.
  const double partial = 2.0 * (1.0 - cut) - 1.0;
  const double area = 452.0 + partial * threshold;
  const double energy = 2 * 134.0 * 134.0 + 184.0 * 184.0 + partial * threshold * threshold;
  EXPECT_FLOAT_EQ(echo.cogh, static_cast<float>(0.5 * energy / area));
  EXPECT_FLOAT_EQ(echo.dist_raw, 108.0F * 0.15F);
}

TEST_P(EchoWidths, OtherModesAndModeTwoWithoutCurvesLeaveTheHighWidthOut) {
  for (const int mode : {0, 2, 3}) {
    settings.cogw_high_mode = static_cast<std::uint16_t>(mode);
    point.echoes[0].baseline = 16.0F;
    const LidarEcho& echo = Compute(Triangle());
    EXPECT_EQ(echo.cogw_high, 0.0F);
    EXPECT_EQ(echo.cogw_flag, 0);
  }
}

TEST_P(EchoWidths, ModeTwoComputesTheHighWidthAboveTheGateCurve) {
  settings.cogw_high_mode = 2;
  Curves curves;
  curves.gate[76] = 2.9375F;  // 0.1 above it is more than the width of 3
  UseCurves(curves);
  EXPECT_EQ(Compute(Rounded()).cogw_flag, 0);
  curves.gate[76] = 2.875F;
  UseCurves(curves);
  point.echoes[0].baseline = 16.0F;
  const LidarEcho& echo = Compute(Rounded());
  EXPECT_EQ(echo.cogw_flag, 2);
  // High threshold 120 / 3 = 40, between sums of 12 and 48.
  EXPECT_FLOAT_EQ(echo.cogw_high, static_cast<float>(4.0 - 2.0 * 28.0 / 36.0));
}

TEST_P(EchoWidths, AHighWidthAboveItsCurveIsFlagged) {
  settings.cogw_high_mode = 1;
  Curves curves;
  curves.high[76] = 2.4F;  // the width is 2.444
  UseCurves(curves);
  EXPECT_EQ(Compute(Rounded()).cogw_flag, 2);
  curves.high[76] = 2.3F;
  UseCurves(curves);
  point.echoes[0].baseline = 16.0F;
  EXPECT_EQ(Compute(Rounded()).cogw_flag, 6);
}

TEST_P(EchoWidths, APulseTooWideAndTooHighIsDropped) {
  settings.cogw_high_mode = 1;
  Curves curves;
  curves.high.assign(641, 0.0F);
  UseCurves(curves);
  const Samples samples = Window(6, {100, 200, 300, 200, 100});
  const LidarEcho& echo = Compute(samples);
  EXPECT_GT(echo.cogh, 80.0F);
  EXPECT_GT(echo.cogw_high, 1.0F);
  EXPECT_EQ(echo.dist_raw, 0.0F);
  EXPECT_EQ(echo.cogw_flag & 4, 4);
}

TEST_P(EchoWidths, AWidePulseThatIsLowIsKept) {
  settings.cogw_high_mode = 1;
  Curves curves;
  curves.high.assign(641, 0.0F);
  UseCurves(curves);
  const LidarEcho& echo = Compute(Rounded());  // height below 80
  EXPECT_LT(echo.cogh, 80.0F);
  EXPECT_FLOAT_EQ(echo.dist_raw, 108.0F * 0.15F);
}

// Sums of 100, 160, 184, 176, 112 above the baseline 16 at 6 to 10.
Samples Skewed() { return Window(6, {84, 32, 60, 108, 24}); }

TEST_P(EchoWidths, AModeratelyWidePulseTakesTheParabola) {
  settings.cogw_high_mode = 1;
  // Sums at 7, 8, 9: 176, 200, 192, so 160, 184, 176 above the baseline.
  const double curvature = 160.0 - 368.0 + 176.0;
  const double shift = (160.0 - 176.0) / (2.0 * curvature);
  Curves curves;
  curves.high.assign(641, 0.0F);
  UseCurves(curves);
  const float width = Compute(Skewed()).cogw_high;
  ASSERT_GT(width, 1.0F);
  const auto range_at = [&](float limit) {
    curves.high.assign(641, limit);
    UseCurves(curves);
    point.echoes[0].baseline = 16.0F;
    return Compute(Skewed()).dist_raw;
  };
  const auto parabola = static_cast<float>((100.0 + 8.0 + shift) * 0.15);
  const float centroid = range_at(100.0F);
  EXPECT_FLOAT_EQ(range_at(width - 0.5F), parabola);
  EXPECT_NE(centroid, parabola);
  EXPECT_EQ(range_at(width - 0.05F), centroid);  // not above the curve by 0.1
}

TEST_P(EchoWidths, ATopWithoutAVertexKeepsTheCentreSample) {
  settings.cogw_high_mode = 1;
  Curves curves;
  UseCurves(curves);
  Samples flat;
  flat.fill(100);
  const float width = Compute(flat).cogw_high;
  curves.high.assign(641, width - 0.5F);
  UseCurves(curves);
  point.echoes[0].baseline = 16.0F;
  EXPECT_EQ(Compute(flat).dist_raw, 108.0F * 0.15F);
}

TEST_P(EchoWidths, AVertexMoreThanABinAwayIsNotTaken) {
  settings.cogw_high_mode = 1;
  // Sums at 7, 8, 9: 300, 396, 490; the vertex lies far to the right.
  const Samples samples = Window(5, {100, 100, 100, 100, 196, 194, 150});
  Curves curves;
  UseCurves(curves);
  const float width = Compute(samples).cogw_high;
  curves.high.assign(641, width - 0.5F);
  UseCurves(curves);
  point.echoes[0].baseline = 16.0F;
  EXPECT_EQ(Compute(samples).dist_raw, 108.0F * 0.15F);
}

TEST_P(EchoWidths, AVertexOneBinAwayIsTakenAndOneJustBeyondIsNot) {
  settings.cogw_high_mode = 1;
  Curves curves;
  // Sums at 7, 8, 9: 300, 396 and 428, whose vertex is 9; with 429 it is 8 + 129 / 126.
  for (const int last : {132, 133}) {
    const Samples samples = Window(5, {100, 100, 100, 100, 196, last, 150});
    UseCurves(Curves());
    point.echoes[0].baseline = 16.0F;
    curves.high.assign(641, Compute(samples).cogw_high - 0.5F);
    UseCurves(curves);
    point.echoes[0].baseline = 16.0F;
    EXPECT_FLOAT_EQ(Compute(samples).dist_raw, (last == 132 ? 109.0F : 108.0F) * 0.15F);
  }
}

}  // namespace
}  // namespace kerul::lidar::testing
