// Windows and settings shared by the tests of the echo computation.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <vector>

#include "MIPI_reader/parser/echo_computation.h"
#include "decode_blocks.h"
#include "support/kernel_forms.h"
#include "support/point_compare.h"
#include "support/raw_packet_builder.h"

namespace kerul::lidar::testing {

using Samples = std::array<std::uint16_t, 17>;

// Sets samples[first...] to `values`.
inline Samples Window(int first, std::initializer_list<int> values) {
  Samples samples{};
  auto sample = samples.begin() + first;
  for (const int value : values) *sample++ = static_cast<std::uint16_t>(value);
  return samples;
}

// Sums around sample 8 are 50, 150, 200, 150, 50.
inline Samples Triangle() { return Window(7, {50, 100, 50}); }

// Sums are 8, 28, 64, 76, 64, 28, 8: above a baseline of 16 they give 12, 48, 60, 48, 12, and the
// low threshold max(3 * sqrt(16), 60 / 5) is 12 both ways.
inline Samples Rounded() { return Window(6, {8, 20, 36, 20, 8}); }

struct Curves {
  std::vector<float> low = std::vector<float>(641, 0.0F);
  std::vector<float> gate = std::vector<float>(641, 100.0F);
  std::vector<float> high = std::vector<float>(641, 100.0F);
};

// What the computation is given and, in `point`, what it gives.
struct EchoInputs {
  EchoSettings settings;
  LidarPoint point;
  std::unique_ptr<CogwFilter> used;

  EchoInputs() {
    settings.baseline_rise_gate = 1e9F;  // no baseline adaptation unless a test asks for it
    settings.cogw_high_mode = 0;
    for (LidarEcho& echo : point.echoes) Reset(echo, 16.0F);
    point.detect_threshold = 36.0F;
  }

  static void Reset(LidarEcho& echo, float baseline) {
    echo = LidarEcho{};
    echo.peak_addr = 100;
    echo.noise = kNoise;
    echo.baseline = baseline;
  }

  void UseCurves(const Curves& curves) {
    used = std::make_unique<CogwFilter>(curves.low, curves.gate, curves.high);
    settings.cogw_limits = used->Limits();
  }

  // A power of two, so that a number of shots gives any baseline exactly.
  static constexpr int kNoise = 8;
};

// Takes the window through a packet, in each form of its decoding.
class EchoFormsTest : public FormsTest, protected EchoInputs {
 protected:
  EchoFormsTest() { LidarPoint::echo_num = 2; }
  ~EchoFormsTest() override { LidarPoint::echo_num = 1; }

  // All nine pixels have this window: enough for whole vectors and a part of one.
  const LidarEcho& Compute(const Samples& samples, int slot = 0) {
    LidarEcho& echo = point.echoes[slot];
    BlockSamples block = EmptyPixel(0);
    block[5] = kNoise;
    SetWindow(block, slot, samples, echo.peak_addr);
    std::array<std::uint8_t, 9 * 72> blocks;
    for (std::size_t i = 0; i < 9; ++i) PackBlock(block, blocks.data() + 72 * i);

    const auto threshold = static_cast<std::uint16_t>(point.detect_threshold);
    const float shot_times = echo.baseline / 3.0F * (2048.0F / kNoise);
    EXPECT_EQ(3.0F * (shot_times * (kNoise / 2048.0F)), echo.baseline);
    const PacketContext context{.settings = settings,
                                .threshold_bins = &threshold,
                                .threshold_count = 1,
                                .shot_times = shot_times,
                                .shot_ratio = point.shot_ratio,
                                .first_row = 0,
                                .first_col = 0,
                                .echo_count = 2};
    std::array<LidarPoint, 9> points;
    DecodeBlocksInForce(context, blocks.data(), points.data());
    for (const LidarPoint& other : points) EXPECT_EQ(PointDifference(other, points[0]), "");
    echo = points[0].echoes[slot];
    return echo;
  }
};

}  // namespace kerul::lidar::testing
