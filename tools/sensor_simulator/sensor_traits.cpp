#include "sensor_simulator/sensor_traits.h"

#include <algorithm>
#include <cmath>

#include "sensor_simulator/pixel_layout.h"
#include "sensor_simulator/random.h"

namespace kerul::lidar::simulator {
namespace {

constexpr double kAxisGain = 7.3;
constexpr double kFalloff = 2.2;          // power of the cosine from the axis
constexpr double kGainSpread = 0.07;      // standard deviation, log2
constexpr double kMiddleOffset = 128.0;   // middle of the table byte
constexpr double kOffsetSpread = 9.0;     // standard deviation, units of 2.3 mm
constexpr double kOffsetSlope = 0.12;     // units per row: the clock's way through the sensor
constexpr double kNearestModelled = 0.3;  // metres; the square law stops there
constexpr int kDeadPixels = 8;

}  // namespace

double OffsetBase(int col) noexcept {
  const int step = col / 6 / 8;
  return (5 - step) * 68.0 + 692.0;
}

std::vector<PixelTraits> MakePixelTraits(std::uint64_t serial,
                                         const std::vector<Vec3>& directions) {
  Random random(MixSeed(serial, 0x7472616974ULL));
  std::vector<PixelTraits> traits(static_cast<std::size_t>(kPixels));
  for (int row = 0; row < kRows; ++row) {
    for (int col = 0; col < kCols; ++col) {
      const auto index = static_cast<std::size_t>(PixelIndex(row, col));
      PixelTraits& pixel = traits[index];
      const double varied =
          kMiddleOffset + kOffsetSlope * (row - kRows / 2) + kOffsetSpread * random.Normal();
      pixel.delay_units = OffsetBase(col) + std::clamp(varied, 2.0, 254.0);
      const double falloff = kFalloff * std::log2(std::max(directions[index].x, 0.1));
      pixel.gain_log2 = std::clamp(kAxisGain + falloff + kGainSpread * random.Normal(), 0.5, 7.9);
    }
  }
  for (int i = 0; i < kDeadPixels; ++i) {
    traits[random.Below(static_cast<std::uint32_t>(kPixels))].dead = true;
  }
  return traits;
}

double PulseStrength(double gain_log2, double reflectivity, double range_m,
                     double near_loss) noexcept {
  const double distance = std::max(range_m, kNearestModelled) / kReferenceMetres;
  return kStrengthScale * std::exp2(gain_log2 - near_loss) * reflectivity / (distance * distance);
}

}  // namespace kerul::lidar::simulator
