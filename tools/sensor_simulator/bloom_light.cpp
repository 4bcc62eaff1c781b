#include "sensor_simulator/bloom_light.h"

#include <algorithm>
#include <cmath>

namespace kerul::lidar::simulator {
namespace {

constexpr int kReach = 14;  // pixels
constexpr double kCentreShare = 5e-5;
constexpr double kHaloFall = 1.8;
constexpr double kHaloRadius = 2.8;  // pixels
constexpr double kSameRange = 0.3;   // metres within which two sources make one spot

void AddLight(BloomSpots& spots, double strength, double range_m) noexcept {
  for (BloomSpot& spot : spots) {
    if (spot.strength > 0.0 && std::abs(spot.range_m - range_m) > kSameRange) continue;
    const double sum = spot.strength + strength;
    spot.range_m = (spot.range_m * spot.strength + range_m * strength) / sum;
    spot.strength = sum;
    return;
  }
}

}  // namespace

double BloomShare(double distance_pixels) noexcept {
  const double x = distance_pixels / kHaloRadius;
  const double fall = 1.0 + x * x;
  return kCentreShare * std::pow(fall, -kHaloFall);
}

std::vector<BloomSpots> SpreadBloom(const std::vector<BloomSource>& sources) {
  if (sources.empty()) return {};
  constexpr int kSide = 2 * kReach + 1;
  std::vector<double> shares;
  for (int dr = -kReach; dr <= kReach; ++dr) {
    for (int dc = -kReach; dc <= kReach; ++dc) {
      const double distance = std::sqrt(static_cast<double>(dr * dr + dc * dc));
      shares.push_back(distance == 0.0 || distance > kReach ? 0.0 : BloomShare(distance));
    }
  }
  std::vector<BloomSpots> light(static_cast<std::size_t>(kPixels));
  for (const BloomSource& source : sources) {
    const int last_row = std::min(source.row + kReach, kRows - 1);
    const int last_col = std::min(source.col + kReach, kCols - 1);
    for (int row = std::max(source.row - kReach, 0); row <= last_row; ++row) {
      for (int col = std::max(source.col - kReach, 0); col <= last_col; ++col) {
        const int entry = (row - source.row + kReach) * kSide + col - source.col + kReach;
        const double share = shares[static_cast<std::size_t>(entry)];
        if (share <= 0.0) continue;
        AddLight(light[static_cast<std::size_t>(PixelIndex(row, col))], source.strength * share,
                 source.range_m);
      }
    }
  }
  return light;
}

}  // namespace kerul::lidar::simulator
