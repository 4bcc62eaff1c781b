// One pixel: from the light pulses that reach it to the two windows that it sends.
#pragma once

#include <array>

#include "sensor_simulator/background.h"
#include "sensor_simulator/frame_simulator.h"
#include "sensor_simulator/pulse_model.h"

namespace kerul::lidar::simulator {

// One pulse of light on its way into the pixel.
struct LightPulse {
  double strength = 0.0;       // expected detections per 160 shots
  double position_bins = 0.0;  // in the histogram, delay included
  EchoTruth truth;
};

inline constexpr int kMaxPulses = 10;

struct PixelLight {
  std::array<LightPulse, kMaxPulses> pulses;
  int count = 0;

  void Add(const LightPulse& pulse) noexcept {
    if (count < kMaxPulses) pulses[static_cast<std::size_t>(count++)] = pulse;
  }
};

struct PixelConditions {
  int noise = 0;  // true background, noise word units
  int shots = 160;
};

// The sensor searches the histogram for the two highest peaks more than eight bins apart, sends
// the higher one first, and sends only what rises well above its background.
void ReadOutPixel(const PixelLight& light, const PixelConditions& conditions,
                  const Background& background, const PulseResponse& response, Random& random,
                  PixelReadout& readout, PixelTruth& truth);

}  // namespace kerul::lidar::simulator
