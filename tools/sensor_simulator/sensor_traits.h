// What makes one sensor differ from another of its type: the gain and the delay of each pixel.
#pragma once

#include <cstdint>
#include <vector>

#include "sensor_simulator/vec3.h"

namespace kerul::lidar::simulator {

// Metres of range per unit of the range tables: a 64th of a nanosecond, out and back.
inline constexpr double kOffsetUnitMetres = 0.14989623 * 0.015625;
// The range of one nanosecond, by which the reflectivity model counts distance.
inline constexpr double kReferenceMetres = 0.14989623;
// Detections per 160 shots of a target of reflectivity 1 at the reference range, at a gain of 0:
// a white surface (100) at 10 m gives some 300 in the middle of the picture.
inline constexpr double kStrengthScale = 84.7;

struct PixelTraits {
  double delay_units = 0.0;  // range that the pixel's electronics add, table units
  double gain_log2 = 0.0;    // 0.03 .. 7.97
  bool dead = false;         // no counts, not calibrated
};

// Traits of all pixels, row-major. The same serial number gives the same sensor. directions: unit
// vectors, row-major; the picture grows darker away from the axis.
std::vector<PixelTraits> MakePixelTraits(std::uint64_t serial, const std::vector<Vec3>& directions);

// Offset that a table byte of 0 would stand for, by column: it falls in steps from left to right.
double OffsetBase(int col) noexcept;

// Expected detections per 160 shots, before background light takes its share. near_loss: log2.
double PulseStrength(double gain_log2, double reflectivity, double range_m,
                     double near_loss) noexcept;

}  // namespace kerul::lidar::simulator
