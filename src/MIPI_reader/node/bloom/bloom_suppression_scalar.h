// The bloom pass, and whom it tells of its decisions.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <span>
#include <vector>

#include "MIPI_reader/node/bloom/bloom_block_rows.h"
#include "MIPI_reader/node/bloom/bloom_echo.h"
#include "MIPI_reader/node/bloom/bloom_gains.h"
#include "MIPI_reader/node/bloom/bloom_spill.h"
#include "MIPI_reader/node/bloom/bloom_suppression.h"
#include "MIPI_reader/node/bloom/bloom_trace.h"
#include "MIPI_reader/node/bloom/power_pattern.h"

namespace kerul::lidar::bloom {

static_assert(kBloomRowsSeen == 3 * kBlockSide);

// The sources that one block sees, in scan order.
struct SourceList {
  std::span<const BloomSource> sources;
  float nearest = std::numeric_limits<float>::max();      // smallest range among them, metres
  float farthest = std::numeric_limits<float>::lowest();  // largest
};

inline bool IsUsableSource(const LidarEcho& echo, float min_dist) noexcept {
  if (!echo.highRefl || !IsReturn(echo.dist_raw)) return false;
  return !(min_dist > 0.0F) || echo.dist_raw > min_dist;
}

// In metres. Both ranges are returns: sources and candidates have been tested for it.
inline float RangeDifference(const BloomSource& source, const LidarEcho& echo) noexcept {
  return std::fabs(source.dist - echo.dist_raw);
}

inline bool IsAtRangeOf(const BloomSource& source, const LidarEcho& echo,
                        float dist_gate) noexcept {
  return RangeDifference(source, echo) < dist_gate;
}

// No source can be at the echo's range: it lies beyond the nearest or the farthest one by the gate
// already, and rounding keeps the order of the differences.
inline bool IsBeyondAll(const SourceList& list, const LidarEcho& echo, float dist_gate) noexcept {
  const float d = echo.dist_raw;
  if (d < list.nearest) return !(std::fabs(list.nearest - d) < dist_gate);
  if (d > list.farthest) return !(std::fabs(list.farthest - d) < dist_gate);
  return false;
}

inline bool RowLiesInFrame(const LidarFrame& frame, int m_row) noexcept {
  if (frame.height < 1 || frame.width < 1) return false;
  return m_row >= 0 && m_row < frame.height / kBlockSide;
}

// The cheap scan that keeps almost all rows out of the rest. A bit for each pixel row from the
// first of miniflash row m_row - 1 on, set where a usable source lies. Allocates nothing.
inline std::uint32_t FindSourceRows(const LidarFrame& frame, int m_row, std::uint32_t possible_rows,
                                    float min_dist) noexcept {
  const int first_row = kBlockSide * (m_row - 1);
  std::uint32_t found = 0;
  for (int i = 0; i < kBloomRowsSeen; ++i) {
    const int r = first_row + i;
    if ((possible_rows >> i & 1) == 0 || r < 0 || r >= frame.height) continue;
    for (const LidarPoint& point : frame.points[static_cast<std::size_t>(r)]) {
      if (!IsUsableSource(point.echoes[0], min_dist)) continue;
      found |= std::uint32_t{1} << i;
      break;
    }
  }
  return found;
}

// A distance among the entries of a PSF.
struct PsfPlace {
  int entry = 0;
  float fraction = 0.0F;   // of the way to the next entry
  bool is_between = true;  // false at both ends, where one entry counts alone
};

// x: twice the distance in pixels.
inline PsfPlace PlaceInPsf(float x) noexcept {
  constexpr int kLast = kPsfEntries - 1;
  if (!(x > 0.0F)) return {.entry = 0, .is_between = false};
  if (x >= static_cast<float>(kLast)) return {.entry = kLast, .is_between = false};
  const int entry = static_cast<int>(x);
  return {.entry = entry, .fraction = x - static_cast<float>(entry)};
}

inline float PsfWeight(const float (&psf)[kPsfEntries], const PsfPlace& place) noexcept {
  if (!place.is_between) return psf[place.entry];
  const float f = place.fraction;
  return (1.0F - f) * psf[place.entry] + f * psf[place.entry + 1];
}

// The places of the distances between an echo and a source, by rows and columns without sign. A
// table, because std::hypot is slow and there are few different offsets.
struct PsfPlaces {
  PsfPlace at[kBloomReach][kBloomReach];

  PsfPlaces() noexcept {
    for (int rows = 0; rows < kBloomReach; ++rows) {
      for (int cols = 0; cols < kBloomReach; ++cols) {
        at[rows][cols] =
            PlaceInPsf(2.0F * std::hypot(static_cast<float>(rows), static_cast<float>(cols)));
      }
    }
  }
};

// The PSF at every offset, for the three ways in which a source's block can lie to the echo's.
struct SpillWeights {
  BloomWeights same_block;
  BloomWeights adjacent_block;
  BloomWeights diagonal_block;

  explicit SpillWeights(const BloomSuppressCalib& calib) noexcept {
    static const PsfPlaces places;
    for (int rows = 0; rows < kBloomReach; ++rows) {
      for (int cols = 0; cols < kBloomReach; ++cols) {
        const PsfPlace& place = places.at[rows][cols];
        Set(same_block, rows, cols, PsfWeight(calib.psf_same_block, place));
        Set(adjacent_block, rows, cols, PsfWeight(calib.psf_adjacent_block, place));
        Set(diagonal_block, rows, cols, PsfWeight(calib.psf_diagonal_block, place));
      }
    }
  }

  const BloomWeights& ForBlocksApart(int rows, int cols) const noexcept {
    const int distance = std::abs(rows) + std::abs(cols);
    if (distance == 0) return same_block;
    return distance == 1 ? adjacent_block : diagonal_block;
  }

 private:
  static void Set(BloomWeights& weights, int rows, int cols, float weight) noexcept {
    weights.at[rows][kBloomReach - 1 - cols] = weights.at[rows][kBloomReach - 1 + cols] = weight;
  }
};

// `source_rows`: a bit for each pixel row of the block, set where a source may lie.
inline void AppendSources(const LidarFrame& frame, const BloomBlock& block,
                          std::uint32_t source_rows, float min_dist,
                          std::vector<BloomSource>& found) {
  const int first_row = kBlockSide * block.m_row;
  const int first_col = kBlockSide * block.m_col;
  for (int i = 0; i < kBlockSide; ++i) {
    if ((source_rows >> i & 1) == 0) continue;
    const int r = first_row + i;
    const std::vector<LidarPoint>& row = frame.points[static_cast<std::size_t>(r)];
    for (int c = first_col; c < first_col + kBlockSide; ++c) {
      const LidarEcho& echo = row[static_cast<std::size_t>(c)].echoes[0];
      if (!IsUsableSource(echo, min_dist)) continue;
      found.push_back({.row = r, .col = c, .dist = echo.dist_raw, .power = echo.power});
    }
  }
}

// The usable sources of the block rows m_row - 1 .. m_row + 1, one block after another.
struct SourceGrid {
  std::vector<BloomSource> sources;
  std::vector<std::size_t> begin;  // by block, see IndexOf; one entry more, the end
};

// Block row 0 is that of m_row - 1.
inline std::size_t IndexOf(int block_row, int block_col) noexcept {
  return std::size_t{3} * static_cast<std::size_t>(block_col) + static_cast<std::size_t>(block_row);
}

inline SourceGrid GatherGrid(const LidarFrame& frame, int m_row, float min_dist,
                             std::uint32_t source_rows) {
  const int block_cols = frame.width / kBlockSide;
  SourceGrid grid;
  grid.begin.reserve(IndexOf(0, block_cols) + 1);
  for (int m_col = 0; m_col < block_cols; ++m_col) {
    for (int i = 0; i < 3; ++i) {
      grid.begin.push_back(grid.sources.size());
      const BloomBlock block{.m_row = m_row - 1 + i, .m_col = m_col};
      if (block.m_row >= frame.height / kBlockSide) continue;
      AppendSources(frame, block, source_rows >> (kBlockSide * i), min_dist, grid.sources);
    }
  }
  grid.begin.push_back(grid.sources.size());
  return grid;
}

// One list for each block column: the usable sources of the 3 x 3 blocks around it.
struct SourceLists {
  std::vector<BloomSource> sources;  // of all lists, one list after another
  std::vector<SourceList> of_column;
};

inline void AppendBlock(const SourceGrid& grid, std::size_t block, const BloomWeights& weights,
                        std::vector<BloomSource>& sources, SourceList& list) {
  for (std::size_t i = grid.begin[block]; i < grid.begin[block + 1]; ++i) {
    BloomSource source = grid.sources[i];
    source.weights = &weights;
    list.nearest = std::min(list.nearest, source.dist);
    list.farthest = std::max(list.farthest, source.dist);
    sources.push_back(source);
  }
}

inline SourceLists GatherSources(const SourceGrid& grid, int block_cols,
                                 const SpillWeights& weights) {
  SourceLists lists;
  lists.sources.reserve(3 * grid.sources.size());  // its own block column and those beside it
  lists.of_column.resize(static_cast<std::size_t>(block_cols));
  for (int m_col = 0; m_col < block_cols; ++m_col) {
    SourceList& list = lists.of_column[static_cast<std::size_t>(m_col)];
    const std::size_t begin = lists.sources.size();
    for (int dr = -1; dr <= 1; ++dr) {
      for (int col = std::max(m_col - 1, 0); col <= std::min(m_col + 1, block_cols - 1); ++col) {
        AppendBlock(grid, IndexOf(dr + 1, col), weights.ForBlocksApart(dr, col - m_col),
                    lists.sources, list);
      }
    }
    list.sources = {lists.sources.data() + begin, lists.sources.size() - begin};
  }
  return lists;
}

// Who hears of which echo. The node's own: one echo's way is printed, nobody hears of the others.
struct PrintingTraces {
  const BloomTrace& place;
  const BloomSuppressCalib& calib;

  bool HearsOf(const BloomBlock& block) const noexcept {
    return place.armed && place.echo == block.echo && place.row >= 0 && place.col >= 0 &&
           place.row / kBlockSide == block.m_row && place.col / kBlockSide == block.m_col;
  }
  bool PrintsOf(const BloomBlock& block) const noexcept { return HearsOf(block); }
  // Of a block that is heard of, before its echoes are filtered.
  void Gains(const BloomBlock& block, const BloomBlockGains& gains) const {
    PrintBloomBlock(block, calib, gains);
  }
  // Printed once per call, whatever row the traced pixel lies in.
  void FilterDisabled() const {
    if (place.armed) PrintBloomFilterDisabled(place);
  }
  // Calls use(trace) with the echo's trace. heard: HearsOf its block.
  template <class Use>
  void With(const BloomBlock& /*block*/, bool heard, int row, int col, const Use& use) const {
    if (heard && row == place.row && col == place.col) {
      use(PrintingBloomTrace(place, calib));
    } else {
      use(SilentBloomTrace());
    }
  }
};

// What the pass works with, the same for all of one call.
template <class Traces>
struct Pass {
  LidarFrame& frame;
  const BloomSuppressCalib& calib;
  const Traces& traces;
  RowSumsForm sum_rows;  // null: each echo on its own
  BlockTemplate pattern;
};

// Calls visit(row, col, echo record, trace) for the block's 36 pixels in scan order.
template <class Traces, class Visit>
void VisitBlock(const Pass<Traces>& pass, const BloomBlock& block, const Visit& visit) {
  const int first_row = kBlockSide * block.m_row;
  const int first_col = kBlockSide * block.m_col;
  const bool heard = pass.traces.HearsOf(block);
  for (int r = first_row; r < first_row + kBlockSide; ++r) {
    std::vector<LidarPoint>& row = pass.frame.points[static_cast<std::size_t>(r)];
    for (int c = first_col; c < first_col + kBlockSide; ++c) {
      LidarEcho& echo = row[static_cast<std::size_t>(c)].echoes[block.echo];
      pass.traces.With(block, heard, r, c, [&](const auto& trace) { visit(r, c, echo, trace); });
    }
  }
}

// Calls visit(block, sources) for the row's blocks that have a source near, echo slots outermost.
template <class Visit>
void VisitBlocksWithSources(int m_row, int echo_count, const SourceLists& lists,
                            const Visit& visit) {
  for (int e = 0; e < echo_count; ++e) {
    for (std::size_t m_col = 0; m_col < lists.of_column.size(); ++m_col) {
      const SourceList& list = lists.of_column[m_col];
      if (list.sources.empty()) continue;
      visit(BloomBlock{.m_row = m_row, .m_col = static_cast<int>(m_col), .echo = e}, list);
    }
  }
}

template <class Trace>
void MarkEcho(LidarEcho& echo, const SourceList& list, const BloomSuppressCalib& calib,
              const Trace& trace) {
  trace.MarkPixel(echo, list.sources.size());
  if (!IsCandidate(echo, calib.threshold)) {
    trace.MarkNotCandidate(echo);
    return;
  }
  if (!Trace::kHearsAll && IsBeyondAll(list, echo, calib.dist_gate_m)) return;
  for (const BloomSource& source : list.sources) {
    const bool matched = IsAtRangeOf(source, echo, calib.dist_gate_m);
    trace.MarkSource(echo, source, matched);
    if (!matched) continue;
    echo.highReflBlooming = true;
    trace.MarkResult(&source);
    return;
  }
  trace.MarkResult(nullptr);
}

// False when no source lies at the echo's range; `sum` is then 0. A function of its own, so that
// the total stays in a register: among all the pass's values it is kept in memory, at three times
// the cost.
template <class Trace>
[[gnu::noinline]] bool SumSpilledPower(int row, int col, const LidarEcho& echo,
                                       const SourceList& list, float dist_gate, float& sum,
                                       const Trace& trace) {
  bool counted = false;
  float total = 0.0F;
  for (const BloomSource& source : list.sources) {
    if (!IsAtRangeOf(source, echo, dist_gate)) continue;
    const float psf_w =
        source.weights->at[std::abs(source.row - row)][col - source.col + kBloomReach - 1];
    const float contribution = psf_w * source.power;
    total += contribution;
    counted = true;
    trace.FilterSource(echo, source, psf_w, contribution, total);
  }
  sum = total;
  return counted;
}

template <class Traces>
BloomBlockGains ComputeGains(const Pass<Traces>& pass, const BloomBlock& block, bool prints,
                             const BloomTrace& printed, std::vector<float>& scratch) {
  const LidarFrame& frame = pass.frame;
  const BloomSuppressCalib& calib = pass.calib;
  const int first_row = kBlockSide * block.m_row;
  const int first_col = kBlockSide * block.m_col;
  BloomBlockGains gains;
  if (calib.dist_pattern_enabled) {
    gains.dist_std =
        BloomDistStdGain(frame.points, first_row, first_col, block.echo, calib, scratch, prints);
  }
  if (calib.dist_neighbor_enabled) {
    gains.edge_neighbor = BloomEdgeNeighborGain(
        frame.points, frame.height, frame.width, first_row, first_row + kBlockSide, first_col,
        block.echo, calib.edge_neighbor_threshold_m, printed.row, printed.col, prints);
  }
  return gains;
}

inline bool HasMark(const LidarFrame& frame, const BloomBlock& block) noexcept {
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

template <class Traces, class Trace>
void FilterEcho(const Pass<Traces>& pass, const FilterPlace& at, LidarEcho& echo,
                const Trace& trace) {
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

template <class Traces>
void FilterBlock(const Pass<Traces>& pass, const BloomBlock& block, const SourceList& sources,
                 std::vector<float>& scratch) {
  const bool heard = pass.traces.HearsOf(block);
  // Nothing in a block without a mark is filtered: its gains serve the trace only.
  if (!heard && !HasMark(pass.frame, block)) return;
  const BloomBlockGains gains =
      ComputeGains(pass, block, pass.traces.PrintsOf(block), pass.traces.place, scratch);
  if (!heard && pass.sum_rows != nullptr) {
    FilterBlockByRows(pass.frame, block, {pass.calib, sources.sources, gains, pass.pattern},
                      pass.sum_rows);
    return;
  }
  if (heard) pass.traces.Gains(block, gains);
  VisitBlock(pass, block, [&](int row, int col, LidarEcho& echo, const auto& trace) {
    FilterEcho(pass, {row, col, block, sources, gains}, echo, trace);
  });
}

template <class Traces>
void SuppressRow(LidarFrame& frame, int m_row, const BloomSuppressCalib& calib, bool filter_enable,
                 std::uint32_t possible_rows, const Traces& traces,
                 RowSumsForm sum_rows = nullptr) {
  if (!calib.enable || !RowLiesInFrame(frame, m_row)) return;
  const std::uint32_t source_rows =
      FindSourceRows(frame, m_row, possible_rows, calib.source_min_dist_m);
  if (source_rows == 0 || frame.echo_num < 1) return;
  const int echo_count = std::min(frame.echo_num, kEchoSlots);
  const SpillWeights weights(calib);
  const SourceLists lists =
      GatherSources(GatherGrid(frame, m_row, calib.source_min_dist_m, source_rows),
                    frame.width / kBlockSide, weights);
  const Pass<Traces> pass{frame, calib, traces, sum_rows, BlockTemplate(calib.power_template)};

  VisitBlocksWithSources(
      m_row, echo_count, lists, [&](const BloomBlock& block, const SourceList& sources) {
        VisitBlock(pass, block,
                   [&](int /*row*/, int /*col*/, LidarEcho& echo, const auto& echo_trace) {
                     MarkEcho(echo, sources, calib, echo_trace);
                   });
      });
  if (!filter_enable) {
    traces.FilterDisabled();
    return;
  }
  std::vector<float> scratch;
  scratch.reserve(std::size_t{kBlockSide} * kBlockSide);
  VisitBlocksWithSources(m_row, echo_count, lists,
                         [&](const BloomBlock& block, const SourceList& sources) {
                           FilterBlock(pass, block, sources, scratch);
                         });
}

}  // namespace kerul::lidar::bloom
