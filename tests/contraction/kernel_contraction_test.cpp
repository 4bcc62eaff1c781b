// No form of a kernel contracts multiply and add into one rounding. Its operands are such that this
// would change the result; what is expected is computed by numbers that cannot be contracted.
//
// The default output mode's encoder and the ground stage's lanes are not here: they add to no
// product. CompiledNode.HoldsNoFusedInstruction covers them and everything else.
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstdint>
#include <random>
#include <vector>

#include "MIPI_reader/node/frame_builder.h"
#include "MIPI_reader/node/ground/ground_labelling.h"
#include "MIPI_reader/node/ground/ground_rows.h"
#include "MIPI_reader/node/ground/ground_settings_builder.h"
#include "MIPI_reader/node/neighbours/neighbour_validation.h"
#include "MIPI_reader/node/point_calibration/packet_calibrator.h"
#include "MIPI_reader/parser/lidar_parser.h"
#include "MIPI_reader/parser/raw_packet_builder.h"
#include "contraction/rounding.h"
#include "support/kernel_forms.h"

namespace kerul::lidar::contraction {
namespace {

using frame_builder::MakeRows;
using frame_builder::SetEcho;

class Contraction : public FormsTest {
 protected:
  ~Contraction() override { LidarPoint::echo_num = 1; }

  float Between(float from, float to) {
    return std::uniform_real_distribution<float>(from, to)(random_);
  }

  // `formula` is called with a number type's zero and gives the result in that type.
  template <typename Formula>
  void Expect(float got, Formula&& formula) {
    const float rounded = formula(Rounded()).value;
    EXPECT_EQ(std::bit_cast<std::uint32_t>(got), std::bit_cast<std::uint32_t>(rounded))
        << got << " for " << rounded;
    ++compared_;
    if (formula(Fused()).value != rounded) ++telling_;
  }
  // That many of the results would have been others if they had been contracted.
  void ExpectTelling(int at_least) const { EXPECT_GE(telling_, at_least) << "of " << compared_; }

 private:
  std::mt19937 random_{1};
  int compared_ = 0;
  int telling_ = 0;
};
RUN_IN_EVERY_FORM(Contraction);

// ---- Echo computation ----

using Window = std::array<std::uint16_t, 17>;
using Sums = std::array<float, 17>;  // whole numbers, zeros at both ends

Sums ThreeBinSums(const Window& window) {
  Sums sums{};
  for (std::size_t k = 1; k < 16; ++k) {
    sums[k] = static_cast<float>(window[k - 1] + window[k] + window[k + 1]);
  }
  return sums;
}

template <typename N>
N RmsRatio(const Sums& sums) {
  N squares(0.0F);
  for (std::size_t k = 1; k < 16; ++k) squares = squares + N(sums[k]) * N(sums[k]);
  return Sqrt(squares / N(15.0F)) / N(sums[8]);
}

// Where the sums cross the threshold on either side of the centre.
struct Edges {
  std::size_t left = 8;
  std::size_t right = 8;
  float from = 0.0F;
  float to = 0.0F;
};
Edges FindEdges(const Sums& sums, float threshold) {
  Edges edges;
  while (sums[edges.left] > threshold) --edges.left;
  while (sums[edges.right] > threshold) ++edges.right;
  const auto crossing = [&](std::size_t k) {
    return (threshold - sums[k]) / (sums[k + 1] - sums[k]) + static_cast<float>(k);
  };
  edges.from = crossing(edges.left);
  edges.to = crossing(edges.right - 1);
  return edges;
}

template <typename N>
struct Pulse {
  N height;
  N range;
};
// Without baseline, at 160 shots.
template <typename N>
Pulse<N> MeasurePulse(const Sums& sums, int first_bin) {
  const float threshold = sums[8] / 5.0F;
  const Edges edges = FindEdges(sums, threshold);
  N area(0.0F);
  N moment(0.0F);
  N energy(0.0F);
  for (std::size_t k = edges.left + 1; k < edges.right; ++k) {
    const N sum(sums[k]);
    area = area + sum;
    moment = moment + N(static_cast<float>(k)) * sum;
    energy = energy + sum * sum;
  }
  const N h(threshold);
  const auto a = static_cast<float>(edges.left + 1);
  const auto z = static_cast<float>(edges.right - 1);
  const N partial(-(edges.from - a + z - edges.to) - 1.0F);
  const N full_area = area + partial * h;
  const float head = Rounded(edges.from * threshold).value;
  const float tail = Rounded(threshold * edges.to).value;
  // The products of doubles that hold floats are exact but for the last few bits.
  volatile double head_moment = (static_cast<double>(a - edges.from) - 0.5) * double{head};
  volatile double tail_moment = (static_cast<double>(edges.to - z) - 0.5) * double{tail};
  const N partial_moment(static_cast<float>(head_moment + tail_moment));
  const N centre = (moment + partial_moment) / full_area;
  return {N(0.5F) * ((h * h * partial + energy) / full_area),
          (centre + N(static_cast<float>(first_bin))) * N(0.15F)};
}

TEST_P(Contraction, StaysOutOfTheEchoComputation) {
  LidarPoint::echo_num = 2;
  LidarParserQDV11 parser;
  parser.keep_bins = false;
  parser.clip_side_peaks = false;
  parser.cogw_high_mode = 0;
  parser.baseline_samples = 4;
  parser.baseline_rise_gate = 1e9F;
  parser.shot_times.assign(256, 160.0F);
  parser.detect_threshold_bins = {1, 1};
  for (int i = 0; i < 40; ++i) {
    UdpPacket packet = RawPacket();
    std::array<std::array<Window, 2>, 9> windows{};
    for (int block = 0; block < 9; ++block) {
      BlockSamples samples = EmptyPixel(block);
      for (int slot = 0; slot < 2; ++slot) {
        Window& window = windows[static_cast<std::size_t>(block)][static_cast<std::size_t>(slot)];
        for (std::uint16_t& sample : window) {
          sample = static_cast<std::uint16_t>(Between(200.0F, 4095.0F));
        }
        SetWindow(samples, slot, window, 100);
      }
      SetBlock(packet, block, samples);
    }
    std::vector<LidarPoint> points;
    int frame_id = 0;
    parser.ParsePacket(packet, points, frame_id, 2);
    ASSERT_EQ(points.size(), 9U);
    for (std::size_t block = 0; block < 9; ++block) {
      for (std::size_t slot = 0; slot < 2; ++slot) {
        const Sums sums = ThreeBinSums(windows[block][slot]);
        const LidarEcho& echo = points[block].echoes[slot];
        Expect(echo.waveform_rms_ratio, [&]<typename N>(N) { return RmsRatio<N>(sums); });
        Expect(echo.cogh, [&]<typename N>(N) { return MeasurePulse<N>(sums, 100).height; });
        Expect(echo.dist_raw, [&]<typename N>(N) { return MeasurePulse<N>(sums, 100).range; });
      }
    }
  }
  ExpectTelling(300);
}

// ---- Calibration ----

// Echoes 0 with random pulses; the second window's are empty.
template <typename Between>
std::vector<LidarPoint> RandomPulses(Between&& between) {
  LidarPoint::echo_num = 1;
  std::vector<LidarPoint> points(299);
  for (LidarPoint& point : points) {
    point.echoes[0].dist_raw = between(1.0F, 20.0F);
    point.echoes[0].cogh = between(10.0F, 400.0F);
    point.echoes[0].noise = between(1.0F, 9.0F);
    point.echoes[0].cogw_flag = 2;
  }
  return points;
}

TEST_P(Contraction, StaysOutOfTheBackgroundCompensation) {
  constexpr float kGain = 0.737F;
  const std::array<float, 4> cogt = {0.00217F, 3.7F, 1.31F, 0.77F};
  const EnvCalib env({kGain}, {kGain}, {cogt.begin(), cogt.end()}, 5.3F);
  const PacketCalibrator calibrator({.env = &env});
  const auto between = [this](float from, float to) { return Between(from, to); };
  const std::vector<LidarPoint> before = RandomPulses(between);
  std::vector<LidarPoint> points = before;
  calibrator.Calibrate(points);
  for (std::size_t i = 0; i < points.size(); ++i) {
    const LidarEcho& from = before[i].echoes[0];
    const LidarEcho& echo = points[i].echoes[0];
    Expect(echo.cogh,
           [&]<typename N>(N) { return (N(5.3F) + N(from.cogh)) * N(kGain) + N(from.cogh); });
    Expect(echo.dist_raw, [&]<typename N>(N) {
      const N noise(from.noise);
      const N noise_term = N(cogt[2]) * noise + noise * noise + N(cogt[3]);
      // The compensated height as it came out, so that this tells of the range alone.
      return N(from.dist_raw) + (N(echo.cogh) - N(cogt[1])) * -N(cogt[0]) * noise_term * N(0.15F);
    });
  }
  ExpectTelling(120);
}

TEST_P(Contraction, StaysOutOfTheMappingOfHeights) {
  const HighThresholdMap map({0.0F, 500.0F}, {3.3F, 471.7F});
  const PacketCalibrator calibrator({.high_threshold_map = &map});
  const auto between = [this](float from, float to) { return Between(from, to); };
  const std::vector<LidarPoint> before = RandomPulses(between);
  std::vector<LidarPoint> points = before;
  calibrator.Calibrate(points);
  for (std::size_t i = 0; i < points.size(); ++i) {
    Expect(points[i].echoes[0].cogh, [&]<typename N>(N) {
      const N slope = (N(471.7F) - N(3.3F)) / (N(500.0F) - N(0.0F));
      return (N(before[i].echoes[0].cogh) - N(0.0F)) * slope + N(3.3F);
    });
  }
  ExpectTelling(50);
}

// ---- Row passes ----

TEST_P(Contraction, StaysOutOfTheNeighboursMeans) {
  constexpr int kWidth = 288;
  FrameRows rows = MakeRows(3, kWidth);
  for (std::vector<LidarPoint>& line : rows) {
    // Near enough to each other that all eight take part.
    for (LidarPoint& point : line) {
      SetEcho(point.echoes[0], Between(10.0F, 10.05F), Between(10.0F, 90.0F));
    }
  }
  const FrameRows before = rows;
  ValidateNeighbours(rows, 1, 1);
  constexpr std::array<float, 4> kWeights = {0.075F, 0.125F, 0.075F, 0.125F};
  for (int col = 1; col < kWidth - 1; ++col) {
    const auto mean = [&]<typename N>(N, float LidarEcho::*field) {
      const auto at = [&](int dr, int dc) {
        const LidarPoint& point =
            before[static_cast<std::size_t>(1 + dr)][static_cast<std::size_t>(col + dc)];
        return N(point.echoes[0].*field);
      };
      N sum = N(0.2F) * at(0, 0);
      N weights(0.2F);
      for (std::size_t i = 0; i < kWeights.size(); ++i) {
        const N weight(kWeights[i]);
        sum = sum + weight * at(kGrpADr[i], kGrpADc[i]);
        sum = sum + weight * at(kGrpBDr[i], kGrpBDc[i]);
        weights = weights + N(2.0F * kWeights[i]);
      }
      return sum / weights;
    };
    const LidarEcho& echo = rows[1][static_cast<std::size_t>(col)].echoes[0];
    Expect(echo.dist_proc, [&](auto zero) { return mean(zero, &LidarEcho::dist_raw); });
    Expect(echo.refl_proc, [&](auto zero) { return mean(zero, &LidarEcho::refl_raw); });
  }
  ExpectTelling(40);
}

TEST_P(Contraction, StaysOutOfTheGroundsMeans) {
  constexpr std::size_t kWidth = 100;
  FrameRows rows = MakeRows(12, kWidth);
  for (std::size_t row = 0; row < rows.size(); ++row) {
    for (LidarPoint& point : rows[row]) {
      const float dist = 3.0F + 0.25F * static_cast<float>(row) + Between(0.0F, 0.02F);
      SetEcho(point.echoes[0], dist, Between(10.0F, 90.0F));
    }
  }
  GroundSettings settings = ground_builder::DefaultSettings();
  settings.min_dist = {1.0F};
  settings.smooth_enable = true;
  LabelGroundByRise(rows, 1, ground_builder::kMrowHeight, settings, {});
  constexpr std::array<float, 5> kWeights = {0.15F, 0.2F, 0.25F, 0.2F, 0.15F};
  for (std::size_t row = 6; row < 10; ++row) {
    for (std::size_t col = 2; col < kWidth - 2; ++col) {
      const auto mean = [&]<typename N>(N, float LidarEcho::*field) {
        N sum(0.0F);
        N weights(0.0F);
        for (std::size_t i = 0; i < kWeights.size(); ++i) {
          // The stage leaves the raw fields as they are.
          sum = sum + N(kWeights[i]) * N(rows[row][col + i - 2].echoes[0].*field);
          weights = weights + N(kWeights[i]);
        }
        return sum / weights;
      };
      const LidarEcho& echo = rows[row][col].echoes[0];
      ASSERT_TRUE(echo.ground);
      Expect(echo.dist_proc, [&](auto zero) { return mean(zero, &LidarEcho::dist_raw); });
      Expect(echo.refl_proc, [&](auto zero) { return mean(zero, &LidarEcho::refl_raw); });
    }
  }
  ExpectTelling(100);
}

}  // namespace
}  // namespace kerul::lidar::contraction
