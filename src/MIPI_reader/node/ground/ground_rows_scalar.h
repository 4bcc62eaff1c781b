// The scalar form of the first ground stage, and what it tells of its decisions. The node's teller
// is NoTeller, which hears nothing and costs nothing.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

#include "MIPI_reader/node/ground/ground_refl_scale.h"
#include "MIPI_reader/node/ground/ground_rules.h"
#include "MIPI_reader/node/ground/ground_settings.h"
#include "MIPI_reader/node/rows/row_range.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "calibration/angle_calib.h"

namespace kerul::lidar::ground {

inline constexpr std::size_t kCentre = kReach;
// Pixel rows above this one look up into the sky. A constant of the sensor, not of the frame.
inline constexpr std::size_t kLastGroundRow = 108;
inline constexpr float kDefaultMinDist = 1.0F;  // metres
inline constexpr float kNoCorrection = 0.999F;  // scales from here on leave the reflectivity alone
inline constexpr float kSmoothWeights[kWindow] = {0.15F, 0.2F, 0.25F, 0.2F, 0.15F};

// Echo 0 ranges of five pixels in a line, metres, the pixel itself in the middle.
using Window = std::array<float, kWindow>;

// The part of the column window over which the ranges rise; count 0 when they do not.
struct Run {
  std::size_t first = 0;  // index into the window
  std::size_t count = 0;
};

// Largest differences along the row, metres.
struct RowGates {
  float mean;
  float max;
};

// Whether the column window holds ground at all: all five must have a return, and at most one may
// be nearer than ground can be.
struct ColumnFill {
  bool complete = true;
  int too_near = 0;  // up to the first without a return
};

// Over the rising run, metres.
struct Rise {
  float rise = 0.0F;
  float needed = 0.0F;  // it has to be larger
};

// How the four pixels beside the centre differ from it, metres.
struct RowLevel {
  int valid = 0;  // far enough away to count
  float mean_diff = 0.0F;
  float max_diff = 0.0F;
};

struct SmoothingTold {
  float gate;     // metres
  unsigned used;  // a bit for each of the five pixels that takes part
  float sum_of_weights;
};

// Hears of each pixel, then of its tests in their order, up to the first that it does not pass.
struct NoTeller {
  // fits: the window lies in the frame and not above the last ground row.
  void Pixel(std::size_t /*row*/, std::size_t /*col*/, bool /*fits*/) const noexcept {}
  void Column(const Window& /*column*/, const ColumnFill& /*fill*/,
              float /*min_dist*/) const noexcept {}
  void RisingRun(const Run& /*run*/) const noexcept {}
  void Rises(const Rise& /*rise*/) const noexcept {}
  void Level(const RowLevel& /*level*/, const RowGates& /*gates*/) const noexcept {}
  void Labelled(const LidarEcho& /*before the correction*/) const noexcept {}
  void Smoothed(const SmoothingTold& /*told*/) const noexcept {}
};

inline float MinGroundDist(const std::vector<float>& min_dist, int m_row) noexcept {
  if (min_dist.empty()) return kDefaultMinDist;
  const std::size_t last = min_dist.size() - 1;
  return min_dist[std::min(static_cast<std::size_t>(std::max(m_row, 0)), last)];
}

inline Window ReadColumn(const FrameRows& rows, std::size_t row, std::size_t col) noexcept {
  Window window{};
  for (std::size_t i = 0; i < kWindow; ++i) {
    window[i] = rows[row + i - kCentre][col].echoes[0].dist_raw;
  }
  return window;
}

inline Window ReadRow(const std::vector<LidarPoint>& line, std::size_t col) noexcept {
  Window window{};
  for (std::size_t i = 0; i < kWindow; ++i) {
    window[i] = line[col + i - kCentre].echoes[0].dist_raw;
  }
  return window;
}

inline ColumnFill JudgeColumn(const Window& column, float min_dist) noexcept {
  ColumnFill fill;
  for (const float d : column) {
    if (!(d > 0.0F)) return {.complete = false, .too_near = fill.too_near};
    if (d < min_dist) ++fill.too_near;
  }
  return fill;
}

inline bool IsColumnFilled(const ColumnFill& fill) noexcept {
  return fill.complete && fill.too_near <= kMaxTooNear;
}

inline Run FindRisingRun(const Window& column) noexcept {
  const bool middle_rises = column[2] > column[1] && column[3] > column[2];
  const bool end_rises = column[4] > column[3];
  if (!middle_rises) return {};
  if (column[1] > column[0]) return end_rises ? Run{0, 5} : Run{0, 4};
  return end_rises ? Run{1, 4} : Run{};
}

inline Rise MeasureRise(const Window& column, const Run& run, float scale,
                        const GroundSettings& settings) noexcept {
  return {std::fabs(column[run.first + run.count - 1] - column[run.first]),
          std::min(settings.vert_span_max, settings.vert_span_ratio * scale)};
}

inline RowGates MakeRowGates(float scale, const GroundSettings& settings) noexcept {
  return {std::min(settings.mean_diff_max, settings.mean_diff_ratio * scale),
          std::min(settings.max_diff_max, settings.max_diff_ratio * scale)};
}

inline RowLevel MeasureRow(const Window& line, float min_dist) noexcept {
  const float centre = line[kCentre];
  float sum = 0.0F;
  float max_diff = 0.0F;
  int valid = 0;
  for (std::size_t i = 0; i < kWindow; ++i) {
    if (i == kCentre || !(line[i] >= min_dist)) continue;
    sum += line[i];
    max_diff = std::max(max_diff, std::fabs(line[i] - centre));
    ++valid;
  }
  if (valid == 0) return {};
  return {valid, std::fabs(sum / static_cast<float>(valid) - centre), max_diff};
}

inline bool IsRowLevel(const RowLevel& row, const RowGates& gates) noexcept {
  return row.valid != 0 && row.mean_diff < gates.mean && row.max_diff < gates.max;
}

// A ground echo seen at a slant returns less light; the scale undoes it.
inline void CorrectReflectivity(LidarEcho& echo) noexcept {
  if (!(echo.ground_refl_scale < kNoCorrection)) return;
  echo.refl_raw = echo.refl_raw / echo.ground_refl_scale;
  echo.refl_proc = echo.refl_raw;
}

// Neighbours are read in place, so those to the left carry their corrected reflectivity.
template <class Tell>
void SmoothAlongRow(std::vector<LidarPoint>& line, std::size_t col, float gate,
                    Tell& tell) noexcept {
  LidarEcho& centre = line[col].echoes[0];
  float sum_d = 0.0F;
  float sum_r = 0.0F;
  float sum_w = 0.0F;
  unsigned used = 0;
  for (std::size_t i = 0; i < kWindow; ++i) {
    const LidarEcho& echo = line[col + i - kCentre].echoes[0];
    if (!(echo.dist_raw > 0.0F) || !(std::fabs(echo.dist_raw - centre.dist_raw) < gate)) continue;
    sum_d += kSmoothWeights[i] * echo.dist_raw;
    sum_r += kSmoothWeights[i] * echo.refl_raw;
    sum_w += kSmoothWeights[i];
    used |= 1U << i;
  }
  tell.Smoothed({gate, used, sum_w});
  if (!(sum_w > 0.0F)) return;
  centre.dist_proc = sum_d / sum_w;
  centre.refl_proc = sum_r / sum_w;
}

// What the tests of one pixel need beside the frame.
struct Context {
  const GroundSettings& settings;
  const AngleCalibGrid& grid;
  float min_dist;  // metres
};

template <class Tell>
void LabelPixel(FrameRows& rows, std::size_t row, std::size_t col, const Context& context,
                Tell& tell) noexcept {
  const GroundSettings& settings = context.settings;
  const Window column = ReadColumn(rows, row, col);
  const ColumnFill fill = JudgeColumn(column, context.min_dist);
  tell.Column(column, fill, context.min_dist);
  if (!IsColumnFilled(fill)) return;
  const Run run = FindRisingRun(column);
  tell.RisingRun(run);
  if (run.count == 0) return;
  const float scale = std::max(column[kCentre], kMinCentre);
  const Rise rise = MeasureRise(column, run, scale, settings);
  tell.Rises(rise);
  if (!(rise.rise > rise.needed)) return;
  const RowGates gates = MakeRowGates(scale, settings);
  const RowLevel level = MeasureRow(ReadRow(rows[row], col), context.min_dist);
  tell.Level(level, gates);
  if (!IsRowLevel(level, gates)) return;

  LidarEcho& echo = rows[row][col].echoes[0];
  if (settings.vert_seed_enable) {
    echo.ground_refl_scale = EstimateGroundReflScale(
        column.data() + run.first, static_cast<int>(run.count), static_cast<int>(row),
        static_cast<int>(col), static_cast<int>(run.first) - kReach, context.grid);
  }
  // Without the seed the scale of an earlier time still counts: it is never reset.
  tell.Labelled(echo);
  CorrectReflectivity(echo);
  echo.ground = true;
  if (settings.smooth_enable) SmoothAlongRow(rows[row], col, std::min(gates.mean, gates.max), tell);
}

template <class Tell>
void LabelRowsScalar(FrameRows& rows, RowRange range, const Context& context, Tell& tell) noexcept {
  for (std::size_t row = range.begin; row < range.end; ++row) {
    const bool row_fits = row >= kReach && row <= kLastGroundRow && row + kReach < rows.size();
    const std::size_t width = rows[row].size();
    for (std::size_t col = 0; col < width; ++col) {
      rows[row][col].echoes[0].ground = false;
      const bool fits = row_fits && col >= kReach && col + kReach < width;
      tell.Pixel(row, col, fits);
      if (fits) LabelPixel(rows, row, col, context, tell);
    }
  }
}

}  // namespace kerul::lidar::ground
