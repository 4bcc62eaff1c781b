#include "sensor_simulator/sensor_tables.h"

#include <algorithm>
#include <cmath>

#include "config/default_config.h"

namespace kerul::lidar::simulator {
namespace {

SensorTables FromConfiguration(const DefaultTables& config) {
  SensorTables tables;
  tables.shots = config.shot_times;
  tables.gain_low = config.env_cogh;
  tables.gain_high = config.env_cogh_high;
  tables.near = config.cogh_efficiant;
  tables.gate_width = config.cogw_b;
  tables.high_width = config.cogw_c;
  tables.map_in = config.high_threshold_cogh_in;
  tables.map_out = config.high_threshold_cogh_out;
  tables.detect.assign(config.detect_threshold.begin(), config.detect_threshold.end());
  return tables;
}

}  // namespace

const SensorTables& DefaultSensorTables() {
  static const SensorTables tables = FromConfiguration(default_config::kConfig.tables);
  return tables;
}

double StrengthInBackground(const SensorTables& tables, double strength, int noise) noexcept {
  constexpr double kHeightOfDetection = 0.36;  // level units that one detection of a pulse adds
  constexpr double kLeastShare = 0.3;  // what is left of weak pulses, which the loss would end
  const double gain = static_cast<double>(
      tables.gain_low[static_cast<std::size_t>(std::clamp(noise, 0, kGainEntries - 1))]);
  const double loss = kEnvironmentBias / kHeightOfDetection * gain;
  return std::max(strength - loss, kLeastShare * strength) / (1.0 + gain);
}

double NearRangeLoss(const SensorTables& tables, double range_m, int lane) noexcept {
  if (range_m > 9.900001) return 0.0;
  const double place = range_m / 0.1;
  const double whole = std::floor(place);
  const auto row = static_cast<std::size_t>(whole);
  const auto at = [&](std::size_t r) {
    return static_cast<double>(tables.near[r * kLanes + static_cast<std::size_t>(lane)]);
  };
  if (row > 98) return at(99) - 2.0;
  return at(row) + (at(row + 1) - at(row)) * (place - whole) - 2.0;
}

}  // namespace kerul::lidar::simulator
