// Windows and settings shared by the tests of the echo computation.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "MIPI_reader/parser/echo_computation.h"

namespace kerul::lidar {

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

class ComputeEchoTest : public ::testing::Test {
 protected:
  ComputeEchoTest() {
    settings.baseline_rise_gate = 1e9F;  // no baseline adaptation unless a test asks for it
    settings.cogw_high_mode = 0;
    for (LidarEcho& echo : point.echoes) {
      echo.peak_addr = 100;
      echo.noise = 10.0F;
      echo.baseline = 16.0F;
    }
    point.detect_threshold = 36.0F;
  }

  void UseCurves(const Curves& curves) {
    used = curves;
    settings.cogw_low_curve = used.low.data();
    settings.cogw_gate_curve = used.gate.data();
    settings.cogw_high_curve = used.high.data();
  }

  const LidarEcho& Compute(const Samples& samples, int slot = 0) {
    ComputeEcho(settings, samples.data(), point, slot);
    return point.echoes[slot];
  }

  EchoSettings settings;
  LidarPoint point;
  Curves used;
};

}  // namespace kerul::lidar
