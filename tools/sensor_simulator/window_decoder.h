// Range and height of one 17-sample window, as a receiver of the stream would compute them.
//
// Written apart from the node and in double precision: the simulator derives its calibration from
// it, so that a fault in the node cannot hide in tables that were made with the node's own code.
#pragma once

#include <array>
#include <cstdint>

#include "sensor_simulator/sensor_tables.h"

namespace kerul::lidar::simulator {

inline constexpr int kWindow = 17;
inline constexpr int kWindowCentre = 8;

// Which threshold measures the pulse: the low one, or the high one when the pulse is wide.
enum class WidthRule : std::uint8_t { kByWidth, kAlwaysLow, kAlwaysHigh };

struct DecodeInput {
  std::array<double, kWindow> samples{};
  double noise = 0.0;  // noise word
  double shots = 160.0;
  int echo = 0;  // the second echo takes no baseline adaptation and no clipping
  WidthRule rule = WidthRule::kByWidth;  // other than by width: for calibration
};

struct DecodedPulse {
  bool found = false;     // reached the level of a near miss
  bool sure = false;      // reached the detection level
  bool too_wide = false;  // dropped for its width: no range
  bool high = false;      // measured at the high threshold
  bool highly_reflective = false;
  double peak_ratio = 0.0;
  double centre = 0.0;  // samples, window's first sample is 0
  double height = 0.0;  // per 160 shots
  double peak = 0.0;    // per 160 shots
  double width = 0.0;   // at the low threshold, samples
  double high_width = 0.0;
  double noise_rise = 0.0;  // what the baseline adaptation added to the noise word
};

DecodedPulse DecodeWindow(const DecodeInput& input, const SensorTables& tables) noexcept;

// Height after the compensation of background light.
double CompensatedHeight(const DecodedPulse& pulse, double noise,
                         const SensorTables& tables) noexcept;

// Height of a pulse measured at the high threshold on the scale of the low one; others as they are.
double MappedHeight(const DecodedPulse& pulse, double height, const SensorTables& tables) noexcept;

}  // namespace kerul::lidar::simulator
