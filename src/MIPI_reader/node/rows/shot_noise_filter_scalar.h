// The shot-noise filter, and what it tells of its decisions. The node's teller is NoTeller, which
// hears nothing and costs nothing.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "MIPI_reader/node/rows/row_range.h"
#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar::shot_noise {

inline constexpr std::size_t kBlockSide = 6;   // pixels
inline constexpr float kStrongPeak = 30.0F;    // level units; two stronger returns are believed
inline constexpr int kMinValidRows = 4;        // of six, to judge a boundary at all
inline constexpr int kMaxTrustedSuspects = 8;  // suspect blocks a row may have without consequence

enum class EdgeRow : std::uint8_t { kNotCounted, kFits, kDiffers };

inline EdgeRow JudgeEdgeRow(const LidarEcho& left, const LidarEcho& right,
                            float dist_gate_m) noexcept {
  const float a = left.dist_proc;
  const float b = right.dist_proc;
  if (!(a > 0.0F) && !(b > 0.0F)) return EdgeRow::kNotCounted;
  if (left.peak > kStrongPeak && right.peak > kStrongPeak) return EdgeRow::kNotCounted;
  // An empty pixel beside a filled one differs by the whole distance.
  return std::fabs(a - b) < dist_gate_m ? EdgeRow::kFits : EdgeRow::kDiffers;
}

// What the rows say of the boundary to the right of a block.
struct Boundary {
  int valid = 0;  // rows that can be judged
  int differing = 0;

  // At least four rows can be judged and at most one of them fits.
  bool IsBroken() const noexcept { return valid >= kMinValidRows && differing >= valid - 1; }
};

// Hears of the edge rows of each boundary, then of the boundary; of the row; of what is erased.
struct NoTeller {
  void Edge(std::size_t /*row*/, std::size_t /*right_col*/, const LidarEcho& /*left*/,
            const LidarEcho& /*right*/, EdgeRow /*verdict*/) const noexcept {}
  void Judged(std::size_t /*block*/, const Boundary& /*boundary*/) const noexcept {}
  void Suspects(const std::vector<bool>& /*by block*/, std::ptrdiff_t /*count*/) const noexcept {}
  // An echo of a suspect block, before it is erased or kept.
  void Echo(std::size_t /*row*/, std::size_t /*col*/, int /*slot*/,
            bool /*erased*/) const noexcept {}
};

template <class Tell>
Boundary JudgeBoundary(const FrameRows& rows, RowRange range, std::size_t block, float dist_gate_m,
                       Tell& tell) noexcept {
  const std::size_t right_col = kBlockSide * (block + 1);
  Boundary boundary;
  for (std::size_t row = range.begin; row < range.end; ++row) {
    const std::vector<LidarPoint>& line = rows[row];
    if (right_col >= line.size()) continue;
    const LidarEcho& left = line[right_col - 1].echoes[0];
    const LidarEcho& right = line[right_col].echoes[0];
    const EdgeRow verdict = JudgeEdgeRow(left, right, dist_gate_m);
    tell.Edge(row, right_col, left, right, verdict);
    if (verdict == EdgeRow::kNotCounted) continue;
    ++boundary.valid;
    if (verdict == EdgeRow::kDiffers) ++boundary.differing;
  }
  tell.Judged(block, boundary);
  return boundary;
}

template <class Tell>
void EraseNarrowPulses(LidarPoint& pixel, int echo_count, std::size_t row, std::size_t col,
                       Tell& tell) noexcept {
  for (int slot = 0; slot < echo_count; ++slot) {
    LidarEcho& echo = pixel.echoes[slot];
    const bool is_narrow = (echo.cogw_flag & cogw_flags::kBelowLowCurve) != 0;
    tell.Echo(row, col, slot, is_narrow);
    if (!is_narrow) continue;
    echo.shot_noise_group_point = true;
    echo.dist_raw = 0.0F;
    echo.refl_raw = 0.0F;
    echo.dist_proc = 0.0F;
    echo.refl_proc = 0.0F;
  }
}

template <class Tell>
void EraseBlock(FrameRows& rows, RowRange range, std::size_t block, int echo_count,
                Tell& tell) noexcept {
  for (std::size_t row = range.begin; row < range.end; ++row) {
    std::vector<LidarPoint>& line = rows[row];
    const std::size_t end = std::min(kBlockSide * (block + 1), line.size());
    for (std::size_t col = kBlockSide * block; col < end; ++col) {
      EraseNarrowPulses(line[col], echo_count, row, col, tell);
    }
  }
}

template <class Tell>
void FilterRow(FrameRows& rows, int m_row, int block_columns, float dist_gate_m, Tell& tell) {
  if (block_columns < 2) return;  // no boundary, nothing can be suspect
  constexpr auto kRows = static_cast<std::int64_t>(kBlockSide);
  const RowRange range = ClipRows(rows, kRows * m_row, kRows);
  const auto blocks = static_cast<std::size_t>(block_columns);

  std::vector<bool> sound(blocks - 1, true);
  for (std::size_t block = 0; block + 1 < blocks; ++block) {
    if (JudgeBoundary(rows, range, block, dist_gate_m, tell).IsBroken()) sound[block] = false;
  }

  // A boundary that does not exist, at either end, counts as sound.
  std::vector<bool> suspect(blocks, false);
  for (std::size_t block = 0; block < blocks; ++block) {
    const bool left_broken = block > 0 && !sound[block - 1];
    const bool right_broken = block + 1 < blocks && !sound[block];
    suspect[block] = left_broken || right_broken;
  }
  const std::ptrdiff_t suspects = std::count(suspect.begin(), suspect.end(), true);
  tell.Suspects(suspect, suspects);
  if (suspects <= kMaxTrustedSuspects) return;

  const int echo_count = LidarPoint::echo_num;
  for (std::size_t block = 0; block < blocks; ++block) {
    if (suspect[block]) EraseBlock(rows, range, block, echo_count, tell);
  }
}

}  // namespace kerul::lidar::shot_noise
