// The neighbour validation's fields of one pixel row, each in a plane of its own. The vector forms
// load these instead of 292-byte records. Included by vector code only; see lanes/lanes.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "MIPI_reader/node/neighbours/neighbour_rules.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "lanes/lanes.h"

namespace kerul::lidar::neighbour {

// Cells on either side of the columns, so that a vector may look beyond both ends of the row.
inline constexpr int kMargin = 16;
inline constexpr int kCells = kMargin + kMaxColumns + kMargin;
inline constexpr int kWords = kMaxColumns / 64;
static_assert(kMaxColumns % 64 == 0);

// A bit per column, with an empty word on either side.
struct ColumnBits {
  std::uint64_t words[kWords + 2];
};

// What the neighbours see of one pixel row. Cell kMargin + c belongs to column c; cells outside the
// frame are those of an empty pixel.
struct RowView {
  alignas(64) float seen[kEchoSlots][kCells];  // dist_raw where it is above 0, else NaN
  float sure[kEchoSlots][kCells];    // dist_raw where the slot may take part in a fill, else NaN
  std::int32_t second_only[kCells];  // mask: slot 1 is seen, slot 0 is not
  ColumnBits has_sure;               // columns of which at least one slot may take part in a fill
};

struct RowPlanes {
  alignas(64) float first_dist[kCells];  // dist_raw of slot 0, whatever it is
  float refl[kEchoSlots][kCells];        // refl_raw
  float ratio[kEchoSlots][kCells];       // peak_ratio
  std::int32_t flags[kCells];            // kGround and the like
  // As the records stood, for the pixels scanned before, and as this pass leaves them, for those
  // scanned after. An erasure clears only `seen`: refl needs no second plane.
  RowView before;
  RowView after;
};

// Bits of RowPlanes::flags. Those with an echo each stand shifted left by its slot.
inline constexpr std::int32_t kGround = 1;  // echo 0's label
inline constexpr std::int32_t kAfterPulse = 2;
inline constexpr std::int32_t kNoisy = 8;  // change_noise_noise_append above 0

// dist_raw and refl_raw side by side, as in the records. Gathering costs its stores; pairs on the
// way into the planes save half of them.
struct RangePairs {
  alignas(64) float values[kEchoSlots][2 * kMaxColumns];
};

template <int W>
void PutBits(ColumnBits& to, int col, typename Lanes<W>::Int mask) noexcept {
  to.words[1 + col / 64] |= std::uint64_t{Lanes<W>::Bits(mask)} << (col % 64);
}

// The mask of W lanes from column `col` on.
template <int W>
typename Lanes<W>::Int MaskOf(const ColumnBits& bits, int col) noexcept {
  typename Lanes<W>::Int lane_bit{};
  for (int lane = 0; lane < W; ++lane) lane_bit[lane] = std::int32_t{1} << lane;
  const auto lanes = static_cast<std::uint32_t>(bits.words[1 + col / 64] >> (col % 64));
  return (Lanes<W>::SplatInt(static_cast<std::int32_t>(lanes)) & lane_bit) != 0;
}

template <int W>
bool HasBits(const ColumnBits& bits, int col) noexcept {
  return ((bits.words[1 + col / 64] >> (col % 64)) & ((std::uint64_t{1} << W) - 1)) != 0;
}

// Bit c of the result: column c - 1 and c + 1 of the 64 columns of word `word`.
template <int W>
std::uint64_t FromLeft(const ColumnBits& bits, int word) noexcept {
  return (bits.words[1 + word] << 1) | (bits.words[word] >> 63);
}
template <int W>
std::uint64_t FromRight(const ColumnBits& bits, int word) noexcept {
  return (bits.words[1 + word] >> 1) | (bits.words[2 + word] << 63);
}

// `value`, or NaN in the lanes that are not in `mask`: all bits set is a NaN.
template <int W>
typename Lanes<W>::Float OrNan(typename Lanes<W>::Int mask,
                               typename Lanes<W>::Float value) noexcept {
  using Int = typename Lanes<W>::Int;
  return reinterpret_cast<typename Lanes<W>::Float>(reinterpret_cast<Int>(value) | ~mask);
}

// Not NaN.
template <int W>
typename Lanes<W>::Int IsNumber(typename Lanes<W>::Float value) noexcept {
  return value == value;  // NOLINT(misc-redundant-expression): false for NaN
}

template <int W>
int RoundUp(int columns) noexcept {
  return (columns + W - 1) / W * W;
}

static_assert(offsetof(LidarEcho, refl_raw) == offsetof(LidarEcho, dist_raw) + sizeof(float));
static_assert(offsetof(LidarEcho, refl_proc) == offsetof(LidarEcho, dist_proc) + sizeof(float));

template <int W>
void GatherEcho(LidarEcho& echo, int slot, int col, bool prime, RangePairs& pairs,
                RowPlanes& row) noexcept {
  std::memcpy(pairs.values[slot] + 2 * col, &echo.dist_raw, 2 * sizeof(float));
  if (prime) std::memcpy(&echo.dist_proc, &echo.dist_raw, 2 * sizeof(float));
  row.ratio[slot][kMargin + col] = echo.peak_ratio;
}

template <int W>
std::int32_t FlagsOf(const LidarEcho& echo, int slot) noexcept {
  return (echo.afterPulse ? kAfterPulse << slot : 0) |
         (echo.change_noise_noise_append > 0.0F ? kNoisy << slot : 0);
}

template <int W>
void ClearViewCell(int cell, RowView& view) noexcept {
  for (int slot = 0; slot < kEchoSlots; ++slot) {
    view.seen[slot][cell] = __builtin_nanf("");
    view.sure[slot][cell] = __builtin_nanf("");
  }
  view.second_only[cell] = 0;
}

// The cells beyond both ends of the row: neighbours outside the frame are read from them, and no
// later step writes them.
template <int W>
void ClearEnds(const RowRun& run, RowPlanes& row) noexcept {
  const int ends[] = {kMargin - 1, kMargin + RoundUp<W>(run.columns)};
  for (const int cell : ends) {
    for (auto& plane : row.refl) plane[cell] = 0.0F;
    ClearViewCell<W>(cell, row.before);
    ClearViewCell<W>(cell, row.after);
  }
}

// Empty pixels from column `begin` on, to the end of the last vector.
template <int W>
void ClearColumns(const RowRun& run, int slot, int begin, RangePairs& pairs,
                  RowPlanes& row) noexcept {
  for (int col = begin; col < RoundUp<W>(run.columns); ++col) {
    pairs.values[slot][2 * col] = 0.0F;
    pairs.values[slot][2 * col + 1] = 0.0F;
    row.ratio[slot][kMargin + col] = 0.0F;
    row.flags[kMargin + col] = 0;
  }
}

// Prefetches the cache lines of a record that are read below.
template <int W>
void PrefetchEchoes(const LidarPoint* pixel) noexcept {
  const auto* bytes = reinterpret_cast<const char*>(pixel) + offsetof(LidarPoint, echoes);
  __builtin_prefetch(bytes + offsetof(LidarEcho, dist_raw), 1);
  __builtin_prefetch(bytes + offsetof(LidarEcho, peak_ratio) + 16, 1);  // the middle of the rest
  bytes += sizeof(LidarEcho);
  __builtin_prefetch(bytes + offsetof(LidarEcho, dist_raw), 1);
  __builtin_prefetch(bytes + offsetof(LidarEcho, peak_ratio) + 16, 1);
}

// Null, a row outside the frame, gives empty pixels, and so does a slot that is not in use. `prime`
// also primes the row, whose records have to be fetched anyway.
template <int W>
void GatherRecords(LidarPoint* line, const RowRun& run, bool prime, RangePairs& pairs,
                   RowPlanes& row) noexcept {
  const int end = line != nullptr ? run.columns : 0;
  ClearColumns<W>(run, 0, end, pairs, row);
  ClearColumns<W>(run, 1, run.echo_count > 1 ? end : 0, pairs, row);
  // At 292 bytes from record to record the processor does not fetch ahead by itself.
  constexpr int kAhead = 8;
  for (int col = 0; col < end; ++col) {
    PrefetchEchoes<W>(line + (col + kAhead < end ? col + kAhead : col));
    LidarPoint& pixel = line[col];
    GatherEcho<W>(pixel.echoes[0], 0, col, prime, pairs, row);
    std::int32_t flags = (pixel.echoes[0].ground ? kGround : 0) | FlagsOf<W>(pixel.echoes[0], 0);
    if (run.echo_count > 1) {
      GatherEcho<W>(pixel.echoes[1], 1, col, prime, pairs, row);
      flags |= FlagsOf<W>(pixel.echoes[1], 1);
    }
    row.flags[kMargin + col] = flags;
  }
}

// The even and the odd entries of 2 W values, low half first.
template <int W, int... I>
void Split(typename Lanes<W>::Float low, typename Lanes<W>::Float high,
           typename Lanes<W>::Float& even, typename Lanes<W>::Float& odd,
           std::integer_sequence<int, I...> /*lanes*/) noexcept {
  even = __builtin_shufflevector(low, high, (2 * I)...);
  odd = __builtin_shufflevector(low, high, (2 * I + 1)...);
}

template <int W>
void MakeView(const RowRun& run, const RangePairs& pairs, RowPlanes& row, RowView& view) noexcept {
  using L = Lanes<W>;
  using Float = typename L::Float;
  using Int = typename L::Int;
  view.has_sure = {};
  for (int col = 0; col < run.columns; col += W) {
    const int cell = kMargin + col;
    Int is_seen[kEchoSlots];
    Int is_sure{};
    for (int slot = 0; slot < kEchoSlots; ++slot) {
      Float dist;
      Float refl;
      const float* const from = pairs.values[slot] + 2 * col;
      Split<W>(L::Load(from), L::Load(from + W), dist, refl, std::make_integer_sequence<int, W>{});
      L::Store(row.refl[slot] + cell, refl);
      if (slot == 0) L::Store(row.first_dist + cell, dist);
      is_seen[slot] = dist > 0.0F;
      const Int sure = (dist > kFillMinDist) & (L::Load(row.ratio[slot] + cell) > kSureDetection);
      L::Store(view.seen[slot] + cell, OrNan<W>(is_seen[slot], dist));
      L::Store(view.sure[slot] + cell, OrNan<W>(sure, dist));
      is_sure |= sure;
    }
    L::Store(view.second_only + cell, is_seen[1] & ~is_seen[0]);
    PutBits<W>(view.has_sure, col, is_sure);
  }
}

// The planes of a row, and its view as its records stand.
template <int W>
void Gather(LidarPoint* line, const RowRun& run, bool prime, RowPlanes& row,
            RowView& view) noexcept {
  RangePairs pairs;
  if (prime) {
    GatherRecords<W>(line, run, true, pairs, row);
  } else {
    GatherRecords<W>(line, run, false, pairs, row);
  }
  MakeView<W>(run, pairs, row, view);
}

// The view that is left when only the echoes in `kept` survive.
template <int W>
void MakeViewAfter(const RowRun& run, const ColumnBits (&kept)[kEchoSlots],
                   RowPlanes& row) noexcept {
  using L = Lanes<W>;
  using Int = typename L::Int;
  RowView& view = row.after;
  view.has_sure = {};
  for (int col = 0; col < run.columns; col += W) {
    const int cell = kMargin + col;
    const Int is_kept[] = {MaskOf<W>(kept[0], col), MaskOf<W>(kept[1], col)};
    Int is_sure{};
    for (int slot = 0; slot < kEchoSlots; ++slot) {
      const auto sure = OrNan<W>(is_kept[slot], L::Load(row.before.sure[slot] + cell));
      L::Store(view.seen[slot] + cell,
               OrNan<W>(is_kept[slot], L::Load(row.before.seen[slot] + cell)));
      L::Store(view.sure[slot] + cell, sure);
      is_sure |= IsNumber<W>(sure);
    }
    L::Store(view.second_only + cell, is_kept[1] & ~is_kept[0]);
    PutBits<W>(view.has_sure, col, is_sure);
  }
}

}  // namespace kerul::lidar::neighbour
