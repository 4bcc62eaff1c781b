#include "sensor_simulator/window_decoder.h"

#include <gtest/gtest.h>

#include <cmath>

namespace kerul::lidar::simulator {
namespace {

DecodeInput Window(std::initializer_list<std::pair<int, double>> samples, double noise = 0.0) {
  DecodeInput input;
  input.noise = noise;
  input.samples.fill(noise * 160.0 / 2048.0);
  for (const auto& [index, counts] : samples) {
    input.samples[static_cast<std::size_t>(index)] += counts;
  }
  return input;
}

TEST(WindowDecoder, AnEmptyWindowIsNotFound) {
  EXPECT_FALSE(DecodeWindow(Window({}, 64.0), DefaultSensorTables()).found);
}

TEST(WindowDecoder, ASymmetricPulseLiesOnItsCentre) {
  const DecodedPulse pulse =
      DecodeWindow(Window({{7, 50.0}, {8, 100.0}, {9, 50.0}}), DefaultSensorTables());
  EXPECT_TRUE(pulse.sure);
  EXPECT_NEAR(pulse.centre, 8.0, 1e-12);
}

// One bin of 100: three sums of 100. The low level is 20, the edges lie a fifth of a sample inside
// the neighbours, and the partial bins count with the level.
TEST(WindowDecoder, ASingleBinIsMeasuredAsWorkedOutByHand) {
  const DecodedPulse pulse = DecodeWindow(Window({{8, 100.0}}), DefaultSensorTables());
  EXPECT_NEAR(pulse.width, 9.8 - 6.2, 1e-12);
  const double partial = 0.8 + 0.8 - 1.0;
  const double area = 300.0 + partial * 20.0;
  EXPECT_NEAR(pulse.height, 0.5 * (400.0 * partial + 30000.0) / area, 1e-9);
  EXPECT_NEAR(pulse.peak, 100.0, 1e-12);
  EXPECT_FALSE(pulse.high);
}

// The detection level at noise 0 is 6.
TEST(WindowDecoder, TheDetectionLevelDecidesAboutSureAndNear) {
  const SensorTables& tables = DefaultSensorTables();
  EXPECT_TRUE(DecodeWindow(Window({{8, 6.1}}), tables).sure);
  const DecodedPulse near = DecodeWindow(Window({{8, 4.5}}), tables);
  EXPECT_TRUE(near.found);
  EXPECT_FALSE(near.sure);
  EXPECT_FALSE(DecodeWindow(Window({{8, 4.1}}), tables).found);
}

TEST(WindowDecoder, ASecondPeakInTheWindowDoesNotMoveTheFirstEchoButTheSecond) {
  const SensorTables& tables = DefaultSensorTables();
  DecodeInput alone = Window({{7, 80.0}, {8, 120.0}, {9, 80.0}}, 16.0);
  alone.rule = WidthRule::kAlwaysLow;
  DecodeInput beside = alone;
  beside.samples[11] += 60.0;
  EXPECT_NEAR(DecodeWindow(beside, tables).centre, DecodeWindow(alone, tables).centre, 0.05);
  beside.echo = 1;
  EXPECT_GT(DecodeWindow(beside, tables).centre, DecodeWindow(alone, tables).centre + 0.3);
}

TEST(WindowDecoder, ARisenHeadRaisesTheBaselineOfAStrongFirstEcho) {
  const SensorTables& tables = DefaultSensorTables();
  DecodeInput input = Window({{7, 200.0}, {8, 300.0}, {9, 200.0}}, 32.0);
  EXPECT_EQ(DecodeWindow(input, tables).noise_rise, 0.0);
  for (std::size_t i = 0; i < 4; ++i) input.samples[i] += 2.0;
  // Three times 2 above the baseline, plus 1: 7 of 160 shots, in the unit of noise.
  EXPECT_NEAR(DecodeWindow(input, tables).noise_rise, 2048.0 * 7.0 / 160.0 / 3.0, 1e-9);
  input.echo = 1;
  EXPECT_EQ(DecodeWindow(input, tables).noise_rise, 0.0);
}

TEST(WindowDecoder, WideAndHighPulsesAreDropped) {
  const DecodedPulse pulse = DecodeWindow(
      Window({{5, 300.0}, {6, 300.0}, {7, 300.0}, {8, 300.0}, {9, 300.0}, {10, 300.0}}),
      DefaultSensorTables());
  EXPECT_TRUE(pulse.high);
  EXPECT_TRUE(pulse.too_wide);
}

TEST(WindowDecoder, HeightsAreRaisedByTheLightThatTheBackgroundTook) {
  DecodedPulse pulse;
  pulse.height = 100.0;
  const SensorTables& tables = DefaultSensorTables();
  // The gain at noise 64 is 0.13742, at the high threshold 0.13916.
  EXPECT_NEAR(CompensatedHeight(pulse, 64.0, tables), 115.0 * 0.13742 + 100.0, 1e-3);
  pulse.high = true;
  EXPECT_NEAR(CompensatedHeight(pulse, 64.0, tables), 115.0 * 0.13916 + 100.0, 1e-3);
}

TEST(WindowDecoder, OnlyHighHeightsAreMapped) {
  DecodedPulse pulse;
  const SensorTables& tables = DefaultSensorTables();
  EXPECT_EQ(MappedHeight(pulse, 102.0, tables), 102.0);
  pulse.high = true;
  EXPECT_NEAR(MappedHeight(pulse, 102.0, tables), 85.0, 1e-9);
  EXPECT_EQ(MappedHeight(pulse, 900.0, tables), 490.0);
  EXPECT_EQ(MappedHeight(pulse, -1.0, tables), 0.0);
}

TEST(SensorTables, TheNearRangeLossEndsBeforeTenMetres) {
  const SensorTables& tables = DefaultSensorTables();
  EXPECT_NEAR(NearRangeLoss(tables, 1.0, 0), 0.842 - 2.0, 1e-3);
  EXPECT_NEAR(NearRangeLoss(tables, 9.9, 5), 2.074 - 2.0, 1e-3);
  EXPECT_EQ(NearRangeLoss(tables, 10.0, 5), 0.0);
}

}  // namespace
}  // namespace kerul::lidar::simulator
