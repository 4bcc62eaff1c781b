// The scalar form of the neighbour validation, and what it tells of its decisions. The node's
// teller is NoTeller, which hears nothing and costs nothing; a tool's own one hears why each echo
// stayed.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <span>

#include "MIPI_reader/node/neighbours/neighbour_rules.h"
#include "MIPI_reader/node/neighbours/neighbour_validation.h"
#include "MIPI_reader/node/rows/row_range.h"

namespace kerul::lidar::neighbour {

inline constexpr int kNeighbours = 2 * kPairs;

// Stands for every neighbour outside the frame: both its slots are empty.
inline constexpr LidarPoint kOutside{};

// The neighbours of one pixel, group A in entries 0..3, group B in entries 4..7.
using Ring = std::array<const LidarPoint*, kNeighbours>;

// The pixel row in hand between its neighbours; a row outside the frame is an empty span.
struct RowWindow {
  std::span<const LidarPoint> lines[3];
  std::ptrdiff_t narrowest = 0;  // columns that all three lines have
};

// What the neighbours show for one echo, in the order of the ring; all 0 where there is nothing.
struct Surroundings {
  float dist[kNeighbours];
  float refl[kNeighbours];
  float ratio[kNeighbours];
};

// Largest differences in range, metres, for three questions.
struct Gates {
  float fill;     // may a hole be filled with these samples?
  float support;  // does a neighbour agree?
  float pair;     // may a neighbour take part in the smoothing?
};

// ---- What a teller hears of the echo in hand; references hold during the call only ----

struct SupportTold {
  const Surroundings& around;
  const Gates& gates;
  float range;  // metres
  float peak_ratio;
  bool ground;  // widened the gate
  int support;  // neighbours that agree
  int required;
};

struct SmoothingTold {
  const Surroundings& around;
  float range;
  float refl;
  float gate;  // of the pairs, metres
  float centre_weight;
  unsigned pairs;  // a bit for each pair that takes part
  float sum_of_weights;
};

enum class FillOutcome { kTooFewSamples, kNoCompletePair, kSampleTooFar, kFilled };

struct FillTold {
  const Surroundings& around;
  FillOutcome outcome;
  unsigned samples;  // a bit for each neighbour that qualifies
  std::size_t sample_count;
  std::size_t complete_pairs;
  float mean_dist;  // not yet known without enough samples and a pair
  float tolerance;
  float farthest;  // largest difference between sample and mean looked at, metres
};

struct NoTeller {
  void Pixel(std::size_t /*row*/, std::ptrdiff_t /*col*/) const noexcept {}  // the next one
  void Echo(int /*slot*/) const noexcept {}                                  // of this pixel
  void AfterPulseErased() const noexcept {}
  void Support(const SupportTold& /*told*/) const noexcept {}  // too little: it is erased
  void Smoothed(const SmoothingTold& /*told*/) const noexcept {}
  void Fill(const FillTold& /*told*/) const noexcept {}
};

// What hears of nothing is static instead of inline: the compiler then unfolds it as it does a
// file's own functions, and the pass is a tenth faster on full rows.
static RowWindow MakeRowWindow(const FrameRows& rows, std::size_t row) noexcept {
  RowWindow window;
  if (row > 0) window.lines[0] = rows[row - 1];
  window.lines[1] = rows[row];
  if (row + 1 < rows.size()) window.lines[2] = rows[row + 1];
  window.narrowest = std::min(
      {std::ssize(window.lines[0]), std::ssize(window.lines[1]), std::ssize(window.lines[2])});
  return window;
}

static const LidarPoint* PixelOrOutside(std::span<const LidarPoint> line,
                                        std::ptrdiff_t col) noexcept {
  if (col < 0 || col >= std::ssize(line)) return &kOutside;
  return line.data() + col;
}

static Ring MakeRing(const RowWindow& window, std::ptrdiff_t col) noexcept {
  Ring ring;
  if (col >= 1 && col + 1 < window.narrowest) {
    for (std::size_t i = 0; i < kPairs; ++i) {
      ring[i] = window.lines[kGrpADr[i] + 1].data() + col + kGrpADc[i];
      ring[i + kPairs] = window.lines[kGrpBDr[i] + 1].data() + col + kGrpBDc[i];
    }
    return ring;
  }
  for (std::size_t i = 0; i < kPairs; ++i) {
    ring[i] = PixelOrOutside(window.lines[kGrpADr[i] + 1], col + kGrpADc[i]);
    ring[i + kPairs] = PixelOrOutside(window.lines[kGrpBDr[i] + 1], col + kGrpBDc[i]);
  }
  return ring;
}

// The echo nearest in range to d, the lower slot on a tie; null when the pixel is empty. The first
// echo found counts whatever its difference, even infinite or NaN.
static const LidarEcho* FindNearestEcho(const LidarPoint& pixel, int echo_count, float d) noexcept {
  const LidarEcho* nearest = nullptr;
  float smallest = 0.0F;
  for (int slot = 0; slot < echo_count; ++slot) {
    const LidarEcho& echo = pixel.echoes[slot];
    if (!(echo.dist_raw > 0.0F)) continue;
    const float difference = std::fabs(echo.dist_raw - d);
    if (nearest == nullptr || difference < smallest) {
      nearest = &echo;
      smallest = difference;
    }
  }
  return nearest;
}

static Surroundings CollectSurroundings(const Ring& ring, int echo_count, float d) noexcept {
  Surroundings around;
  for (std::size_t i = 0; i < kNeighbours; ++i) {
    const LidarEcho* echo = FindNearestEcho(*ring[i], echo_count, d);
    around.dist[i] = echo != nullptr ? echo->dist_raw : 0.0F;
    around.refl[i] = echo != nullptr ? echo->refl_raw : 0.0F;
    around.ratio[i] = echo != nullptr ? echo->peak_ratio : 0.0F;
  }
  return around;
}

static Gates MakeGates(float d, bool ground) noexcept {
  Gates gates{};
  gates.fill = std::max(kFillShare * d, kFillFloor);
  gates.support = std::max(kSupportShare * d, kSupportFloor);
  if (ground) gates.support *= kGroundWidening;
  gates.pair = std::max(kPairShare * d, kPairFloor);
  return gates;
}

// The less an echo stands out by itself, the more neighbours have to agree. NaN asks for the most.
static int RequiredSupport(float peak_ratio) noexcept {
  int required = kMostSupport;
  for (const float limit : kSupportLimits) {
    if (peak_ratio >= limit) --required;
  }
  return required;
}

// In range, metres. Entry i of the ring must have a return.
static float DifferenceTo(const Surroundings& around, std::size_t i, float d) noexcept {
  return std::fabs(around.dist[i] - d);
}

static bool Agrees(const Surroundings& around, std::size_t i, float d, float gate) noexcept {
  return around.dist[i] > 0.0F && DifferenceTo(around, i, d) < gate;
}

static int CountSupport(const Surroundings& around, float d, float gate) noexcept {
  int support = 0;
  for (std::size_t i = 0; i < kNeighbours; ++i) {
    if (Agrees(around, i, d, gate)) ++support;
  }
  return support;
}

static void EraseEcho(LidarEcho& echo) noexcept {
  echo.dist_raw = 0.0F;
  echo.refl_raw = 0.0F;
  echo.dist_proc = 0.0F;
  echo.refl_proc = 0.0F;
}

// Mean over the pixel and the opposite pairs that agree with it. An echo whose noise was raised
// takes almost all its weight from its neighbours.
template <class Tell>
void SmoothEcho(LidarEcho& echo, const Surroundings& around, float d, float gate,
                Tell& tell) noexcept {
  const float centre = echo.change_noise_noise_append > 0.0F ? kNoisyCentreWeight : kCentreWeight;
  float sum_d = centre * d;
  float sum_r = centre * echo.refl_raw;
  float sum_w = centre;
  unsigned pairs = 0;
  const auto agrees = [&](std::size_t i) noexcept { return Agrees(around, i, d, gate); };
  for (std::size_t i = 0; i < kPairs; ++i) {
    const std::size_t opposite = i + kPairs;
    if (!agrees(i) || !agrees(opposite)) continue;
    const float weight = kPairWeights[i];
    sum_d += weight * around.dist[i];
    sum_d += weight * around.dist[opposite];
    sum_r += weight * around.refl[i];
    sum_r += weight * around.refl[opposite];
    sum_w += 2.0F * weight;
    pairs |= 1U << i;
  }
  tell.Smoothed({around, d, echo.refl_raw, gate, centre, pairs, sum_w});
  echo.dist_proc = sum_d / sum_w;
  echo.refl_proc = sum_r / sum_w;
}

// Gives a hole inside a strong target a synthetic return. The raw fields stay empty, so it never
// supports another pixel. A sample without its opposite counts and is tested, but moves no mean.
template <class Tell>
void FillHole(LidarEcho& echo, const Surroundings& around, float tolerance, Tell& tell) noexcept {
  float samples[kNeighbours];
  std::size_t sample_count = 0;
  std::size_t complete_pairs = 0;
  float sum_d = 0.0F;
  float sum_r = 0.0F;
  float mean_d = 0.0F;
  float farthest = 0.0F;
  unsigned qualified = 0;
  const auto ends = [&](FillOutcome outcome) noexcept {
    tell.Fill(
        {around, outcome, qualified, sample_count, complete_pairs, mean_d, tolerance, farthest});
  };
  const auto qualifies = [&](std::size_t i) noexcept {
    return around.dist[i] > kFillMinDist && around.ratio[i] > kSureDetection;
  };
  for (std::size_t i = 0; i < kPairs; ++i) {
    const std::size_t opposite = i + kPairs;
    const bool first = qualifies(i);
    const bool second = qualifies(opposite);
    qualified |= (first ? 1U : 0U) << i | (second ? 1U : 0U) << opposite;
    if (first) samples[sample_count++] = around.dist[i];
    if (second) samples[sample_count++] = around.dist[opposite];
    if (!first || !second) continue;
    sum_d += kFillMemberWeight * around.dist[i];
    sum_d += kFillMemberWeight * around.dist[opposite];
    sum_r += kFillMemberWeight * around.refl[i];
    sum_r += kFillMemberWeight * around.refl[opposite];
    ++complete_pairs;
  }
  if (sample_count < kFillMinSamples) return ends(FillOutcome::kTooFewSamples);
  if (complete_pairs == 0) return ends(FillOutcome::kNoCompletePair);
  const float weight = kFillWeights[complete_pairs];
  mean_d = sum_d / weight;
  for (std::size_t i = 0; i < sample_count; ++i) {
    const float difference = std::fabs(samples[i] - mean_d);
    farthest = std::max(farthest, difference);
    if (difference > tolerance) return ends(FillOutcome::kSampleTooFar);
  }
  ends(FillOutcome::kFilled);
  echo.fill_point = true;
  echo.dist_proc = mean_d;
  echo.refl_proc = sum_r / weight;
}

template <class Tell>
void ValidatePixel(LidarPoint& pixel, const Ring& ring, int echo_count, Tell& tell) noexcept {
  for (int slot = 0; slot < echo_count; ++slot) {
    tell.Echo(slot);
    LidarEcho& echo = pixel.echoes[slot];
    if (echo.afterPulse) {
      tell.AfterPulseErased();
      EraseEcho(echo);
      continue;
    }
    // Read once: the fill after an erasure still judges by the range that was erased.
    const float d = echo.dist_raw;
    const bool empty = !(d > 0.0F);
    if (slot > 0 && empty) continue;
    // Echo 0's label decides for both echoes.
    const Gates gates = MakeGates(d, pixel.echoes[0].ground);
    const Surroundings around = CollectSurroundings(ring, echo_count, d);
    if (!empty) {
      const int support = CountSupport(around, d, gates.support);
      const int required = RequiredSupport(echo.peak_ratio);
      tell.Support({around, gates, d, echo.peak_ratio, pixel.echoes[0].ground, support, required});
      if (support >= required) {
        SmoothEcho(echo, around, d, gates.pair, tell);
        continue;
      }
      EraseEcho(echo);
    }
    if (slot == 0) FillHole(echo, around, gates.fill, tell);
  }
}

template <class Tell>
void ValidateRowsScalar(FrameRows& rows, RowRange range, int echo_count, Tell& tell) noexcept {
  for (std::size_t row = range.begin; row < range.end; ++row) {
    const RowWindow window = MakeRowWindow(rows, row);
    std::ptrdiff_t col = 0;
    for (LidarPoint& pixel : rows[row]) {
      tell.Pixel(row, col);
      ValidatePixel(pixel, MakeRing(window, col), echo_count, tell);
      ++col;
    }
  }
}

}  // namespace kerul::lidar::neighbour
