#include <cmath>

#include "reference/ground.h"
#include "reference/numeric.h"

namespace reference {

Direction RayDirection(const AngleCalibGrid& grid, int row, int col) {
  Direction none;
  if (!grid.valid) return none;
  if (row < 0 || row >= grid.rows || col < 0 || col >= grid.cols) return none;
  if (grid.unit_xyz.empty()) return none;
  const auto plane = static_cast<std::size_t>(grid.rows) * static_cast<std::size_t>(grid.cols);
  const std::size_t place = static_cast<std::size_t>(row) * static_cast<std::size_t>(grid.cols) +
                            static_cast<std::size_t>(col);
  Direction direction;
  direction.x = grid.unit_xyz[place];
  direction.y = grid.unit_xyz[plane + place];
  direction.z = grid.unit_xyz[2 * plane + place];
  if (!std::isfinite(direction.x)) return none;
  if (!std::isfinite(direction.y)) return none;
  if (!std::isfinite(direction.z)) return none;
  const float square =
      direction.x * direction.x + direction.y * direction.y + direction.z * direction.z;
  if (!(square > 1e-8F)) return none;
  direction.usable = true;
  return direction;
}

namespace {

struct SeedPoints {
  int n = 0;
  float X[5];
  float Y[5];
  float Z[5];
  float sum_x = 0.0F;
  float sum_y = 0.0F;
  float sum_xx = 0.0F;
  float sum_xy = 0.0F;
  Direction centre;
};

SeedPoints GatherSeedPoints(const float* distances, int count, int row, int col, int first_offset,
                            const AngleCalibGrid& grid) {
  SeedPoints points;
  for (int i = 0; i < count; ++i) {
    const Direction direction = RayDirection(grid, row + first_offset + i, col);
    if (!direction.usable) continue;
    if (i == -first_offset) points.centre = direction;
    if (!(distances[i] > 0.0F)) continue;
    const float X = direction.x * distances[i];
    const float Y = direction.y * distances[i];
    const float Z = direction.z * distances[i];
    points.sum_x += X;
    points.sum_y += Y;
    points.sum_xx += X * X;
    points.sum_xy += X * Y;
    if (points.n < 5) {
      points.X[points.n] = X;
      points.Y[points.n] = Y;
      points.Z[points.n] = Z;
      ++points.n;
    }
  }
  return points;
}

}  // namespace

float ProcessGroundVertSeed(const float* distances, int count, int row, int col, int first_offset,
                            const AngleCalibGrid& grid) {
  if (!grid.valid || count < 2) return 1.0F;
  // Points of the column.
  const SeedPoints p = GatherSeedPoints(distances, count, row, col, first_offset, grid);
  if (p.n < 2) return 1.0F;
  // Heading of the ground in the horizontal plane.
  const float n = static_cast<float>(p.n);
  const float den = n * p.sum_xx - p.sum_x * p.sum_x;
  float a = 0.0F;
  if (std::fabs(den) >= 1e-12F) a = (n * p.sum_xy - p.sum_x * p.sum_y) / den;
  // Projection to the mean height.
  float mean_z = 0.0F;
  for (int i = 0; i < p.n; ++i) mean_z += p.Z[i];
  mean_z = mean_z / n;
  int k = 0;
  float sum_z = 0.0F;
  float sum_rho = 0.0F;
  float sum_rho2 = 0.0F;
  float sum_zrho = 0.0F;
  for (int i = 0; i < p.n; ++i) {
    if (!(std::fabs(p.Z[i]) >= 1e-12F)) continue;
    const float px = p.X[i] / p.Z[i] * mean_z;
    const float py = p.Y[i] / p.Z[i] * mean_z;
    const float rho = std::sqrt(px * px + py * py);
    sum_z += p.Z[i];
    sum_rho += rho;
    sum_rho2 += rho * rho;
    sum_zrho += p.Z[i] * rho;
    ++k;
  }
  // Slope of the ground over range.
  float nz = 1.0F;
  float nr = 0.0F;
  const float fk = static_cast<float>(k);
  const float slope_den = fk * sum_rho2 - sum_rho * sum_rho;
  if (k >= 2 && std::fabs(slope_den) >= 1e-12F) {
    const float b = (fk * sum_zrho - sum_z * sum_rho) / slope_den;
    nz = 1.0F / std::sqrt(1.0F + b * b);
    nr = -b * nz;
  }
  if (!p.centre.usable) return 1.0F;
  // Cosine of the angle between ray and normal.
  const float s = 1.0F / std::sqrt(1.0F + a * a);
  const Direction& c = p.centre;
  const float cosine = std::fabs(((c.x * nr) * s) + (((c.y * nr) * a) * s) + c.z * nz);
  return Larger(0.4F, std::sqrt(cosine));
}

}  // namespace reference
