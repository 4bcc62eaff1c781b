#include "MIPI_reader/parser/echo_computation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>

#include "MIPI_reader/parser/lidar_parser.h"
#include "echo_fixture.h"

namespace kerul::lidar::testing {
namespace {

using EchoComputation = EchoFormsTest;
RUN_IN_EVERY_FORM(EchoComputation);

TEST_P(EchoComputation, AnEmptyWindowIsNoEcho) {
  const LidarEcho& echo = Compute(Samples{});
  EXPECT_EQ(echo.peak, 16.0F);
  EXPECT_EQ(echo.peak_ratio, 0.0F);
  EXPECT_FALSE(echo.detect_pass);
  EXPECT_EQ(echo.dist_raw, 0.0F);
  EXPECT_EQ(echo.waveform_rms_ratio, 0.0F);
}

TEST_P(EchoComputation, ASymmetricPulseIsCentredOnSampleEight) {
  const LidarEcho& echo = Compute(Triangle());
  EXPECT_FLOAT_EQ(echo.dist_raw, 108.0F * 0.15F);
  EXPECT_TRUE(echo.detect_pass);
  EXPECT_EQ(echo.peak, 200.0F);
  EXPECT_EQ(echo.peak_ratio, 184.0F / 20.0F);
}

// Worked out in double precision from sums of 34, 134, 184, 134, 34 above the baseline. Single
// precision rounds some twenty operations on the way: EXPECT_FLOAT_EQ allows four units in the
// last place of the result.
TEST_P(EchoComputation, PulseMeasuresOfATriangle) {
  const LidarEcho& echo = Compute(Triangle());
  const double threshold = 184.0 / 5.0;
  const double cut = (threshold - 34.0) / (134.0 - 34.0);  // after sum 6 and before sum 10
  const double width = (10.0 - cut) - (6.0 + cut);
  EXPECT_FLOAT_EQ(echo.cogw, static_cast<float>(width));
  const double rms = std::sqrt((184.0 * 184 + 2 * 134.0 * 134 + 2 * 34.0 * 34) / 15.0);
  EXPECT_FLOAT_EQ(echo.waveform_rms_ratio, static_cast<float>(rms / 200.0));
  const double partial = 2 * (1.0 - cut) - 1.0;
  const double area = 134.0 + 184.0 + 134.0 + partial * threshold;
  const double energy = 2 * 134.0 * 134.0 + 184.0 * 184.0 + partial * threshold * threshold;
  EXPECT_FLOAT_EQ(echo.cogh, static_cast<float>(0.5 * energy / area));
  EXPECT_EQ(echo.cogw_high, 0.0F);
  EXPECT_EQ(echo.cogw_flag, 0);
}

TEST_P(EchoComputation, AnAsymmetricPulseMovesTheCentre) {
  // Sums at 6 to 11: 60, 80, 100, 120, 100, 80; each 16 less above the baseline.
  const Samples samples = Window(7, {60, 20, 20, 80});
  const LidarEcho& echo = Compute(samples);
  const double h = 84.0 / 5.0;
  const double from = 5.0 + h / 44.0;
  const double to = 11.0 + (h - 64.0) / -64.0;
  const double left = (6.0 - from) - 0.5;  // what the left edge adds to a half bin
  const double right = (to - 11.0) - 0.5;
  const double area = 44.0 + 64 + 84 + 104 + 84 + 64 + (left + right) * h;
  const double moment =
      6 * 44.0 + 7 * 64 + 8 * 84 + 9 * 104 + 10 * 84 + 11 * 64 + left * h * from + right * h * to;
  EXPECT_FLOAT_EQ(echo.dist_raw, static_cast<float>((100.0 + moment / area) * 0.15));
  EXPECT_FLOAT_EQ(echo.cogw, static_cast<float>(to - from));
}

TEST_P(EchoComputation, TheWindowAddressMovesTheRange) {
  point.echoes[0].peak_addr = 0;
  const float near = Compute(Triangle()).dist_raw;
  EXPECT_FLOAT_EQ(near, 8.0F * 0.15F);
  point.echoes[0].peak_addr = 1000;
  point.echoes[0].baseline = 16.0F;
  EXPECT_FLOAT_EQ(Compute(Triangle()).dist_raw, 1008.0F * 0.15F);
}

TEST_P(EchoComputation, PeakHeightAndBaselineAreDividedByTheShotRatio) {
  const float height = Compute(Triangle()).cogh;
  point.echoes[0].baseline = 16.0F;
  point.shot_ratio = 2.0F;
  const LidarEcho& echo = Compute(Triangle());
  EXPECT_EQ(echo.peak, 100.0F);
  EXPECT_EQ(echo.baseline, 8.0F);
  EXPECT_EQ(echo.cogh, height / 2.0F);
}

TEST_P(EchoComputation, ARatioOfExactlySevenTenthsEndsTheComputation) {
  point.detect_threshold = 116.0F;
  point.shot_ratio = 2.0F;
  // The centre sum is 86: 70 above the baseline, against 100.
  const LidarEcho& echo = Compute(Window(7, {20, 46, 20}));
  EXPECT_EQ(echo.peak_ratio, 0.7F);
  EXPECT_FALSE(echo.detect_pass);
  EXPECT_EQ(echo.dist_raw, 0.0F);
  EXPECT_EQ(echo.peak, 86.0F);  // not divided by the shot ratio
  EXPECT_EQ(echo.baseline, 16.0F);
}

TEST_P(EchoComputation, ANearMissHasARangeButDoesNotPass) {
  point.detect_threshold = 116.0F;
  const LidarEcho& echo = Compute(Window(7, {20, 47, 20}));
  EXPECT_EQ(echo.peak_ratio, 0.71F);
  EXPECT_FALSE(echo.detect_pass);
  EXPECT_FLOAT_EQ(echo.dist_raw, 108.0F * 0.15F);
}

TEST_P(EchoComputation, ARatioOfExactlyOneDoesNotPass) {
  point.detect_threshold = 200.0F;
  const LidarEcho& echo = Compute(Triangle());
  EXPECT_EQ(echo.peak_ratio, 1.0F);
  EXPECT_FALSE(echo.detect_pass);
  EXPECT_GT(echo.dist_raw, 0.0F);
}

TEST_P(EchoComputation, AThresholdBelowTheBaselineAlwaysPasses) {
  point.detect_threshold = 6.0F;
  const LidarEcho& echo = Compute(Triangle());
  EXPECT_EQ(echo.peak_ratio, 184.0F / -10.0F);
  EXPECT_TRUE(echo.detect_pass);
  EXPECT_GT(echo.dist_raw, 0.0F);
}

TEST_P(EchoComputation, AThresholdAtTheBaselinePassesWithAPulseAndEndsWithoutOne) {
  point.detect_threshold = 16.0F;
  EXPECT_TRUE(std::isinf(Compute(Triangle()).peak_ratio));
  EXPECT_TRUE(point.echoes[0].detect_pass);
  EXPECT_GT(point.echoes[0].dist_raw, 0.0F);
  point.echoes[1].detect_pass = true;
  const LidarEcho& flat = Compute(Samples{}, 1);
  EXPECT_TRUE(std::isnan(flat.peak_ratio));
  EXPECT_FALSE(flat.detect_pass);
  EXPECT_EQ(flat.dist_raw, 0.0F);
}

TEST_P(EchoComputation, TheBaselineFollowsARaisedHead) {
  settings.baseline_samples = 4;
  settings.baseline_rise_gate = 100.0F;
  settings.baseline_rise_limit = 50.0F;
  Samples samples = Triangle();
  samples[0] = samples[1] = samples[2] = samples[3] = 10;  // head level 30, rise 14
  const LidarEcho& echo = Compute(samples);
  EXPECT_EQ(echo.baseline, 31.0F);                   // rise + 1
  EXPECT_EQ(echo.change_noise_noise_append, 64.0F);  // 2048 * 15 / 160 / 3
  EXPECT_EQ(echo.noise, 72.0F);
  EXPECT_TRUE(echo.highRefl);  // 15 is above 7
  EXPECT_EQ(echo.peak_ratio, 169.0F / 5.0F);
}

TEST_P(EchoComputation, TheBaselineRisesUpToItsLimit) {
  settings.baseline_samples = 4;
  settings.baseline_rise_gate = 10.0F;
  settings.baseline_rise_limit = 3.5F;
  point.shot_ratio = 2.0F;
  Samples samples = Triangle();
  samples[0] = 40;
  const LidarEcho& echo = Compute(samples);  // head level 30
  EXPECT_EQ(echo.baseline, (16.0F + 7.0F) / 2.0F);
  // 7 is half of what a shot ratio of 2 would need for a bright target.
  EXPECT_FALSE(echo.highRefl);
  EXPECT_EQ(echo.change_noise_noise_append, 2048.0F * 7.0F / 320.0F / 3.0F);
}

TEST_P(EchoComputation, ARiseOfExactlySevenIsNoBrightTarget) {
  settings.baseline_samples = 1;
  settings.baseline_rise_gate = 10.0F;
  Samples samples = Triangle();
  samples[0] = 10;
  settings.baseline_rise_limit = 7.0F;
  EXPECT_FALSE(Compute(samples).highRefl);
  EXPECT_EQ(point.echoes[0].baseline, 23.0F);
  point.echoes[0].baseline = 16.0F;
  settings.baseline_rise_limit = 7.5F;
  EXPECT_TRUE(Compute(samples).highRefl);
}

TEST_P(EchoComputation, WithoutARiseOrAPulseTheBaselineStays) {
  settings.baseline_samples = 3;
  settings.baseline_rise_limit = 50.0F;
  Samples samples = Triangle();
  samples[0] = 16;  // head level 16: no rise
  settings.baseline_rise_gate = 0.0F;
  EXPECT_EQ(Compute(samples).baseline, 16.0F);
  samples[1] = 1;  // head level 17; the pulse of 200 stands 183 above it
  settings.baseline_rise_gate = 183.0F;
  EXPECT_EQ(Compute(samples).baseline, 16.0F);
  EXPECT_EQ(point.echoes[0].change_noise_noise_append, 0.0F);
  EXPECT_EQ(point.echoes[0].noise, 8.0F);
  settings.baseline_rise_gate = 182.0F;
  EXPECT_EQ(Compute(samples).baseline, 18.0F);
}

TEST_P(EchoComputation, MoreBaselineSamplesThanTheWindowHasAreDividedAllTheSame) {
  settings.baseline_samples = 20;
  settings.baseline_rise_gate = 0.0F;
  settings.baseline_rise_limit = 1000.0F;
  point.echoes[0].baseline = 0.0F;
  // Sum of all 17 samples 200, times 3, by 20: a rise of 30.
  EXPECT_EQ(Compute(Triangle()).baseline, 31.0F);
}

TEST_P(EchoComputation, NoBaselineSamplesMeanNoAdaptation) {
  settings.baseline_rise_gate = 0.0F;
  settings.baseline_rise_limit = 1000.0F;
  for (const int count : {0, -3}) {
    settings.baseline_samples = count;
    point.echoes[0].baseline = 16.0F;
    EXPECT_EQ(Compute(Triangle()).baseline, 16.0F);
  }
}

TEST_P(EchoComputation, TheSecondEchoHasNoAdaptationAndNoClipping) {
  settings.baseline_samples = 4;
  settings.baseline_rise_gate = 0.0F;
  settings.baseline_rise_limit = 50.0F;
  settings.clip_side_peaks = true;
  Samples samples = Triangle();
  samples[0] = samples[1] = 20;
  samples[10] = 1;
  const LidarEcho& echo = Compute(samples, 1);
  EXPECT_EQ(echo.baseline, 16.0F);
  EXPECT_EQ(echo.change_noise_noise_append, 0.0F);
  EXPECT_EQ(echo.noise, 8.0F);
  // The head's sums 40, 20 stay in the root mean square: 24 and 4 above the baseline.
  const double squares =
      24.0 * 24 + 4 * 4 + 34.0 * 34 + 134.0 * 134 + 184.0 * 184 + 135.0 * 135 + 35.0 * 35;
  EXPECT_FLOAT_EQ(echo.waveform_rms_ratio, static_cast<float>(std::sqrt(squares / 15.0) / 200.0));
}

// With a baseline of 9 the clipping level (3 * 3 + 9) / 3 is the whole number 6.
class ClippingTest : public EchoFormsTest {
 protected:
  ClippingTest() {
    settings.clip_side_peaks = true;
    point.echoes[0].baseline = 9.0F;
  }

  // Computes with clipping, then `expected` without, and compares the whole records.
  void ExpectSameAs(const Samples& samples, const Samples& expected) {
    Compute(samples);
    LidarPoint clipped = point;
    Reset(point.echoes[0], 9.0F);
    settings.clip_side_peaks = false;
    Compute(expected);
    EXPECT_EQ(PointDifference(clipped, point), "");
    EXPECT_GT(point.echoes[0].dist_raw, 0.0F);
  }
};
RUN_IN_EVERY_FORM(ClippingTest);

TEST_P(ClippingTest, ASmallerPeakIsCutToTheLevel) {
  Samples samples = Triangle();
  samples[2] = 40;
  samples[3] = 6;  // at the level: not above it
  samples[14] = 90;
  samples[15] = 30;
  Samples cut = samples;
  cut[2] = cut[14] = cut[15] = 6;
  ExpectSameAs(samples, cut);
}

TEST_P(ClippingTest, TheRunOfTheMaximumStaysWhole) {
  Samples samples = Window(5, {7, 90, 30, 100, 8, 99, 7});
  ExpectSameAs(samples, samples);
}

TEST_P(ClippingTest, ASampleAtTheLevelEndsTheRunOfTheMaximum) {
  Samples samples = Window(8, {100, 6, 90});
  Samples cut = samples;
  cut[10] = 6;
  ExpectSameAs(samples, cut);
}

TEST_P(ClippingTest, ARunThatReachesTheWindowsEndCutsNothingThere) {
  Samples samples{};
  for (std::size_t i = 4; i < 17; ++i) samples[i] = static_cast<std::uint16_t>(20 + i);
  samples[8] = 200;
  samples[0] = 50;
  Samples cut = samples;
  cut[0] = 6;
  ExpectSameAs(samples, cut);
}

TEST_P(ClippingTest, OfEqualPeaksTheFirstStays) {
  Samples samples = Window(4, {0, 0, 0, 60, 100, 0, 0, 100, 60});
  Samples cut = samples;
  cut[11] = cut[12] = 6;
  ExpectSameAs(samples, cut);
}

TEST_P(ClippingTest, AMaximumAtTheFirstSampleCounts) {
  Samples samples = Window(7, {20, 30, 20});
  samples[0] = 31;
  Samples cut = samples;
  cut[7] = cut[8] = cut[9] = 6;
  point.detect_threshold = 0.0F;  // below the baseline: passes
  ExpectSameAs(samples, cut);
}

TEST_P(ClippingTest, WithoutASampleAboveTheLevelNothingIsCut) {
  Samples samples;
  samples.fill(6);
  point.detect_threshold = 0.0F;
  ExpectSameAs(samples, samples);
}

// What a packet does not hold: more than twelve bits, and records that were written before.
class ComputeEchoTest : public ::testing::Test, protected EchoInputs {
 protected:
  const LidarEcho& Compute(const Samples& samples, int slot = 0) {
    ComputeEcho(settings, samples.data(), point, slot);
    return point.echoes[slot];
  }
};

TEST_F(ComputeEchoTest, TheSecondEchoTakesTheLowTwelveBits) {
  Samples samples = Triangle();
  const float range = Compute(samples, 1).dist_raw;
  point.echoes[1].baseline = 16.0F;
  for (std::uint16_t& sample : samples) sample = static_cast<std::uint16_t>(sample | 0xF000U);
  const LidarEcho& echo = Compute(samples, 1);
  EXPECT_EQ(echo.dist_raw, range);
  EXPECT_EQ(echo.peak, 200.0F);
}

TEST_F(ComputeEchoTest, OnlyTheGivenSlotIsWritten) {
  const LidarPoint before = point;
  Compute(Triangle(), 1);
  EXPECT_EQ(std::memcmp(&point.echoes[0], &before.echoes[0], sizeof(LidarEcho)), 0);
  EXPECT_EQ(point.shot_ratio, before.shot_ratio);
  EXPECT_EQ(point.detect_threshold, before.detect_threshold);
}

TEST_F(ComputeEchoTest, RawSamplesAreKeptOnRequestEvenWithoutAnEcho) {
  Samples samples{};
  samples[0] = 0xF001;
  samples[16] = 3;
  EXPECT_EQ(Compute(samples).bins[0], 0);
  settings.keep_bins = true;
  point.echoes[0].baseline = 1e6F;
  EXPECT_EQ(Compute(samples).bins[0], 1);
  EXPECT_EQ(point.echoes[0].bins[16], 3);
}

TEST_F(ComputeEchoTest, TheParserHandsItsSettingsOver) {
  LidarParserQDV11 parser;
  parser.baseline_samples = 4;
  parser.baseline_rise_gate = 50.0F;
  parser.baseline_rise_limit = 50.0F;
  parser.clip_side_peaks = true;
  parser.cogw_high_mode = 1;
  parser.keep_bins = true;
  Curves curves;
  curves.low[100] = 1000.0F;
  parser.cogw_filter = std::make_shared<CogwFilter>(curves.low, curves.gate, curves.high);
  settings.baseline_samples = 4;
  settings.baseline_rise_gate = 50.0F;
  settings.baseline_rise_limit = 50.0F;
  settings.clip_side_peaks = true;
  settings.cogw_high_mode = 1;
  settings.keep_bins = true;
  UseCurves(curves);

  Samples samples = Triangle();
  samples[0] = samples[1] = samples[2] = samples[3] = 10;
  samples[14] = 70;
  point.shot_ratio = 2.0F;
  LidarPoint by_parser = point;
  parser.ComputeEchoData(samples.data(), by_parser, 0);
  const LidarEcho& echo = Compute(samples);
  EXPECT_EQ(std::memcmp(&by_parser, &point, sizeof(point)), 0);
  EXPECT_EQ(echo.cogw_flag, 3);
  EXPECT_EQ(echo.bins[14], 70);
  EXPECT_GT(echo.change_noise_noise_append, 0.0F);
}

}  // namespace
}  // namespace kerul::lidar::testing
