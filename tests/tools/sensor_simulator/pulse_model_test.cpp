#include "sensor_simulator/pulse_model.h"

#include <gtest/gtest.h>

namespace kerul::lidar::simulator {
namespace {

double Total(const PulseCounts& pulse) {
  double sum = 0.0;
  for (const float counts : pulse.counts) sum += counts;
  return sum;
}

double Centre(const PulseCounts& pulse) {
  double moment = 0.0;
  for (int i = 0; i < kPulseBins; ++i) {
    moment +=
        (pulse.first_bin + i) * static_cast<double>(pulse.counts[static_cast<std::size_t>(i)]);
  }
  return moment / Total(pulse);
}

TEST(PulseResponse, AWeakPulseIsCountedInFull) {
  const PulseResponse response{PulseModel{}};
  // Weak: one cell in two thousand fires, so that dead cells cost less than a thousandth.
  EXPECT_NEAR(Total(response.Counts(1.0, 100.3, 160.0)), 1.0, 1e-3);
  EXPECT_NEAR(Total(response.Counts(1.0, 100.3, 432.0)), 2.7, 3e-3);
}

// Gauss pulse with an exponential tail: the mean lies share times decay after the centre.
TEST(PulseResponse, APulseLiesWhereItWasPutPlusItsTail) {
  const PulseModel model;
  const PulseResponse response(model);
  for (const double position : {50.0, 50.25, 50.5, 50.9}) {
    EXPECT_NEAR(Centre(response.Counts(1.0, position, 160.0)),
                position + model.tail_share * model.tail_bins, 0.01);
  }
}

TEST(PulseResponse, AShiftByAWholeBinShiftsTheCounts) {
  const PulseResponse response{PulseModel{}};
  const PulseCounts here = response.Counts(500.0, 70.4, 160.0);
  const PulseCounts there = response.Counts(500.0, 71.4, 160.0);
  for (int bin = 60; bin < 90; ++bin) EXPECT_NEAR(here.At(bin), there.At(bin + 1), 1e-3);
}

TEST(PulseResponse, StrongPulsesAreCountedEarlierAndGrowLess) {
  const PulseResponse response{PulseModel{}};
  double last_centre = 1e9;
  double last_share = 2.0;
  for (const double strength : {10.0, 300.0, 1000.0, 3000.0, 10000.0}) {
    const PulseCounts pulse = response.Counts(strength, 100.0, 160.0);
    const double share = Total(pulse) / strength;
    EXPECT_LT(Centre(pulse), last_centre);
    EXPECT_LT(share, last_share);
    last_centre = Centre(pulse);
    last_share = share;
  }
}

TEST(PulseResponse, NoBinCountsMoreThanAllCellsInAllShots) {
  const PulseModel model;
  const PulseResponse response(model);
  const PulseCounts pulse = response.Counts(1e7, 100.0, 432.0);
  for (const float counts : pulse.counts) EXPECT_LE(counts, model.cells * 432.0);
  EXPECT_GT(LargestThreeBinSum(pulse).sum, 4095.0);
}

TEST(PulseResponse, BinsOutsideThePulseHoldNothing) {
  const PulseResponse response{PulseModel{}};
  const PulseCounts pulse = response.Counts(100.0, 100.0, 160.0);
  EXPECT_EQ(pulse.At(pulse.first_bin - 1), 0.0);
  EXPECT_EQ(pulse.At(pulse.first_bin + kPulseBins), 0.0);
}

TEST(PulseResponse, TheLargestThreeBinSumStandsAtTheCentreOfAWeakPulse) {
  const PulseResponse response{PulseModel{}};
  const PulsePeak peak = LargestThreeBinSum(response.Counts(100.0, 100.1, 160.0));
  EXPECT_EQ(peak.bin, 100);
  EXPECT_GT(peak.sum, 85.0);
}

}  // namespace
}  // namespace kerul::lidar::simulator
