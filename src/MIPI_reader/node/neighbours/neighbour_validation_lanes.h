// Vector form of the neighbour validation: a lane is a pixel of the row. Included by vector code
// only; see lanes/lanes.h.
//
// The scan is serial: an erased echo supports no pixel to its right. But of the eight neighbours,
// only the left one can be in doubt. The row above is final, and the pixel to the right and the row
// below are still as they were. So a row takes four steps:
//   1. Judge, by lanes: count the seven other neighbours. Most echoes are kept or erased whatever
//      became of the left neighbour; for the rest, note what the left one would have to be.
//   2. Settle, on 64 columns at a time: decide the rest from left to right.
//   3. Smooth and fill, by lanes: above and left as the pass leaves them, right and below as they
//      were. Each state has planes of its own. With erasure in place, echo 1 of one lane would miss
//      the echo 0 that a lane to its right has lost in the same vector.
//   4. Store what has changed into the records.
#pragma once

#include <cstdint>

#include "MIPI_reader/node/neighbours/neighbour_planes.h"
#include "MIPI_reader/node/neighbours/neighbour_rules.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "lanes/lanes.h"

namespace kerul::lidar::neighbour {

// The row in hand between its neighbours.
struct RowTriple {
  const RowPlanes& above;
  const RowPlanes& here;
  const RowPlanes& below;
};

// The decisions on the echoes of one row, a bit per column.
struct RowVerdicts {
  ColumnBits after_pulse[kEchoSlots];
  ColumnBits active[kEchoSlots];  // has a range and is no after-pulse: stands the support test
  ColumnBits kept[kEchoSlots];
  ColumnBits open[kEchoSlots];  // one short of the support it needs, and the left one may give it
  ColumnBits left_agrees[kEchoSlots][kEchoSlots];  // [echo judged][echo of the left neighbour]
  ColumnBits filled;                               // hole with a synthetic return
};

// The values of the echoes kept and of the holes filled; anything in the other columns.
struct RowResults {
  float dist[kEchoSlots][kMaxColumns];
  float refl[kEchoSlots][kMaxColumns];
  float fill_dist[kMaxColumns];
  float fill_refl[kMaxColumns];
};

// The neighbours of the lanes from one cell on: their row, the view of it that the pixel in hand
// has, and the first neighbour's cell.
struct Neighbours {
  const RowPlanes& row;
  const RowView& view;
  int cell;
};

// Members A and B of pair `Pair`, in the order of kGrpADr and kGrpBDr.
template <int W, int Pair>
Neighbours MemberA(const RowTriple& rows, int cell) noexcept {
  if constexpr (Pair == 3) return {rows.here, rows.here.after, cell - 1};
  return {rows.above, rows.above.after, cell - 1 + Pair};
}
template <int W, int Pair>
Neighbours MemberB(const RowTriple& rows, int cell) noexcept {
  if constexpr (Pair == 3) return {rows.here, rows.here.before, cell + 1};
  return {rows.below, rows.below.before, cell + 1 - Pair};
}

// share * d, at least `floor`. A NaN range gives a NaN gate, as in the scalar form.
template <int W>
typename Lanes<W>::Float Gate(typename Lanes<W>::Float d, float share, float floor) noexcept {
  using L = Lanes<W>;
  const typename L::Float gate = L::Splat(share) * d;
  return L::Select(gate < L::Splat(floor), L::Splat(floor), gate);
}

// ---- Step 1 ----

// Whether an echo of that slot is seen at a range within the gate. The scalar form tests only the
// echo nearest in range, which is the same: if any is within the gate, the nearest is.
template <int W>
typename Lanes<W>::Int Agrees(const RowView& view, int slot, int cell, typename Lanes<W>::Float d,
                              typename Lanes<W>::Float gate) noexcept {
  return Lanes<W>::Abs(Lanes<W>::Load(view.seen[slot] + cell) - d) < gate;
}

// Minus the number of agreeing neighbours, the left one left out.
template <int W>
typename Lanes<W>::Int CountOthers(const RowTriple& rows, int cell, typename Lanes<W>::Float d,
                                   typename Lanes<W>::Float gate) noexcept {
  const auto ask = [&](const RowView& view, int at) noexcept {
    return Agrees<W>(view, 0, at, d, gate) | Agrees<W>(view, 1, at, d, gate);
  };
  const RowView& above = rows.above.after;
  const RowView& below = rows.below.before;
  return ask(above, cell - 1) + ask(above, cell) + ask(above, cell + 1) +
         ask(rows.here.before, cell + 1) + ask(below, cell - 1) + ask(below, cell) +
         ask(below, cell + 1);
}

// The less an echo stands out by itself, the more neighbours have to agree. NaN asks for the most.
template <int W>
typename Lanes<W>::Int RequiredSupport(typename Lanes<W>::Float peak_ratio) noexcept {
  typename Lanes<W>::Int required = Lanes<W>::SplatInt(kMostSupport);
  for (const float limit : kSupportLimits) required += peak_ratio >= limit;
  return required;
}

template <int W>
void Judge(const RowTriple& rows, int slot, int col, RowVerdicts& verdicts) noexcept {
  using L = Lanes<W>;
  using Float = typename L::Float;
  using Int = typename L::Int;
  const int cell = kMargin + col;
  const RowPlanes& here = rows.here;
  const Int after_pulse = (L::Load(here.flags + cell) & (kAfterPulse << slot)) != 0;
  PutBits<W>(verdicts.after_pulse[slot], col, after_pulse);
  const Float d = L::Load(here.before.seen[slot] + cell);
  const Int active = IsNumber<W>(d) & ~after_pulse;
  if (!L::Any(active)) return;
  PutBits<W>(verdicts.active[slot], col, active);

  // Echo 0's label decides for both echoes.
  const Int ground = (L::Load(here.flags + cell) & kGround) != 0;
  const Float narrow = Gate<W>(d, kSupportShare, kSupportFloor);
  const Float gate = L::Select(ground, narrow * L::Splat(kGroundWidening), narrow);
  const Int missing =
      RequiredSupport<W>(L::Load(here.ratio[slot] + cell)) + CountOthers<W>(rows, cell, d, gate);
  PutBits<W>(verdicts.kept[slot], col, active & (missing <= 0));

  const Int open = active & (missing == 1);
  if (!L::Any(open)) return;
  PutBits<W>(verdicts.open[slot], col, open);
  for (int left = 0; left < kEchoSlots; ++left) {
    PutBits<W>(verdicts.left_agrees[slot][left], col,
               Agrees<W>(here.before, left, cell - 1, d, gate));
  }
}

// ---- Step 2 ----

// Keeps the open echoes whose left neighbour keeps an echo that agrees. Repeated until nothing
// changes: each round carries the decision at least one column further to the right.
template <int W>
void Settle(RowVerdicts& verdicts) noexcept {
  for (int word = 0; word < kWords; ++word) {
    const int at = 1 + word;
    for (bool changed = true; changed;) {
      changed = false;
      const std::uint64_t left[] = {FromLeft<W>(verdicts.kept[0], word),
                                    FromLeft<W>(verdicts.kept[1], word)};
      for (int slot = 0; slot < kEchoSlots; ++slot) {
        const std::uint64_t support = (left[0] & verdicts.left_agrees[slot][0].words[at]) |
                                      (left[1] & verdicts.left_agrees[slot][1].words[at]);
        const std::uint64_t gained =
            verdicts.open[slot].words[at] & support & ~verdicts.kept[slot].words[at];
        verdicts.kept[slot].words[at] |= gained;
        changed |= gained != 0;
      }
    }
  }
}

// ---- Step 3 ----

// The neighbours' echoes that lie nearest to the lanes' ranges; NaN for an empty neighbour.
template <int W>
struct Nearest {
  typename Lanes<W>::Float dist;
  typename Lanes<W>::Float refl;
  typename Lanes<W>::Float sure;  // dist where the echo may take part in a fill, else NaN
};

// The lower slot on a tie, and also when a difference is infinite or NaN: only a strictly smaller
// one displaces it.
template <int W>
Nearest<W> FindNearest(const Neighbours& at, typename Lanes<W>::Float d) noexcept {
  using L = Lanes<W>;
  using Float = typename L::Float;
  const Float first = L::Load(at.view.seen[0] + at.cell);
  const Float second = L::Load(at.view.seen[1] + at.cell);
  const typename L::Int take_second =
      (L::Abs(second - d) < L::Abs(first - d)) | L::Load(at.view.second_only + at.cell);
  const auto choose = [&](const float* slot0, const float* slot1) noexcept {
    return L::Select(take_second, L::Load(slot1 + at.cell), L::Load(slot0 + at.cell));
  };
  return {L::Select(take_second, second, first), choose(at.row.refl[0], at.row.refl[1]),
          choose(at.view.sure[0], at.view.sure[1])};
}

// sum + weight * value in the lanes of `mask`; the other lanes keep their sum. Subtracting +0 keeps
// every sum, also -0; adding +0 would not.
template <int W>
typename Lanes<W>::Float AddWhere(typename Lanes<W>::Int mask, typename Lanes<W>::Float sum,
                                  float weight, typename Lanes<W>::Float value) noexcept {
  using L = Lanes<W>;
  using Int = typename L::Int;
  const typename L::Float term = L::Splat(-weight) * value;
  return sum - reinterpret_cast<typename L::Float>(mask & reinterpret_cast<Int>(term));
}

template <int W>
struct WeightedSums {
  typename Lanes<W>::Float dist;
  typename Lanes<W>::Float refl;
  typename Lanes<W>::Float weight;
};

template <int W, int Pair>
void AddAgreeingPair(const RowTriple& rows, int cell, typename Lanes<W>::Float d,
                     typename Lanes<W>::Float gate, WeightedSums<W>& sums) noexcept {
  using L = Lanes<W>;
  constexpr float kWeight = kPairWeights[Pair];
  const Nearest<W> a = FindNearest<W>(MemberA<W, Pair>(rows, cell), d);
  const Nearest<W> b = FindNearest<W>(MemberB<W, Pair>(rows, cell), d);
  const typename L::Int both = (L::Abs(a.dist - d) < gate) & (L::Abs(b.dist - d) < gate);
  sums.dist = AddWhere<W>(both, sums.dist, kWeight, a.dist);
  sums.dist = AddWhere<W>(both, sums.dist, kWeight, b.dist);
  sums.refl = AddWhere<W>(both, sums.refl, kWeight, a.refl);
  sums.refl = AddWhere<W>(both, sums.refl, kWeight, b.refl);
  sums.weight = AddWhere<W>(both, sums.weight, 2.0F * kWeight, L::Splat(1.0F));
}

// Mean over the pixel and the opposite pairs that agree with it.
template <int W>
void Smooth(const RowTriple& rows, int slot, int col, RowResults& results) noexcept {
  using L = Lanes<W>;
  using Float = typename L::Float;
  const int cell = kMargin + col;
  const Float d = L::Load(rows.here.before.seen[slot] + cell);
  const Float gate = Gate<W>(d, kPairShare, kPairFloor);
  const typename L::Int noisy = (L::Load(rows.here.flags + cell) & (kNoisy << slot)) != 0;
  const Float centre = L::Select(noisy, L::Splat(kNoisyCentreWeight), L::Splat(kCentreWeight));
  WeightedSums<W> sums{centre * d, centre * L::Load(rows.here.refl[slot] + cell), centre};
  AddAgreeingPair<W, 0>(rows, cell, d, gate, sums);
  AddAgreeingPair<W, 1>(rows, cell, d, gate, sums);
  AddAgreeingPair<W, 2>(rows, cell, d, gate, sums);
  AddAgreeingPair<W, 3>(rows, cell, d, gate, sums);
  L::Store(results.dist[slot] + col, sums.dist / sums.weight);
  L::Store(results.refl[slot] + col, sums.refl / sums.weight);
}

template <int W>
struct FillSums {
  typename Lanes<W>::Float dist{};
  typename Lanes<W>::Float refl{};
  typename Lanes<W>::Int samples{};         // minus their number
  typename Lanes<W>::Int complete_pairs{};  // minus their number
  typename Lanes<W>::Float sample[2 * kPairs];
};

template <int W, int Pair>
void AddSurePair(const RowTriple& rows, int cell, typename Lanes<W>::Float d,
                 FillSums<W>& sums) noexcept {
  using Int = typename Lanes<W>::Int;
  const Nearest<W> a = FindNearest<W>(MemberA<W, Pair>(rows, cell), d);
  const Nearest<W> b = FindNearest<W>(MemberB<W, Pair>(rows, cell), d);
  const Int first = IsNumber<W>(a.sure);
  const Int second = IsNumber<W>(b.sure);
  const Int both = first & second;
  sums.samples += first + second;
  sums.complete_pairs += both;
  sums.dist = AddWhere<W>(both, sums.dist, kFillMemberWeight, a.sure);
  sums.dist = AddWhere<W>(both, sums.dist, kFillMemberWeight, b.sure);
  sums.refl = AddWhere<W>(both, sums.refl, kFillMemberWeight, a.refl);
  sums.refl = AddWhere<W>(both, sums.refl, kFillMemberWeight, b.refl);
  sums.sample[2 * Pair] = a.sure;
  sums.sample[2 * Pair + 1] = b.sure;
}

// Fills the echoes 0 in `holes` for which enough sure neighbours agree.
template <int W>
void Fill(const RowTriple& rows, int col, typename Lanes<W>::Int holes, RowVerdicts& verdicts,
          RowResults& results) noexcept {
  using L = Lanes<W>;
  using Float = typename L::Float;
  const int cell = kMargin + col;
  // The original range, even if it has just been erased.
  const Float d = L::Load(rows.here.first_dist + cell);
  FillSums<W> sums;
  AddSurePair<W, 0>(rows, cell, d, sums);
  AddSurePair<W, 1>(rows, cell, d, sums);
  AddSurePair<W, 2>(rows, cell, d, sums);
  AddSurePair<W, 3>(rows, cell, d, sums);
  typename L::Int filled = holes & (sums.samples <= -kFillMinSamples) & (sums.complete_pairs < 0);
  if (!L::Any(filled)) return;

  Float weight = L::Splat(kFillWeights[1]);
  for (int pairs = 2; pairs <= kPairs; ++pairs) {
    weight = L::Select(sums.complete_pairs == -pairs, L::Splat(kFillWeights[pairs]), weight);
  }
  const Float mean = sums.dist / weight;
  const Float tolerance = Gate<W>(d, kFillShare, kFillFloor);
  // Missing samples are NaN: their comparison is false.
  for (const Float sample : sums.sample) filled &= ~(L::Abs(sample - mean) > tolerance);
  PutBits<W>(verdicts.filled, col, filled);
  L::Store(results.fill_dist + col, mean);
  L::Store(results.fill_refl + col, sums.refl / weight);
}

// Columns at which at least one pair could be complete, to spare most holes the search.
template <int W>
std::uint64_t MayFill(const RowTriple& rows, int word) noexcept {
  const ColumnBits& above = rows.above.after.has_sure;
  const ColumnBits& below = rows.below.before.has_sure;
  return (FromLeft<W>(above, word) & FromRight<W>(below, word)) |
         (above.words[1 + word] & below.words[1 + word]) |
         (FromRight<W>(above, word) & FromLeft<W>(below, word)) |
         (FromLeft<W>(rows.here.after.has_sure, word) &
          FromRight<W>(rows.here.before.has_sure, word));
}

template <int W>
void SmoothAndFill(const RowTriple& rows, const RowRun& run, RowVerdicts& verdicts,
                   RowResults& results) noexcept {
  ColumnBits holes{};
  for (int word = 0; word < kWords; ++word) {
    holes.words[1 + word] = MayFill<W>(rows, word) & ~verdicts.kept[0].words[1 + word] &
                            ~verdicts.after_pulse[0].words[1 + word];
  }
  for (int col = 0; col < run.columns; col += W) {
    for (int slot = 0; slot < run.echo_count; ++slot) {
      if (HasBits<W>(verdicts.kept[slot], col)) Smooth<W>(rows, slot, col, results);
    }
    if (HasBits<W>(holes, col)) Fill<W>(rows, col, MaskOf<W>(holes, col), verdicts, results);
  }
}

// ---- Step 4 ----

template <int W, class Visit>
void VisitColumns(std::uint64_t bits, int word, const Visit& visit) noexcept {
  for (; bits != 0; bits &= bits - 1) visit(64 * word + __builtin_ctzll(bits));
}

template <int W>
void StoreRow(const RowVerdicts& verdicts, const RowResults& results, const RowRun& run,
              LidarPoint* line) noexcept {
  for (int slot = 0; slot < run.echo_count; ++slot) {
    for (int word = 0; word < kWords; ++word) {
      const int at = 1 + word;
      const std::uint64_t kept = verdicts.kept[slot].words[at];
      VisitColumns<W>(kept, word, [&](int col) noexcept {
        line[col].echoes[slot].dist_proc = results.dist[slot][col];
        line[col].echoes[slot].refl_proc = results.refl[slot][col];
      });
      const std::uint64_t erased =
          (verdicts.active[slot].words[at] & ~kept) | verdicts.after_pulse[slot].words[at];
      VisitColumns<W>(erased, word, [&](int col) noexcept {
        LidarEcho& echo = line[col].echoes[slot];
        echo.dist_raw = 0.0F;
        echo.refl_raw = 0.0F;
        echo.dist_proc = 0.0F;
        echo.refl_proc = 0.0F;
      });
    }
  }
  // After the erasures: an echo that has just been erased can be filled.
  for (int word = 0; word < kWords; ++word) {
    VisitColumns<W>(verdicts.filled.words[1 + word], word, [&](int col) noexcept {
      LidarEcho& echo = line[col].echoes[0];
      echo.fill_point = true;
      echo.dist_proc = results.fill_dist[col];
      echo.refl_proc = results.fill_refl[col];
    });
  }
}

// ---- The whole ----

template <int W>
void ValidateRow(const RowTriple& rows, const RowRun& run, RowPlanes& here,
                 LidarPoint* line) noexcept {
  RowVerdicts verdicts{};
  for (int col = 0; col < run.columns; col += W) {
    for (int slot = 0; slot < run.echo_count; ++slot) Judge<W>(rows, slot, col, verdicts);
  }
  Settle<W>(verdicts);
  MakeViewAfter<W>(run, verdicts.kept, here);
  RowResults results;
  SmoothAndFill<W>(rows, run, verdicts, results);
  StoreRow<W>(verdicts, results, run, line);
}

template <int W>
void ValidateRun(const RowRun& run) noexcept {
  RowPlanes planes[3];
  for (RowPlanes& row : planes) ClearEnds<W>(run, row);
  RowPlanes* above = &planes[0];
  RowPlanes* here = &planes[1];
  RowPlanes* below = &planes[2];
  // The row above is final.
  Gather<W>(run.lines[0], run, false, *above, above->after);
  Gather<W>(run.lines[1], run, run.prime, *here, here->before);
  for (int row = 1; row <= run.row_count; ++row) {
    Gather<W>(run.lines[row + 1], run, run.prime && row < run.row_count, *below, below->before);
    ValidateRow<W>({*above, *here, *below}, run, *here, run.lines[row]);
    RowPlanes* const oldest = above;
    above = here;
    here = below;
    below = oldest;
  }
}

}  // namespace kerul::lidar::neighbour
