#include "sensor_simulator/frame_simulator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "sensor_simulator/raw_packet.h"
#include "sensor_simulator/scenes.h"

namespace kerul::lidar::simulator {
namespace {

SimulatedFrame FrameOf(const std::string& scene, std::uint32_t number = 0) {
  return FrameSimulator(MakeScene(scene)).Simulate(number);
}

// Echoes of each kind in one slot, those that were sent only.
std::map<ReturnKind, int> Kinds(const SimulatedFrame& frame, std::size_t echo) {
  std::map<ReturnKind, int> kinds;
  for (const PixelTruth& pixel : frame.truth) {
    if (pixel[echo].sent != 0) ++kinds[pixel[echo].kind];
  }
  return kinds;
}

// Share of the first windows whose echo is decoded to a range, and of the second.
std::array<double, kEchoes> ValidShares(const SimulatedFrame& frame) {
  const SensorTables& tables = DefaultSensorTables();
  std::array<double, kEchoes> shares{};
  for (int index = 0; index < kPixels; ++index) {
    const PixelReadout& pixel = frame.pixels[static_cast<std::size_t>(index)];
    for (std::size_t echo = 0; echo < kEchoes; ++echo) {
      if (pixel.peak_addr[echo] > 1000) continue;
      DecodeInput input;
      std::copy(pixel.samples[echo].begin(), pixel.samples[echo].end(), input.samples.begin());
      input.noise = pixel.noise;
      input.shots = tables.shots[static_cast<std::size_t>(index / kCols / 6)];
      input.echo = static_cast<int>(echo);
      const DecodedPulse pulse = DecodeWindow(input, tables);
      if (pulse.found && !pulse.too_wide) shares[echo] += 1.0 / kPixels;
    }
  }
  return shares;
}

TEST(FrameSimulator, TheSameSeedGivesTheSameBytesWhateverWasMadeBefore) {
  FrameSimulator fresh(MakeScene("street"));
  FrameSimulator used(MakeScene("street"));
  used.Simulate(0);
  EXPECT_EQ(EncodeFrame(fresh.Simulate(7)), EncodeFrame(used.Simulate(7)));
}

TEST(FrameSimulator, AnotherSeedSerialOrFrameGivesOtherBytes) {
  SimulatorOptions options;
  const auto bytes = [](const SimulatorOptions& used, std::uint32_t number) {
    SimulatedFrame frame = FrameSimulator(MakeScene("street"), used).Simulate(number);
    frame.number = 0;
    return EncodeFrame(frame);
  };
  const std::vector<RawPacket> first = bytes(options, 0);
  options.seed = 2;
  EXPECT_NE(bytes(options, 0), first);
  options.seed = 1;
  options.serial = 2;
  EXPECT_NE(bytes(options, 0), first);
  options.serial = 1;
  EXPECT_NE(bytes(options, 1), first);
}

TEST(FrameSimulator, AStreetFrameHasTheUsualShareOfEchoes) {
  const std::array<double, kEchoes> shares = ValidShares(FrameOf("street", 3));
  EXPECT_NEAR(shares[0], 0.74, 0.05);
  EXPECT_NEAR(shares[1], 0.23, 0.03);
}

TEST(FrameSimulator, AStreetFrameShowsAllThatStandsInIt) {
  const SimulatedFrame frame = FrameOf("street", 3);
  std::map<ReturnKind, int> first = Kinds(frame, 0);
  std::map<ReturnKind, int> second = Kinds(frame, 1);
  EXPECT_GT(first[ReturnKind::kGround], 15000);
  EXPECT_GT(first[ReturnKind::kWall], 5000);
  EXPECT_GT(first[ReturnKind::kObject], 3000);
  EXPECT_GT(first[ReturnKind::kFence], 3000);
  EXPECT_GT(first[ReturnKind::kRetro], 50);
  EXPECT_GT(first[ReturnKind::kBloom], 100);
  EXPECT_GT(second[ReturnKind::kWall], 3000);  // behind the fences
  EXPECT_GT(second[ReturnKind::kAfterPulse], 100);
}

TEST(FrameSimulator, RowZeroSeesTheNearestGround) {
  const SimulatedFrame frame = FrameOf("street");
  float last = 0.0F;
  int compared = 0;
  for (int row = 0; row < 60; row += 10) {
    const EchoTruth& truth = frame.truth[static_cast<std::size_t>(PixelIndex(row, 144))][0];
    ASSERT_EQ(truth.kind, ReturnKind::kGround);
    EXPECT_GT(truth.range_m, last);
    last = truth.range_m;
    ++compared;
  }
  EXPECT_EQ(compared, 6);
}

TEST(FrameSimulator, BodiesMoveFromFrameToFrame) {
  FrameSimulator simulator(MakeScene("street"));
  const SimulatedFrame first = simulator.Simulate(0);
  const SimulatedFrame later = simulator.Simulate(5);
  int changed = 0;
  for (std::size_t i = 0; i < first.truth.size(); ++i) {
    if (first.truth[i][0].body != later.truth[i][0].body) ++changed;
  }
  EXPECT_GT(changed, 1000);
}

TEST(FrameSimulator, RetroReflectorsSaturateBloomAndRingAfter) {
  const SimulatedFrame frame = FrameOf("retro");
  std::map<ReturnKind, int> first = Kinds(frame, 0);
  EXPECT_GT(first[ReturnKind::kRetro], 400);
  EXPECT_GT(first[ReturnKind::kBloom], 500);
  int saturated = 0;
  for (const PixelReadout& pixel : frame.pixels) {
    for (const std::uint16_t sample : pixel.samples[0]) {
      ASSERT_LE(sample, 4095);
      if (sample == 4095) ++saturated;
    }
  }
  EXPECT_GT(saturated, 10);
}

TEST(FrameSimulator, BloomSeemsToStandAtItsSourcesRange) {
  const SimulatedFrame frame = FrameOf("retro");
  std::vector<float> sources;
  for (const PixelTruth& pixel : frame.truth) {
    for (const EchoTruth& echo : pixel) {
      if (echo.kind == ReturnKind::kRetro) sources.push_back(echo.range_m);
    }
  }
  int compared = 0;
  for (const PixelTruth& pixel : frame.truth) {
    if (pixel[0].kind != ReturnKind::kBloom) continue;
    const bool near_source = std::any_of(sources.begin(), sources.end(), [&](float range) {
      return std::abs(range - pixel[0].range_m) < 0.5F;
    });
    ASSERT_TRUE(near_source);
    ++compared;
  }
  EXPECT_GT(compared, 500);
}

TEST(FrameSimulator, AnEmptySceneHoldsNothingButNoise) {
  const SimulatedFrame frame = FrameOf("empty");
  for (std::size_t echo = 0; echo < kEchoes; ++echo) {
    for (const auto& [kind, count] : Kinds(frame, echo)) EXPECT_EQ(kind, ReturnKind::kNoise);
  }
  // Few of them look like a pulse.
  EXPECT_LT(ValidShares(frame)[0], 0.35);
}

TEST(FrameSimulator, ABrightSceneReportsMoreFalseEchoesThanADarkOne) {
  EXPECT_GT(Kinds(FrameOf("noise"), 0)[ReturnKind::kNoise], 20000);
  EXPECT_GT(FrameOf("noise").pixels[static_cast<std::size_t>(PixelIndex(200, 144))].noise,
            2 * FrameOf("empty").pixels[static_cast<std::size_t>(PixelIndex(200, 144))].noise);
}

TEST(FrameSimulator, PulsesStandInTheMiddleOfTheirWindow) {
  const SimulatedFrame frame = FrameOf("street");
  int compared = 0;
  for (std::size_t i = 0; i < frame.pixels.size(); ++i) {
    const PixelReadout& pixel = frame.pixels[i];
    if (pixel.peak_addr[0] > 1000 || frame.truth[i][0].strength < 200.0F) continue;
    const auto& samples = pixel.samples[0];
    const auto largest = std::max_element(samples.begin(), samples.end()) - samples.begin();
    ASSERT_TRUE(largest >= 7 && largest <= 9);
    ++compared;
  }
  EXPECT_GT(compared, 1000);
}

TEST(FrameSimulator, UncalibratedPixelsSendNothing) {
  FrameSimulator simulator(MakeScene("street"));
  const SimulatedFrame frame = simulator.Simulate(0);
  int dead = 0;
  for (std::size_t i = 0; i < frame.pixels.size(); ++i) {
    if (!simulator.traits()[i].dead) continue;
    EXPECT_EQ(frame.pixels[i].peak_addr[0], kNoPeak);
    EXPECT_EQ(frame.pixels[i].peak_addr[1], kNoPeak);
    EXPECT_EQ(frame.truth[i][0].kind, ReturnKind::kNone);
    ++dead;
  }
  EXPECT_GT(dead, 0);
  EXPECT_LT(dead, 20);
}

TEST(FrameSimulator, AnEmptyEchoHasNoWindow) {
  const SimulatedFrame frame = FrameOf("street");
  int compared = 0;
  for (const PixelReadout& pixel : frame.pixels) {
    for (std::size_t echo = 0; echo < kEchoes; ++echo) {
      if (pixel.peak_addr[echo] <= 1000) continue;
      ASSERT_EQ(pixel.peak_addr[echo], kNoPeak);
      ASSERT_EQ(pixel.samples[echo], (std::array<std::uint16_t, kWindow>{}));
      ++compared;
    }
  }
  EXPECT_GT(compared, 1000);
}

TEST(FrameSimulator, OverlappingWindowsHoldTheSameCounts) {
  const SimulatedFrame frame = FrameOf("street");
  int compared = 0;
  for (const PixelReadout& pixel : frame.pixels) {
    if (pixel.peak_addr[0] > 1000 || pixel.peak_addr[1] > 1000) continue;
    const int shift = pixel.peak_addr[1] - pixel.peak_addr[0];
    for (int i = 0; i < kWindow; ++i) {
      const int other = i + shift;
      if (other < 0 || other >= kWindow) continue;
      ASSERT_EQ(pixel.samples[1][static_cast<std::size_t>(i)],
                pixel.samples[0][static_cast<std::size_t>(other)]);
      ++compared;
    }
  }
  EXPECT_GT(compared, 1000);
}

TEST(FrameSimulator, CrosstalkStandsAtOneRangeAllThroughAnExposure) {
  std::map<int, std::map<float, int>> ranges;  // by exposure: row group and column slot
  const SimulatedFrame frame = FrameOf("crosstalk");
  for (int index = 0; index < kPixels; ++index) {
    for (const EchoTruth& echo : frame.truth[static_cast<std::size_t>(index)]) {
      if (echo.kind != ReturnKind::kCrosstalk) continue;
      ++ranges[index / kCols / 6 * kSlots + index % kCols / 6 % kSlots][echo.range_m];
    }
  }
  // Six of ten of 144 exposures; three standard deviations to either side.
  EXPECT_GT(ranges.size(), 68U);
  EXPECT_LT(ranges.size(), 105U);
  std::map<float, int> exposures_at;
  for (const auto& [exposure, found] : ranges) {
    EXPECT_EQ(found.size(), 1U) << exposure;
    ++exposures_at[found.begin()->first];
  }
  EXPECT_EQ(exposures_at.size(), ranges.size());
  EXPECT_EQ(Kinds(FrameOf("street"), 0).count(ReturnKind::kCrosstalk), 0U);
}

}  // namespace
}  // namespace kerul::lidar::simulator
