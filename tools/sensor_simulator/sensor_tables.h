// What all sensors of this type have in common: shot counts, how background light and nearness
// change a pulse's height, and the curves by which pulses are judged.
#pragma once

#include <array>
#include <vector>

namespace kerul::lidar::simulator {

inline constexpr int kWidthEntries = 641;
inline constexpr int kGainEntries = 1024;
inline constexpr int kNearRows = 100;  // steps of 0.1 m
inline constexpr int kLanes = 6;       // pixel row within the miniflash row

struct SensorTables {
  std::vector<float> shots;       // laser shots by miniflash row, 36 or more
  std::vector<float> gain_low;    // kGainEntries, by noise: height lost to background light
  std::vector<float> gain_high;   // the same for pulses measured at the high threshold
  std::vector<float> near;        // kNearRows x kLanes: log2 of the near-range loss, plus 2
  std::vector<float> gate_width;  // kWidthEntries, by normalised peak: wider pulses are remeasured
  std::vector<float> high_width;  // kWidthEntries: limit of the width at the high threshold
  std::vector<float> map_in;      // height at the high threshold, ascending
  std::vector<float> map_out;     // the height at the low threshold that it stands for
  std::vector<float> detect;      // detection level of a three-bin sum, by noise
};

// The tables that are compiled into the node for all sensors. Not to be called before main.
const SensorTables& DefaultSensorTables();

// What the receiver adds to a pulse's height before it compensates the background, level units.
inline constexpr double kEnvironmentBias = 15.0;

// Detections of a pulse that remain in background light, per 160 shots. The sensor loses what the
// receiver's compensation gives back: (bias + height) * gain.
double StrengthInBackground(const SensorTables& tables, double strength, int noise) noexcept;

// log2 of the factor by which a return at range_m is weaker than the square law says.
double NearRangeLoss(const SensorTables& tables, double range_m, int lane) noexcept;

}  // namespace kerul::lidar::simulator
