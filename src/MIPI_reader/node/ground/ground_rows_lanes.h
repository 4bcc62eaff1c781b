// Vector form of the first ground stage's tests: a lane is a pixel of the row. They read only the
// ranges of echo 0. The stage does not change these, so a whole row can be tested before its first
// pixel is labelled. Included by vector code only; see lanes/lanes.h.
#pragma once

#include <cstdint>

#include "MIPI_reader/node/ground/ground_rules.h"
#include "MIPI_reader/node/ground/ground_settings.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "lanes/lanes.h"

namespace kerul::lidar::ground {

// Cells on either side of the columns, so that a vector may look beyond both ends of the row.
inline constexpr int kMargin = 16;

// Echo 0's ranges of one pixel row; column c is cell kMargin + c. No range, 0, around it.
struct RangePlane {
  alignas(64) float cells[kMargin + kMaxColumns + kMargin];
};

// std::min and std::max as the scalar form uses them: the first operand when a NaN is in play.
template <int W>
typename Lanes<W>::Float Min(typename Lanes<W>::Float a, typename Lanes<W>::Float b) noexcept {
  return Lanes<W>::Select(b < a, b, a);
}
template <int W>
typename Lanes<W>::Float Max(typename Lanes<W>::Float a, typename Lanes<W>::Float b) noexcept {
  return Lanes<W>::Select(a < b, b, a);
}

// min(limit, ratio * scale).
template <int W>
typename Lanes<W>::Float Gate(float limit, float ratio, typename Lanes<W>::Float scale) noexcept {
  return Min<W>(Lanes<W>::Splat(limit), Lanes<W>::Splat(ratio) * scale);
}

template <int W>
void GatherRanges(const LidarPoint* line, int columns, RangePlane& plane) noexcept {
  for (int cell = 0; cell < kMargin; ++cell) plane.cells[cell] = 0.0F;
  for (int col = 0; col < columns; ++col) {
    plane.cells[kMargin + col] = line[col].echoes[0].dist_raw;
  }
  const int padded_end = kMargin + (columns + W - 1) / W * W + kReach;
  for (int cell = kMargin + columns; cell < padded_end; ++cell) plane.cells[cell] = 0.0F;
}

// All five have a return, at most one of them nearer than ground can be, and the ranges rise
// enough over the five, the first four or the last four.
template <int W>
typename Lanes<W>::Int IsColumnRising(const typename Lanes<W>::Float (&column)[kWindow],
                                      typename Lanes<W>::Float scale, float min_dist,
                                      const GroundSettings& settings) noexcept {
  using L = Lanes<W>;
  using Float = typename L::Float;
  using Int = typename L::Int;
  Int filled = L::SplatInt(-1);
  Int too_near{};  // minus their number
  for (const Float d : column) {
    filled &= d > 0.0F;
    too_near += d < min_dist;
  }
  const Int starts_low = column[1] > column[0];
  const Int ends_high = column[4] > column[3];
  const Int rises = (column[2] > column[1]) & (column[3] > column[2]) & (starts_low | ends_high);
  const Float first = L::Select(starts_low, column[0], column[1]);
  const Float last = L::Select(ends_high, column[4], column[3]);
  const Float gate = Gate<W>(settings.vert_span_max, settings.vert_span_ratio, scale);
  return filled & (too_near >= -kMaxTooNear) & rises & (L::Abs(last - first) > gate);
}

template <int W>
typename Lanes<W>::Int IsRowLevel(const float* centre_cells, typename Lanes<W>::Float scale,
                                  float min_dist, const GroundSettings& settings) noexcept {
  using L = Lanes<W>;
  using Float = typename L::Float;
  using Int = typename L::Int;
  const Float centre = L::Load(centre_cells);
  Float sum{};
  Float max_diff{};
  Int valid{};  // minus their number
  constexpr int kOthers[] = {-2, -1, 1, 2};
  for (const int i : kOthers) {
    const Float d = L::Load(centre_cells + i);
    const Int counts = d >= min_dist;
    // The sum is never -0: adding 0 for the others changes nothing.
    sum += L::Select(counts, d, Float{});
    max_diff = L::Select(counts, Max<W>(max_diff, L::Abs(d - centre)), max_diff);
    valid += counts;
  }
  const Float mean_diff = L::Abs(sum / L::ToFloat(-valid) - centre);
  return (valid < 0) &
         (mean_diff < Gate<W>(settings.mean_diff_max, settings.mean_diff_ratio, scale)) &
         (max_diff < Gate<W>(settings.max_diff_max, settings.max_diff_ratio, scale));
}

// `planes`: the row's own and kReach on either side, above first.
template <int W>
void FindGroundInRow(const RangePlane* const (&planes)[kWindow], const RowRun& run,
                     const GroundSettings& settings,
                     std::uint64_t (&bits)[kMaxColumns / 64]) noexcept {
  using L = Lanes<W>;
  using Float = typename L::Float;
  for (int col = 0; col < run.columns; col += W) {
    Float column[kWindow];
    for (int i = 0; i < kWindow; ++i) column[i] = L::Load(planes[i]->cells + kMargin + col);
    const Float scale = Max<W>(column[kReach], L::Splat(kMinCentre));
    const auto rising = IsColumnRising<W>(column, scale, run.min_dist, settings);
    if (!L::Any(rising)) continue;
    const float* const centre_cells = planes[kReach]->cells + kMargin + col;
    const auto ground = rising & IsRowLevel<W>(centre_cells, scale, run.min_dist, settings);
    bits[col / 64] |= std::uint64_t{L::Bits(ground)} << (col % 64);
  }
  for (int i = 0; i < kReach; ++i) {
    const int last = run.columns - 1 - i;
    bits[0] &= ~(std::uint64_t{1} << i);
    if (last >= 0) bits[last / 64] &= ~(std::uint64_t{1} << (last % 64));
  }
}

template <int W>
void FindGround(const RowRun& run, const GroundSettings& settings, GroundBits& bits) noexcept {
  RangePlane planes[kMaxRows + 2 * kReach];
  for (int row = 0; row < run.row_count + 2 * kReach; ++row) {
    GatherRanges<W>(run.lines[row], run.columns, planes[row]);
  }
  bits = {};
  for (int row = 0; row < run.row_count; ++row) {
    const RangePlane* const window[kWindow] = {&planes[row], &planes[row + 1], &planes[row + 2],
                                               &planes[row + 3], &planes[row + 4]};
    FindGroundInRow<W>(window, run, settings, bits.rows[row]);
  }
}

}  // namespace kerul::lidar::ground
