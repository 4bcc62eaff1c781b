// What a receiver makes of one echo of a simulated frame, with the sensor's own calibration.
#pragma once

#include "sensor_simulator/frame_simulator.h"
#include "sensor_simulator/sensor_calibration.h"
#include "sensor_simulator/window_decoder.h"

namespace kerul::lidar::simulator {

struct CheckedEcho {
  DecodedPulse pulse;
  double height = 0.0;  // after compensation and mapping
  double range_m = 0.0;
  double reflectivity = 0.0;  // not capped
};

// Decodes echo `echo` of a pixel whose window was sent and applies the stored (rounded) tables.
CheckedEcho CheckEcho(const SimulatedFrame& frame, int row, int col, int echo,
                      const SensorCalibration& calibration, const SensorTables& tables);

}  // namespace kerul::lidar::simulator
