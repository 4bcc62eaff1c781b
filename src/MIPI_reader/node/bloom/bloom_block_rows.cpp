#include "MIPI_reader/node/bloom/bloom_block_rows.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "MIPI_reader/node/bloom/bloom_echo.h"
#include "MIPI_reader/node/bloom/bloom_spill.h"
#include "MIPI_reader/node/bloom/power_pattern.h"

namespace kerul::lidar::bloom {
namespace {

// Pixels outside the frame are no samples.
void TakeWindow(const LidarFrame& frame, const BloomBlock& block, BlockWindow& window) noexcept {
  const int first_row = kBlockSide * block.m_row - kPatternReach;
  const int first_col = kBlockSide * block.m_col - kPatternReach;
  const int begin = std::max(0, -first_col);
  const int end = std::min(BlockWindow::kSide, frame.width - first_col);
  for (int i = 0; i < BlockWindow::kSide; ++i) {
    std::fill_n(window.dist[i], BlockWindow::kLine, std::numeric_limits<float>::quiet_NaN());
    std::fill_n(window.power[i], BlockWindow::kLine, 0.0F);
    const int row = first_row + i;
    if (row < 0 || row >= frame.height) continue;
    const LidarPoint* pixels = frame.points[static_cast<std::size_t>(row)].data();
    for (int j = begin; j < end; ++j) {
      const LidarEcho& echo = pixels[first_col + j].echoes[block.echo];
      if (!IsReturn(echo.dist_raw) || !std::isfinite(echo.power)) continue;
      window.dist[i][j] = echo.dist_raw;
      window.power[i][j] = echo.power;
    }
  }
}

PatternSums PatternAt(const RowSums& sums, int lane) noexcept {
  return {.n = static_cast<int>(sums.n[lane]),
          .s = sums.s[lane],
          .t = sums.t[lane],
          .ss = sums.ss[lane],
          .tt = sums.tt[lane],
          .st = sums.st[lane]};
}

void FilterLane(const BlockSources& shared, const RowSums& sums, int lane,
                LidarEcho& echo) noexcept {
  if ((sums.counted >> lane & 1U) == 0) return;
  BloomSpill spill;
  spill.psf_sum = sums.spill[lane];
  if (shared.calib.pattern_enabled) {
    spill.pattern_score = ScoreOf(PatternAt(sums, lane), shared.calib.min_n);
  }
  CompleteSpill(shared.calib, shared.gains, spill);
  TakeOffSpill(echo, spill.final_filterpower);
}

}  // namespace

void FilterBlockByRows(LidarFrame& frame, const BloomBlock& block, const BlockSources& shared,
                       RowSumsForm sum_rows) noexcept {
  const BloomSuppressCalib& calib = shared.calib;
  BlockWindow window;
  if (calib.pattern_enabled) TakeWindow(frame, block, window);
  RowJob job{};
  job.first_col = kBlockSide * block.m_col;
  job.sources = shared.sources.data();
  job.source_count = static_cast<int>(shared.sources.size());
  job.dist_gate = calib.dist_gate_m;
  job.window = calib.pattern_enabled ? &window : nullptr;
  job.pattern = &shared.pattern;
  for (int i = 0; i < kBlockSide; ++i) {
    job.row = kBlockSide * block.m_row + i;
    job.window_row = i;
    LidarPoint* pixels = frame.points[static_cast<std::size_t>(job.row)].data() + job.first_col;
    std::uint32_t marked = 0;
    for (int lane = 0; lane < kBlockSide; ++lane) {
      const LidarEcho& echo = pixels[lane].echoes[block.echo];
      job.dist[lane] = echo.dist_raw;
      const bool is_marked = echo.highReflBlooming && IsCandidate(echo, calib.threshold);
      marked |= static_cast<std::uint32_t>(is_marked) << lane;
    }
    if (marked == 0) continue;
    RowSums sums;
    sum_rows(job, sums);
    for (int lane = 0; lane < kBlockSide; ++lane) {
      if ((marked >> lane & 1U) == 0) continue;
      FilterLane(shared, sums, lane, pixels[lane].echoes[block.echo]);
    }
  }
}

}  // namespace kerul::lidar::bloom
