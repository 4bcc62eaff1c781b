// Values exactly at the limits of the echo computation.
#include <gtest/gtest.h>

#include <cmath>

#include "echo_fixture.h"

namespace kerul::lidar::testing {
namespace {

class EchoTies : public EchoFormsTest {
 protected:
  // With all entries of the high curve at `limit`.
  const LidarEcho& ComputeAtLimit(const Samples& samples, float limit) {
    Curves curves;
    curves.high.assign(641, limit);
    UseCurves(curves);
    EchoInputs::Reset(point.echoes[0], 16.0F);
    settings.cogw_high_mode = 1;
    return Compute(samples);
  }
};
RUN_IN_EVERY_FORM(EchoTies);

// Sums of 40, 60 and 20 above the baseline 16 at 7 to 9. The high threshold is 40: the left edge is
// at 7.5 because the sum equals it, the right one at 8 + 20 / 40. So the high width is 1, the
// height 30 and the centre 8, while the parabola's vertex is 8 + 20 / -120.
Samples Leaning() { return Window(7, {40, 16, 20}); }

// The same with twice the sums: height 60.
Samples TallLeaning() { return Window(7, {80, 16, 40}); }

constexpr float kCentroidRange = 108.0F * 0.15F;
const auto kParabolaRange = static_cast<float>((108.0 - 1.0 / 6.0) * 0.15);

TEST_P(EchoTies, AWidthAtTheGateCurveAndATenthIsNotAboveIt) {
  settings.cogw_high_mode = 2;
  const float tie = 2.9F;
  ASSERT_EQ(tie + 0.1F, 3.0F);  // the width of the rounded pulse
  const float below = std::nextafter(tie, 0.0F);
  ASSERT_LT(below + 0.1F, 3.0F);
  for (const float gate : {tie, below}) {
    Curves curves;
    curves.gate.assign(641, gate);
    UseCurves(curves);
    EchoInputs::Reset(point.echoes[0], 16.0F);
    const LidarEcho& echo = Compute(Rounded());
    EXPECT_EQ(echo.cogw, 3.0F);
    EXPECT_EQ(echo.cogw_flag, gate == tie ? 0 : 2);
  }
}

TEST_P(EchoTies, AWidthAtTheHighCurveAndATenthIsNeitherFlaggedNorCorrected) {
  const float tie = 0.9F;
  ASSERT_EQ(tie + 0.1F, 1.0F);
  const LidarEcho& at_limit = ComputeAtLimit(Leaning(), tie);
  EXPECT_EQ(at_limit.cogw_high, 1.0F);
  EXPECT_EQ(at_limit.cogw_flag, 2);
  EXPECT_EQ(at_limit.dist_raw, kCentroidRange);
  const float below = std::nextafter(tie, 0.0F);
  ASSERT_LT(below + 0.1F, 1.0F);
  const LidarEcho& above_limit = ComputeAtLimit(Leaning(), below);
  EXPECT_EQ(above_limit.cogw_flag, 6);
  EXPECT_FLOAT_EQ(above_limit.dist_raw, kParabolaRange);
}

TEST_P(EchoTies, AWidthOneBinAboveTheHighCurveTakesNoParabola) {
  EXPECT_EQ(ComputeAtLimit(Leaning(), 0.0F).dist_raw, kCentroidRange);  // too low to be dropped
  EXPECT_FLOAT_EQ(ComputeAtLimit(Leaning(), 0.001F).dist_raw, kParabolaRange);
}

TEST_P(EchoTies, AWidthOneBinAboveTheHighCurveIsDroppedAboveAHeightOfEighty) {
  point.shot_ratio = 0.75F;  // 60 / 0.75 is 80
  const LidarEcho& kept = ComputeAtLimit(TallLeaning(), 0.0F);
  EXPECT_EQ(kept.cogh, 80.0F);
  EXPECT_EQ(kept.dist_raw, kCentroidRange);
  point.shot_ratio = std::nextafter(0.75F, 0.0F);
  const LidarEcho& dropped = ComputeAtLimit(TallLeaning(), 0.0F);
  EXPECT_GT(dropped.cogh, 80.0F);
  EXPECT_EQ(dropped.cogw_high, 1.0F);
  EXPECT_EQ(dropped.dist_raw, 0.0F);
}

TEST_P(EchoTies, ADroppedPulseKeepsItsOtherMeasures) {
  point.shot_ratio = 0.5F;
  const LidarEcho& echo = ComputeAtLimit(TallLeaning(), 0.0F);
  EXPECT_EQ(echo.dist_raw, 0.0F);
  EXPECT_EQ(echo.cogh, 120.0F);      // 60 / 0.5
  EXPECT_EQ(echo.peak, 272.0F);      // 136 / 0.5
  EXPECT_EQ(echo.baseline, 32.0F);   // 16 / 0.5
  EXPECT_EQ(echo.peak_ratio, 6.0F);  // 120 / (36 - 16)
  EXPECT_EQ(echo.cogw_high, 1.0F);
  EXPECT_GT(echo.cogw, 1.0F);
  EXPECT_GT(echo.waveform_rms_ratio, 0.0F);
  EXPECT_EQ(echo.cogw_flag, 6);
  EXPECT_EQ(echo.noise, 8.0F);
  EXPECT_EQ(echo.peak_addr, 100);
  EXPECT_TRUE(echo.detect_pass);
}

// What a packet does not hold: more than twelve bits.
TEST(EchoMasks, TheAddressCountsWithTwelveBits) {
  EchoInputs inputs;
  inputs.point.echoes[0].peak_addr = 0x1000 + 100;
  ComputeEcho(inputs.settings, Triangle().data(), inputs.point, 0);
  EXPECT_EQ(inputs.point.echoes[0].dist_raw, kCentroidRange);
  EXPECT_EQ(inputs.point.echoes[0].peak_addr, 0x1000 + 100);
}

TEST(EchoMasks, TheFirstEchoTakesItsSamplesWhole) {
  EchoInputs inputs;
  ComputeEcho(inputs.settings, Window(8, {0x1000}).data(), inputs.point, 0);
  EXPECT_EQ(inputs.point.echoes[0].peak, 4096.0F);
}

}  // namespace
}  // namespace kerul::lidar::testing
