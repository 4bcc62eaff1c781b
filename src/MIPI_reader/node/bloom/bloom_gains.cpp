#include "MIPI_reader/node/bloom/bloom_gains.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <iostream>
#include <span>

#include "MIPI_reader/node/bloom/bloom_echo.h"

namespace {

using kerul::lidar::BloomSuppressCalib;
using kerul::lidar::FrameRows;
using kerul::lidar::LidarEcho;
using kerul::lidar::bloom::IsReturn;
using kerul::lidar::bloom::kBlockSide;

constexpr std::size_t kBlockPixels = 36;
// Removed at either end of the sorted ranges, when there are enough.
constexpr std::size_t kTrimmedEachEnd = 2;
constexpr std::size_t kFewestToTrim = 5;
// A block with 14 ranges is neutral. Deliberate; 9 and 11 are computed like any other number.
constexpr std::size_t kNeutralCount = 10;
constexpr int kCountLimit = 6;

struct DistSpread {
  std::size_t valid_n = 0;
  std::size_t trimmed_n = 0;
  float mean = 0.0F;  // metres
  float std = 0.0F;   // metres
};

const LidarEcho& EchoAt(const FrameRows& rows, int row, int col, int echo) noexcept {
  return rows[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)].echoes[echo];
}

void CollectRanges(const FrameRows& rows, int first_row, int first_col, int echo, float threshold,
                   std::vector<float>& ranges) {
  ranges.clear();
  for (int r = first_row; r < first_row + kBlockSide; ++r) {
    for (int c = first_col; c < first_col + kBlockSide; ++c) {
      const LidarEcho& at = EchoAt(rows, r, c, echo);
      if (at.highRefl || !(at.cogh < threshold)) continue;
      if (std::isfinite(at.dist_raw) && at.dist_raw > 0.0F) ranges.push_back(at.dist_raw);
    }
  }
}

// Two passes in single precision, over the values in the order given.
void MeasureSpread(std::span<const float> ranges, DistSpread& spread) noexcept {
  const auto n = static_cast<float>(ranges.size());
  float sum = 0.0F;
  for (const float range : ranges) sum += range;
  spread.mean = sum / n;
  float squares = 0.0F;
  for (const float range : ranges) squares += (range - spread.mean) * (range - spread.mean);
  const float variance = squares / n;
  spread.std = variance > 0.0F ? std::sqrt(variance) : 0.0F;
}

// 1.5 at 0, 1.0 at 0.1 m, 0.5 at 1 m and beyond.
float SpreadGain(float std) noexcept {
  if (std <= 0.1F) return 1.5F - 5.0F * std;
  if (std <= 1.0F) return 1.0F - 0.5555556F * (std - 0.1F);
  return 0.5F;
}

void PrintSpread(int echo, const DistSpread& spread, bool is_neutral, float gain) {
  std::cout << "[BloomDebug][dist_std] echo=" << echo << " valid_n=" << spread.valid_n
            << " trimmed_n=" << spread.trimmed_n;
  if (!is_neutral) std::cout << " mean=" << spread.mean << " std=" << spread.std;
  std::cout << " gain=" << gain << '\n';
}

enum class EdgePair {
  kOutOfRange,
  kSelfNotBlooming,
  kNeighborHighOrBloom,
  kInvalidDist,
  kMatch,
  kMismatch
};

struct PixelPlace {
  int row;
  int col;
};

struct EdgePairPlace {
  PixelPlace self;
  PixelPlace neighbor;
};

struct EdgeCounts {
  int match = 0;
  int mismatch = 0;
};

bool IsInside(const PixelPlace& place, int height, int width) noexcept {
  return place.row >= 0 && place.row < height && place.col >= 0 && place.col < width;
}

EdgePair JudgePair(const LidarEcho& self, const LidarEcho& neighbor, float threshold) noexcept {
  if (!self.highReflBlooming) return EdgePair::kSelfNotBlooming;
  if (neighbor.highReflBlooming || neighbor.highRefl) return EdgePair::kNeighborHighOrBloom;
  if (!IsReturn(self.dist_raw) || !IsReturn(neighbor.dist_raw)) return EdgePair::kInvalidDist;
  const bool matched = std::fabs(self.dist_raw - neighbor.dist_raw) < threshold;
  return matched ? EdgePair::kMatch : EdgePair::kMismatch;
}

void PrintPairPlace(const char* direction, const EdgePairPlace& pair) {
  std::cout << "[BloomDebug][edge_neighbor][detail] direction=" << direction << " self=("
            << pair.self.row << "," << pair.self.col << ") neighbor=(" << pair.neighbor.row << ","
            << pair.neighbor.col;
}

// The rest of the line, for two pixels inside the frame.
void PrintPair(EdgePair result, const LidarEcho& self, const LidarEcho& neighbor, float threshold,
               const EdgeCounts& counts) {
  switch (result) {
    case EdgePair::kSelfNotBlooming:
      std::cout << ") skip=self_not_blooming";
      return;
    case EdgePair::kNeighborHighOrBloom:
      std::cout << ") skip=neighbor_high_or_bloom neighbor_highRefl=" << neighbor.highRefl
                << " neighbor_bloom=" << neighbor.highReflBlooming;
      return;
    case EdgePair::kInvalidDist:
      std::cout << ") skip=invalid_dist self_dist=" << self.dist_raw
                << " neighbor_dist=" << neighbor.dist_raw;
      return;
    default:
      std::cout << ") self_dist=" << self.dist_raw << " neighbor_dist=" << neighbor.dist_raw
                << " diff=" << std::fabs(self.dist_raw - neighbor.dist_raw)
                << " threshold=" << threshold << " matched=" << (result == EdgePair::kMatch)
                << " match_count=" << counts.match << " mismatch_count=" << counts.mismatch;
  }
}

}  // namespace

float BloomDistStdGain(const FrameRows& rows, int first_row, int first_col, int echo,
                       const BloomSuppressCalib& calib, std::vector<float>& scratch, bool debug) {
  CollectRanges(rows, first_row, first_col, echo, calib.threshold, scratch);
  // The copy is sorted; the scratch keeps the scan order for the caller.
  std::array<float, kBlockPixels> sorted{};
  std::copy(scratch.begin(), scratch.end(), sorted.begin());
  std::span<float> kept(sorted.data(), scratch.size());
  if (kept.size() >= kFewestToTrim) {
    std::sort(kept.begin(), kept.end());
    kept = kept.subspan(kTrimmedEachEnd, kept.size() - 2 * kTrimmedEachEnd);
  }
  DistSpread spread{.valid_n = scratch.size(), .trimmed_n = kept.size()};
  const bool is_neutral = kept.empty() || kept.size() == kNeutralCount;
  float gain = 1.0F;
  if (!is_neutral) {
    MeasureSpread(kept, spread);
    gain = SpreadGain(spread.std);
  }
  if (debug) PrintSpread(echo, spread, is_neutral, gain);
  return gain;
}

void BloomCountEdgeNeighbor(const FrameRows& rows, int height, int width, int echo,
                            const char* direction, int self_row, int self_col, int neighbor_row,
                            int neighbor_col, int& count, float threshold, int& match,
                            int& mismatch, bool debug) {
  const EdgePairPlace pair{{self_row, self_col}, {neighbor_row, neighbor_col}};
  if (debug) PrintPairPlace(direction, pair);
  if (!IsInside(pair.self, height, width) || !IsInside(pair.neighbor, height, width)) {
    if (debug) std::cout << ") skip=out_of_range count=" << count << '\n';
    return;
  }
  const LidarEcho& self = EchoAt(rows, self_row, self_col, echo);
  const LidarEcho& neighbor = EchoAt(rows, neighbor_row, neighbor_col, echo);
  const EdgePair result = JudgePair(self, neighbor, threshold);
  if (result == EdgePair::kMatch) {
    ++match;
    --count;
  } else if (result == EdgePair::kMismatch) {
    ++mismatch;
    ++count;
  }
  if (!debug) return;
  PrintPair(result, self, neighbor, threshold, {match, mismatch});
  std::cout << " count=" << count << '\n';
}

float BloomEdgeNeighborGain(const FrameRows& rows, int height, int width, int first_row,
                            int end_row, int first_col, int echo, float threshold, int debug_row,
                            int debug_col, bool debug) {
  int count = 0;
  EdgeCounts left;
  EdgeCounts right;
  EdgeCounts up;
  EdgeCounts down;
  const auto count_pair = [&](const char* direction, PixelPlace self, PixelPlace neighbor,
                              EdgeCounts& counts) {
    BloomCountEdgeNeighbor(rows, height, width, echo, direction, self.row, self.col, neighbor.row,
                           neighbor.col, count, threshold, counts.match, counts.mismatch, debug);
  };
  const int last_col = first_col + kBlockSide - 1;
  for (int i = 0; i < kBlockSide; ++i) {
    const int r = first_row + i;
    const int c = first_col + i;
    count_pair("left", {r, first_col}, {r, first_col - 1}, left);
    count_pair("right", {r, last_col}, {r, last_col + 1}, right);
    count_pair("up", {first_row, c}, {first_row - 1, c}, up);
    count_pair("down", {end_row - 1, c}, {end_row, c}, down);
  }
  const int clamp_count = std::clamp(count, -kCountLimit, kCountLimit);
  const float gain = 1.0F + 0.1F * static_cast<float>(clamp_count);
  if (debug) {
    std::cout << "[BloomDebug][edge_neighbor] echo=" << echo << " debug_pixel=(" << debug_row << ","
              << debug_col << ") threshold=" << threshold << " match_up=" << up.match
              << " match_down=" << down.match << " match_left=" << left.match
              << " match_right=" << right.match << " mismatch_up=" << up.mismatch
              << " mismatch_down=" << down.mismatch << " mismatch_left=" << left.mismatch
              << " mismatch_right=" << right.mismatch << " raw_count=" << count
              << " clamp_count=" << clamp_count << " gain=" << gain << '\n';
  }
  return gain;
}
