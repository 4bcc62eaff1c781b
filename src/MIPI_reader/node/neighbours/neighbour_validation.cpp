#include "MIPI_reader/node/neighbours/neighbour_validation.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <span>

#include "MIPI_reader/node/neighbours/neighbour_rules.h"
#include "MIPI_reader/node/rows/echo_ordering.h"
#include "MIPI_reader/node/rows/row_range.h"
#include "lanes/instruction_set.h"

namespace kerul::lidar {
namespace {

using namespace neighbour;

constexpr int kNeighbours = 2 * kPairs;

// Stands for every neighbour outside the frame: both its slots are empty.
constexpr LidarPoint kOutside{};

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

RowWindow MakeRowWindow(const FrameRows& rows, std::size_t row) noexcept {
  RowWindow window;
  if (row > 0) window.lines[0] = rows[row - 1];
  window.lines[1] = rows[row];
  if (row + 1 < rows.size()) window.lines[2] = rows[row + 1];
  window.narrowest = std::min(
      {std::ssize(window.lines[0]), std::ssize(window.lines[1]), std::ssize(window.lines[2])});
  return window;
}

const LidarPoint* PixelOrOutside(std::span<const LidarPoint> line, std::ptrdiff_t col) noexcept {
  if (col < 0 || col >= std::ssize(line)) return &kOutside;
  return line.data() + col;
}

Ring MakeRing(const RowWindow& window, std::ptrdiff_t col) noexcept {
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
const LidarEcho* FindNearestEcho(const LidarPoint& pixel, int echo_count, float d) noexcept {
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

Surroundings CollectSurroundings(const Ring& ring, int echo_count, float d) noexcept {
  Surroundings around;
  for (std::size_t i = 0; i < kNeighbours; ++i) {
    const LidarEcho* echo = FindNearestEcho(*ring[i], echo_count, d);
    around.dist[i] = echo != nullptr ? echo->dist_raw : 0.0F;
    around.refl[i] = echo != nullptr ? echo->refl_raw : 0.0F;
    around.ratio[i] = echo != nullptr ? echo->peak_ratio : 0.0F;
  }
  return around;
}

Gates MakeGates(float d, bool ground) noexcept {
  Gates gates{};
  gates.fill = std::max(kFillShare * d, kFillFloor);
  gates.support = std::max(kSupportShare * d, kSupportFloor);
  if (ground) gates.support *= kGroundWidening;
  gates.pair = std::max(kPairShare * d, kPairFloor);
  return gates;
}

// The less an echo stands out by itself, the more neighbours have to agree. NaN asks for the most.
int RequiredSupport(float peak_ratio) noexcept {
  int required = kMostSupport;
  for (const float limit : kSupportLimits) {
    if (peak_ratio >= limit) --required;
  }
  return required;
}

int CountSupport(const Surroundings& around, float d, float gate) noexcept {
  int support = 0;
  for (const float dist : around.dist) {
    if (dist > 0.0F && std::fabs(dist - d) < gate) ++support;
  }
  return support;
}

void EraseEcho(LidarEcho& echo) noexcept {
  echo.dist_raw = 0.0F;
  echo.refl_raw = 0.0F;
  echo.dist_proc = 0.0F;
  echo.refl_proc = 0.0F;
}

// Mean over the pixel and the opposite pairs that agree with it. An echo whose noise was raised
// takes almost all its weight from its neighbours.
void SmoothEcho(LidarEcho& echo, const Surroundings& around, float d, float gate) noexcept {
  const float centre = echo.change_noise_noise_append > 0.0F ? kNoisyCentreWeight : kCentreWeight;
  float sum_d = centre * d;
  float sum_r = centre * echo.refl_raw;
  float sum_w = centre;
  const auto agrees = [&](std::size_t i) noexcept {
    return around.dist[i] > 0.0F && std::fabs(around.dist[i] - d) < gate;
  };
  for (std::size_t i = 0; i < kPairs; ++i) {
    const std::size_t opposite = i + kPairs;
    if (!agrees(i) || !agrees(opposite)) continue;
    const float weight = kPairWeights[i];
    sum_d += weight * around.dist[i];
    sum_d += weight * around.dist[opposite];
    sum_r += weight * around.refl[i];
    sum_r += weight * around.refl[opposite];
    sum_w += 2.0F * weight;
  }
  echo.dist_proc = sum_d / sum_w;
  echo.refl_proc = sum_r / sum_w;
}

// Gives a hole inside a strong target a synthetic return. The raw fields stay empty, so it never
// supports another pixel. A sample without its opposite counts and is tested, but moves no mean.
void FillHole(LidarEcho& echo, const Surroundings& around, float tolerance) noexcept {
  float samples[kNeighbours];
  std::size_t sample_count = 0;
  std::size_t complete_pairs = 0;
  float sum_d = 0.0F;
  float sum_r = 0.0F;
  const auto qualifies = [&](std::size_t i) noexcept {
    return around.dist[i] > kFillMinDist && around.ratio[i] > kSureDetection;
  };
  for (std::size_t i = 0; i < kPairs; ++i) {
    const std::size_t opposite = i + kPairs;
    const bool first = qualifies(i);
    const bool second = qualifies(opposite);
    if (first) samples[sample_count++] = around.dist[i];
    if (second) samples[sample_count++] = around.dist[opposite];
    if (!first || !second) continue;
    sum_d += kFillMemberWeight * around.dist[i];
    sum_d += kFillMemberWeight * around.dist[opposite];
    sum_r += kFillMemberWeight * around.refl[i];
    sum_r += kFillMemberWeight * around.refl[opposite];
    ++complete_pairs;
  }
  if (sample_count < kFillMinSamples || complete_pairs == 0) return;
  const float weight = kFillWeights[complete_pairs];
  const float mean_d = sum_d / weight;
  for (std::size_t i = 0; i < sample_count; ++i) {
    if (std::fabs(samples[i] - mean_d) > tolerance) return;
  }
  echo.fill_point = true;
  echo.dist_proc = mean_d;
  echo.refl_proc = sum_r / weight;
}

void ValidatePixel(LidarPoint& pixel, const Ring& ring, int echo_count) noexcept {
  for (int slot = 0; slot < echo_count; ++slot) {
    LidarEcho& echo = pixel.echoes[slot];
    if (echo.afterPulse) {
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
      if (CountSupport(around, d, gates.support) >= RequiredSupport(echo.peak_ratio)) {
        SmoothEcho(echo, around, d, gates.pair);
        continue;
      }
      EraseEcho(echo);
    }
    if (slot == 0) FillHole(echo, around, gates.fill);
  }
}

void ValidateRowsScalar(FrameRows& rows, RowRange range, int echo_count) noexcept {
  for (std::size_t row = range.begin; row < range.end; ++row) {
    const RowWindow window = MakeRowWindow(rows, row);
    std::ptrdiff_t col = 0;
    for (LidarPoint& pixel : rows[row]) {
      ValidatePixel(pixel, MakeRing(window, col), echo_count);
      ++col;
    }
  }
}

using VectorForm = void (*)(const RowRun&) noexcept;
constexpr VectorForms<VectorForm> kForms{ValidateRunPlain, ValidateRunAvx2, ValidateRunAvx512};

// Whether the rows and the ones beside them suit the vector forms.
bool FitsVectorForms(const FrameRows& rows, RowRange range, int echo_count) noexcept {
  if (range.begin == range.end || echo_count < 1 || echo_count > kEchoSlots) return false;
  const std::size_t columns = rows[range.begin].size();
  if (columns < 1 || columns > static_cast<std::size_t>(kMaxColumns)) return false;
  const std::size_t begin = range.begin > 0 ? range.begin - 1 : 0;
  const std::size_t end = std::min(range.end + 1, rows.size());
  for (std::size_t row = begin; row < end; ++row) {
    if (rows[row].size() != columns) return false;
  }
  return true;
}

void ValidateRowsByLanes(FrameRows& rows, RowRange range, int echo_count, bool prime,
                         VectorForm form) noexcept {
  for (std::size_t begin = range.begin; begin < range.end; begin += kMaxRows) {
    RowRun run;
    run.row_count = static_cast<int>(std::min<std::size_t>(kMaxRows, range.end - begin));
    run.columns = static_cast<int>(rows[begin].size());
    run.echo_count = echo_count;
    run.prime = prime;
    if (begin > 0) run.lines[0] = rows[begin - 1].data();
    for (std::size_t i = 1; i < std::size(run.lines) && begin + i - 1 < rows.size(); ++i) {
      run.lines[i] = rows[begin + i - 1].data();
    }
    form(run);
  }
}

void Validate(FrameRows& rows, int first_row, int row_count, bool prime) noexcept {
  const int echo_count = LidarPoint::echo_num;
  const RowRange range = ClipRows(rows, first_row, row_count);
  const VectorForm form = kForms.Chosen();
  if (form != nullptr && FitsVectorForms(rows, range, echo_count)) {
    ValidateRowsByLanes(rows, range, echo_count, prime, form);
    return;
  }
  if (prime) PrimeProcessedFields(rows, first_row, row_count);
  ValidateRowsScalar(rows, range, echo_count);
}

}  // namespace

void ValidateNeighbours(FrameRows& rows, int first_row, int row_count) noexcept {
  Validate(rows, first_row, row_count, false);
}

void PrimeAndValidateNeighbours(FrameRows& rows, int first_row, int row_count) noexcept {
  Validate(rows, first_row, row_count, true);
}

}  // namespace kerul::lidar
