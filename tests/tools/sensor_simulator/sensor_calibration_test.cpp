#include "sensor_simulator/sensor_calibration.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "sensor_simulator/pixel_layout.h"
#include "sensor_simulator/scenes.h"
#include "tools/sensor_simulator/echo_check.h"

namespace kerul::lidar::simulator {
namespace {

double Quantile(std::vector<double> values, double share) {
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

struct Errors {
  std::vector<double> range_m;       // decoded less true
  std::vector<double> reflectivity;  // relative
};

bool IsOrdinary(ReturnKind kind) {
  return kind == ReturnKind::kGround || kind == ReturnKind::kWall || kind == ReturnKind::kObject ||
         kind == ReturnKind::kFence;
}

// Sure echoes of ordinary bodies with at least the given strength.
Errors ErrorsOf(const std::string& scene, float least_strength) {
  FrameSimulator simulator(MakeScene(scene));
  const SensorTables& tables = DefaultSensorTables();
  const SensorCalibration calibration =
      Calibrate(simulator.options().pulse, tables, simulator.traits());
  const SimulatedFrame frame = simulator.Simulate(3);
  Errors errors;
  for (int index = 0; index < kPixels; ++index) {
    for (int echo = 0; echo < kEchoes; ++echo) {
      const EchoTruth& truth =
          frame.truth[static_cast<std::size_t>(index)][static_cast<std::size_t>(echo)];
      if (truth.sent == 0 || !IsOrdinary(truth.kind) || truth.strength < least_strength) continue;
      const CheckedEcho checked =
          CheckEcho(frame, index / kCols, index % kCols, echo, calibration, tables);
      if (!checked.pulse.sure || checked.pulse.too_wide) continue;
      errors.range_m.push_back(checked.range_m - static_cast<double>(truth.range_m));
      errors.reflectivity.push_back(checked.reflectivity / static_cast<double>(truth.reflectivity) -
                                    1.0);
    }
  }
  return errors;
}

// One pulse without photon noise, decoded and calibrated. Strengths in between the calibration's
// own, places in a bin too.
struct CleanPulse {
  double range_error_m = 0.0;
  double strength_ratio = 0.0;  // recovered over true
};

CleanPulse DecodeClean(double strength, double position, const SensorCalibration& calibration,
                       int noise = 40) {
  const SensorTables& tables = DefaultSensorTables();
  const PulseCounts pulse =
      PulseResponse(PulseModel{})
          .Counts(StrengthInBackground(tables, strength, noise), position, 176.0);
  const int first_bin = LargestThreeBinSum(pulse).bin - kWindowCentre;
  DecodeInput input;
  input.noise = noise;
  input.shots = 176.0;
  for (int i = 0; i < kWindow; ++i) {
    input.samples[static_cast<std::size_t>(i)] = noise * 176.0 / 2048.0 + pulse.At(first_bin + i);
  }
  const DecodedPulse decoded = DecodeWindow(input, tables);
  const double height = CompensatedHeight(decoded, noise, tables);
  const auto at = [](const Curve& curve, double x) {
    const double inside = std::min(x, 510.999);
    const auto i = static_cast<std::size_t>(inside);
    return curve[i] + (curve[i + 1] - curve[i]) * (inside - static_cast<double>(i));
  };
  CleanPulse clean;
  clean.range_error_m =
      (first_bin + decoded.centre - position) * kBinMetres -
      at(decoded.high ? calibration.range_high : calibration.range_low, height) * kOffsetUnitMetres;
  const double power = std::exp2(at(calibration.power, MappedHeight(decoded, height, tables)));
  clean.strength_ratio = power / (strength * 64.0 / kStrengthScale);
  return clean;
}

TEST(Calibrate, CleanPulsesOfEveryStrengthComeBackAtTheirRangeAndStrength) {
  const SensorCalibration calibration =
      Calibrate(PulseModel{}, DefaultSensorTables(), std::vector<PixelTraits>(kPixels));
  int compared = 0;
  for (double strength = 40.0; strength < 1500.0; strength *= 1.17) {
    for (const double phase : {0.03, 0.21, 0.47, 0.66, 0.93}) {
      const CleanPulse clean = DecodeClean(strength, 300.0 + phase, calibration);
      // A tenth of a bin: the estimate depends a little on the place within the bin.
      EXPECT_NEAR(clean.range_error_m, 0.0, 0.015) << strength << ' ' << phase;
      EXPECT_NEAR(clean.strength_ratio, 1.0, 0.08) << strength << ' ' << phase;
      ++compared;
    }
  }
  EXPECT_GT(compared, 100);
}

// Tolerance: the threshold follows the background, and with it a little the height of weak pulses;
// strong ones find more cells dead the less light is lost.
TEST(Calibrate, TheBackgroundTakesFromAPulseWhatTheCompensationGivesBack) {
  const SensorCalibration calibration =
      Calibrate(PulseModel{}, DefaultSensorTables(), std::vector<PixelTraits>(kPixels));
  int compared = 0;
  for (const int noise : {8, 14, 37, 60}) {
    for (const double strength : {60.0, 100.0, 200.0, 400.0}) {
      double mean = 0.0;
      for (int phase = 0; phase < 16; ++phase) {
        mean += DecodeClean(strength, 300.0 + phase / 16.0, calibration, noise).strength_ratio / 16;
      }
      EXPECT_NEAR(mean, 1.0, 0.02) << noise << ' ' << strength;
      ++compared;
    }
  }
  EXPECT_EQ(compared, 16);
}

TEST(Calibrate, CurvesFallWithHeightForRangeAndRiseForPower) {
  const SensorCalibration calibration =
      Calibrate(PulseModel{}, DefaultSensorTables(), std::vector<PixelTraits>(kPixels));
  for (std::size_t i = 1; i < kCurveEntries; ++i) {
    ASSERT_GT(calibration.power[i], calibration.power[i - 1]) << i;
  }
  // Strong pulses are seen nearer.
  EXPECT_GT(calibration.range_low[50], calibration.range_low[250]);
  EXPECT_GT(calibration.range_low[250], calibration.range_low[500]);
  EXPECT_GT(calibration.range_high[500], calibration.range_high[511]);
}

TEST(Calibrate, PixelTablesHoldTheirBytesInTileOrder) {
  std::vector<PixelTraits> traits(static_cast<std::size_t>(kPixels));
  for (int row = 0; row < kRows; ++row) {
    for (int col = 0; col < kCols; ++col) {
      traits[static_cast<std::size_t>(PixelIndex(row, col))] = {OffsetBase(col) + 100.4, 7.26,
                                                                false};
    }
  }
  traits[static_cast<std::size_t>(PixelIndex(13, 14))] = {OffsetBase(14) + 300.0, 9.0, false};
  traits[static_cast<std::size_t>(PixelIndex(13, 15))].dead = true;
  const SensorCalibration calibration = Calibrate(PulseModel{}, DefaultSensorTables(), traits);
  ASSERT_EQ(calibration.offset.size(), 82944U);
  ASSERT_EQ(calibration.scale.size(), 82944U);
  EXPECT_EQ(calibration.offset[0], 100);
  EXPECT_EQ(calibration.scale[0], 232);  // 7.26 times 32 is 232.3
  // Row 13, column 14: tile row 2, tile column 2, second row and third column of the tile.
  const std::size_t place = (2 * 48 + 2) * 36 + 2 * 6 + 1;
  EXPECT_EQ(calibration.offset[place], 255);
  EXPECT_EQ(calibration.scale[place], 255);
  EXPECT_EQ(calibration.offset[place + 6], 0);
  EXPECT_EQ(calibration.scale[place + 6], 0);
  EXPECT_EQ(calibration.offset[62208], 0);  // after the last pixel
}

TEST(OffsetBase, FallsBySixtyEightWithEveryEighthTile) {
  EXPECT_EQ(OffsetBase(0), 1032.0);
  EXPECT_EQ(OffsetBase(47), 1032.0);
  EXPECT_EQ(OffsetBase(48), 964.0);
  EXPECT_EQ(OffsetBase(287), 692.0);
}

TEST(PulseStrength, FollowsTheSquareLaw) {
  const double near = PulseStrength(7.3, 100.0, 10.0, 0.0);
  EXPECT_NEAR(near, 300.0, 5.0);
  EXPECT_NEAR(PulseStrength(7.3, 100.0, 20.0, 0.0), near / 4.0, 1e-9);
  EXPECT_NEAR(PulseStrength(6.3, 50.0, 10.0, 1.0), near / 8.0, 1e-9);
  EXPECT_EQ(PulseStrength(7.3, 100.0, 0.1, 0.0), PulseStrength(7.3, 100.0, 0.3, 0.0));
}

// Photon noise sets the spread; what is systematic must be small against it.
TEST(SimulatedStreet, RangesAndReflectivitiesComeBackWithinThePhotonNoise) {
  const Errors errors = ErrorsOf("street", 0.0F);
  ASSERT_GT(errors.range_m.size(), 30000U);
  EXPECT_NEAR(Quantile(errors.range_m, 0.5), 0.0, 0.003);
  EXPECT_GT(Quantile(errors.range_m, 0.025), -0.06);
  EXPECT_LT(Quantile(errors.range_m, 0.975), 0.06);
  EXPECT_NEAR(Quantile(errors.reflectivity, 0.5), 0.0, 0.04);
  EXPECT_GT(Quantile(errors.reflectivity, 0.025), -0.40);
  EXPECT_LT(Quantile(errors.reflectivity, 0.975), 0.45);
}

TEST(SimulatedStreet, StrongEchoesComeBackMoreExactly) {
  const Errors errors = ErrorsOf("street", 150.0F);
  ASSERT_GT(errors.range_m.size(), 3000U);
  EXPECT_NEAR(Quantile(errors.range_m, 0.5), 0.0, 0.003);
  EXPECT_GT(Quantile(errors.range_m, 0.025), -0.025);
  EXPECT_LT(Quantile(errors.range_m, 0.975), 0.025);
  EXPECT_NEAR(Quantile(errors.reflectivity, 0.5), 0.0, 0.03);
  EXPECT_GT(Quantile(errors.reflectivity, 0.025), -0.25);
  EXPECT_LT(Quantile(errors.reflectivity, 0.975), 0.25);
}

}  // namespace
}  // namespace kerul::lidar::simulator
