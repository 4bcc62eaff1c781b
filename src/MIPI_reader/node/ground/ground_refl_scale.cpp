#include "MIPI_reader/node/ground/ground_refl_scale.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

#include "MIPI_reader/node/ground/ground_direction.h"

namespace kerul::lidar {
namespace {

constexpr std::size_t kMaxSeedPoints = 5;
constexpr float kTiny = 1e-12F;    // smaller divisors are noise
constexpr float kMinScale = 0.4F;  // raises a reflectivity by a factor of 2.5 at most
constexpr float kCannotTell = 1.0F;

// The column's points in metres, with the sums of the heading.
struct SeedPoints {
  std::array<Point3f, kMaxSeedPoints> list;
  std::size_t list_count = 0;
  int count = 0;
  float sum_x = 0.0F;
  float sum_y = 0.0F;
  float sum_xx = 0.0F;
  float sum_xy = 0.0F;
  bool has_centre = false;
  Point3f centre;  // ray of the pixel itself, of unit length
};

// Slope of the ground as two components of its normal in a vertical plane.
struct Slope {
  float nr = 0.0F;  // along the heading
  float nz = 1.0F;  // upward
};

void AddPoint(SeedPoints& seeds, const Point3f& point) noexcept {
  seeds.sum_x += point.x;
  seeds.sum_y += point.y;
  seeds.sum_xx += point.x * point.x;
  seeds.sum_xy += point.x * point.y;
  ++seeds.count;
  if (seeds.list_count < kMaxSeedPoints) seeds.list[seeds.list_count++] = point;
}

SeedPoints GatherPoints(const float* distances, int count, int row, int col, int first_offset,
                        const AngleCalibGrid& grid) noexcept {
  SeedPoints seeds;
  for (int i = 0; i < count; ++i) {
    Point3f ray;
    if (!FindDirection(grid, row + first_offset + i, col, ray)) continue;
    if (i == -first_offset) {
      seeds.centre = ray;
      seeds.has_centre = true;
    }
    const float d = distances[i];
    if (d > 0.0F) AddPoint(seeds, {ray.x * d, ray.y * d, ray.z * d});
  }
  return seeds;
}

// Direction of the column over ground: y per x, by least squares.
float FitHeading(const SeedPoints& seeds) noexcept {
  const auto n = static_cast<float>(seeds.count);
  const float divisor = n * seeds.sum_xx - seeds.sum_x * seeds.sum_x;
  if (!(std::fabs(divisor) >= kTiny)) return 0.0F;
  return (n * seeds.sum_xy - seeds.sum_x * seeds.sum_y) / divisor;
}

// Height over horizontal range, by least squares. Each range is the one at which its ray meets the
// mean height, so that noise along the ray does not tilt the slope.
Slope FitSlope(const SeedPoints& seeds) noexcept {
  float total_z = 0.0F;
  for (std::size_t i = 0; i < seeds.list_count; ++i) total_z += seeds.list[i].z;
  const float mean_z = total_z / static_cast<float>(seeds.list_count);

  float sum_z = 0.0F;
  float sum_rho = 0.0F;
  float sum_rho2 = 0.0F;
  float sum_z_rho = 0.0F;
  int used = 0;
  for (std::size_t i = 0; i < seeds.list_count; ++i) {
    const Point3f& point = seeds.list[i];
    if (!(std::fabs(point.z) >= kTiny)) continue;
    const float px = point.x / point.z * mean_z;
    const float py = point.y / point.z * mean_z;
    const float rho = std::sqrt(px * px + py * py);
    sum_z += point.z;
    sum_rho += rho;
    sum_rho2 += rho * rho;
    sum_z_rho += point.z * rho;
    ++used;
  }
  const auto k = static_cast<float>(used);
  const float divisor = k * sum_rho2 - sum_rho * sum_rho;
  if (used < 2 || !(std::fabs(divisor) >= kTiny)) return {};
  const float b = (k * sum_z_rho - sum_z * sum_rho) / divisor;
  const float nz = 1.0F / std::sqrt(1.0F + b * b);
  return {-b * nz, nz};
}

}  // namespace

float EstimateGroundReflScale(const float* distances, int count, int row, int col, int first_offset,
                              const AngleCalibGrid& grid) noexcept {
  if (!grid.valid || count < 2) return kCannotTell;
  const SeedPoints seeds = GatherPoints(distances, count, row, col, first_offset, grid);
  if (seeds.count < 2 || !seeds.has_centre) return kCannotTell;

  const float a = FitHeading(seeds);
  const Slope slope = FitSlope(seeds);
  const float s = 1.0F / std::sqrt(1.0F + a * a);
  const Point3f& ray = seeds.centre;
  const float cosine =
      std::fabs(ray.x * slope.nr * s + ray.y * slope.nr * a * s + ray.z * slope.nz);
  // In this order a NaN gives the lower limit.
  return std::max(kMinScale, std::sqrt(cosine));
}

}  // namespace kerul::lidar
