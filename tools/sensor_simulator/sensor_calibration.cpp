#include "sensor_simulator/sensor_calibration.h"

#include <algorithm>
#include <cmath>

#include "sensor_simulator/pixel_layout.h"
#include "sensor_simulator/window_decoder.h"

namespace kerul::lidar::simulator {
namespace {

constexpr double kWeakest = 2.0;  // detections per 160 shots
constexpr double kStrongestOrdinary = 4000.0;
constexpr double kWeakestRetro = 2e4;
constexpr double kStrongestRetro = 1e6;
constexpr double kStep = 1.04;  // from one strength to the next
constexpr int kPhases = 16;     // places within a bin
constexpr int kNoise = 22;      // background light in the factory, as from a grey surface by day
constexpr double kShotCounts[] = {80.0, 176.0, 288.0, 432.0};
constexpr double kPosition = 200.0;  // bins
constexpr double kMaxSample = 4095.0;

// Mean over places and shot counts of what pulses of one strength decode to.
struct Measured {
  double height = 0.0;        // after compensation of the background
  double excess_units = 0.0;  // range seen too far
  double strength = 0.0;      // before background light took its share
};

DecodedPulse DecodePulse(const PulseCounts& pulse, int first_bin, double shots, WidthRule rule,
                         const SensorTables& tables) {
  DecodeInput input;
  input.noise = kNoise;
  input.shots = shots;
  input.rule = rule;
  for (int i = 0; i < kWindow; ++i) {
    input.samples[static_cast<std::size_t>(i)] =
        std::min(kNoise * shots / 2048.0 + pulse.At(first_bin + i), kMaxSample);
  }
  return DecodeWindow(input, tables);
}

Measured Measure(const PulseResponse& response, const SensorTables& tables, double strength,
                 WidthRule rule) {
  const double light = StrengthInBackground(tables, strength, kNoise);
  Measured mean;
  int count = 0;
  for (const double shots : kShotCounts) {
    for (int phase = 0; phase < kPhases; ++phase) {
      const double position = kPosition + static_cast<double>(phase) / kPhases;
      const PulseCounts pulse = response.Counts(light, position, shots);
      const int first_bin = LargestThreeBinSum(pulse).bin - kWindowCentre;
      const DecodedPulse decoded = DecodePulse(pulse, first_bin, shots, rule, tables);
      if (!decoded.found) continue;
      mean.height += CompensatedHeight(decoded, kNoise, tables);
      mean.excess_units += (first_bin + decoded.centre - position) * kBinMetres / kOffsetUnitMetres;
      ++count;
    }
  }
  if (count == 0) return {};
  return {mean.height / count, mean.excess_units / count, strength};
}

// Ordinary targets, from the weakest that is found at all; heights strictly ascending.
std::vector<Measured> Sweep(const PulseResponse& response, const SensorTables& tables,
                            WidthRule rule) {
  std::vector<Measured> points;
  for (double strength = kWeakest; strength < kStrongestOrdinary; strength *= kStep) {
    const Measured point = Measure(response, tables, strength, rule);
    if (point.strength > 0.0 && (points.empty() || point.height > points.back().height)) {
      points.push_back(point);
    }
  }
  return points;
}

// Value at a height on straight lines through the points, level beyond both ends.
template <typename Value>
double At(const std::vector<Measured>& points, double height, Value value) {
  const auto upper =
      std::lower_bound(points.begin(), points.end(), height,
                       [](const Measured& point, double wanted) { return point.height < wanted; });
  if (upper == points.begin()) return value(points.front());
  if (upper == points.end()) return value(points.back());
  const Measured& lo = *(upper - 1);
  const double share = (height - lo.height) / (upper->height - lo.height);
  return value(lo) + (value(*upper) - value(lo)) * share;
}

Curve RangeCurve(const std::vector<Measured>& points) {
  Curve curve;
  for (int i = 0; i < kCurveEntries; ++i) {
    curve[static_cast<std::size_t>(i)] =
        At(points, i, [](const Measured& point) { return point.excess_units; });
  }
  return curve;
}

// Heights beyond the curve are those of retro-reflectors: its last entry is their mean.
double RetroExcess(const PulseResponse& response, const SensorTables& tables) {
  double sum = 0.0;
  int count = 0;
  for (double strength = kWeakestRetro; strength < kStrongestRetro; strength *= 1.2) {
    sum += Measure(response, tables, strength, WidthRule::kAlwaysHigh).excess_units;
    ++count;
  }
  return sum / count;
}

Curve PowerCurve(const std::vector<Measured>& points) {
  constexpr double kPowerOfStrength = 64.0 / kStrengthScale;
  Curve curve;
  for (int i = 1; i < kCurveEntries; ++i) {
    const Measured& weakest = points.front();
    // Below the weakest pulse that is found, height and strength fall together.
    const double strength = i < weakest.height
                                ? weakest.strength * i / weakest.height
                                : At(points, i, [](const Measured& p) { return p.strength; });
    curve[static_cast<std::size_t>(i)] = std::log2(strength * kPowerOfStrength);
  }
  curve[0] = curve[1] - 2.0;  // the logarithm has no value there
  return curve;
}

std::uint8_t Byte(double value) noexcept {
  return static_cast<std::uint8_t>(std::clamp(std::lround(value), 1L, 255L));
}

}  // namespace

SensorCalibration Calibrate(const PulseModel& pulse, const SensorTables& tables,
                            const std::vector<PixelTraits>& traits) {
  const PulseResponse response(pulse);
  SensorCalibration calibration;
  const std::vector<Measured> low = Sweep(response, tables, WidthRule::kAlwaysLow);
  calibration.range_low = RangeCurve(low);
  calibration.range_high = RangeCurve(Sweep(response, tables, WidthRule::kAlwaysHigh));
  calibration.range_high.back() = RetroExcess(response, tables);
  calibration.power = PowerCurve(low);

  calibration.offset.resize(kTableEntries);
  calibration.scale.resize(kTableEntries);
  for (int row = 0; row < kRows; ++row) {
    for (int col = 0; col < kCols; ++col) {
      const PixelTraits& pixel = traits[static_cast<std::size_t>(PixelIndex(row, col))];
      if (pixel.dead) continue;
      const auto entry = static_cast<std::size_t>(TableIndex(row, col));
      calibration.offset[entry] = Byte(pixel.delay_units - OffsetBase(col));
      calibration.scale[entry] = Byte(pixel.gain_log2 * 32.0);
    }
  }
  return calibration;
}

}  // namespace kerul::lidar::simulator
