#include "MIPI_reader/node/bloom_suppression.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <vector>

#include "MIPI_reader/node/bloom_gains.h"
#include "MIPI_reader/node/bloom_trace.h"
#include "MIPI_reader/node/power_pattern.h"

namespace kerul::lidar {
namespace {

constexpr int kBlockSide = 6;
// Nine blocks of 36 pixels: no list can grow beyond it.
constexpr std::size_t kMaxSources = 324;
constexpr float kMinEnergyGate = 0.6F;
constexpr float kMaxEnergyGate = 1.4F;
// An echo of which less is left than this share of its power, or this reflectivity, is erased.
constexpr float kMinPowerRatio = 0.05F;
constexpr float kMinReflectivity = 1.0F;

using SourceList = std::vector<BloomSource>;

bool IsReturn(float dist) noexcept { return std::isfinite(dist) && dist != 0.0F; }

bool IsUsableSource(const LidarEcho& echo, float min_dist) noexcept {
  if (!echo.highRefl || !IsReturn(echo.dist_raw)) return false;
  return !(min_dist > 0.0F) || echo.dist_raw > min_dist;
}

bool IsCandidate(const LidarEcho& echo, float threshold) noexcept {
  return !echo.highRefl && echo.cogh < threshold && IsReturn(echo.dist_raw);
}

// Both ranges are returns: sources and candidates have been tested for it.
bool IsAtRangeOf(const BloomSource& source, const LidarEcho& echo, float dist_gate) noexcept {
  return std::fabs(source.dist - echo.dist_raw) < dist_gate;
}

bool RowLiesInFrame(const LidarFrame& frame, int m_row) noexcept {
  if (frame.height < 1 || frame.width < 1) return false;
  return m_row >= 0 && m_row < frame.height / kBlockSide;
}

// The cheap scan that keeps almost all rows out of the rest. Allocates nothing.
bool HasUsableSource(const LidarFrame& frame, int m_row, float min_dist) noexcept {
  const int first_row = std::max(kBlockSide * m_row - kBlockSide, 0);
  const int end_row = std::min(kBlockSide * m_row + 2 * kBlockSide, frame.height);
  for (int r = first_row; r < end_row; ++r) {
    for (const LidarPoint& point : frame.points[static_cast<std::size_t>(r)]) {
      if (IsUsableSource(point.echoes[0], min_dist)) return true;
    }
  }
  return false;
}

const float (*PsfTable(const BloomSuppressCalib& calib, int row_offset,
                       int col_offset) noexcept)[kPsfEntries] {
  const int distance = std::abs(row_offset) + std::abs(col_offset);
  if (distance == 0) return &calib.psf_same_block;
  return distance == 1 ? &calib.psf_adjacent_block : &calib.psf_diagonal_block;
}

void AppendSources(const LidarFrame& frame, const BloomBlock& block,
                   const float (*psf)[kPsfEntries], float min_dist, SourceList& list) {
  const int first_row = kBlockSide * block.m_row;
  const int first_col = kBlockSide * block.m_col;
  for (int r = first_row; r < first_row + kBlockSide; ++r) {
    const std::vector<LidarPoint>& row = frame.points[static_cast<std::size_t>(r)];
    for (int c = first_col; c < first_col + kBlockSide; ++c) {
      const LidarEcho& echo = row[static_cast<std::size_t>(c)].echoes[0];
      if (!IsUsableSource(echo, min_dist)) continue;
      list.push_back({.row = r, .col = c, .dist = echo.dist_raw, .power = echo.power, .psf = psf});
    }
  }
}

// One list for each block column: the usable sources of the 3 x 3 blocks around it.
std::vector<SourceList> GatherSources(const LidarFrame& frame, int m_row,
                                      const BloomSuppressCalib& calib) {
  const int block_rows = frame.height / kBlockSide;
  const int block_cols = frame.width / kBlockSide;
  std::vector<SourceList> lists(static_cast<std::size_t>(block_cols));
  for (int m_col = 0; m_col < block_cols; ++m_col) {
    SourceList& list = lists[static_cast<std::size_t>(m_col)];
    list.reserve(kMaxSources);
    for (int dr = -1; dr <= 1; ++dr) {
      for (int dc = -1; dc <= 1; ++dc) {
        const BloomBlock block{.m_row = m_row + dr, .m_col = m_col + dc};
        if (block.m_row < 0 || block.m_row >= block_rows) continue;
        if (block.m_col < 0 || block.m_col >= block_cols) continue;
        AppendSources(frame, block, PsfTable(calib, dr, dc), calib.source_min_dist_m, list);
      }
    }
  }
  return lists;
}

// What the pass works with, the same for all of one call.
struct Pass {
  LidarFrame& frame;
  const BloomSuppressCalib& calib;
  const BloomTrace& trace;
};

bool IsTraced(const BloomTrace& trace, const BloomBlock& block) noexcept {
  return trace.armed && trace.echo == block.echo && trace.row >= 0 && trace.col >= 0 &&
         trace.row / kBlockSide == block.m_row && trace.col / kBlockSide == block.m_col;
}

// Calls visit(row, col, echo record, trace) for the block's 36 pixels in scan order.
template <class Visit>
void VisitBlock(const Pass& pass, const BloomBlock& block, const Visit& visit) {
  const int first_row = kBlockSide * block.m_row;
  const int first_col = kBlockSide * block.m_col;
  const bool is_traced = IsTraced(pass.trace, block);
  for (int r = first_row; r < first_row + kBlockSide; ++r) {
    std::vector<LidarPoint>& row = pass.frame.points[static_cast<std::size_t>(r)];
    for (int c = first_col; c < first_col + kBlockSide; ++c) {
      LidarEcho& echo = row[static_cast<std::size_t>(c)].echoes[block.echo];
      if (is_traced && r == pass.trace.row && c == pass.trace.col) {
        visit(r, c, echo, PrintingBloomTrace(pass.trace, pass.calib));
      } else {
        visit(r, c, echo, SilentBloomTrace());
      }
    }
  }
}

// Calls visit(block, sources) for the row's blocks that have a source near, echo slots outermost.
template <class Visit>
void VisitBlocksWithSources(int m_row, int echo_count, const std::vector<SourceList>& lists,
                            const Visit& visit) {
  for (int e = 0; e < echo_count; ++e) {
    for (std::size_t m_col = 0; m_col < lists.size(); ++m_col) {
      if (lists[m_col].empty()) continue;
      visit(BloomBlock{.m_row = m_row, .m_col = static_cast<int>(m_col), .echo = e}, lists[m_col]);
    }
  }
}

template <class Trace>
void MarkEcho(LidarEcho& echo, const SourceList& sources, const BloomSuppressCalib& calib,
              const Trace& trace) {
  trace.MarkPixel(echo, sources.size());
  if (!IsCandidate(echo, calib.threshold)) {
    trace.MarkNotCandidate();
    return;
  }
  for (const BloomSource& source : sources) {
    const bool matched = IsAtRangeOf(source, echo, calib.dist_gate_m);
    trace.MarkSource(echo, source, matched);
    if (!matched) continue;
    echo.highReflBlooming = true;
    trace.MarkResult(&source);
    return;
  }
  trace.MarkResult(nullptr);
}

// x: twice the distance in pixels.
float PsfWeight(const float (&psf)[kPsfEntries], float x) noexcept {
  constexpr int kLast = kPsfEntries - 1;
  if (!(x > 0.0F)) return psf[0];
  if (x >= static_cast<float>(kLast)) return psf[kLast];
  const int i = static_cast<int>(x);
  const float f = x - static_cast<float>(i);
  return (1.0F - f) * psf[i] + f * psf[i + 1];
}

// False when no source lies at the echo's range; `sum` is then 0.
template <class Trace>
bool SumSpilledPower(int row, int col, const LidarEcho& echo, const SourceList& sources,
                     float dist_gate, float& sum, const Trace& trace) {
  bool counted = false;
  sum = 0.0F;
  for (const BloomSource& source : sources) {
    if (!IsAtRangeOf(source, echo, dist_gate)) continue;
    const float x = 2.0F * std::hypot(static_cast<float>(source.row - row),
                                      static_cast<float>(source.col - col));
    const float psf_w = PsfWeight(*source.psf, x);
    const float contribution = psf_w * source.power;
    sum += contribution;
    counted = true;
    trace.FilterSource(echo, source, psf_w, contribution, sum);
  }
  return counted;
}

// A score that is negative or NaN is none.
float EnergyGate(float score, const BloomSuppressCalib& calib) noexcept {
  if (!(score >= 0.0F)) return 1.0F;
  return std::clamp(score * calib.pattern_gain + calib.pattern_offset, kMinEnergyGate,
                    kMaxEnergyGate);
}

void CompleteSpill(const BloomSuppressCalib& calib, const BloomBlockGains& gains,
                   BloomSpill& spill) noexcept {
  spill.gate_energy = EnergyGate(spill.pattern_score, calib);
  spill.filterpower_psf = spill.psf_sum * calib.psf_coeff;
  spill.final_filterpower =
      spill.gate_energy * spill.filterpower_psf * gains.dist_std * gains.edge_neighbor;
}

void Erase(LidarEcho& echo) noexcept {
  echo.dist_proc = 0.0F;
  echo.refl_proc = 0.0F;
}

BloomOutcome TakeOffSpill(LidarEcho& echo, float final_filterpower) noexcept {
  BloomOutcome outcome;
  outcome.pr = echo.power - final_filterpower;
  // Negated so that a NaN erases.
  if (!(outcome.pr > 0.0F) || !(echo.power > 0.0F)) {
    Erase(echo);
    return outcome;
  }
  // A negative spill, from the tails of the tables, makes the ratio exceed 1. Deliberate.
  outcome.ratio = outcome.pr / echo.power;
  outcome.action = BloomAction::kScaleRefl;
  echo.refl_proc *= outcome.ratio;
  if (echo.refl_proc < kMinReflectivity || outcome.ratio <= kMinPowerRatio) {
    outcome.action = BloomAction::kZeroByRatioOrRefl;
    Erase(echo);
  }
  return outcome;
}

BloomBlockGains ComputeGains(const Pass& pass, const BloomBlock& block, bool is_traced,
                             std::vector<float>& scratch) {
  const LidarFrame& frame = pass.frame;
  const BloomSuppressCalib& calib = pass.calib;
  const int first_row = kBlockSide * block.m_row;
  const int first_col = kBlockSide * block.m_col;
  BloomBlockGains gains;
  if (calib.dist_pattern_enabled) {
    gains.dist_std =
        BloomDistStdGain(frame.points, first_row, first_col, block.echo, calib, scratch, is_traced);
  }
  if (calib.dist_neighbor_enabled) {
    gains.edge_neighbor = BloomEdgeNeighborGain(
        frame.points, frame.height, frame.width, first_row, first_row + kBlockSide, first_col,
        block.echo, calib.edge_neighbor_threshold_m, pass.trace.row, pass.trace.col, is_traced);
  }
  return gains;
}

bool HasMark(const LidarFrame& frame, const BloomBlock& block) noexcept {
  const int first_row = kBlockSide * block.m_row;
  const int first_col = kBlockSide * block.m_col;
  for (int r = first_row; r < first_row + kBlockSide; ++r) {
    const LidarPoint* row = frame.points[static_cast<std::size_t>(r)].data() + first_col;
    for (int i = 0; i < kBlockSide; ++i) {
      if (row[i].echoes[block.echo].highReflBlooming) return true;
    }
  }
  return false;
}

// One pixel of a block with sources near, and what the block's pixels have in common.
struct FilterPlace {
  int row;
  int col;
  const BloomBlock& block;
  const SourceList& sources;
  const BloomBlockGains& gains;
};

template <class Trace>
void FilterEcho(const Pass& pass, const FilterPlace& at, LidarEcho& echo, const Trace& trace) {
  const BloomSuppressCalib& calib = pass.calib;
  if (!echo.highReflBlooming) {
    trace.FilterNotMarked();
    return;
  }
  if (!IsCandidate(echo, calib.threshold)) {
    trace.FilterNotCandidate(echo);
    return;
  }
  BloomSpill spill;
  if (!SumSpilledPower(at.row, at.col, echo, at.sources, calib.dist_gate_m, spill.psf_sum, trace)) {
    trace.FilterNoSource();
    return;
  }
  if (calib.pattern_enabled) {
    spill.pattern_score = MatchPowerPattern(pass.frame, at.row, at.col, at.block.echo,
                                            calib.power_template, calib, Trace::kPrints);
  }
  CompleteSpill(calib, at.gains, spill);
  trace.FilterGain(spill, at.gains);
  const BloomOutcome outcome = TakeOffSpill(echo, spill.final_filterpower);
  trace.FilterResult(echo, outcome);
}

void FilterBlock(const Pass& pass, const BloomBlock& block, const SourceList& sources,
                 std::vector<float>& scratch) {
  const bool is_traced = IsTraced(pass.trace, block);
  // Nothing in a block without a mark is filtered: its gains serve the trace only.
  if (!is_traced && !HasMark(pass.frame, block)) return;
  const BloomBlockGains gains = ComputeGains(pass, block, is_traced, scratch);
  if (is_traced) PrintBloomBlock(block, pass.calib, gains);
  VisitBlock(pass, block, [&](int row, int col, LidarEcho& echo, const auto& trace) {
    FilterEcho(pass, {row, col, block, sources, gains}, echo, trace);
  });
}

}  // namespace

void SuppressBlooming(LidarFrame& frame, int m_row, const BloomSuppressCalib& calib,
                      bool filter_enable, const BloomTrace& trace) {
  if (!calib.enable || !RowLiesInFrame(frame, m_row)) return;
  if (!HasUsableSource(frame, m_row, calib.source_min_dist_m)) return;
  if (frame.echo_num < 1) return;
  const int echo_count = std::min(frame.echo_num, kEchoSlots);
  const std::vector<SourceList> lists = GatherSources(frame, m_row, calib);
  const Pass pass{frame, calib, trace};

  VisitBlocksWithSources(
      m_row, echo_count, lists, [&](const BloomBlock& block, const SourceList& sources) {
        VisitBlock(pass, block,
                   [&](int /*row*/, int /*col*/, LidarEcho& echo, const auto& echo_trace) {
                     MarkEcho(echo, sources, calib, echo_trace);
                   });
      });
  if (!filter_enable) {
    // Told once per call, whatever row the traced pixel lies in.
    if (trace.armed) PrintBloomFilterDisabled(trace);
    return;
  }
  std::vector<float> scratch;
  scratch.reserve(std::size_t{kBlockSide} * kBlockSide);
  VisitBlocksWithSources(m_row, echo_count, lists,
                         [&](const BloomBlock& block, const SourceList& sources) {
                           FilterBlock(pass, block, sources, scratch);
                         });
}

}  // namespace kerul::lidar
