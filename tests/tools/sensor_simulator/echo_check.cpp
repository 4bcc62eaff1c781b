#include "tools/sensor_simulator/echo_check.h"

#include <algorithm>
#include <cmath>

#include "sensor_simulator/pixel_layout.h"

namespace kerul::lidar::simulator {
namespace {

double Interpolated(const Curve& curve, double units, double x) {
  const auto stored = [&](std::size_t i) { return std::round(curve[i] * units) / units; };
  if (!(x < 511.0)) return stored(511);
  const auto i = static_cast<std::size_t>(x);
  return stored(i) + (stored(i + 1) - stored(i)) * (x - static_cast<double>(i));
}

}  // namespace

CheckedEcho CheckEcho(const SimulatedFrame& frame, int row, int col, int echo,
                      const SensorCalibration& calibration, const SensorTables& tables) {
  const auto index = static_cast<std::size_t>(PixelIndex(row, col));
  const auto slot = static_cast<std::size_t>(echo);
  const PixelReadout& pixel = frame.pixels[index];
  DecodeInput input;
  for (std::size_t i = 0; i < kWindow; ++i) input.samples[i] = pixel.samples[slot][i];
  input.noise = pixel.noise;
  input.shots = tables.shots[static_cast<std::size_t>(row / 6)];
  input.echo = echo;

  CheckedEcho checked;
  checked.pulse = DecodeWindow(input, tables);
  if (!checked.pulse.found || checked.pulse.too_wide) return checked;
  const auto entry = static_cast<std::size_t>(TableIndex(row, col));
  const double height = CompensatedHeight(checked.pulse, pixel.noise, tables);
  const double risen = checked.pulse.noise_rise / 3.0;
  const Curve& range_curve = checked.pulse.high ? calibration.range_high : calibration.range_low;
  const double units =
      Interpolated(range_curve, 1.0, height + risen) + OffsetBase(col) + calibration.offset[entry];
  checked.range_m =
      (checked.pulse.centre + pixel.peak_addr[slot]) * kBinMetres - units * kOffsetUnitMetres;
  checked.height = MappedHeight(checked.pulse, height, tables);
  const double v = Interpolated(calibration.power, 1024.0, checked.height + risen);
  const double distance = std::max(checked.range_m, 0.3) / kReferenceMetres;
  checked.reflectivity =
      std::exp2(2.0 * std::log2(distance) + v - calibration.scale[entry] / 32.0 - 6.0 +
                NearRangeLoss(tables, std::max(checked.range_m, 0.0), row % 6));
  return checked;
}

}  // namespace kerul::lidar::simulator
