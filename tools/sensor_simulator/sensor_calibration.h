// The factory calibration of the simulated sensor: what a receiver must know to get from a pulse's
// place and height to range and reflectivity.
//
// The curves are measured as a factory would, by decoding pulses of known strength and place. The
// pulses are free of photon noise, and averaged over places within a bin and over the shot counts
// in use. The pixel tables are the pixels' true delays and gains, rounded to their stored bytes.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "sensor_simulator/pulse_model.h"
#include "sensor_simulator/sensor_tables.h"
#include "sensor_simulator/sensor_traits.h"

namespace kerul::lidar::simulator {

inline constexpr int kCurveEntries = 512;

using Curve = std::array<double, kCurveEntries>;  // indexed by pulse height, per 160 shots

struct SensorCalibration {
  Curve range_low{};   // range error of a pulse of this height, units of kOffsetUnitMetres
  Curve range_high{};  // the same, measured at the high threshold
  Curve power{};       // log2 of the power at a height
  // Pixel tables, tile by tile (TableIndex). 0 marks a pixel without calibration.
  std::vector<std::uint8_t> offset;  // above OffsetBase
  std::vector<std::uint8_t> scale;   // gain, 32nds of a factor of two
};

SensorCalibration Calibrate(const PulseModel& pulse, const SensorTables& tables,
                            const std::vector<PixelTraits>& traits);

}  // namespace kerul::lidar::simulator
