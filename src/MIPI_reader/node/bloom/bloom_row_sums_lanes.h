// The bloom filter's sums with W lanes, bit for bit those of single echoes (SumSpilledPower,
// MatchPowerPattern). What does not count is added as zero, which changes no bit of a sum that
// begins at 0.
#pragma once

#include <cstdint>

#include "MIPI_reader/node/bloom/bloom_row_sums.h"
#include "lanes/lanes.h"

namespace kerul::lidar::bloom {

template <int W>
struct RowSumsKernel {
  using V = Lanes<W>;
  using Float = typename V::Float;
  using Int = typename V::Int;

  static void Sum(const RowJob& job, RowSums& sums) noexcept {
    static_assert(kRowLanes % W == 0);
    sums.counted = 0;
    for (int first = 0; first < kRowLanes; first += W) {
      SumSpill(job, first, sums);
      if (job.window != nullptr) SumPattern(job, first, sums);
    }
  }

 private:
  static Float Masked(Int mask, Float value) noexcept {
    return reinterpret_cast<Float>(mask & reinterpret_cast<Int>(value));
  }

  static void SumSpill(const RowJob& job, int first, RowSums& sums) noexcept {
    const Float dist = V::Load(job.dist + first);
    Float total{};
    Int counted{};
    for (int i = 0; i < job.source_count; ++i) {
      const BloomSource& source = job.sources[i];
      const Int at_range = V::Abs(source.dist - dist) < job.dist_gate;
      const float* line = source.weights->at[__builtin_abs(source.row - job.row)];
      const Float weight = V::Load(line + (job.first_col + first - source.col + kBloomReach - 1));
      total += Masked(at_range, weight * source.power);
      counted |= at_range;
    }
    V::Store(sums.spill + first, total);
    sums.counted |= V::Bits(counted) << first;
  }

  static void SumPattern(const RowJob& job, int first, RowSums& sums) noexcept {
    const Float centre = V::Load(job.dist + first);
    Float n{};
    Float s{};
    Float t{};
    Float ss{};
    Float tt{};
    Float st{};
    for (int i = 0; i <= 2 * kPatternReach; ++i) {
      const int row = job.window_row + i;
      for (int col = first; col <= first + 2 * kPatternReach; ++col) {
        const Int counts = V::Abs(V::Load(job.window->dist[row] + col) - centre) < job.dist_gate;
        const Float power = Masked(counts, V::Load(job.window->power[row] + col));
        const Float expected = Masked(counts, V::Load(job.pattern->expected[row] + col));
        n += Masked(counts, V::Splat(1.0F));
        s += power;
        t += expected;
        ss += power * power;
        tt += expected * expected;
        st += power * expected;
      }
    }
    V::Store(sums.n + first, n);
    V::Store(sums.s + first, s);
    V::Store(sums.t + first, t);
    V::Store(sums.ss + first, ss);
    V::Store(sums.tt + first, tt);
    V::Store(sums.st + first, st);
  }
};

}  // namespace kerul::lidar::bloom
