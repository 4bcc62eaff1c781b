#include "reference/ground.h"

#include <cmath>
#include <vector>

#include "reference/numeric.h"
#include "reference/plane.h"

namespace reference {
namespace {

LidarEcho& Echo(LidarFrame& frame, int row, int col) {
  return frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)].echoes[0];
}

float SmallestGroundDistance(const std::vector<float>& table, int m_row) {
  if (table.empty()) return 1.0F;
  return table[NearestIndex(m_row, table.size())];
}

// The consecutive column pixels whose distances rise; count 0 when they do not.
struct Run {
  int first_offset = 0;
  int count = 0;
};

// column: distances at the row offsets -2..2.
Run RisingRun(const float* column) {
  const float up2 = column[0];
  const float up1 = column[1];
  const float here = column[2];
  const float down1 = column[3];
  const float down2 = column[4];
  if (up1 > up2) {
    if (!(here > up1 && down1 > here)) return Run{0, 0};
    if (down2 > down1) return Run{-2, 5};
    return Run{-2, 4};
  }
  if (here > up1 && down1 > here && down2 > down1) return Run{-1, 4};
  return Run{0, 0};
}

// Smallest of the two row gates, for the smoothing; below zero when the row does not stay level.
float RowGate(LidarFrame& frame, int r, int c, float g, const GroundSettings& s) {
  constexpr int kOffsets[4] = {-2, -1, 1, 2};
  const float d = Echo(frame, r, c).dist_raw;
  float sum = 0.0F;
  int count = 0;
  float max_diff = 0.0F;
  for (int offset : kOffsets) {
    const float neighbour = Echo(frame, r, c + offset).dist_raw;
    if (!(neighbour >= g)) continue;
    sum += neighbour;
    ++count;
    max_diff = Larger(max_diff, std::fabs(neighbour - d));
  }
  if (count == 0) return -1.0F;
  const float mean_diff = std::fabs(sum / static_cast<float>(count) - d);
  const float D = Larger(d, 1e-6F);
  const float mean_gate = Smaller(s.mean_diff_max, s.mean_diff_ratio * D);
  const float max_gate = Smaller(s.max_diff_max, s.max_diff_ratio * D);
  if (!(mean_diff < mean_gate)) return -1.0F;
  if (!(max_diff < max_gate)) return -1.0F;
  return Smaller(mean_gate, max_gate);
}

void Smooth(LidarFrame& frame, int r, int c, float gate) {
  constexpr float kWeights[5] = {0.15F, 0.2F, 0.25F, 0.2F, 0.15F};
  const float d = Echo(frame, r, c).dist_raw;
  float sum_d = 0.0F;
  float sum_r = 0.0F;
  float sum_w = 0.0F;
  for (int i = 0; i < 5; ++i) {
    const LidarEcho& e = Echo(frame, r, c - 2 + i);
    if (!(e.dist_raw > 0.0F)) continue;
    if (!(std::fabs(e.dist_raw - d) < gate)) continue;
    sum_d += kWeights[i] * e.dist_raw;
    sum_r += kWeights[i] * e.refl_raw;
    sum_w += kWeights[i];
  }
  if (!(sum_w > 0.0F)) return;
  Echo(frame, r, c).dist_proc = sum_d / sum_w;
  Echo(frame, r, c).refl_proc = sum_r / sum_w;
}

// First stage for one pixel.
void LabelByDistances(LidarFrame& frame, int r, int c, float g, const GroundSettings& s,
                      const AngleCalibGrid& grid) {
  LidarEcho& e = Echo(frame, r, c);
  // Every pixel loses its old label.
  e.ground = false;
  // Only where the window of five fits, and not below row 108.
  if (r < 2 || r > 108 || r >= frame.height - 2) return;
  if (c < 2 || c > frame.width - 3) return;
  // Five distances down the column, at most one of them too near.
  float column[5];
  int below = 0;
  for (int i = 0; i < 5; ++i) {
    column[i] = Echo(frame, r - 2 + i, c).dist_raw;
    if (!(column[i] > 0.0F)) return;
    if (column[i] < g) ++below;
  }
  if (below > 1) return;
  // They rise over at least four pixels.
  const Run run = RisingRun(column);
  if (run.count == 0) return;
  const float* run_distances = column + (run.first_offset + 2);
  // They rise by more than the gate.
  const float D = Larger(e.dist_raw, 1e-6F);
  const float span = std::fabs(run_distances[run.count - 1] - run_distances[0]);
  if (!(span > Smaller(s.vert_span_max, s.vert_span_ratio * D))) return;
  // The row stays level. A gate is never below zero when a difference lies below it.
  const float gate = RowGate(frame, r, c, g, s);
  if (gate < 0.0F) return;
  // Reflectivity for the angle of incidence.
  if (s.vert_seed_enable) {
    e.ground_refl_scale =
        ProcessGroundVertSeed(run_distances, run.count, r, c, run.first_offset, grid);
  }
  if (e.ground_refl_scale < 0.999F) {
    e.refl_raw = e.refl_raw / e.ground_refl_scale;
    e.refl_proc = e.refl_raw;
  }
  e.ground = true;
  if (s.smooth_enable) Smooth(frame, r, c, gate);
}

void CollectRow(LidarFrame& frame, int row, int step, const AngleCalibGrid& grid,
                std::vector<Point3f>& points) {
  if (row < 0 || row >= frame.height) return;
  for (int col = 0; col < frame.width; col += step) {
    const LidarEcho& e = Echo(frame, row, col);
    if (!e.ground || !(e.dist_raw > 0.0F)) continue;
    const Direction ray = RayDirection(grid, row, col);
    if (!ray.usable) continue;
    points.push_back(Point3f{ray.x * e.dist_raw, ray.y * e.dist_raw, ray.z * e.dist_raw});
  }
}

void PullToPlane(const Direction& ray, const GroundPlane& plane, const GroundSettings& s,
                 LidarEcho& e) {
  const float pull = s.plane_pull;
  const float full = s.plane_pull_full_m;
  const float zero = s.plane_pull_zero_m;
  if (!(pull > 0.0F)) return;
  const float d = e.dist_raw;
  const float den = plane.a * ray.x + plane.b * ray.y + plane.c * ray.z;
  if (!(std::fabs(den) >= 1e-8F)) return;
  const float t = plane.d / den;
  if (!std::isfinite(t) || !(t > 0.0F)) return;
  const float diff = std::fabs(t - d);
  if (diff <= full) {
    e.dist_raw = pull * t + (1.0F - pull) * d;
  } else if (full > 0.0F && full < zero && diff < zero) {
    const float w = pull * (1.0F - (diff - full) / (zero - full));
    if (w > 0.0F) e.dist_raw = w * t + (1.0F - w) * d;
  }
}

void RelabelByPlane(LidarFrame& frame, int row, const GroundPlane& plane, const GroundSettings& s,
                    const AngleCalibGrid& grid) {
  for (int col = 0; col < frame.width; ++col) {
    LidarEcho& e = Echo(frame, row, col);
    const float d = e.dist_raw;
    const Direction ray = RayDirection(grid, row, col);
    if (!(d > 0.0F) || !ray.usable) {
      e.ground = false;
      continue;
    }
    const float residual =
        std::fabs(plane.a * ray.x * d + plane.b * ray.y * d + plane.c * ray.z * d - plane.d);
    e.ground = residual < s.plane_inlier_m;
    if (e.ground) PullToPlane(ray, plane, s, e);
  }
}

// Second stage.
void LabelByPlane(LidarFrame& frame, int m_row, const GroundSettings& s,
                  const AngleCalibGrid& grid) {
  const int min_points = s.plane_min_points < 4 ? 4 : s.plane_min_points;
  const int max_points = s.plane_max_points < 4 ? 4 : s.plane_max_points;
  const int step = s.plane_col_step < 1 ? 1 : s.plane_col_step;

  // Ground points of this row and the last two pixel rows before it.
  std::vector<Point3f> points;
  for (int row = m_row * 6; row <= m_row * 6 + 5; ++row) {
    CollectRow(frame, row, step, grid, points);
  }
  if (m_row >= 1) {
    CollectRow(frame, (m_row - 1) * 6 + 4, step, grid, points);
    CollectRow(frame, (m_row - 1) * 6 + 5, step, grid, points);
  }
  const auto n = static_cast<std::int64_t>(points.size());
  if (n < min_points) return;

  // Evenly spaced when there are too many.
  if (n > max_points) {
    if (max_points < min_points) return;
    std::vector<Point3f> spaced;
    for (std::int64_t i = 0; i < max_points; ++i) {
      spaced.push_back(points[static_cast<std::size_t>(i * (n - 1) / (max_points - 1))]);
    }
    points = spaced;
  }

  const GroundPlane plane = FitPlaneRobust(points, s.plane_keep_ratio);
  if (!plane.valid) return;

  for (int row = m_row * 6; row <= m_row * 6 + 5 && row < frame.height; ++row) {
    RelabelByPlane(frame, row, plane, s, grid);
  }
}

}  // namespace

void Ground(LidarFrame& frame, int m_row, const GroundSettings& settings,
            const AngleCalibGrid& grid) {
  const float g = SmallestGroundDistance(settings.min_dist, m_row);
  for (int r = m_row * 6; r <= m_row * 6 + 5 && r < frame.height; ++r) {
    for (int c = 0; c < frame.width; ++c) LabelByDistances(frame, r, c, g, settings, grid);
  }
  if (settings.plane_enable && grid.valid) LabelByPlane(frame, m_row, settings, grid);
}

}  // namespace reference
